#pragma once
// UpdatePush: one admin push under way, a load test of the subscribers. The update of one
// resource goes to every connection of the product's endpoint `count` times, with at most
// `window` of them unacknowledged per connection: each acknowledgement lets the next one
// go. The push is done once every connection has acknowledged all of its updates or has
// gone; then `done` is called once with the report.
//
// Not thread-safe: used on the service's task.
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "VellmarkAdmin.pb.h"
#include "platform/ipc/IPCServer.h"

namespace Vellmark::Service {

class UpdatePush {
public:
    // Sends one update on a connection; false when the connection has ended.
    using Send = std::function<bool(std::shared_ptr<IPCServerSession> const&)>;
    // Called once: with the report when every connection is done, or with `abandoned` set.
    using Done = std::function<void(Vellmark::Admin::PushReport const& report, bool abandoned)>;

    UpdatePush(Vellmark::Admin::PushReport identity, std::uint32_t count, std::uint32_t window,
               Send send, Done done);

    // Sends the first window to each of `sessions`; with none, the push is done at once.
    void Start(std::vector<std::shared_ptr<IPCServerSession>> const& sessions);
    // Connection `session` acknowledged update `updateId`.
    void Acknowledged(unsigned int updateId, std::uint64_t session);
    // Connection `session` has ended.
    void Gone(std::uint64_t session);
    // Ends the push early: `done` hears that it was abandoned.
    void Abandon();

    bool Finished() const { return m_finished; }

private:
    struct Peer {
        std::shared_ptr<IPCServerSession> session;
        std::uint32_t sent = 0;
        std::uint32_t acknowledged = 0;
    };
    // Sends until `peer` has a full window out or every update; false if its connection ended.
    bool Fill(Peer& peer);
    void FinishIfDone();
    void Finish(bool abandoned);

    Vellmark::Admin::PushReport m_report;
    std::uint32_t const m_count;
    std::uint32_t const m_window;
    Send const m_send;
    Done const m_done;
    std::map<std::uint64_t, Peer> m_peers;
    std::chrono::steady_clock::time_point m_start;
    bool m_finished = false;
};

}  // namespace Vellmark::Service
