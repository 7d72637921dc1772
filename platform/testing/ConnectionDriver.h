#pragma once
// ConnectionDriver: takes the place of the client listener and of the router factory
// while it lives, so that a unit test plays the connection without a socket.
//
// The test reports connections (any number of times) through the function the client
// gave to Listen, makes router creations fail, reaches the fake routers made, and fires
// their disconnect handlers. Construction installs both factories; destruction restores
// the previous ones. One driver at a time.
#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "platform/ipc/ClientListener.h"
#include "platform/ipc/IPCMessageRouterFactory.h"
#include "platform/testing/FakeRouter.h"

namespace Tarv::Testing {

class ConnectionDriver {
public:
    struct ListenerRequest {
        std::string name;
        std::chrono::milliseconds period;
    };
    struct RouterRequest {
        std::string name;
        NotifyTargetTaskIF* task;
        std::shared_ptr<Network::ConnectorSocket> socket;
        std::shared_ptr<FakeRouter> router;  // null when the creation was made to fail
    };

    ConnectionDriver();
    ~ConnectionDriver();
    ConnectionDriver(ConnectionDriver const&) = delete;
    ConnectionDriver& operator=(ConnectionDriver const&) = delete;

    // Listeners created, in order.
    std::vector<ListenerRequest> Listeners() const;
    // True while the latest listener still exists (its owner has not released it).
    bool ListenerAlive() const;
    // Names of the endpoints given to Listen, in order.
    std::vector<std::string> ListenedEndpoints() const;

    // Reports a new connection to the latest listening function, as the listener's thread
    // would. Returns the new socket; null when nothing listens.
    std::shared_ptr<Network::ConnectorSocket> Connect();

    // Makes the router creation that follows `successes` successful ones return nothing.
    void FailNextRouter(std::size_t successes = 0);

    // Router creations asked for, in order, failed ones included.
    std::vector<RouterRequest> RouterRequests() const;
    // The router of the latest creation; null if there was none or it failed.
    std::shared_ptr<FakeRouter> Router() const;

    // Fires the disconnect handler of the latest router; false if there is none to fire.
    bool Disconnect();

private:
    struct State;
    std::shared_ptr<State> m_state;
    IL::ClientListenerFactory m_previousListenerFactory;
    IPCMessageRouterFactory::Factory m_previousRouterFactory;
};

}  // namespace Tarv::Testing
