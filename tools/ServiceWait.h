#pragma once
// WaitForSocket: waits until a Unix socket at a path accepts connections, as
// `vellmarkctl --wait` does before a command, without polling: it watches the folders on
// the way to the socket with inotify and tries to connect each time one of them changes.
// A server makes its socket file (an event) and listens on it afterwards; the transport's
// server changes the file's mode once it listens (another event), so that a watcher learns
// of that too.
//
// Blocks its caller; any thread may call it.
#include <chrono>
#include <optional>
#include <string>

#include "tools/Command.h"

namespace Vellmark::Ctl {

enum class WaitResult {
    Accepting,     // a connection was made (and closed again)
    NotPermitted,  // the socket is there, but this user may not connect to it
    TimedOut,
};

// True when a connection to `path` is taken now.
bool AcceptsConnections(std::string const& path);

// Waits until `path` accepts a connection, at most `bound` (0: no bound).
WaitResult WaitForSocket(std::string const& path, std::chrono::milliseconds bound);

// With --wait, waits for the socket at `path`: nothing once it takes connections (or when
// this user may not open it, which the command then tells), else the exit code after
// saying on standard error that the service did not come up. Without --wait, nothing.
std::optional<int> AwaitService(std::string const& path, Settings const& settings);

}  // namespace Vellmark::Ctl
