#pragma once
// NotifyTargetTaskIF: a task, i.e. a queue of work served by one thread of its own.
//
// Work is posted as IL::CallbackEntry objects from any thread; the task's thread calls each
// entry's Dispatch() exactly once and then drops its reference. Posting never runs the entry
// synchronously. When the task stops it calls every registered stop notification once;
// entries posted after that are dropped without being run.
#include <functional>
#include <memory>

#include "framework/task/CallbackConnection.h"

namespace IL {

// One unit of queued work.
class CallbackEntry {
public:
    virtual ~CallbackEntry() = default;
    // Called once, on the task's thread.
    virtual void Dispatch() = 0;
};

}  // namespace IL

class NotifyTargetTaskIF {
public:
    virtual ~NotifyTargetTaskIF() = default;

    // Queues `entry`; callable from any thread. The task owns the entry until it has run it
    // (or dropped it, once stopped).
    virtual void PostCallbackEntry(std::shared_ptr<IL::CallbackEntry> entry) = 0;

    // Keeps `onStop` and calls it once when the task stops. The registration ends when the
    // returned connection is disconnected. On a task that has already stopped, `onStop` is
    // called at once, on the caller's thread, and the connection is empty.
    virtual CallbackConnection RegisterStopNotification(std::function<void()> const& onStop) = 0;
};
