#include "service/UpdatePush.h"

#include <algorithm>

namespace Vellmark::Service {

UpdatePush::UpdatePush(Vellmark::Admin::PushReport identity, std::uint32_t count,
                       std::uint32_t window, Send send, Done done)
    : m_report(std::move(identity)),
      m_count(count),
      m_window(std::max<std::uint32_t>(window, 1)),
      m_send(std::move(send)),
      m_done(std::move(done)) {}

void UpdatePush::SpreadOver(Defer defer, std::size_t sendsPerTurn) {
    m_defer = std::move(defer);
    m_sendsPerTurn = std::max<std::size_t>(sendsPerTurn, 1);
}

void UpdatePush::Start(std::vector<std::shared_ptr<IPCServerSession>> const& sessions) {
    m_start = std::chrono::steady_clock::now();
    m_report.set_clients(sessions.size());
    for (auto const& session : sessions) m_peers[session->Id()].session = session;
    for (auto const& entry : m_peers) m_waiting.push_back(entry.first);
    FillWaiting();
}

void UpdatePush::FillWaiting() {
    std::uint64_t const pushedBefore = m_report.pushed();
    while (!m_waiting.empty() && !m_finished) {
        if (m_defer && m_report.pushed() - pushedBefore >= m_sendsPerTurn) {
            m_defer([this, alive = std::weak_ptr<bool>(m_alive)] {
                if (alive.lock()) FillWaiting();
            });
            return;
        }
        auto const found = m_peers.find(m_waiting.front());
        m_waiting.pop_front();
        if (found != m_peers.end() && !Fill(found->second)) m_peers.erase(found);
    }
    FinishIfDone();
}

bool UpdatePush::Fill(Peer& peer) {
    while (peer.sent < m_count && peer.sent - peer.acknowledged < m_window) {
        if (!m_send(peer.session)) return false;
        ++peer.sent;
        m_report.set_pushed(m_report.pushed() + 1);
    }
    return true;
}

void UpdatePush::Acknowledged(unsigned int updateId, std::uint64_t session) {
    if (m_finished || updateId != m_report.messageid()) return;
    auto it = m_peers.find(session);
    // An acknowledgement beyond what was sent is of an update pushed otherwise.
    if (it == m_peers.end() || it->second.acknowledged == it->second.sent) return;
    ++it->second.acknowledged;
    m_report.set_acknowledged(m_report.acknowledged() + 1);
    if (!Fill(it->second)) m_peers.erase(it);
    FinishIfDone();
}

void UpdatePush::Gone(std::uint64_t session) {
    if (m_finished) return;
    m_peers.erase(session);
    FinishIfDone();
}

void UpdatePush::Abandon() {
    if (!m_finished) Finish(true);
}

void UpdatePush::FinishIfDone() {
    if (m_finished) return;
    bool const done = std::all_of(m_peers.begin(), m_peers.end(), [this](auto const& entry) {
        return entry.second.acknowledged == m_count;
    });
    if (done) Finish(false);
}

void UpdatePush::Finish(bool abandoned) {
    m_finished = true;
    m_report.set_seconds(
        std::chrono::duration<double>(std::chrono::steady_clock::now() - m_start).count());
    m_peers.clear();
    m_done(m_report, abandoned);
}

}  // namespace Vellmark::Service
