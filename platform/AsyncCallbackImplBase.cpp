#include "AsyncCallbackImplBase.h"

#include "WeakRef.h"

AsyncCallbackImplBase::~AsyncCallbackImplBase() {
    stopConnection.Disconnect();
}

void AsyncCallbackImplBase::Initialize() {
    NotifyTargetTaskIF* task = target.load();
    if (task == nullptr) return;
    // Only a weak reference goes to the task, so the registration keeps nothing alive.
    WeakRef ref(shared_from_this());
    stopConnection = task->RegisterStopNotification([ref] { ref.notifyStopped(); });
}
