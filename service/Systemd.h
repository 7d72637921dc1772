#pragma once
// What vellmarkd takes from the service manager and tells it, through libsystemd: the
// listening sockets of socket activation, readiness and stopping. When it was not started
// by systemd (no LISTEN_FDS, no NOTIFY_SOCKET) each operation does nothing. Call them from
// main's thread; TakeSockets before any other thread starts, since it edits the environment.
#include <optional>
#include <string>

namespace Vellmark::Service::Systemd {

// The listening sockets handed over, by the endpoint whose name they carry
// (FileDescriptorName=). The caller owns them.
struct HandedOverSockets {
    std::optional<int> service;
    std::optional<int> admin;
};

// Takes the sockets passed to this process. Sockets under any other name, or a second one
// under the same name, are closed, with one log line. Throws std::runtime_error when the
// variables that pass them cannot be read.
HandedOverSockets TakeSockets();

// Tells the service manager that both endpoints listen and the store is open; `status` says
// what is served.
void NotifyReady(std::string const& status);
// Tells it that the service is stopping, and why.
void NotifyStopping(std::string const& status);

}  // namespace Vellmark::Service::Systemd
