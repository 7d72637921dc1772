#include "platform/ipc/transport/FrameCodec.h"

#include <cstdint>
#include <cstring>

#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/io/zero_copy_stream_impl_lite.h>
#include <google/protobuf/util/delimited_message_util.h>
#include <google/protobuf/wire_format_lite.h>

namespace Tarv {

namespace {
// The delimited writer never uses more than five bytes for a 32-bit length.
constexpr std::size_t kMaxLengthBytes = 5;

// Every frame names its kind and identifier; requests and responses carry their number.
bool IsWellFormed(IPCFrame const& frame) {
    if (!frame.has_kind() || !frame.has_envelope() || !frame.envelope().has_message_id()) {
        return false;
    }
    bool const numbered = frame.kind() == IPCFrame::REQUEST || frame.kind() == IPCFrame::RESPONSE;
    return !numbered || frame.has_request_number();
}

}  // namespace

IPCFrame MakeFrame(IPCFrame::Kind kind, unsigned int id, IPCMessageEnvelopeBase const& envelope,
                   std::uint64_t number) {
    IPCFrame frame;
    frame.set_kind(kind);
    if (kind == IPCFrame::REQUEST || kind == IPCFrame::RESPONSE) frame.set_request_number(number);
    *frame.mutable_envelope() = envelope;
    frame.mutable_envelope()->set_message_id(id);
    return frame;
}

bool AppendFrame(IPCFrame const& frame, std::string& out, std::size_t maxFrameBytes) {
    std::size_t const start = out.size();
    bool written;
    {
        google::protobuf::io::StringOutputStream stream(&out);
        written = google::protobuf::util::SerializeDelimitedToZeroCopyStream(frame, &stream);
    }  // the stream gives back what it reserved beyond the frame here
    // The size is checked after writing, from the size the writer cached, so that a send
    // measures its frame once.
    if (!written || static_cast<std::size_t>(frame.GetCachedSize()) > maxFrameBytes) {
        out.resize(start);
        return false;
    }
    return true;
}

namespace {

bool Numbered(IPCFrame::Kind kind) {
    return kind == IPCFrame::REQUEST || kind == IPCFrame::RESPONSE;
}

bool Renumbered(unsigned int id, IPCMessageEnvelopeBase const& envelope) {
    return !envelope.has_message_id() || envelope.message_id() != id;
}

// The envelope as written: its cached size, and the identifier appended when needed.
std::size_t EnvelopeBytes(unsigned int id, IPCMessageEnvelopeBase const& envelope) {
    return envelope.GetCachedSize() +
           (Renumbered(id, envelope) ? 1 + google::protobuf::io::CodedOutputStream::VarintSize32(id)
                                     : 0);
}

}  // namespace

std::size_t FrameBodyBytes(IPCFrame::Kind kind, unsigned int id,
                           IPCMessageEnvelopeBase const& envelope, std::uint64_t number) {
    using google::protobuf::io::CodedOutputStream;
    envelope.ByteSizeLong();  // caches the size EnvelopeBytes and the writer use
    std::size_t const envelopeBytes = EnvelopeBytes(id, envelope);
    return 1 + CodedOutputStream::VarintSize32(static_cast<std::uint32_t>(kind)) +
           (Numbered(kind) ? 1 + CodedOutputStream::VarintSize64(number) : 0) + 1 +
           CodedOutputStream::VarintSize64(envelopeBytes) + envelopeBytes;
}

bool AppendFrame(IPCFrame::Kind kind, unsigned int id, IPCMessageEnvelopeBase const& envelope,
                 std::uint64_t number, std::string& out, std::size_t maxFrameBytes) {
    using google::protobuf::internal::WireFormatLite;
    using google::protobuf::io::CodedOutputStream;
    bool const numbered = Numbered(kind);
    bool const renumbered = Renumbered(id, envelope);
    std::size_t const body = FrameBodyBytes(kind, id, envelope, number);
    std::size_t const envelopeBytes = EnvelopeBytes(id, envelope);
    if (body > maxFrameBytes || body > std::size_t(INT32_MAX)) return false;
    std::size_t const start = out.size();
    out.resize(start + CodedOutputStream::VarintSize64(body) + body);
    auto* at = reinterpret_cast<std::uint8_t*>(&out[start]);
    at = CodedOutputStream::WriteVarint64ToArray(body, at);
    at = WireFormatLite::WriteEnumToArray(IPCFrame::kKindFieldNumber, kind, at);
    if (numbered) {
        at = WireFormatLite::WriteUInt64ToArray(IPCFrame::kRequestNumberFieldNumber, number, at);
    }
    at = WireFormatLite::WriteTagToArray(IPCFrame::kEnvelopeFieldNumber,
                                         WireFormatLite::WIRETYPE_LENGTH_DELIMITED, at);
    at = CodedOutputStream::WriteVarint64ToArray(envelopeBytes, at);
    // The size was just computed and cached: the envelope is written from it.
    at = envelope.SerializeWithCachedSizesToArray(at);
    if (renumbered) {
        at = WireFormatLite::WriteUInt32ToArray(IPCMessageEnvelopeBase::kMessageIdFieldNumber, id,
                                                at);
    }
    return true;
}

void FrameDecoder::Feed(char const* data, std::size_t size) {
    if (size == 0) return;
    std::memcpy(Prepare(size), data, size);
    Commit(size);
}

char* FrameDecoder::Prepare(std::size_t size) {
    if (m_offset == m_end) {
        m_offset = m_end = 0;  // all decoded: start again at the front, nothing to move
    } else if (m_buffer.size() - m_end < size && m_offset > 0) {
        // Drop what was decoded before growing the buffer, so it holds at most one frame
        // and one read's worth of bytes.
        std::memmove(&m_buffer[0], m_buffer.data() + m_offset, m_end - m_offset);
        m_end -= m_offset;
        m_offset = 0;
    }
    if (m_buffer.size() - m_end < size) m_buffer.resize(m_end + size);
    return &m_buffer[m_end];
}

FrameDecoder::Status FrameDecoder::Next(IPCFrame& frame) {
    auto const* begin = reinterpret_cast<std::uint8_t const*>(m_buffer.data()) + m_offset;
    std::size_t const available = Buffered();

    // The length is complete once a byte without the continuation bit has arrived.
    std::size_t lengthBytes = 0;
    while (lengthBytes < available && lengthBytes < kMaxLengthBytes &&
           (begin[lengthBytes] & 0x80) != 0) {
        ++lengthBytes;
    }
    if (lengthBytes == kMaxLengthBytes) return Status::Malformed;
    if (lengthBytes == available) return Status::NeedMore;
    ++lengthBytes;

    google::protobuf::io::CodedInputStream input(begin, static_cast<int>(available));
    std::uint32_t length = 0;
    if (!input.ReadVarint32(&length)) return Status::Malformed;
    if (length > m_maxFrameBytes) {
        m_refusedLength = length;
        return Status::TooLarge;
    }
    if (available - lengthBytes < length) return Status::NeedMore;

    google::protobuf::io::CodedInputStream whole(begin, static_cast<int>(lengthBytes + length));
    bool cleanEof = false;
    if (!google::protobuf::util::ParseDelimitedFromCodedStream(&frame, &whole, &cleanEof)) {
        return Status::Malformed;
    }
    m_offset += lengthBytes + length;
    if (!IsWellFormed(frame)) return Status::Malformed;
    return Status::Frame;
}

}  // namespace Tarv
