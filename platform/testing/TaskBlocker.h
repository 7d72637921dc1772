#pragma once
// TaskBlocker: holds a task's thread inside one entry until Release(), so a test can queue
// work behind it or act while the task is busy. The destructor releases it.
#include "BreakThread.h"
#include "Latch.h"

class TaskBlocker {
public:
    explicit TaskBlocker(NotifyTargetTaskIF& task) {
        IL::BreakThread(
            [this] {
                m_entered.CountDown();
                m_release.Wait();
            },
            &task);
    }
    ~TaskBlocker() { Release(); }
    TaskBlocker(TaskBlocker const&) = delete;
    TaskBlocker& operator=(TaskBlocker const&) = delete;

    // True once the task's thread is inside the blocking entry (waits with a bound).
    bool Entered() { return m_entered.Wait(); }
    void Release() { m_release.CountDown(); }

private:
    Latch m_entered;
    Latch m_release;
};
