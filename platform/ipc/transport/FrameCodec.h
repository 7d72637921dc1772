#pragma once
// The framing of IPC connections: each frame is a Tarv::IPCFrame written length-delimited
// (a varint byte count, then the serialized frame), as protobuf's delimited-message
// utilities write it.
//
// A frame body may be at most the connection's limit long (IPCFrameLimit.h: 1 MiB unless the
// process chose another). A decoder refuses a longer frame as soon as its length has arrived,
// before buffering its body.
#include <cstddef>
#include <cstdint>
#include <string>

#include "IPCFrame.pb.h"
#include "platform/TarvExport.h"
#include "platform/ipc/IPCFrameLimit.h"

namespace Tarv {

constexpr std::size_t kMaxFrameBytes = IPCFrameLimit::kDefaultFrameBytes;

// A frame of `kind` carrying `envelope` under the identifier `id`; `number` is kept for
// requests and responses only.
TARV_TRANSPORT_EXPORT IPCFrame MakeFrame(IPCFrame::Kind kind, unsigned int id,
                                         IPCMessageEnvelopeBase const& envelope,
                                         std::uint64_t number = 0);

// Appends `frame`, length-delimited, to `out`. False (and `out` unchanged) if its body
// would be longer than `maxFrameBytes`.
TARV_TRANSPORT_EXPORT bool AppendFrame(IPCFrame const& frame, std::string& out,
                                       std::size_t maxFrameBytes = kMaxFrameBytes);

// Appends the frame MakeFrame(kind, id, envelope, number) makes, length-delimited, without
// copying the envelope: what every send does. The bytes are MakeFrame's, except that an
// envelope naming another identifier keeps it and gets `id` after it (the last one counts
// when parsed). False (and `out` unchanged) if the body would be longer than
// `maxFrameBytes`.
TARV_TRANSPORT_EXPORT bool AppendFrame(IPCFrame::Kind kind, unsigned int id,
                                       IPCMessageEnvelopeBase const& envelope, std::uint64_t number,
                                       std::string& out,
                                       std::size_t maxFrameBytes = kMaxFrameBytes);

// The body size of the frame that AppendFrame(kind, id, envelope, number, ...) writes (the
// length prefix left out), computed without writing it; caches the envelope's size.
TARV_TRANSPORT_EXPORT std::size_t FrameBodyBytes(IPCFrame::Kind kind, unsigned int id,
                                                 IPCMessageEnvelopeBase const& envelope,
                                                 std::uint64_t number);

// Cuts a byte stream into frames. Feed it bytes as they arrive, then call Next until it
// stops returning Status::Frame. A frame that parses but lacks its kind, its identifier or
// (for requests and responses) its number is Malformed. After TooLarge or Malformed the stream
// cannot be resynchronised: the connection must be closed.
class TARV_TRANSPORT_EXPORT FrameDecoder {
public:
    enum class Status { Frame, NeedMore, TooLarge, Malformed };

    explicit FrameDecoder(std::size_t maxFrameBytes = kMaxFrameBytes)
        : m_maxFrameBytes(maxFrameBytes) {}

    void Feed(char const* data, std::size_t size);
    // For reading straight into the decoder: Prepare gives room for `size` bytes after those
    // received, valid until the next call; Commit(n) takes the first n of them as received.
    char* Prepare(std::size_t size);
    void Commit(std::size_t size) { m_end += size; }
    // Decodes the next whole frame into `frame`, if one has arrived.
    Status Next(IPCFrame& frame);

    // Bytes received and not yet decoded.
    std::size_t Buffered() const { return m_end - m_offset; }
    // The length the last TooLarge frame announced.
    std::size_t RefusedLength() const { return m_refusedLength; }

private:
    std::size_t const m_maxFrameBytes;
    // Received bytes are m_buffer[m_offset, m_end); the rest is room for the next read,
    // kept rather than cleared so that reading never fills memory it then overwrites.
    std::string m_buffer;
    std::size_t m_offset = 0;
    std::size_t m_end = 0;
    std::size_t m_refusedLength = 0;
};

}  // namespace Tarv
