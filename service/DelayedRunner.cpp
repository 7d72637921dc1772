#include "service/DelayedRunner.h"

namespace Vellmark::Service {

// The thread starts with the first delay: most runs of the service never ask for one.
DelayedRunner::DelayedRunner() = default;

DelayedRunner::~DelayedRunner() {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stopping = true;
    }
    m_changed.notify_all();
    if (m_thread.joinable()) m_thread.join();
}

void DelayedRunner::RunAfter(std::chrono::milliseconds delay, std::function<void()> function) {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_due.emplace(Clock::now() + delay, std::move(function));
        if (!m_thread.joinable()) m_thread = std::thread([this] { Run(); });
    }
    m_changed.notify_all();
}

void DelayedRunner::Run() {
    std::unique_lock<std::mutex> lock(m_mutex);
    while (!m_stopping) {
        if (m_due.empty()) {
            m_changed.wait(lock);
            continue;
        }
        auto const first = m_due.begin()->first;
        if (Clock::now() < first) {
            m_changed.wait_until(lock, first);
            continue;
        }
        auto function = std::move(m_due.begin()->second);
        m_due.erase(m_due.begin());
        lock.unlock();
        function();
        lock.lock();
    }
}

}  // namespace Vellmark::Service
