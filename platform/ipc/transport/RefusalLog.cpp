#include "platform/ipc/transport/RefusalLog.h"

namespace Tarv {

namespace {
constexpr char kNotAllowed[] = "not an allowed user";

std::string Peer(uid_t uid, pid_t pid) {
    return "uid " + std::to_string(uid) + " (pid " + std::to_string(pid) + ")";
}
}  // namespace

std::optional<std::string> RefusalLog::Refused(uid_t uid, pid_t pid, Clock::time_point now) {
    return Refused(uid, pid, kNotAllowed, now);
}

std::optional<std::string> RefusalLog::Refused(uid_t uid, pid_t pid, std::string const& reason,
                                               Clock::time_point now) {
    return Note(uid, reason, "refused a connection from " + Peer(uid, pid) + ": " + reason,
                "refused", now);
}

std::optional<std::string> RefusalLog::Closed(uid_t uid, pid_t pid, std::string const& reason,
                                              Clock::time_point now) {
    return Note(uid, reason, "closed a connection of " + Peer(uid, pid) + ": " + reason, "closed",
                now);
}

std::optional<std::string> RefusalLog::Note(uid_t uid, std::string const& reason, std::string what,
                                            char const* counted, Clock::time_point now) {
    auto key = std::make_pair(uid, reason);
    auto const held = m_entries[key].Admit(now);
    if (!held) return std::nullopt;
    // Windows idle for a minute are forgotten; a count waits for its user's next refusal,
    // so the table holds at most one entry per local user and reason.
    for (auto it = m_entries.begin(); it != m_entries.end();) {
        it = it->second.Idle(now) ? m_entries.erase(it) : std::next(it);
    }
    return what + HeldBackSuffix(*held, (std::string(counted) + " from this user").c_str());
}

}  // namespace Tarv
