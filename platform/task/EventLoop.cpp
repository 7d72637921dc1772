#include "platform/task/EventLoop.h"

#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>
#include <asio/post.hpp>
#include <exception>
#include <vector>

#include "platform/log/DPrint.h"

namespace Tarv {
namespace {

DPrint& LoopLog() {
    static DPrint log("EventLoop");
    return log;
}

}  // namespace

std::shared_ptr<EventLoop> EventLoop::Create() {
    LoopLog();  // made before any loop thread can log, so destroyed after them
    return std::shared_ptr<EventLoop>(new EventLoop());
}

// One thread runs each loop: the hint lets Asio skip the locking it needs for several.
EventLoop::EventLoop()
    : m_context(std::make_unique<asio::io_context>(1)),
      m_onEnd(CallbackList<std::function<void()>>::Create()) {}

EventLoop::~EventLoop() = default;

bool EventLoop::Post(std::function<void()> work) {
    // `work` may own anything: dropped, it is destroyed after the lock is released, as a
    // parameter outlives the function's locals.
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_ended) return false;
    asio::post(*m_context, std::move(work));
    return true;
}

void EventLoop::Run() {
    m_threadId.store(std::this_thread::get_id());
    auto work = asio::make_work_guard(*m_context);
    for (;;) {
        try {
            m_context->run();
            return;
        } catch (std::exception const& e) {
            LoopLog().Log(DPrint::Error, "event loop: handler threw: %s", e.what());
        } catch (...) {
            LoopLog().Log(DPrint::Error, "event loop: handler threw");
        }
    }
}

void EventLoop::Quit() {
    m_context->stop();
}

void EventLoop::End() {
    // Rounds, because an ending function may register another (a socket bound while the
    // loop was ending); the door shuts once a round finds none.
    for (;;) {
        std::vector<std::function<void()>> round;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            if (m_ended) return;
            round = m_onEnd->TakeAll();
            if (round.empty()) {
                m_ended = true;
                break;
            }
        }
        for (auto& onEnd : round) {
            if (onEnd) onEnd();
        }
    }
    // The closed sockets' waits finish as aborted and let go of what they hold; so does any
    // work posted before the door shut. Nothing stays queued to keep an owner alive.
    m_context->restart();
    for (;;) {
        try {
            m_context->poll();
            break;
        } catch (std::exception const& e) {
            LoopLog().Log(DPrint::Error, "event loop: handler threw while ending: %s", e.what());
        } catch (...) {
            LoopLog().Log(DPrint::Error, "event loop: handler threw while ending");
        }
    }
}

void EventLoop::Continue(Continuation run, void* arg) {
    if (!ContinueInTurn(run, arg)) PostContinuation(run, arg);
}

bool EventLoop::ContinueInTurn(Continuation run, void* arg) {
    if (m_turnDepth == 0 || m_handedThisTurn >= kContinuationsPerTurn) return false;
    ++m_handedThisTurn;
    m_handed.push_back(Handed{run, arg});
    return true;
}

void EventLoop::PostContinuation(Continuation run, void* arg) {
    // The handler dies with the io_context, which this loop owns: `this` outlives it.
    asio::post(*m_context, [this, run, arg] {
        Turn turn(*this);
        run(arg);
    });
}

void EventLoop::RunContinuations() {
    if (m_handed.empty()) {
        m_handedThisTurn = 0;
        return;
    }
    ++m_turnDepth;  // what these hand on joins the same list, within the turn's share
    for (std::size_t next = 0; next < m_handed.size(); ++next) {
        Handed const handed = m_handed[next];
        try {
            handed.run(handed.arg);
        } catch (std::exception const& e) {
            LoopLog().Log(DPrint::Error, "event loop: handler threw: %s", e.what());
        } catch (...) {
            LoopLog().Log(DPrint::Error, "event loop: handler threw");
        }
    }
    m_handed.clear();
    m_handedThisTurn = 0;
    --m_turnDepth;
}

CallbackConnection EventLoop::OnEnd(std::function<void()> onEnd) {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (!m_ended) return m_onEnd->Add(std::move(onEnd));
    }
    if (onEnd) onEnd();
    return CallbackConnection();
}

bool EventLoop::Ended() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_ended;
}

}  // namespace Tarv
