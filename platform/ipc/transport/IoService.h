#pragma once
// IoService: the process's shared IO thread, serving one EventLoop. Sockets of tasks that
// do not serve a loop of their own (EventLoopOwner), of tests' manual tasks and of the
// listeners' attempts live here, with their retry timers.
//
// Shared() starts it on first use. Transport objects hold a shared pointer to it (or to its
// loop), so it outlives them; the process keeps one reference until exit, when the thread is
// stopped and joined once nothing else holds it.
#include <memory>
#include <thread>

#include "platform/task/EventLoop.h"

namespace Tarv {

class IoService {
public:
    static std::shared_ptr<IoService> Shared();

    ~IoService();
    IoService(IoService const&) = delete;
    IoService& operator=(IoService const&) = delete;

    std::shared_ptr<EventLoop> const& Loop() const { return m_loop; }
    asio::io_context& Context() { return m_loop->Context(); }
    bool RunsOnCurrentThread() const { return m_loop->RunsOnCurrentThread(); }

private:
    IoService();

    std::shared_ptr<EventLoop> m_loop;
    std::thread m_thread;
};

}  // namespace Tarv
