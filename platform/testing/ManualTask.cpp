#include "ManualTask.h"

ManualTask::~ManualTask() {
    Stop();
}

void ManualTask::PostCallbackEntry(std::shared_ptr<IL::CallbackEntry> entry) {
    if (!entry) return;
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_stopped) m_queue.push_back(std::move(entry));
}

CallbackConnection ManualTask::RegisterStopNotification(std::function<void()> const& onStop) {
    return m_stopNotifier.Register(onStop);
}

bool ManualTask::RunOne() {
    std::shared_ptr<IL::CallbackEntry> entry;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_queue.empty()) return false;
        entry = std::move(m_queue.front());
        m_queue.pop_front();
    }
    entry->Dispatch();
    return true;
}

std::size_t ManualTask::RunUntilIdle(std::size_t limit) {
    std::size_t ran = 0;
    while (ran < limit && RunOne()) ++ran;
    return ran;
}

std::size_t ManualTask::Pending() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_queue.size();
}

void ManualTask::Stop() {
    std::deque<std::shared_ptr<IL::CallbackEntry>> dropped;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stopped = true;
        dropped.swap(m_queue);
    }
    dropped.clear();
    m_stopNotifier.NotifyStopped();
}
