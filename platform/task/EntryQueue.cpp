#include "platform/task/EntryQueue.h"

#include <cstddef>
#include <utility>

namespace Tarv {

bool EntryQueue::Push(std::shared_ptr<IL::CallbackEntry> entry) {
    if (!entry) return false;
    std::lock_guard<std::mutex> lock(m_mutex);
    if (IsClosed()) return false;  // `entry` is dropped after the lock is released
    m_entries.push_back(std::move(entry));
    if (m_scheduled) return false;
    m_scheduled = true;
    return true;
}

std::shared_ptr<IL::CallbackEntry> EntryQueue::TryPop() {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_front == m_entries.size()) return nullptr;
    auto entry = std::move(m_entries[m_front++]);
    if (m_front == m_entries.size()) {
        m_entries.clear();
        m_front = 0;
    }
    return entry;
}

void EntryQueue::TakeBatch(Batch& batch) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_entries.erase(m_entries.begin(), m_entries.begin() + static_cast<std::ptrdiff_t>(m_front));
    m_front = 0;
    batch.swap(m_entries);
}

bool EntryQueue::FinishBatch() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_scheduled = !m_entries.empty() && !IsClosed();
    return m_scheduled;
}

void EntryQueue::Close() {
    Batch dropped;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (IsClosed()) return;
        m_closed.store(true, std::memory_order_release);
        dropped.swap(m_entries);
        m_front = 0;
    }
}

std::size_t EntryQueue::Size() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_entries.size() - m_front;
}

}  // namespace Tarv
