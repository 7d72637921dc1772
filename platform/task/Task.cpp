#include "platform/task/Task.h"

#include <pthread.h>

#include <exception>

#include "platform/log/DPrint.h"

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
    m_queue.Push(std::move(entry));
}

CallbackConnection Task::RegisterStopNotification(std::function<void()> const& onStop) {
    return m_stopNotifier.Register(onStop);
}

void Task::Stop() {
    m_queue.Close();
    if (RunsOnCurrentThread()) return;
    std::lock_guard<std::mutex> lock(m_joinMutex);
    if (m_thread.joinable()) m_thread.join();
}

void Task::Run() {
    while (auto entry = m_queue.WaitPop()) {
        try {
            entry->Dispatch();
        } catch (std::exception const& e) {
            TaskLog().Log(DPrint::Error, "task %s: entry threw: %s", m_name.c_str(), e.what());
        } catch (...) {
            TaskLog().Log(DPrint::Error, "task %s: entry threw", m_name.c_str());
        }
    }
    m_stopNotifier.NotifyStopped();
}

}  // namespace IL
