#pragma once
// TrafficMonitor: shows the frames of the "Vellmark" endpoint to the admin connections
// that asked for them (vellmarkctl monitor), as TrafficEvents with the payload in JSON and
// its sensitive fields masked (Sensitivity.h). Costs one atomic load a frame while nobody
// watches.
//
// Thread-safe: frames are reported from the service's task, from the delayed answers'
// timer thread and from any thread that calls the service's Receive functions. While
// someone watches, a frame sent and its report are one step, so that a frame received in
// answer (an acknowledgement) is never shown before the frame it answers.
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "platform/ipc/IPCServer.h"

namespace Vellmark::Service {

class TrafficMonitor {
public:
    // `watcher` receives every event from now on, until its connection ends.
    void Add(std::shared_ptr<IPCServerSession> const& watcher);

    // A frame received on connection `session`; `kind` is "request" (numbered `number`) or
    // "one-way" (0).
    void Received(std::uint64_t session, char const* kind, unsigned int id, std::uint64_t number,
                  IPCMessageEnvelope const& envelope);
    // Sends a frame on connection `session` with `send` and shows it if it went out; `kind`
    // is "response" (numbered `number`) or "notification" (0). Returns what `send` returned.
    bool Send(std::uint64_t session, char const* kind, unsigned int id, std::uint64_t number,
              IPCMessageEnvelope const& envelope, std::function<bool()> const& send);

private:
    void Report(char const* direction, std::uint64_t session, char const* kind, unsigned int id,
                std::uint64_t number, IPCMessageEnvelope const& envelope);

    std::atomic<bool> m_watched{false};
    // Held while a frame is sent and shown, and while one received is shown.
    std::mutex m_sequence;
    std::mutex m_mutex;
    std::vector<std::weak_ptr<IPCServerSession>> m_watchers;
};

}  // namespace Vellmark::Service
