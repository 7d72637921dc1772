#pragma once
// TrafficMonitor: shows the frames of the "Vellmark" endpoint to the admin connections
// that asked for them (vellmarkctl monitor), as TrafficEvents with the payload in JSON
// and its identifiers and tokens masked. Costs nothing while nobody watches.
//
// Thread-safe: frames are reported from the IO thread and from the service's task.
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "IPCServer.h"

class TrafficMonitor {
public:
    // `watcher` receives every event from now on, until its connection ends.
    void Add(std::shared_ptr<IPCServerSession> const& watcher);

    // A frame received ("in") or sent ("out") on connection `session`; `kind` is
    // "request", "response", "notification" or "one-way".
    void Report(char const* direction, std::uint64_t session, char const* kind, unsigned int id,
                IPCMessageEnvelope const& envelope);

private:
    std::mutex m_mutex;
    std::vector<std::weak_ptr<IPCServerSession>> m_watchers;
};
