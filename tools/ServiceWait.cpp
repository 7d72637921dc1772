#include "tools/ServiceWait.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <iostream>

#include "tools/FolderWatch.h"

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
