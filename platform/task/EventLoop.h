#pragma once
// EventLoop: what one thread waits on: work posted to it and the sockets bound to it (an
// Asio io_context underneath, kept out of this header). An IL::Task runs one for its queue
// and its sockets, so that a socket's frames are read, decoded and handled on the task's
// own thread with no other thread woken; the process's shared IO thread runs another.
//
// Life: the owning thread calls Run(), which serves the loop until Quit() (from any thread).
// Then the same thread calls End(): every ending function runs there (sockets bound to the
// loop close in them), work still waiting is run out or dropped, and from then on Post
// takes nothing. What holds a socket of the loop holds the loop too, by shared pointer, so
// the io_context outlives every socket made on it.
//
// Tasks opt in through EventLoopOwner: a router made for such a task reads on its loop.
#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

#include "framework/task/CallbackConnection.h"
#include "platform/TarvExport.h"
#include "platform/task/CallbackList.h"

namespace asio {
class io_context;
}

namespace Tarv {

class TARV_TRANSPORT_EXPORT EventLoop {
public:
    static std::shared_ptr<EventLoop> Create();
    ~EventLoop();
    EventLoop(EventLoop const&) = delete;
    EventLoop& operator=(EventLoop const&) = delete;

    // The io_context, for the sockets and timers of the transport. Valid while the loop lives.
    asio::io_context& Context() { return *m_context; }

    // Runs `work` later on the loop's thread. False, with `work` dropped on the calling
    // thread, once the loop has ended.
    bool Post(std::function<void()> work);

    // Serves the loop on the calling thread until Quit(). A handler that throws is logged and
    // the loop goes on.
    void Run();
    // Makes Run() return once the handler under way, if any, has returned. Any thread.
    void Quit();
    // After Run() has returned, on the same thread: calls every ending function once, runs
    // out what their closing left to do, and refuses later posts. Only the first call acts.
    void End();

    // Calls `onEnd` on the loop's thread when the loop ends; at once, on the calling
    // thread, when it has ended already (the connection is then empty).
    CallbackConnection OnEnd(std::function<void()> onEnd);

    bool RunsOnCurrentThread() const { return std::this_thread::get_id() == m_threadId.load(); }
    bool Ended() const;

private:
    EventLoop();

    std::unique_ptr<asio::io_context> m_context;
    std::atomic<std::thread::id> m_threadId{};
    mutable std::mutex m_mutex;
    bool m_ended = false;
    std::shared_ptr<CallbackList<std::function<void()>>> const m_onEnd;
};

}  // namespace Tarv
