#pragma once
// CallbackConnection: a handle on one registration (a stop notification, a message
// handler). Disconnect() ends the registration; it is harmless on an empty handle, on one
// already disconnected, and when the registry itself is gone, and may be called more than
// once and from any thread. Copies share one registration. Destroying a handle without
// calling Disconnect() leaves the registration in force.
#include <atomic>
#include <functional>
#include <memory>

class CallbackConnection {
public:
    CallbackConnection() = default;
    // `disconnect` ends the registration; it runs at most once, on the first Disconnect().
    explicit CallbackConnection(std::function<void()> disconnect)
        : m_state(std::make_shared<State>(std::move(disconnect))) {}

    void Disconnect() const {
        if (m_state && !m_state->done.exchange(true) && m_state->disconnect) {
            m_state->disconnect();
        }
    }
    // False for an empty handle and after Disconnect().
    bool IsConnected() const { return m_state && !m_state->done.load(); }

private:
    struct State {
        explicit State(std::function<void()> fn) : disconnect(std::move(fn)) {}
        std::atomic<bool> done{false};
        std::function<void()> disconnect;
    };
    std::shared_ptr<State> m_state;
};
