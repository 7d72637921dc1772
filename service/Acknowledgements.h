#pragma once
// Acknowledgements: the CLOUDSYNC_RECEIVED messages the service received, counted per
// update identifier since start, and the latest ones kept with their connection and time.
//
// Only the identifiers the service pushes updates under (the resource table's) are kept:
// a client may send any number of others, and a table keyed by them would grow without
// bound. Those are refused, counted in one number, and logged at most once a minute.
//
// Not thread-safe; used on the service's task.
#include <chrono>
#include <cstdint>
#include <ctime>
#include <deque>
#include <map>
#include <optional>
#include <string>

#include "VellmarkAdmin.pb.h"
#include "platform/log/LogWindow.h"

namespace Vellmark::Service {

class Acknowledgements {
public:
    using Clock = std::chrono::steady_clock;
    // The latest acknowledgements kept.
    static constexpr std::size_t kKept = 100;
    // At most one line about refused acknowledgements in this time.
    static constexpr std::chrono::seconds kLogWindow = Tarv::LogWindow::kWindow;

    // Records connection `session` acknowledging `updateId`. True when it is counted;
    // false when the service pushes no update under `updateId`: then nothing of it is kept
    // but the count of refused ones (see RefusalLine).
    bool Record(unsigned int updateId, std::uint64_t session);
    // The line to log for the refusal just recorded (of `updateId` from `session`), or
    // nothing when the last line is less than kLogWindow old: the refusals in between are
    // counted, and the count joins the next line.
    std::optional<std::string> RefusalLine(unsigned int updateId, std::uint64_t session,
                                           Clock::time_point now);
    Vellmark::Admin::AcknowledgementReport Report() const;

    // The identifiers counted, and the acknowledgements refused since start.
    std::size_t CountedIdentifiers() const { return m_counts.size(); }
    std::uint64_t Refused() const { return m_refused; }

private:
    // Kept as received and named only when reported: recording one is on the path of every
    // acknowledgement, reporting is rare.
    struct Received {
        unsigned int updateId;
        std::uint64_t session;
        std::time_t at;
    };
    std::map<unsigned int, std::uint64_t> m_counts;
    std::deque<Received> m_latest;
    std::uint64_t m_refused = 0;
    Tarv::LogWindow m_logWindow;
};

}  // namespace Vellmark::Service
