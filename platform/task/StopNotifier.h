#pragma once
// StopNotifier: the stop notifications of a task. Each registered function is called once
// when the task stops; a function registered after that is called at once, on the
// registering thread. Thread-safe.
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "platform/TarvExport.h"
#include "platform/task/CallbackList.h"

namespace Tarv {

class TARV_EXPORT StopNotifier {
public:
    StopNotifier() : m_list(CallbackList<std::function<void()>>::Create()) {}

    CallbackConnection Register(std::function<void()> const& onStop) {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            if (!m_stopped) return m_list->Add(onStop);
        }
        if (onStop) onStop();
        return CallbackConnection();
    }

    // Calls every registered function once, in registration order, outside any lock.
    // Only the first call does anything.
    void NotifyStopped() {
        std::vector<std::function<void()>> notifications;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            if (m_stopped) return;
            m_stopped = true;
            notifications = m_list->TakeAll();
        }
        for (auto const& notify : notifications) {
            if (notify) notify();
        }
    }

    bool IsStopped() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_stopped;
    }
    // The number of registrations in force.
    std::size_t Registrations() const { return m_list->Size(); }

private:
    mutable std::mutex m_mutex;
    bool m_stopped = false;
    std::shared_ptr<CallbackList<std::function<void()>>> m_list;
};

}  // namespace Tarv
