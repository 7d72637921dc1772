#pragma once
// ServerAdmission: who may connect to one server.
//
// A connecting process is let in only when its user, as the kernel reports it (SO_PEERCRED),
// is one of the allowed users or belongs to one of the allowed groups. Every refusal is
// logged as RefusalLog says: one line per user and minute, then as a count.
//
// Not thread-safe: the server uses it on its loop's thread.
#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "platform/ipc/PeerCredentials.h"
#include "platform/ipc/transport/RefusalLog.h"

namespace Tarv {

class ServerAdmission {
public:
    using Clock = RefusalLog::Clock;
    struct Rules {
        std::vector<uid_t> allowedUsers;
        std::vector<gid_t> allowedGroups;
    };

    // For the server `server`, named in the log lines.
    ServerAdmission(std::string server, Rules rules);

    // True when `peer` (nothing: the kernel could not tell) may connect over `fd` (whose
    // supplementary groups are read when the allowed groups need them). A refusal is logged.
    bool Admit(std::optional<PeerCredentials> const& peer, int fd,
               Clock::time_point now = Clock::now());

    // True when users other than the server's own and root may connect.
    bool AllowsOthers() const;

private:
    bool Allowed(PeerCredentials const& peer, int fd) const;

    std::string const m_server;
    Rules const m_rules;
    RefusalLog m_log;
};

}  // namespace Tarv
