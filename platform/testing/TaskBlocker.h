#pragma once
// TaskBlocker: holds a task's thread inside one entry until Release(), so a test can queue
// work behind it or act while the task is busy. The destructor releases it.
//
// The latches are shared with the blocking entry: the task's thread may still be waking up
// inside the entry after the blocker itself is gone.
#include <memory>

#include "platform/task/BreakThread.h"
#include "platform/testing/Latch.h"

namespace Tarv::Testing {

class TaskBlocker {
public:
    explicit TaskBlocker(NotifyTargetTaskIF& task) : m_latches(std::make_shared<Latches>()) {
        IL::BreakThread(
            [latches = m_latches] {
                latches->entered.CountDown();
                latches->release.Wait();
            },
            &task);
    }
    ~TaskBlocker() { Release(); }
    TaskBlocker(TaskBlocker const&) = delete;
    TaskBlocker& operator=(TaskBlocker const&) = delete;

    // True once the task's thread is inside the blocking entry (waits with a bound).
    bool Entered() { return m_latches->entered.Wait(); }
    void Release() { m_latches->release.CountDown(); }

private:
    struct Latches {
        Latch entered;
        Latch release;
    };
    std::shared_ptr<Latches> m_latches;
};

}  // namespace Tarv::Testing
