#include "platform/testing/ManualTask.h"

namespace Tarv::Testing {

ManualTask::~ManualTask() {
    Stop();
}

void ManualTask::PostCallbackEntry(std::shared_ptr<IL::CallbackEntry> entry) {
    m_queue.Push(std::move(entry));
}

CallbackConnection ManualTask::RegisterStopNotification(std::function<void()> const& onStop) {
    return m_stopNotifier.Register(onStop);
}

bool ManualTask::RunOne() {
    auto entry = m_queue.TryPop();
    if (!entry) return false;
    entry->Dispatch();
    return true;
}

std::size_t ManualTask::RunUntilIdle(std::size_t limit) {
    std::size_t ran = 0;
    while (ran < limit && RunOne()) ++ran;
    return ran;
}

void ManualTask::Stop() {
    m_queue.Close();
    m_stopNotifier.NotifyStopped();
}

}  // namespace Tarv::Testing
