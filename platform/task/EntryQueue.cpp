#include "platform/task/EntryQueue.h"

#include <utility>

namespace Tarv {

void EntryQueue::Push(std::shared_ptr<IL::CallbackEntry> entry) {
    if (!entry) return;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_closed) return;  // `entry` is dropped here, outside the lock
        m_entries.push_back(std::move(entry));
    }
    m_wake.notify_one();
}

std::shared_ptr<IL::CallbackEntry> EntryQueue::TryPop() {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_entries.empty()) return nullptr;
    auto entry = std::move(m_entries.front());
    m_entries.pop_front();
    return entry;
}

std::shared_ptr<IL::CallbackEntry> EntryQueue::WaitPop() {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_wake.wait(lock, [this] { return m_closed || !m_entries.empty(); });
    if (m_closed) return nullptr;
    auto entry = std::move(m_entries.front());
    m_entries.pop_front();
    return entry;
}

void EntryQueue::Close() {
    std::deque<std::shared_ptr<IL::CallbackEntry>> dropped;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_closed = true;
        dropped.swap(m_entries);
    }
    m_wake.notify_all();
}

bool EntryQueue::IsClosed() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_closed;
}

std::size_t EntryQueue::Size() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_entries.size();
}

}  // namespace Tarv
