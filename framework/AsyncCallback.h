#pragma once
// AsyncCallback<T>: a callable that may be fired on any thread and delivers a private copy
// of the fired value to a function on a chosen target task, later and asynchronously.
//
// - Copies share one implementation (one task, one function, one stop registration);
//   copying costs one reference-count increment.
// - Each firing queues one entry on the task, carrying its own copy of the function and of
//   the value; the firing thread may change or free its value at once.
// - When the target task stops, the callback becomes inert for good: later firings are
//   dropped without a trace (one atomic load, no allocation). A null task makes it inert
//   from the start.
// - Entries already queued are never recalled: an entry runs even after every copy of the
//   callback is gone, so the function and what it captured must stay valid for that.
// - An empty function is accepted; each delivery of it throws std::bad_function_call on
//   the task's thread.
// - No lock is taken; the only shared mutable state is the atomic target pointer.
//
// AsyncCallback<void> takes no argument.
#include <functional>
#include <memory>
#include <tuple>
#include <utility>

#include "framework/AsyncCallbackImplBase.h"
#include "framework/task/NotifyTargetTaskIF.h"

namespace Tarv::Internal {

// The body shared by AsyncCallback<T> (Args = T) and AsyncCallback<void> (no Args).
template <class... Args>
class AsyncCallbackCore {
public:
    using Function = std::function<void(Args const&...)>;

    // One firing: owns its copies of the function and of the argument.
    class AsyncCallbackEntry final : public IL::CallbackEntry {
    public:
        AsyncCallbackEntry(Function const& fn, Args const&... args)
            : function(fn), argument(args...) {}
        // Throws std::bad_function_call for an empty function.
        void Dispatch() override { std::apply(function, argument); }

        Function function;
        std::tuple<Args...> argument;
    };

    class Impl final : public AsyncCallbackImplBase {
    public:
        Impl(Function const& fn, NotifyTargetTaskIF* task)
            : AsyncCallbackImplBase(task), function(std::make_shared<Function>(fn)) {}

        void fire(Args const&... args) {
            NotifyTargetTaskIF* task = target.load();
            if (task == nullptr) return;
            std::shared_ptr<IL::CallbackEntry> entry(new AsyncCallbackEntry(*function, args...));
            task->PostCallbackEntry(std::move(entry));
        }

        // Set once at construction and never changed, so it is read without a lock.
        std::shared_ptr<Function> const function;
    };

    AsyncCallbackCore(Function const& fn, NotifyTargetTaskIF* task)
        : impl(std::make_shared<Impl>(fn, task)) {
        impl->Initialize();  // needs the shared pointer made above
    }
    virtual ~AsyncCallbackCore() = default;
    AsyncCallbackCore(AsyncCallbackCore const&) = default;
    AsyncCallbackCore& operator=(AsyncCallbackCore const&) = default;

    // Fires: queues one delivery on the target task, unless the callback is inert.
    void operator()(Args const&... args) const { impl->fire(args...); }

    std::shared_ptr<Impl> impl;
};

}  // namespace Tarv::Internal

template <class T>
class AsyncCallback : public Tarv::Internal::AsyncCallbackCore<T> {
public:
    using Tarv::Internal::AsyncCallbackCore<T>::AsyncCallbackCore;
};

template <>
class AsyncCallback<void> : public Tarv::Internal::AsyncCallbackCore<> {
public:
    using Tarv::Internal::AsyncCallbackCore<>::AsyncCallbackCore;
};
