#include "platform/ipc/ServerAdmission.h"

#include <unistd.h>

#include <algorithm>

#include "platform/ipc/IPCLog.h"

namespace Tarv {

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

bool ServerAdmission::Admit(std::optional<PeerCredentials> const& peer, int fd,
                            Clock::time_point now) {
    if (peer && Allowed(*peer, fd)) return true;
    auto const line =
        m_log.Refused(peer ? peer->uid : static_cast<uid_t>(-1), peer ? peer->pid : -1, now);
    if (line) IPCLog().Log(DPrint::Warning, "server %s: %s", m_server.c_str(), line->c_str());
    return false;
}

}  // namespace Tarv
