#pragma once
// IL::BreakThread: runs a function once, later, on a task's thread. Returns at once; the
// function never runs on the caller's thread. With a null task, or a task that has stopped,
// the function is dropped without running.
#include <functional>

#include "framework/task/NotifyTargetTaskIF.h"
#include "platform/TarvExport.h"

namespace IL {

TARV_EXPORT void BreakThread(std::function<void()> const& function, NotifyTargetTaskIF* task);
TARV_EXPORT void BreakThread(std::function<void()>&& function, NotifyTargetTaskIF* task);

}  // namespace IL
