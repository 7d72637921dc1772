#pragma once
// CallbackConnection: a handle on one registration (a stop notification, a message
// handler). Disconnect() ends the registration; it is harmless on an empty handle, on one
// already disconnected, and when the registry itself is gone, and may be called more than
// once and from any thread. Copies share one registration. Destroying a handle without
// calling Disconnect() leaves the registration in force.
#include <functional>
#include <memory>

class CallbackConnection {
public:
    CallbackConnection() = default;
    // `disconnect` ends the registration; it runs at most once, on the first Disconnect().
    explicit CallbackConnection(std::function<void()> disconnect);

    void Disconnect() const;
    // False for an empty handle and after Disconnect().
    bool IsConnected() const;

private:
    struct State;
    std::shared_ptr<State> m_state;
};
