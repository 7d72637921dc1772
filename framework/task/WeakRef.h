#pragma once
// WeakRef: a weak reference to an AsyncCallback implementation, held by the target task's
// stop notification. It keeps nothing alive; copies refer to the same implementation.
#include <atomic>
#include <memory>

class NotifyTargetTaskIF;

class WeakRef {
public:
    // `impl` is an AsyncCallbackImplBase: anything with an atomic task pointer `target`.
    template <class Impl>
    explicit WeakRef(std::shared_ptr<Impl> const& impl) : m_owner(impl), m_target(&impl->target) {}

    // Makes the implementation inert (its target becomes null) if it still exists;
    // otherwise does nothing.
    void notifyStopped() const {
        if (auto const alive = m_owner.lock()) m_target->store(nullptr);
    }

private:
    std::weak_ptr<void const> m_owner;
    std::atomic<NotifyTargetTaskIF*>* m_target;
};
