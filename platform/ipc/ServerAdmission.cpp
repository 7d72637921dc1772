#include "platform/ipc/ServerAdmission.h"

#include <unistd.h>

#include <algorithm>

#include "platform/ipc/IPCLog.h"

namespace Tarv {

namespace {

// "over the limit of 64 connections per user (--max-connections-per-user)"
std::string OverLimit(std::size_t value, char const* unit, std::string const& setting) {
    std::string text = "over the limit of " + std::to_string(value) + " " + unit;
    if (!setting.empty()) text += " (" + setting + ")";
    return text;
}

}  // namespace

ServerAdmission::ServerAdmission(std::string server, Rules rules)
    : m_server(std::move(server)), m_rules(std::move(rules)) {}

bool ServerAdmission::AllowsOthers() const {
    if (!m_rules.allowedGroups.empty()) return true;
    for (uid_t uid : m_rules.allowedUsers) {
        if (uid != 0 && uid != ::getuid()) return true;
    }
    return false;
}

bool ServerAdmission::Allowed(PeerCredentials const& peer, int fd) const {
    auto const& users = m_rules.allowedUsers;
    if (std::find(users.begin(), users.end(), peer.uid) != users.end()) return true;
    auto const& groups = m_rules.allowedGroups;
    if (groups.empty()) return false;
    auto const allowedGroup = [&groups](gid_t gid) {
        return std::find(groups.begin(), groups.end(), gid) != groups.end();
    };
    if (allowedGroup(peer.gid)) return true;
    auto const peerGroups = ReadPeerGroups(fd);
    return std::any_of(peerGroups.begin(), peerGroups.end(), allowedGroup);
}

bool ServerAdmission::Reserved(uid_t uid) const {
    auto const& reserved = m_rules.reservedUsers;
    return std::find(reserved.begin(), reserved.end(), uid) != reserved.end();
}

bool ServerAdmission::Admit(std::optional<PeerCredentials> const& peer, int fd,
                            Clock::time_point now) {
    if (!peer || !Allowed(*peer, fd)) {
        uid_t const uid = peer ? peer->uid : static_cast<uid_t>(-1);
        std::lock_guard<std::mutex> lock(m_mutex);
        Refused(uid, m_log.Refused(uid, peer ? peer->pid : -1, now));
        return false;
    }
    auto const& limits = m_rules.limits;
    std::lock_guard<std::mutex> lock(m_mutex);
    auto& user = m_users[peer->uid];
    user.uid = peer->uid;
    std::optional<std::string> reason;
    if (limits.connectionsPerUser.max > 0 && user.connections >= limits.connectionsPerUser.max) {
        reason = OverLimit(limits.connectionsPerUser.max, "connections per user",
                           limits.connectionsPerUser.setting);
    } else if (limits.connections.max > 0 && m_connections >= limits.connections.max &&
               !Reserved(peer->uid)) {
        reason =
            OverLimit(limits.connections.max, "connections in all", limits.connections.setting);
    }
    if (reason) {
        Refused(peer->uid, m_log.Refused(peer->uid, peer->pid, *reason, now));
        return false;
    }
    ++user.connections;
    ++m_connections;
    return true;
}

void ServerAdmission::Left(uid_t uid) {
    std::lock_guard<std::mutex> lock(m_mutex);
    auto const found = m_users.find(uid);
    if (found == m_users.end() || found->second.connections == 0) return;
    --found->second.connections;
    --m_connections;
}

void ServerAdmission::Closing(PeerCredentials const& peer, Over over, std::size_t value,
                              Clock::time_point now) {
    auto const& limits = m_rules.limits;
    std::string reason;
    switch (over) {
        case Over::PendingRequests:
            reason =
                OverLimit(value, "requests waiting for an answer", limits.pendingRequests.setting);
            break;
        case Over::IncomingBytes:
            reason = OverLimit(value, "bytes of requests waiting for an answer",
                               limits.incomingBytes.setting);
            break;
        case Over::OutgoingBytes:
            reason = OverLimit(value, "bytes waiting to be sent", limits.outgoingBytes.setting);
            break;
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    Refused(peer.uid, m_log.Closed(peer.uid, peer.pid, reason, now));
}

void ServerAdmission::Refused(uid_t uid, std::optional<std::string> const& line) {
    auto& user = m_users[uid];
    user.uid = uid;
    ++user.refused;
    // Written under the lock, so that lines come out in the order they were decided.
    if (line) IPCLog().Log(DPrint::Warning, "server %s: %s", m_server.c_str(), line->c_str());
}

std::vector<ServerAdmission::UserCount> ServerAdmission::Users() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<UserCount> users;
    for (auto const& entry : m_users) users.push_back(entry.second);
    return users;
}

}  // namespace Tarv
