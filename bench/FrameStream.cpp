#include "bench/FrameStream.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace Vellmark::Bench {

bool FrameStream::Write(Tarv::IPCFrame const& frame) {
    m_out.clear();
    return Tarv::AppendFrame(frame, m_out) && WriteBytes(m_out.data(), m_out.size());
}

bool FrameStream::Write(Tarv::IPCFrame::Kind kind, unsigned int id, std::uint64_t number,
                        Tarv::IPCMessageEnvelopeBase const& envelope) {
    m_out.clear();
    return Tarv::AppendFrame(kind, id, envelope, number, m_out) &&
           WriteBytes(m_out.data(), m_out.size());
}

bool FrameStream::WriteBytes(char const* data, std::size_t size) {
    std::size_t done = 0;
    while (done < size) {
        ssize_t const n = ::send(m_fd, data + done, size - done, MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        done += static_cast<std::size_t>(n);
    }
    return true;
}

bool FrameStream::Fill() {
    char buffer[64 * 1024];
    for (;;) {
        ssize_t const n = ::recv(m_fd, buffer, sizeof buffer, 0);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        m_decoder.Feed(buffer, static_cast<std::size_t>(n));
        return true;
    }
}

bool FrameStream::Read(Tarv::IPCFrame& frame) {
    for (;;) {
        switch (m_decoder.Next(frame)) {
            case Tarv::FrameDecoder::Status::Frame:
                return true;
            case Tarv::FrameDecoder::Status::NeedMore:
                if (!Fill()) return false;
                continue;
            default:
                return false;
        }
    }
}

bool FrameStream::ReadBytes(char* data, std::size_t size) {
    // Raw bytes come only where no frame is under way: the control words of the floors.
    std::size_t done = 0;
    while (done < size) {
        ssize_t const n = ::recv(m_fd, data + done, size - done, 0);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        done += static_cast<std::size_t>(n);
    }
    return true;
}

}  // namespace Vellmark::Bench
