#include "tools/FolderWatch.h"

#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

namespace Vellmark::Ctl {

FolderWatch::FolderWatch(std::filesystem::path const& path,
                         std::function<void(std::filesystem::path const&)> const& onMissing) {
    m_fd = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (m_fd < 0) return;
    std::filesystem::path folder = path.parent_path();
    std::filesystem::path missing;
    while (!folder.empty()) {
        uint32_t const events = IN_CREATE | IN_MOVED_TO | IN_ATTRIB | IN_DELETE | IN_DELETE_SELF |
                                IN_MOVE_SELF | IN_ONLYDIR;
        if (::inotify_add_watch(m_fd, folder.c_str(), events) >= 0) {
            m_watching = true;
            // The folder below, missing a moment ago, may have come before this watch: what
            // happens inside it would then go unseen here, so look again at once.
            std::error_code ignored;
            if (!missing.empty() && std::filesystem::exists(missing, ignored)) m_changed = true;
            return;
        }
        // A folder that is not there yet: its parent tells when it comes. One that cannot
        // be watched (no read permission) leaves only trying again now and then.
        if (errno != ENOENT && errno != ENOTDIR) return;
        if (folder == folder.root_path()) return;
        if (onMissing) onMissing(folder);
        missing = folder;
        folder = folder.parent_path();
    }
}

FolderWatch::~FolderWatch() {
    if (m_fd >= 0) ::close(m_fd);
}

bool FolderWatch::Wait(int timeoutMs) {
    if (m_changed) {
        m_changed = false;
        return true;
    }
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

}  // namespace Vellmark::Ctl
