#pragma once
// RefusalLog: which refusals of connecting peers are worth a log line. A client that the
// server refuses tries again every period, so one line per try would flood the log: the
// first refusal of a user in a minute is written, the next ones are counted, and the count
// joins the first line written once the minute has passed.
//
// Not thread-safe: the server uses it on its loop's thread.
#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "platform/TarvExport.h"

namespace Tarv {

class TARV_TRANSPORT_EXPORT RefusalLog {
public:
    using Clock = std::chrono::steady_clock;
    static constexpr std::chrono::seconds kWindow{60};

    // The text to log for refusing `uid` (process `pid`) at `now`, or nothing when the
    // refusal is only counted.
    std::optional<std::string> Refused(uid_t uid, pid_t pid, Clock::time_point now);

private:
    struct User {
        Clock::time_point logged;
        std::uint64_t counted = 0;
    };
    std::map<uid_t, User> m_users;
};

}  // namespace Tarv
