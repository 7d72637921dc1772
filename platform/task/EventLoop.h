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
#include <vector>

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

    // Loop-thread work handed on to the end of the handler under way (see Turn): a plain
    // function and its argument, so that handing it on allocates nothing.
    using Continuation = void (*)(void*);
    // Continuations one turn runs at most; later ones go round the loop's wait, so that
    // work that keeps handing on more never starves the sockets.
    static constexpr int kContinuationsPerTurn = 16;
    // On the loop's thread only. Inside a Turn, `run(arg)` runs when the outermost Turn
    // ends: after the handler under way and what it handed on before, and before the loop
    // waits on its sockets again. Elsewhere, or once the turn has run its share, it is
    // posted (see Post). Either way it runs on the loop's thread, in the order of the calls
    // within a turn. The caller keeps `arg` alive until it has run.
    void Continue(Continuation run, void* arg);
    // On the loop's thread only. Inside a Turn with room left in its share, hands `run(arg)`
    // on as Continue does and returns true: it is then sure to run before the loop waits
    // again. Otherwise does nothing and returns false.
    bool ContinueInTurn(Continuation run, void* arg);

    // Marks a handler of the loop, on its thread, as one whose continuations run at its
    // end rather than going round the loop's wait (a syscall or two less per hop). A
    // continuation that throws is logged at level 0, like a throwing handler.
    class Turn {
    public:
        explicit Turn(EventLoop& loop) : m_loop(loop) { ++m_loop.m_turnDepth; }
        ~Turn() {
            if (--m_loop.m_turnDepth == 0) m_loop.RunContinuations();
        }
        Turn(Turn const&) = delete;
        Turn& operator=(Turn const&) = delete;

    private:
        EventLoop& m_loop;
    };

    // Calls `onEnd` on the loop's thread when the loop ends; at once, on the calling
    // thread, when it has ended already (the connection is then empty).
    CallbackConnection OnEnd(std::function<void()> onEnd);

    bool RunsOnCurrentThread() const { return std::this_thread::get_id() == m_threadId.load(); }
    bool Ended() const;

private:
    EventLoop();
    // Runs the continuations handed on in the turn that ends, as one more Turn.
    void RunContinuations();
    void PostContinuation(Continuation run, void* arg);

    struct Handed {
        Continuation run;
        void* arg;
    };

    std::unique_ptr<asio::io_context> m_context;
    std::atomic<std::thread::id> m_threadId{};
    mutable std::mutex m_mutex;
    bool m_ended = false;
    std::shared_ptr<CallbackList<std::function<void()>>> const m_onEnd;
    // The loop thread's: the open Turns, what they handed on, and how much of it has run.
    int m_turnDepth = 0;
    int m_handedThisTurn = 0;
    std::vector<Handed> m_handed;
};

}  // namespace Tarv
