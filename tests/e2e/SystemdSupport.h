#pragma once
// What the systemd tests share: vellmarkd started by systemd-socket-activate on the first
// connection, a notification socket standing in for the service manager's, and connecting
// to a socket path.
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <utility>

#include "tests/e2e/ServiceFixture.h"

namespace Vellmark::EndToEnd {

inline bool HasSocketActivate() {
    return std::strlen(SYSTEMD_SOCKET_ACTIVATE_PATH) > 0;
}

inline sockaddr_un UnixAddress(std::string const& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    return address;
}

// True when a server listens at `path`.
inline bool Connects(std::string const& path) {
    int const fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un const address = UnixAddress(path);
    bool const connected =
        ::connect(fd, reinterpret_cast<sockaddr const*>(&address), sizeof address) == 0;
    ::close(fd);
    return connected;
}

inline bool Exists(std::string const& path) {
    return ::access(path.c_str(), F_OK) == 0;
}

// A socket systemd-socket-activate listens on: its path and the name it passes it under.
struct PassedSocket {
    std::string path;
    std::string name;
};

// systemd-socket-activate listening on `sockets` (datagram sockets when asked), which starts
// vellmarkd with `arguments` on the first connection (or datagram) and passes them on. The
// child gets only the environment named here: the sanitizers' options are passed on.
inline std::unique_ptr<ChildProcess> Activate(std::vector<PassedSocket> const& sockets,
                                              std::vector<std::string> const& arguments,
                                              bool datagram = false) {
    std::vector<std::string> words;
    if (datagram) words.push_back("--datagram");
    std::string names;
    for (auto const& socket : sockets) {
        words.insert(words.end(), {"--listen", socket.path});
        names += (names.empty() ? "" : ":") + socket.name;
    }
    words.push_back("--fdname=" + names);
    for (char const* name : {"ASAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS", "TSAN_OPTIONS"}) {
        if (std::getenv(name)) words.insert(words.end(), {"--setenv", name});
    }
    // In a cross build vellmarkd runs under the emulator, which the activation starts.
    words.insert(words.end(), kChildLauncher.begin(), kChildLauncher.end());
    words.push_back(VELLMARKD_PATH);
    words.insert(words.end(), arguments.begin(), arguments.end());
    ChildLaunch launch;
    launch.hostProgram = true;
    return std::make_unique<ChildProcess>(SYSTEMD_SOCKET_ACTIVATE_PATH, words, launch);
}

// A datagram socket at `path` taking the notifications a service sends to NOTIFY_SOCKET.
class NotifySocket {
public:
    explicit NotifySocket(std::string path) : m_path(std::move(path)) {
        m_fd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_un const address = UnixAddress(m_path);
        if (::bind(m_fd, reinterpret_cast<sockaddr const*>(&address), sizeof address) != 0) {
            ADD_FAILURE() << "cannot bind " << m_path << ": " << std::strerror(errno);
        }
    }
    ~NotifySocket() { ::close(m_fd); }
    NotifySocket(NotifySocket const&) = delete;
    NotifySocket& operator=(NotifySocket const&) = delete;

    std::string const& Path() const { return m_path; }

    // The first notification holding the line `line` (e.g. "READY=1"), received within
    // `bound`; nothing when none came.
    std::optional<std::string> WaitForLine(std::string const& line,
                                           std::chrono::milliseconds bound) {
        auto const deadline = std::chrono::steady_clock::now() + bound;
        for (std::size_t next = 0;; ++next) {
            while (next == m_received.size()) {
                auto const left = std::chrono::duration_cast<std::chrono::milliseconds>(
                    deadline - std::chrono::steady_clock::now());
                if (left.count() <= 0) return std::nullopt;
                pollfd p{m_fd, POLLIN, 0};
                if (::poll(&p, 1, static_cast<int>(left.count())) <= 0) continue;
                char buffer[4096];
                ssize_t const n = ::recv(m_fd, buffer, sizeof buffer, 0);
                if (n > 0) m_received.emplace_back(buffer, static_cast<std::size_t>(n));
            }
            if (HasLine(m_received[next], line)) return m_received[next];
        }
    }

    // The value of `name` in `notification` ("STATUS" in "READY=1\nSTATUS=..."), or nothing.
    static std::optional<std::string> Value(std::string const& notification,
                                            std::string const& name) {
        std::size_t at = 0;
        while (at < notification.size()) {
            std::size_t const end = std::min(notification.find('\n', at), notification.size());
            std::string const line = notification.substr(at, end - at);
            if (line.rfind(name + "=", 0) == 0) return line.substr(name.size() + 1);
            at = end + 1;
        }
        return std::nullopt;
    }

private:
    static bool HasLine(std::string const& notification, std::string const& line) {
        auto const equals = line.find('=');
        return Value(notification, line.substr(0, equals)) == line.substr(equals + 1);
    }

    std::string m_path;
    int m_fd = -1;
    std::vector<std::string> m_received;
};

}  // namespace Vellmark::EndToEnd
