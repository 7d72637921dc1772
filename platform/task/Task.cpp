#include "platform/task/Task.h"

#include <pthread.h>

#include <asio/io_context.hpp>
#include <asio/post.hpp>
#include <exception>

#include "platform/log/DPrint.h"
#include "platform/task/EventLoop.h"

namespace IL {
namespace {

DPrint& TaskLog() {
    static DPrint log("Task");
    return log;
}

}  // namespace

Task::Task(std::string name) : m_name(std::move(name)), m_loop(Tarv::EventLoop::Create()) {
    TaskLog();  // constructed before any task thread can log, destroyed after
    m_thread = std::thread([this] { Run(); });
    m_threadId = m_thread.get_id();
    pthread_setname_np(m_thread.native_handle(), m_name.substr(0, 15).c_str());
}

Task::~Task() {
    Stop();
}

void Task::PostCallbackEntry(std::shared_ptr<CallbackEntry> entry) {
    if (m_queue.Push(std::move(entry))) ScheduleBatch();
}

CallbackConnection Task::RegisterStopNotification(std::function<void()> const& onStop) {
    return m_stopNotifier.Register(onStop);
}

void Task::Stop() {
    m_queue.Close();
    m_loop->Quit();
    if (RunsOnCurrentThread()) return;
    std::lock_guard<std::mutex> lock(m_joinMutex);
    if (m_thread.joinable()) m_thread.join();
}

void Task::ScheduleBatch() {
    // Posted on the task's own thread (a router's firing, an entry posting the next), the
    // batch runs at the end of the handler under way, not after another wait of the loop.
    // The task outlives its thread, so the pointer stays good.
    if (RunsOnCurrentThread()) {
        m_loop->Continue([](void* task) { static_cast<Task*>(task)->RunBatch(); }, this);
        return;
    }
    // Straight to the io_context: a handler of one pointer, which Asio recycles, where a
    // posted std::function would allocate. The copy of the loop keeps it alive until the
    // post returns: Asio wakes the task's thread after releasing its lock, and by then the
    // batch may have run and the owner destroyed the task.
    auto const loop = m_loop;
    asio::post(loop->Context(), [this] {
        Tarv::EventLoop::Turn turn(*m_loop);
        RunBatch();
    });
}

void Task::RunBatch() {
    m_queue.TakeBatch(m_batch);
    for (auto& entry : m_batch) {
        if (m_queue.IsClosed()) break;  // Stop() drops what is still queued
        try {
            entry->Dispatch();
        } catch (std::exception const& e) {
            TaskLog().Log(DPrint::Error, "task %s: entry threw: %s", m_name.c_str(), e.what());
        } catch (...) {
            TaskLog().Log(DPrint::Error, "task %s: entry threw", m_name.c_str());
        }
        entry.reset();  // dropped once run, before the next one runs
    }
    m_batch.clear();
    if (m_queue.FinishBatch()) ScheduleBatch();
}

void Task::Run() {
    m_loop->Run();
    m_stopNotifier.NotifyStopped();
    m_loop->End();
}

}  // namespace IL
