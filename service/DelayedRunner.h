#pragma once
// DelayedRunner: runs functions after a delay, on a thread of its own (started by the first
// RunAfter), in the order of their due times. The destructor drops what has not run yet and
// joins the thread. RunAfter and the destructor must not race.
#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <thread>

namespace Vellmark::Service {

class DelayedRunner {
public:
    DelayedRunner();
    ~DelayedRunner();
    DelayedRunner(DelayedRunner const&) = delete;
    DelayedRunner& operator=(DelayedRunner const&) = delete;

    // Any thread, but not while the runner is being destroyed.
    void RunAfter(std::chrono::milliseconds delay, std::function<void()> function);

private:
    void Run();

    using Clock = std::chrono::steady_clock;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::multimap<Clock::time_point, std::function<void()>> m_due;
    bool m_stopping = false;
    std::thread m_thread;
};

}  // namespace Vellmark::Service
