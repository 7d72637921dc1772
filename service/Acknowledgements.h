#pragma once
// Acknowledgements: the CLOUDSYNC_RECEIVED messages the service received, counted per
// update identifier since start, and the latest ones kept with their connection and time.
//
// Not thread-safe; used on the service's task.
#include <cstdint>
#include <ctime>
#include <deque>
#include <map>

#include "VellmarkAdmin.pb.h"

namespace Vellmark::Service {

class Acknowledgements {
public:
    // The latest acknowledgements kept.
    static constexpr std::size_t kKept = 100;

    void Record(unsigned int updateId, std::uint64_t session);
    Vellmark::Admin::AcknowledgementReport Report() const;

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
};

}  // namespace Vellmark::Service
