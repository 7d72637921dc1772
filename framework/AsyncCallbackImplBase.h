#pragma once
// AsyncCallbackImplBase: the part of an AsyncCallback's shared implementation that does not
// depend on the argument type: the target task and the registration that turns the callback
// inert when that task stops. See AsyncCallback.h for the whole contract.
#include <atomic>
#include <memory>

#include "framework/task/CallbackConnection.h"
#include "framework/task/NotifyTargetTaskIF.h"
#include "framework/task/WeakRef.h"

class AsyncCallbackImplBase : public std::enable_shared_from_this<AsyncCallbackImplBase> {
public:
    explicit AsyncCallbackImplBase(NotifyTargetTaskIF* task) : target(task) {}
    // Ends the stop registration. Never throws.
    virtual ~AsyncCallbackImplBase() { stopConnection.Disconnect(); }

    AsyncCallbackImplBase(AsyncCallbackImplBase const&) = delete;
    AsyncCallbackImplBase& operator=(AsyncCallbackImplBase const&) = delete;

    // Registers with the target task to become inert when it stops. Must be called once,
    // after a shared pointer owns this object; does nothing for a null target.
    void Initialize() {
        NotifyTargetTaskIF* task = target.load();
        if (task == nullptr) return;
        // Only a weak reference goes to the task, so the registration keeps nothing alive.
        WeakRef ref(shared_from_this());
        stopConnection = task->RegisterStopNotification([ref] { ref.notifyStopped(); });
    }

    // The task deliveries go to; null once it has stopped (or from the start).
    std::atomic<NotifyTargetTaskIF*> target;
    CallbackConnection stopConnection;
};
