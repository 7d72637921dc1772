#pragma once
// LifetimeGuard: lets work queued on behalf of an object find out whether the object still
// exists, without racing with its destruction.
//
// The object holds the guard and calls Close() first thing in its destructor; queued work
// holds a shared pointer to the guard and runs its body through Run(). A body runs only
// while the guard is open, and Close() waits for a body that is running on another thread,
// so no body ever sees a half-destroyed object. A body must not destroy the object that
// owns its guard (Close() would wait for the body itself).
#include <memory>
#include <mutex>
#include <utility>

#include "platform/TarvExport.h"

namespace Tarv {

class TARV_EXPORT LifetimeGuard {
public:
    static std::shared_ptr<LifetimeGuard> Create() { return std::make_shared<LifetimeGuard>(); }

    // Runs `body` if the guard is open; returns whether it ran.
    template <class Body>
    bool Run(Body&& body) {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_closed) return false;
        std::forward<Body>(body)();
        return true;
    }

    // Closes the guard for good, once no body is running.
    void Close() {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_closed = true;
    }

    bool IsClosed() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_closed;
    }

private:
    mutable std::mutex m_mutex;
    bool m_closed = false;
};

}  // namespace Tarv
