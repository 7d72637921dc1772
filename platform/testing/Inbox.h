#pragma once
// Inbox: values handed over by other threads; a test waits for them with a bound.
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <vector>

namespace Tarv::Testing {

template <class T>
class Inbox {
public:
    void Put(T value) {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_values.push_back(std::move(value));
        m_arrived.notify_all();
    }
    // True once `count` values have arrived, false if the bound passed first.
    bool WaitFor(std::size_t count, std::chrono::milliseconds bound = std::chrono::seconds(10)) {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_arrived.wait_for(lock, bound, [&] { return m_values.size() >= count; });
    }
    std::vector<T> Values() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_values;
    }
    std::size_t Size() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_values.size();
    }
    T At(std::size_t index) const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_values.at(index);
    }

private:
    mutable std::mutex m_mutex;
    std::condition_variable m_arrived;
    std::vector<T> m_values;
};

}  // namespace Tarv::Testing
