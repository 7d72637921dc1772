#pragma once
// WeakRef: a weak reference to an AsyncCallback implementation, held by the target task's
// stop notification. It keeps nothing alive; copies refer to the same implementation.
#include <memory>

class AsyncCallbackImplBase;

class WeakRef {
public:
    explicit WeakRef(std::shared_ptr<AsyncCallbackImplBase> const& impl);

    // Makes the implementation inert (its target becomes null) if it still exists;
    // otherwise does nothing.
    void notifyStopped() const;

private:
    std::weak_ptr<AsyncCallbackImplBase> m_impl;
};
