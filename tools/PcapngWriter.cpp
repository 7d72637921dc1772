#include "tools/PcapngWriter.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace Vellmark::Ctl {
namespace {

// Block types and option codes of the pcapng format.
constexpr std::uint32_t kSectionHeader = 0x0A0D0D0A;
constexpr std::uint32_t kInterfaceDescription = 1;
constexpr std::uint32_t kEnhancedPacket = 6;
constexpr std::uint32_t kByteOrderMagic = 0x1A2B3C4D;
constexpr std::uint16_t kOptEnd = 0;
constexpr std::uint16_t kOptComment = 1;
constexpr std::uint16_t kShbUserApplication = 4;
constexpr std::uint16_t kIfName = 2;
constexpr std::uint16_t kEpbFlags = 2;

// Every number is written little-endian; the byte-order magic tells readers so.
void Put16(std::string& out, std::uint16_t value) {
    out.push_back(static_cast<char>(value & 0xFF));
    out.push_back(static_cast<char>(value >> 8));
}
void Put32(std::string& out, std::uint32_t value) {
    for (int shift = 0; shift < 32; shift += 8) out.push_back(static_cast<char>(value >> shift));
}
void Pad(std::string& out) {
    while (out.size() % 4 != 0) out.push_back('\0');
}
void PutOption(std::string& out, std::uint16_t code, std::string const& value) {
    Put16(out, code);
    Put16(out, static_cast<std::uint16_t>(value.size()));
    out += value;
    Pad(out);
}
void EndOptions(std::string& out) {
    Put16(out, kOptEnd);
    Put16(out, 0);
}

// A whole block: type, total length, `body` (a multiple of 4 bytes), total length again.
std::string Block(std::uint32_t type, std::string const& body) {
    std::string block;
    auto const total = static_cast<std::uint32_t>(12 + body.size());
    Put32(block, type);
    Put32(block, total);
    block += body;
    Put32(block, total);
    return block;
}

std::string Reason(std::string const& path, char const* doing) {
    return "cannot " + std::string(doing) + " " + path + ": " + std::strerror(errno);
}

}  // namespace

PcapngWriter::PcapngWriter(std::string const& path)
    : m_path(path == "-" ? "standard output" : path) {
    if (path == "-") {
        m_fd = STDOUT_FILENO;
    } else {
        m_fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        if (m_fd < 0) throw Error(Reason(path, "write"));
        m_owned = true;
        // A file that was there keeps its mode on open: a capture is private all the same.
        struct stat status {};
        if (::fstat(m_fd, &status) == 0 && S_ISREG(status.st_mode) && ::fchmod(m_fd, 0600) != 0) {
            std::string const reason = Reason(path, "make private");
            ::close(m_fd);
            m_fd = -1;
            throw Error(reason);
        }
    }

    std::string section;
    Put32(section, kByteOrderMagic);
    Put16(section, 1);  // version 1.0
    Put16(section, 0);
    Put32(section, 0xFFFFFFFF);  // section length not given
    Put32(section, 0xFFFFFFFF);
    PutOption(section, kShbUserApplication, "vellmarkctl monitor");
    EndOptions(section);

    std::string interface;
    Put16(interface, kLinkType);
    Put16(interface, 0);  // reserved
    Put32(interface, 0);  // no snapshot length: every frame whole
    PutOption(interface, kIfName, "Vellmark");
    EndOptions(interface);  // timestamps in microseconds, the format's default

    try {
        WriteBlock(Block(kSectionHeader, section));
        WriteBlock(Block(kInterfaceDescription, interface));
    } catch (...) {
        if (m_owned) ::close(m_fd);
        throw;
    }
}

PcapngWriter::~PcapngWriter() {
    if (m_owned && m_fd >= 0) ::close(m_fd);
}

void PcapngWriter::Write(std::int64_t micros, std::string const& bytes, Direction direction,
                         std::string const& comment) {
    auto const stamp = static_cast<std::uint64_t>(micros);
    std::string body;
    Put32(body, 0);  // the interface
    Put32(body, static_cast<std::uint32_t>(stamp >> 32));
    Put32(body, static_cast<std::uint32_t>(stamp & 0xFFFFFFFF));
    Put32(body, static_cast<std::uint32_t>(bytes.size()));  // captured
    Put32(body, static_cast<std::uint32_t>(bytes.size()));  // on the wire
    body += bytes;
    Pad(body);
    if (direction != Direction::Unknown) {
        std::string flags;
        Put32(flags, direction == Direction::Inbound ? 1 : 2);
        PutOption(body, kEpbFlags, flags);
    }
    if (!comment.empty()) PutOption(body, kOptComment, comment);
    EndOptions(body);
    WriteBlock(Block(kEnhancedPacket, body));
}

void PcapngWriter::WriteBlock(std::string const& block) {
    std::size_t written = 0;
    while (written < block.size()) {
        ssize_t const n = ::write(m_fd, block.data() + written, block.size() - written);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) throw Error(Reason(m_path, "write"));
        written += static_cast<std::size_t>(n);
    }
}

}  // namespace Vellmark::Ctl
