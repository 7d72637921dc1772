#include "tools/ServiceProbe.h"

#include <fcntl.h>
#include <poll.h>
#include <pwd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iostream>

#include "platform/ipc/IPCDirectory.h"
#include "platform/ipc/PeerCredentials.h"
#include "tools/Command.h"

namespace Vellmark::Ctl {

namespace {

// "lena (uid 1000)"
std::string ThisUser() {
    uid_t const uid = ::geteuid();
    std::string name;
    if (passwd const* entry = ::getpwuid(uid)) name = entry->pw_name;
    return (name.empty() ? "uid " : name + " (uid ") + std::to_string(uid) +
           (name.empty() ? "" : ")");
}

// A connected socket, or -1 with errno set.
int Connect(std::string const& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        errno = ENAMETOOLONG;
        return -1;
    }
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    int const fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return -1;
    if (::connect(fd, reinterpret_cast<sockaddr const*>(&address), sizeof address) != 0) {
        int const error = errno;
        ::close(fd);
        errno = error;
        return -1;
    }
    return fd;
}

}  // namespace

int Report(Diagnosis const& diagnosis) {
    std::cerr << "vellmarkctl: " << diagnosis.message << "\n";
    return diagnosis.code;
}

ServiceProbe::ServiceProbe(std::string path, std::string allowOptions)
    : m_path(std::move(path)), m_allowOptions(std::move(allowOptions)) {
    m_fd = Connect(m_path);
    if (m_fd < 0) {
        int const error = errno;
        if (error == ENOENT || error == ENOTDIR) {
            m_found = Diagnosis{
                kNotRunning, "vellmarkd is not running at " + m_path + " (no socket file there)"};
        } else if (error == ECONNREFUSED) {
            m_found = Diagnosis{kNotRunning, "vellmarkd is not running at " + m_path +
                                                 " (a socket file is left there, but nothing "
                                                 "listens on it)"};
        } else if (error == EACCES || error == EPERM) {
            m_found = Diagnosis{kPermissionDenied,
                                "permission denied: " + ThisUser() + " may not open " + m_path +
                                    " (the socket file or its folder keeps this user out; see "
                                    "vellmarkd's " +
                                    m_allowOptions + ")"};
        }
        // Anything else: the library's own attempts, and --timeout, tell.
        return;
    }
    auto const peer = Tarv::ReadPeerCredentials(m_fd);
    auto const trusted = IPCDirectory::Get().TrustedServerUsers();
    if (peer && std::find(trusted.begin(), trusted.end(), peer->uid) == trusted.end()) {
        m_found =
            Diagnosis{kRefusedByService,
                      "the server at " + m_path + " runs as uid " + std::to_string(peer->uid) +
                          ", which is neither root nor the owner of the runtime folder: "
                          "not talking to it"};
        return;
    }
    // The service always lets its own user and root in: nothing to watch for then.
    if (peer && (::geteuid() == 0 || ::geteuid() == peer->uid)) {
        ::close(m_fd);
        m_fd = -1;
    }
}

ServiceProbe::~ServiceProbe() {
    Stop();
    for (int fd : {m_fd, m_stop[0], m_stop[1]}) {
        if (fd >= 0) ::close(fd);
    }
}

void ServiceProbe::Watch(std::function<void()> onRefused) {
    if (m_fd < 0 || m_found || m_watcher.joinable()) return;
    if (::pipe2(m_stop, O_CLOEXEC) != 0) return;
    m_watcher = std::thread([this, onRefused = std::move(onRefused)] { Watching(onRefused); });
}

void ServiceProbe::Stop() {
    if (!m_watcher.joinable()) return;
    char const stop = 1;
    (void)!::write(m_stop[1], &stop, 1);
    m_watcher.join();
}

std::optional<Diagnosis> ServiceProbe::AwaitVerdict(std::chrono::milliseconds bound) {
    std::unique_lock<std::mutex> lock(m_mutex);
    if (!m_watcher.joinable()) return m_verdict;
    auto const ended = [this] { return m_watchEnded; };
    if (bound.count() == 0) {
        m_ended.wait(lock, ended);
    } else {
        m_ended.wait_for(lock, bound, ended);
    }
    return m_verdict;
}

std::optional<Diagnosis> ServiceProbe::Verdict() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_verdict;
}

void ServiceProbe::Watching(std::function<void()> onRefused) {
    if (Refused()) onRefused();
    std::lock_guard<std::mutex> lock(m_mutex);
    m_watchEnded = true;
    m_ended.notify_all();
}

bool ServiceProbe::Refused() {
    if (!ClosedByService(m_fd)) return false;
    // Once may be a dropped connection (`admin drop-connections`); the credential check
    // closes every one.
    int const again = Connect(m_path);
    if (again < 0) return false;  // gone: the command's own wait tells
    bool const refused = ClosedByService(again);
    ::close(again);
    if (!refused) return false;
    std::lock_guard<std::mutex> lock(m_mutex);
    m_verdict =
        Diagnosis{kRefusedByService, "vellmarkd at " + m_path +
                                         " closed the connection at once: it does "
                                         "not let " +
                                         ThisUser() + " in (see its " + m_allowOptions + ")"};
    return true;
}

bool ServiceProbe::ClosedByService(int fd) {
    pollfd watched[2] = {{fd, POLLIN | POLLRDHUP, 0}, {m_stop[0], POLLIN, 0}};
    for (;;) {
        if (::poll(watched, 2, -1) < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        if (watched[1].revents != 0) return false;
        if (watched[0].revents == 0) continue;
        char byte = 0;
        ssize_t const got = ::recv(fd, &byte, 1, MSG_PEEK | MSG_DONTWAIT);
        if (got < 0 && (errno == EAGAIN || errno == EINTR)) continue;
        // A byte: the service took the connection and speaks on it.
        return got <= 0;
    }
}

}  // namespace Vellmark::Ctl
