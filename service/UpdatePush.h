#pragma once
// UpdatePush: one admin push under way, a load test of the subscribers. The update of one
// resource goes to every connection of the product's endpoint `count` times, with at most
// `window` of them unacknowledged per connection: each acknowledgement lets the next one
// go. The push is done once every connection has acknowledged all of its updates or has
// gone; then `done` is called once with the report. Spread over turns (SpreadOver), the
// first windows go out a bounded number at a time, so that a push to many subscribers never
// holds the service's loop away from another connection's request for long.
//
// Not thread-safe: used on the service's task.
#include <chrono>
#include <cstdint>
#include <deque>
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

    // Runs work later, on the same thread, after what else is waiting there.
    using Defer = std::function<void(std::function<void()> work)>;
    // Updates sent in one turn: one connection's first window at the default size.
    static constexpr std::size_t kSendsPerTurn = 64;

    UpdatePush(Vellmark::Admin::PushReport identity, std::uint32_t count, std::uint32_t window,
               Send send, Done done);

    // Before Start: sends at most `sendsPerTurn` of the first windows in one go and leaves
    // the rest to `defer`. Without it, Start sends every first window at once.
    void SpreadOver(Defer defer, std::size_t sendsPerTurn = kSendsPerTurn);

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
    // Sends the first windows of the connections still waiting for theirs, a turn's worth.
    void FillWaiting();
    void FinishIfDone();
    void Finish(bool abandoned);

    Vellmark::Admin::PushReport m_report;
    std::uint32_t const m_count;
    std::uint32_t const m_window;
    Send const m_send;
    Done const m_done;
    std::map<std::uint64_t, Peer> m_peers;
    Defer m_defer;
    std::size_t m_sendsPerTurn = 0;
    std::deque<std::uint64_t> m_waiting;  // connections whose first window has not gone
    // Dropped with the push: deferred work finds it gone.
    std::shared_ptr<bool> const m_alive = std::make_shared<bool>(true);
    std::chrono::steady_clock::time_point m_start;
    bool m_finished = false;
};

}  // namespace Vellmark::Service
