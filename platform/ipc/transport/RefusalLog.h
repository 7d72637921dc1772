#pragma once
// RefusalLog: which refusals of connecting peers are worth a log line. A client that the
// server refuses tries again every period, so one line per try would flood the log: the
// first refusal of a user in a minute is written, the next ones are counted, and the count
// joins the first line written once the minute has passed. Each kind of refusal (not an
// allowed user, one limit or another) has a minute of its own, so a line always names
// what was refused.
//
// Not thread-safe: the server guards it.
#include <sys/types.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>

#include "platform/TarvExport.h"
#include "platform/log/LogWindow.h"

namespace Tarv {

class TARV_TRANSPORT_EXPORT RefusalLog {
public:
    using Clock = LogWindow::Clock;

    // The text to log for refusing `uid` (process `pid`) at `now`, or nothing when the
    // refusal is only counted.
    std::optional<std::string> Refused(uid_t uid, pid_t pid, Clock::time_point now);
    // The same for refusing a connection of `uid` because `reason` ("over the limit of 64
    // connections per user (--max-connections-per-user)").
    std::optional<std::string> Refused(uid_t uid, pid_t pid, std::string const& reason,
                                       Clock::time_point now);
    // The same for closing a connection of `uid` that went over a limit, `reason`.
    std::optional<std::string> Closed(uid_t uid, pid_t pid, std::string const& reason,
                                      Clock::time_point now);

private:
    // `what` is the line's start; `counted` says what the count counts ("refused").
    std::optional<std::string> Note(uid_t uid, std::string const& reason, std::string what,
                                    char const* counted, Clock::time_point now);

    // By user and reason.
    std::map<std::pair<uid_t, std::string>, LogWindow> m_entries;
};

}  // namespace Tarv
