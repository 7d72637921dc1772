#pragma once
// PcapngWriter: a capture file in the pcapng format that Wireshark and tshark open, holding
// one packet per frame of the Vellmark endpoint.
//
// The file has one section and one interface of link type LINKTYPE_USER0 (147): a packet's
// bytes are the frame exactly as it goes over the socket (its length as a varint, then the
// Tarv::IPCFrame), so the dissector (wireshark/vellmark.lua) claims that link type and
// reads the frame from its first byte; nothing has to be stripped or configured (the
// upper-PDU link type would put tags naming the dissector before every frame).
//
// Every block is written through at once (no buffering in the process), so the file is
// whole after each packet: when the program is stopped, by Ctrl-C or otherwise, the file
// ends with the last packet written. Not thread-safe: one thread writes.
#include <cstdint>
#include <stdexcept>
#include <string>

namespace Vellmark::Ctl {

class PcapngWriter {
public:
    // Link type of the interface: the first of the link types reserved for private use.
    static constexpr std::uint16_t kLinkType = 147;

    enum class Direction { Unknown, Inbound, Outbound };

    // A file that cannot be made or written: the message names the path and the reason.
    class Error : public std::runtime_error {
    public:
        using std::runtime_error::runtime_error;
    };

    // Makes `path` (replacing a file there; "-" writes to standard output) readable by its
    // owner only, and writes the section header and the interface. Throws Error.
    explicit PcapngWriter(std::string const& path);
    ~PcapngWriter();
    PcapngWriter(PcapngWriter const&) = delete;
    PcapngWriter& operator=(PcapngWriter const&) = delete;

    // Writes one packet: `bytes`, stamped `micros` microseconds after 1970-01-01 UTC, with
    // its direction and, when not empty, a comment. Throws Error.
    void Write(std::int64_t micros, std::string const& bytes, Direction direction,
               std::string const& comment);

private:
    void WriteBlock(std::string const& block);

    std::string m_path;
    int m_fd = -1;
    bool m_owned = false;
};

}  // namespace Vellmark::Ctl
