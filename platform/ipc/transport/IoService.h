#pragma once
// IoService: the process's shared IO thread, serving one EventLoop. Sockets of tasks that
// do not serve a loop of their own (EventLoopOwner), of tests' manual tasks and of the
// attempts of listeners that report to no such task live here, with their retry timers.
//
// Shared() starts it on first use; it is never destroyed. At the process's exit its thread is
// stopped and joined, whoever still holds it: a handler run later would find the statics it
// uses (Asio's error categories, the log) destroyed. What its loop still holds then is left,
// reachable, to the end.
#include <memory>
#include <thread>

#include "platform/task/EventLoop.h"

namespace Tarv {

class IoService {
public:
    static std::shared_ptr<IoService> Shared();

    IoService(IoService const&) = delete;
    IoService& operator=(IoService const&) = delete;

    std::shared_ptr<EventLoop> const& Loop() const { return m_loop; }
    asio::io_context& Context() { return m_loop->Context(); }
    bool RunsOnCurrentThread() const { return m_loop->RunsOnCurrentThread(); }

private:
    IoService();
    // Quits the loop and joins the thread; on the IO thread itself (exit called by a
    // handler), leaves the thread to the end instead.
    void StopThread();

    std::shared_ptr<EventLoop> m_loop;
    std::thread m_thread;
};

}  // namespace Tarv
