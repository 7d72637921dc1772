#include "Task.h"

#include <pthread.h>

#include <exception>

#include "DPrint.h"

namespace IL {
namespace {

DPrint& TaskLog() {
    static DPrint log("Task");
    return log;
}

}  // namespace

Task::Task(std::string name) : m_name(std::move(name)) {
    TaskLog();  // constructed before any task thread can log, destroyed after
    m_thread = std::thread([this] { Run(); });
    m_threadId = m_thread.get_id();
    pthread_setname_np(m_thread.native_handle(), m_name.substr(0, 15).c_str());
}

Task::~Task() {
    Stop();
}

void Task::PostCallbackEntry(std::shared_ptr<CallbackEntry> entry) {
    if (!entry) return;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_stopped) return;  // `entry` is dropped here, outside the lock
        m_queue.push_back(std::move(entry));
    }
    m_wake.notify_one();
}

CallbackConnection Task::RegisterStopNotification(std::function<void()> const& onStop) {
    return m_stopNotifier.Register(onStop);
}

void Task::Stop() {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stopped = true;
    }
    m_wake.notify_one();
    if (RunsOnCurrentThread()) return;
    std::lock_guard<std::mutex> lock(m_joinMutex);
    if (m_thread.joinable()) m_thread.join();
}

bool Task::IsStopped() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_stopped;
}

void Task::Run() {
    for (;;) {
        std::shared_ptr<CallbackEntry> entry;
        {
            std::unique_lock<std::mutex> lock(m_mutex);
            m_wake.wait(lock, [this] { return m_stopped || !m_queue.empty(); });
            if (m_stopped) break;
            entry = std::move(m_queue.front());
            m_queue.pop_front();
        }
        try {
            entry->Dispatch();
        } catch (std::exception const& e) {
            TaskLog().Log(DPrint::Error, "task %s: entry threw: %s", m_name.c_str(), e.what());
        } catch (...) {
            TaskLog().Log(DPrint::Error, "task %s: entry threw", m_name.c_str());
        }
    }
    std::deque<std::shared_ptr<CallbackEntry>> dropped;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        dropped.swap(m_queue);
    }
    dropped.clear();  // destroyed without running, outside the lock
    m_stopNotifier.NotifyStopped();
}

}  // namespace IL
