#pragma once
// RawConnection: a plain socket to one of vellmarkd's endpoints that writes request frames
// as no client of the library would: as many as it likes, as big as it likes, without
// waiting for answers. It reads what comes back only when asked.
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstring>
#include <string>

#include "framework/ipc/IPCMessageEnvelope.h"
#include "platform/ipc/transport/FrameCodec.h"

namespace Vellmark::EndToEnd {

class RawConnection {
public:
    explicit RawConnection(std::string const& path) {
        m_fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
        m_connected =
            ::connect(m_fd, reinterpret_cast<sockaddr const*>(&address), sizeof address) == 0;
    }
    ~RawConnection() { ::close(m_fd); }
    RawConnection(RawConnection const&) = delete;
    RawConnection& operator=(RawConnection const&) = delete;

    bool Connected() const { return m_connected; }

    // The bytes of request `number` under `id` carrying `payload` (bytes that need not parse).
    static std::string Request(unsigned int id, std::uint64_t number, std::string payload) {
        IPCMessageEnvelope envelope;
        envelope.set_payload(std::move(payload));
        std::string bytes;
        Tarv::AppendFrame(Tarv::MakeFrame(Tarv::IPCFrame::REQUEST, id, envelope.Base(), number),
                          bytes, IPCFrameLimit::kHardMaxFrameBytes);
        return bytes;
    }

    // Writes all of `bytes`; false once the service has closed the connection.
    bool Write(std::string const& bytes) {
        std::size_t written = 0;
        while (written < bytes.size()) {
            ssize_t const n =
                ::send(m_fd, bytes.data() + written, bytes.size() - written, MSG_NOSIGNAL);
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) return false;
            written += static_cast<std::size_t>(n);
        }
        return true;
    }

    // Reads what has come, waiting up to `bound` for something to come, and appends it to
    // `into`; the bytes read, or -1 once the service has closed the connection.
    long long ReadSome(std::chrono::milliseconds bound, std::string& into) {
        pollfd p{m_fd, POLLIN, 0};
        if (::poll(&p, 1, static_cast<int>(bound.count())) <= 0) return 0;
        char buffer[64 * 1024];
        ssize_t const n = ::recv(m_fd, buffer, sizeof buffer, 0);
        if (n <= 0) return -1;
        into.append(buffer, static_cast<std::size_t>(n));
        return n;
    }

    // True when the service closes the connection within `bound`; what it sent before is
    // read and dropped.
    bool SeesEnd(std::chrono::milliseconds bound) {
        auto const deadline = std::chrono::steady_clock::now() + bound;
        while (std::chrono::steady_clock::now() < deadline) {
            auto const left = std::chrono::duration_cast<std::chrono::milliseconds>(
                deadline - std::chrono::steady_clock::now());
            std::string dropped;
            if (ReadSome(left, dropped) < 0) return true;
        }
        return false;
    }

private:
    int m_fd = -1;
    bool m_connected = false;
};

}  // namespace Vellmark::EndToEnd
