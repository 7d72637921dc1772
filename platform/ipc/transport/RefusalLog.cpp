#include "platform/ipc/transport/RefusalLog.h"

namespace Tarv {

std::optional<std::string> RefusalLog::Refused(uid_t uid, pid_t pid, Clock::time_point now) {
    auto const found = m_users.find(uid);
    if (found != m_users.end() && now - found->second.logged < kWindow) {
        ++found->second.counted;
        return std::nullopt;
    }
    std::string text = "refused a connection from uid " + std::to_string(uid) + " (pid " +
                       std::to_string(pid) + "): not an allowed user";
    if (found != m_users.end() && found->second.counted > 0) {
        text += "; " + std::to_string(found->second.counted) +
                " more refused from this user since the last line";
    }
    // Users quiet for a minute with nothing counted are forgotten; a count waits for its
    // user's next refusal, so the table holds at most one entry per local user.
    for (auto it = m_users.begin(); it != m_users.end();) {
        bool const stale = now - it->second.logged >= kWindow && it->second.counted == 0;
        it = stale ? m_users.erase(it) : std::next(it);
    }
    m_users[uid] = User{now, 0};
    return text;
}

}  // namespace Tarv
