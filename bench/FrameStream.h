#pragma once
// FrameStream: our frames over a blocking stream socket, for the floors of transport_bench:
// written whole, read with the transport's own decoder. Nothing else of the transport.
#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/ipc/transport/FrameCodec.h"

namespace Vellmark::Bench {

class FrameStream {
public:
    explicit FrameStream(int fd) : m_fd(fd) {}

    // Serializes `frame` and writes it whole. False when the peer has gone.
    bool Write(Tarv::IPCFrame const& frame);
    // Encodes the frame of `kind` carrying `envelope` under `id` straight from the envelope,
    // as the transport sends, and writes it whole.
    bool Write(Tarv::IPCFrame::Kind kind, unsigned int id, std::uint64_t number,
               Tarv::IPCMessageEnvelopeBase const& envelope);
    // Writes bytes as they are.
    bool WriteBytes(char const* data, std::size_t size);
    // Reads until a whole frame has arrived and decodes it. False at the end of the stream
    // or on a frame that does not decode.
    bool Read(Tarv::IPCFrame& frame);
    // Reads exactly `size` raw bytes; only where no frame is under way.
    bool ReadBytes(char* data, std::size_t size);

    int Fd() const { return m_fd; }

private:
    bool Fill();

    int const m_fd;
    std::string m_out;
    Tarv::FrameDecoder m_decoder;
};

}  // namespace Vellmark::Bench
