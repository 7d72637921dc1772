#pragma once
// Faults: failures a developer asks for through the admin endpoint, to see how the
// product copes: the next N requests of an identifier fail (with a given Error, or
// without any answer), and replies are held back for a while.
//
// Not thread-safe; used on the service's task.
#include <chrono>
#include <map>
#include <optional>

#include "Errors.pb.h"

namespace Vellmark::Service {

class Faults {
public:
    // What to do instead of answering one request.
    struct Failure {
        // Empty: answer nothing.
        std::optional<VellmarkPB::Error> error;
    };

    // The next `count` requests under `id` fail so; replaces what was set for `id`.
    // A count of 0 clears it.
    void FailNext(unsigned int id, unsigned int count, std::optional<VellmarkPB::Error> error);
    // Takes the failure planned for the next request under `id`, if any.
    std::optional<Failure> Take(unsigned int id);

    // Holds replies for `delay`: those under `id`, or all when `id` is 0. A zero delay
    // clears every delay.
    void SetDelay(std::chrono::milliseconds delay, unsigned int id);
    std::chrono::milliseconds DelayOf(unsigned int id) const;

private:
    struct Planned {
        unsigned int remaining = 0;
        Failure failure;
    };
    std::map<unsigned int, Planned> m_planned;
    std::map<unsigned int, std::chrono::milliseconds> m_delays;
};

}  // namespace Vellmark::Service
