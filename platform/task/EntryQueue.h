#pragma once
// EntryQueue: the queue of a task. First in, first out; thread-safe. Once closed it takes
// no more entries, and what it held is dropped without running. Entries are always
// destroyed outside the lock, since destroying one may post to the same queue.
//
// A task that runs its entries in batches from an event loop asks Push whether to schedule
// a batch: only the push that finds no batch scheduled says so, so a busy queue costs one
// wake-up, not one per entry.
#include <atomic>
#include <cstddef>
#include <memory>
#include <mutex>
#include <vector>

#include "framework/task/NotifyTargetTaskIF.h"
#include "platform/TarvExport.h"

namespace Tarv {

class TARV_EXPORT EntryQueue {
public:
    using Batch = std::vector<std::shared_ptr<IL::CallbackEntry>>;

    // Queues `entry`; drops it (after releasing the lock) if the queue is closed. True when
    // the caller must schedule a batch: none was scheduled and the entry was queued.
    bool Push(std::shared_ptr<IL::CallbackEntry> entry);
    // The oldest entry, or null when none is queued.
    std::shared_ptr<IL::CallbackEntry> TryPop();
    // Moves every queued entry into `batch` (empty on entry; its storage is reused). The
    // batch stays scheduled until FinishBatch.
    void TakeBatch(Batch& batch);
    // Ends a batch. True when entries came in meanwhile: the caller schedules the next
    // batch. False leaves none scheduled.
    bool FinishBatch();
    // Closes the queue and drops every queued entry. Only the first call does anything.
    void Close();

    // Lock-free: read before each entry of a batch, so that a closing queue runs no more.
    bool IsClosed() const { return m_closed.load(std::memory_order_acquire); }
    std::size_t Size() const;

private:
    mutable std::mutex m_mutex;
    Batch m_entries;
    std::size_t m_front = 0;  // TryPop's position in m_entries
    bool m_scheduled = false;
    std::atomic<bool> m_closed{false};
};

}  // namespace Tarv
