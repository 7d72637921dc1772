#include "tools/ServiceWait.h"

#include <poll.h>
#include <sys/inotify.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <iostream>

namespace Vellmark::Ctl {
namespace {

using Clock = std::chrono::steady_clock;

// What one attempt to connect to `path` says.
enum class Attempt { Accepted, Absent, Refused, NotPermitted };

Attempt TryConnect(std::string const& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) return Attempt::Absent;
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    int const fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return Attempt::Absent;
    int const result = ::connect(fd, reinterpret_cast<sockaddr const*>(&address), sizeof address);
    int const error = errno;
    ::close(fd);
    if (result == 0) return Attempt::Accepted;
    if (error == EACCES || error == EPERM) return Attempt::NotPermitted;
    return error == ECONNREFUSED ? Attempt::Refused : Attempt::Absent;
}

// An inotify instance watching the deepest folder on the way to `path` that exists: for
// an entry made, moved in, changed (the socket file's mode) or removed, and for the folder
// itself going away.
class FolderWatch {
public:
    explicit FolderWatch(std::filesystem::path const& path) {
        m_fd = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
        if (m_fd < 0) return;
        std::filesystem::path folder = path.parent_path();
        while (!folder.empty()) {
            uint32_t const events = IN_CREATE | IN_MOVED_TO | IN_ATTRIB | IN_DELETE |
                                    IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;
            if (::inotify_add_watch(m_fd, folder.c_str(), events) >= 0) {
                m_watching = true;
                return;
            }
            // A folder that is not there yet: its parent tells when it comes. One that
            // cannot be watched (no read permission) leaves only trying again now and then.
            if (errno != ENOENT && errno != ENOTDIR) return;
            if (folder == folder.root_path()) return;
            folder = folder.parent_path();
        }
    }
    ~FolderWatch() {
        if (m_fd >= 0) ::close(m_fd);
    }
    FolderWatch(FolderWatch const&) = delete;
    FolderWatch& operator=(FolderWatch const&) = delete;

    // Waits for an event, at most `timeout` (-1: no bound); false when none came.
    bool Wait(int timeoutMs) {
        if (!m_watching) {
            int const pause =
                timeoutMs < 0 ? kUnwatchedPauseMs : std::min(timeoutMs, kUnwatchedPauseMs);
            ::poll(nullptr, 0, pause);
            return true;
        }
        pollfd watched{m_fd, POLLIN, 0};
        int ready;
        do {
            ready = ::poll(&watched, 1, timeoutMs);
        } while (ready < 0 && errno == EINTR);
        if (ready <= 0) return false;
        // The events only say that something changed; the next attempt tells what.
        alignas(inotify_event) char buffer[4096];
        while (::read(m_fd, buffer, sizeof buffer) > 0) {
        }
        return true;
    }

private:
    // Without inotify (no instance left for this user, a folder this user may not read),
    // the attempts are made this often.
    static constexpr int kUnwatchedPauseMs = 100;

    int m_fd = -1;
    bool m_watching = false;
};

}  // namespace

bool AcceptsConnections(std::string const& path) {
    return TryConnect(path) == Attempt::Accepted;
}

WaitResult WaitForSocket(std::string const& path, std::chrono::milliseconds bound) {
    auto const deadline = Clock::now() + bound;
    for (;;) {
        // Watched before the attempt: a change right after it is not missed.
        FolderWatch watch{std::filesystem::path(path)};
        switch (TryConnect(path)) {
            case Attempt::Accepted:
                return WaitResult::Accepting;
            case Attempt::NotPermitted:
                return WaitResult::NotPermitted;
            case Attempt::Absent:
            case Attempt::Refused:
                break;
        }
        int timeoutMs = -1;
        if (bound.count() > 0) {
            auto const left =
                std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
            if (left.count() <= 0) return WaitResult::TimedOut;
            timeoutMs = static_cast<int>(std::min<long long>(left.count() + 1, 1 << 30));
        }
        if (!watch.Wait(timeoutMs) && bound.count() > 0 && Clock::now() >= deadline) {
            return WaitResult::TimedOut;
        }
    }
}

std::optional<int> AwaitService(std::string const& path, Settings const& settings) {
    if (!settings.waitSeconds) return std::nullopt;
    if (WaitForSocket(path, settings.Wait()) != WaitResult::TimedOut) return std::nullopt;
    std::cerr << "vellmarkctl: vellmarkd did not come up at " << path << " within "
              << *settings.waitSeconds << " s (--wait)\n";
    return kNotRunning;
}

}  // namespace Vellmark::Ctl
