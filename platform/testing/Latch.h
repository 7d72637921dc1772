#pragma once
// Latch: lets a test wait, with a bound, until other threads have counted down to zero.
#include <chrono>
#include <condition_variable>
#include <mutex>

namespace Tarv::Testing {

class Latch {
public:
    explicit Latch(int count = 1) : m_count(count) {}

    void CountDown() {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_count > 0 && --m_count == 0) m_zero.notify_all();
    }
    // True if the count reached zero within `bound`.
    bool Wait(std::chrono::milliseconds bound = std::chrono::seconds(10)) {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_zero.wait_for(lock, bound, [this] { return m_count == 0; });
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_zero;
    int m_count;
};

}  // namespace Tarv::Testing
