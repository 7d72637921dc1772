#pragma once
// EntryQueue: the queue of a task. First in, first out; thread-safe. Once closed it takes
// no more entries, and what it held is dropped without running. Entries are always
// destroyed outside the lock, since destroying one may post to the same queue.
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <memory>
#include <mutex>

#include "framework/task/NotifyTargetTaskIF.h"

namespace Tarv {

class EntryQueue {
public:
    // Queues `entry`; drops it (after releasing the lock) if the queue is closed.
    void Push(std::shared_ptr<IL::CallbackEntry> entry);
    // The oldest entry, or null when none is queued.
    std::shared_ptr<IL::CallbackEntry> TryPop();
    // Waits for the oldest entry; null once the queue is closed.
    std::shared_ptr<IL::CallbackEntry> WaitPop();
    // Closes the queue and drops every queued entry. Only the first call does anything.
    void Close();

    bool IsClosed() const;
    std::size_t Size() const;

private:
    mutable std::mutex m_mutex;
    std::condition_variable m_wake;
    std::deque<std::shared_ptr<IL::CallbackEntry>> m_entries;
    bool m_closed = false;
};

}  // namespace Tarv
