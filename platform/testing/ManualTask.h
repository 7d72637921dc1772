#pragma once
// ManualTask: a NotifyTargetTaskIF for deterministic tests. Posted entries wait until the
// test runs them, on the test's own thread. Posting is thread-safe. Stop() drops what is
// queued, calls the stop notifications once, and makes later posts drop their entries,
// like the real task.
#include <cstddef>
#include <memory>

#include "framework/task/NotifyTargetTaskIF.h"
#include "platform/task/EntryQueue.h"
#include "platform/task/StopNotifier.h"

namespace Tarv::Testing {

class ManualTask final : public NotifyTargetTaskIF {
public:
    ManualTask() = default;
    ~ManualTask() override;

    void PostCallbackEntry(std::shared_ptr<IL::CallbackEntry> entry) override;
    CallbackConnection RegisterStopNotification(std::function<void()> const& onStop) override;

    // Runs the oldest entry; false if none is queued.
    bool RunOne();
    // Runs entries, also those they post, until none is left or `limit` have run.
    // Returns how many ran.
    std::size_t RunUntilIdle(std::size_t limit = 100000);
    std::size_t Pending() const { return m_queue.Size(); }

    void Stop();
    bool IsStopped() const { return m_stopNotifier.IsStopped(); }
    // Stop notifications registered and not disconnected.
    std::size_t StopRegistrations() const { return m_stopNotifier.Registrations(); }

private:
    EntryQueue m_queue;
    StopNotifier m_stopNotifier;
};

}  // namespace Tarv::Testing
