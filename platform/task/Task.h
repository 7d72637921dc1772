#pragma once
// IL::Task: a NotifyTargetTaskIF served by one thread of its own, which waits on an event
// loop: on the task's queue and on the sockets bound to the loop (EventLoopOwner). A router
// made for the task reads, decodes and handles its frames on this thread.
//
// Entries run one at a time, first in, first out, on the task's thread; a batch posted on
// the task's own thread runs at the end of the handler under way, and at least every
// EventLoop::kContinuationsPerTurn batches the loop serves its sockets. Stop() ends the task:
// entries still queued are dropped without running, every stop notification is called once on the
// task's thread, then the sockets bound to the loop close, and the thread ends. After Stop()
// returns (when called from another thread), no entry runs any more; entries posted later are
// dropped. An exception thrown by an entry is logged at level 0 and the task goes on.
//
// Stop() may be called from any thread, also from an entry of the task itself (then the
// thread ends after that entry returns). The destructor stops and joins; it must not run
// on the task's own thread. Firing at a task while it is being destroyed is the owner's
// error: stop the producers first. Once an entry has run, the task may be destroyed at
// once, even while the call that posted it is still returning on another thread.
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "framework/task/NotifyTargetTaskIF.h"
#include "platform/TarvExport.h"
#include "platform/task/EntryQueue.h"
#include "platform/task/EventLoopOwner.h"
#include "platform/task/StopNotifier.h"

namespace IL {

class TARV_EXPORT Task final : public NotifyTargetTaskIF, public Tarv::EventLoopOwner {
public:
    // Starts the thread. `name` names the thread (the first 15 characters) and log lines.
    explicit Task(std::string name);
    ~Task() override;
    Task(Task const&) = delete;
    Task& operator=(Task const&) = delete;

    void PostCallbackEntry(std::shared_ptr<CallbackEntry> entry) override;
    CallbackConnection RegisterStopNotification(std::function<void()> const& onStop) override;

    // The loop the task's thread serves.
    std::shared_ptr<Tarv::EventLoop> Loop() const override { return m_loop; }

    // Stops the task (see above) and waits for its thread, unless called on it.
    void Stop();

    bool IsStopped() const { return m_queue.IsClosed(); }
    // True on the task's own thread.
    bool RunsOnCurrentThread() const { return std::this_thread::get_id() == m_threadId; }
    std::thread::id ThreadId() const { return m_threadId; }
    std::string const& Name() const { return m_name; }

private:
    void Run();
    // Runs the entries queued when it starts; later ones wait for the next batch, so that
    // sockets are served in between (every few batches: see EventLoop::Continue).
    void RunBatch();
    void ScheduleBatch();

    std::string const m_name;
    std::shared_ptr<Tarv::EventLoop> const m_loop;
    Tarv::EntryQueue m_queue;
    Tarv::EntryQueue::Batch m_batch;  // the task thread's
    Tarv::StopNotifier m_stopNotifier;
    std::mutex m_joinMutex;
    std::thread m_thread;
    // Kept apart from m_thread: join() resets the thread's id, and the task thread reads it.
    std::thread::id m_threadId;
};

}  // namespace IL
