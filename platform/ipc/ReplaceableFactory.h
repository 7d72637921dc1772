#pragma once
// ReplaceableFactory: a process-wide factory function that tests can swap for their own.
// Get() returns the installed function, or the built-in one when none is installed.
// Set() and Get() may be called from any thread.
#include <functional>
#include <mutex>
#include <utility>

namespace Tarv {

template <class Signature>
class ReplaceableFactory {
public:
    using Function = std::function<Signature>;

    explicit ReplaceableFactory(Function builtIn) : m_builtIn(std::move(builtIn)) {}

    // Installs `factory` and returns the previous one; an empty one restores the built-in.
    Function Set(Function factory) {
        std::lock_guard<std::mutex> lock(m_mutex);
        std::swap(m_installed, factory);
        return factory;
    }

    Function Get() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_installed ? m_installed : m_builtIn;
    }

private:
    mutable std::mutex m_mutex;
    Function const m_builtIn;
    Function m_installed;
};

}  // namespace Tarv
