#include "CallbackConnection.h"

#include <atomic>

struct CallbackConnection::State {
    explicit State(std::function<void()> fn) : disconnect(std::move(fn)) {}
    std::atomic<bool> done{false};
    std::function<void()> disconnect;
};

CallbackConnection::CallbackConnection(std::function<void()> disconnect)
    : m_state(std::make_shared<State>(std::move(disconnect))) {}

void CallbackConnection::Disconnect() const {
    if (m_state && !m_state->done.exchange(true) && m_state->disconnect) {
        m_state->disconnect();
    }
}

bool CallbackConnection::IsConnected() const {
    return m_state && !m_state->done.load();
}
