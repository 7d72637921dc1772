#pragma once
// ServerAdmission: who may connect to one server, and how much each may hold.
//
// A connecting process is let in only when its user, as the kernel reports it (SO_PEERCRED),
// is one of the allowed users or belongs to one of the allowed groups, and when the
// connection limits leave room: its user's connections stay within connectionsPerUser, and
// all connections within `connections`, except for the reserved users (the admins), whom
// others filling the server never lock out; their own per-user limit still holds. The
// per-connection limits (requests waiting, bytes in and out) are checked by the server;
// going over them is reported here. Every refusal is counted per user and logged as
// RefusalLog says: one line per user, reason and minute, naming the limit and its setting.
//
// Thread-safe: connections are admitted and let go on the server's loop thread, limits
// are reported from whichever thread sends, and the counts are read from anywhere.
#include <sys/types.h>

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/TarvExport.h"
#include "platform/ipc/IPCServerLimits.h"
#include "platform/ipc/PeerCredentials.h"
#include "platform/ipc/transport/RefusalLog.h"

namespace Tarv {

class TARV_TRANSPORT_EXPORT ServerAdmission {
public:
    using Clock = RefusalLog::Clock;
    struct Rules {
        std::vector<uid_t> allowedUsers;
        std::vector<gid_t> allowedGroups;
        std::vector<uid_t> reservedUsers;
        ServerLimits limits;
    };
    using UserCount = ServerUserCount;
    // Which per-connection limit a connection went over.
    enum class Over { PendingRequests, IncomingBytes, OutgoingBytes };

    // For the server `server`, named in the log lines.
    ServerAdmission(std::string server, Rules rules);

    // True when `peer` (nothing: the kernel could not tell) may connect over `fd` (whose
    // supplementary groups are read when the allowed groups need them); its connection
    // then counts until Left. A refusal is counted and logged.
    bool Admit(std::optional<PeerCredentials> const& peer, int fd,
               Clock::time_point now = Clock::now());
    // A connection of `uid` that Admit let in has ended.
    void Left(uid_t uid);
    // A connection of `peer` went over `over`, whose value is `value` (the server's own
    // when the rules set none); the server closes it. Counted and logged.
    void Closing(PeerCredentials const& peer, Over over, std::size_t value,
                 Clock::time_point now = Clock::now());

    // True when users other than the server's own and root may connect.
    bool AllowsOthers() const;
    ServerLimits const& Limits() const { return m_rules.limits; }
    // Every user with a connection open or a refusal counted, by uid.
    std::vector<UserCount> Users() const;

private:
    bool Allowed(PeerCredentials const& peer, int fd) const;
    bool Reserved(uid_t uid) const;
    // Counts a refusal of `uid` and logs `line` when there is one.
    void Refused(uid_t uid, std::optional<std::string> const& line);

    std::string const m_server;
    Rules const m_rules;

    mutable std::mutex m_mutex;
    std::map<uid_t, UserCount> m_users;  // one entry per local user at most
    std::size_t m_connections = 0;
    RefusalLog m_log;
};

}  // namespace Tarv
