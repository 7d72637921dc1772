#pragma once
// IL::Task: a NotifyTargetTaskIF served by one thread of its own.
//
// Entries run one at a time, first in, first out, on the task's thread. Stop() ends the
// task: entries still queued are dropped without running, every stop notification is
// called once on the task's thread, and the thread ends. After Stop() returns (when called
// from another thread), no entry runs any more; entries posted later are dropped.
// An exception thrown by an entry is logged at level 0 and the task goes on.
//
// Stop() may be called from any thread, also from an entry of the task itself (then the
// thread ends after that entry returns). The destructor stops and joins; it must not run
// on the task's own thread. Firing at a task while it is being destroyed is the owner's
// error: stop the producers first.
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "framework/task/NotifyTargetTaskIF.h"
#include "platform/task/EntryQueue.h"
#include "platform/task/StopNotifier.h"

namespace IL {

class Task final : public NotifyTargetTaskIF {
public:
    // Starts the thread. `name` names the thread (the first 15 characters) and log lines.
    explicit Task(std::string name);
    ~Task() override;
    Task(Task const&) = delete;
    Task& operator=(Task const&) = delete;

    void PostCallbackEntry(std::shared_ptr<CallbackEntry> entry) override;
    CallbackConnection RegisterStopNotification(std::function<void()> const& onStop) override;

    // Stops the task (see above) and waits for its thread, unless called on it.
    void Stop();

    bool IsStopped() const { return m_queue.IsClosed(); }
    // True on the task's own thread.
    bool RunsOnCurrentThread() const { return std::this_thread::get_id() == m_threadId; }
    std::thread::id ThreadId() const { return m_threadId; }
    std::string const& Name() const { return m_name; }

private:
    void Run();

    std::string const m_name;
    Tarv::EntryQueue m_queue;
    Tarv::StopNotifier m_stopNotifier;
    std::mutex m_joinMutex;
    std::thread m_thread;
    // Kept apart from m_thread: join() resets the thread's id, and the task thread reads it.
    std::thread::id m_threadId;
};

}  // namespace IL
