#pragma once
// FolderWatch: an inotify instance watching the deepest folder on the way to a path that
// exists, for an entry made, moved in, changed (a socket file's mode) or removed, and for
// the folder itself going away. WaitForSocket makes one before each attempt to connect, so
// that a change right after the attempt is not missed.
//
// Not thread-safe; one thread uses it.
#include <filesystem>
#include <functional>

namespace Vellmark::Ctl {

class FolderWatch {
public:
    // Watches the deepest existing folder on the way to `path`. `onMissing` (for tests) is
    // called with each folder found missing, before its parent is tried.
    explicit FolderWatch(std::filesystem::path const& path,
                         std::function<void(std::filesystem::path const&)> const& onMissing = {});
    ~FolderWatch();
    FolderWatch(FolderWatch const&) = delete;
    FolderWatch& operator=(FolderWatch const&) = delete;

    // Waits for a change, at most `timeoutMs` (-1: no bound); false when none came.
    bool Wait(int timeoutMs);

private:
    // Without inotify (no instance left for this user, a folder this user may not read),
    // the attempts are made this often.
    static constexpr int kUnwatchedPauseMs = 100;

    int m_fd = -1;
    bool m_watching = false;
    // A change seen while the watch was being placed: the first Wait returns at once.
    bool m_changed = false;
};

}  // namespace Vellmark::Ctl
