#pragma once
// EventLoopOwner: what a task that serves an event loop of its own shows the IPC layer.
// The loop itself (platform/task/EventLoop.h) stays out of installed headers: it is the
// transport's business, and it would bring Asio along.
#include <memory>

namespace Tarv {

class EventLoop;

// A task whose thread serves an EventLoop. IPC objects made for such a task are bound to its
// loop; for any other task they stay on the shared IO thread.
class EventLoopOwner {
public:
    virtual std::shared_ptr<EventLoop> Loop() const = 0;

protected:
    ~EventLoopOwner() = default;
};

}  // namespace Tarv
