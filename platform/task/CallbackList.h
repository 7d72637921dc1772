#pragma once
// CallbackList<F>: a thread-safe list of registered functions, each registration ended
// through the CallbackConnection that Add returns. The list is owned through a shared
// pointer (use Create) and connections refer to it weakly, so a connection may outlive the
// list: disconnecting it then does nothing.
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

#include "framework/task/CallbackConnection.h"

namespace Tarv {

template <class F>
class CallbackList : public std::enable_shared_from_this<CallbackList<F>> {
public:
    static std::shared_ptr<CallbackList> Create() {
        return std::shared_ptr<CallbackList>(new CallbackList());
    }

    CallbackConnection Add(F function) {
        std::uint64_t id;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            id = ++m_lastId;
            m_entries.emplace_back(id, std::move(function));
        }
        std::weak_ptr<CallbackList> weak = this->shared_from_this();
        return CallbackConnection([weak, id] {
            if (auto list = weak.lock()) list->Remove(id);
        });
    }

    // Copies of the registered functions, in registration order; call them without the lock.
    std::vector<F> Snapshot() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        std::vector<F> out;
        out.reserve(m_entries.size());
        for (auto const& entry : m_entries) out.push_back(entry.second);
        return out;
    }

    // Removes and returns every registration, in registration order.
    std::vector<F> TakeAll() {
        std::lock_guard<std::mutex> lock(m_mutex);
        std::vector<F> out;
        out.reserve(m_entries.size());
        for (auto& entry : m_entries) out.push_back(std::move(entry.second));
        m_entries.clear();
        return out;
    }

    // Removes and returns the first registration that `match` accepts, if any.
    template <class Pred>
    std::optional<F> TakeFirst(Pred match) {
        std::lock_guard<std::mutex> lock(m_mutex);
        for (auto it = m_entries.begin(); it != m_entries.end(); ++it) {
            if (match(it->second)) {
                std::optional<F> taken(std::move(it->second));
                m_entries.erase(it);
                return taken;
            }
        }
        return std::nullopt;
    }

    std::size_t Size() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_entries.size();
    }

private:
    CallbackList() = default;

    void Remove(std::uint64_t id) {
        [[maybe_unused]] F removed;  // destroyed after the lock is released: it may own anything
        std::lock_guard<std::mutex> lock(m_mutex);
        for (auto it = m_entries.begin(); it != m_entries.end(); ++it) {
            if (it->first == id) {
                removed = std::move(it->second);
                m_entries.erase(it);
                break;
            }
        }
    }

    mutable std::mutex m_mutex;
    std::uint64_t m_lastId = 0;
    std::vector<std::pair<std::uint64_t, F>> m_entries;
};

}  // namespace Tarv
