#include "WeakRef.h"

#include "AsyncCallbackImplBase.h"

WeakRef::WeakRef(std::shared_ptr<AsyncCallbackImplBase> const& impl) : m_impl(impl) {}

void WeakRef::notifyStopped() const {
    if (auto impl = m_impl.lock()) impl->target.store(nullptr);
}
