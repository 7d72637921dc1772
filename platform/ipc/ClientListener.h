#pragma once
// IL::ClientListenerIF: keeps a client connected to a service's endpoint.
//
// A listener tries to connect every period until the endpoint accepts, reports each
// established connection once, and tries again when that connection ends. A service that
// is not there yet is the normal case, not an error.
//
// IL::CreateClientListener makes the process's listeners; tests replace what it makes
// with SetClientListenerFactory.
#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "framework/ipc/ConnectorSocket.h"
#include "framework/task/CallbackConnection.h"
#include "platform/TarvExport.h"
#include "platform/ipc/IPCDirectory.h"

namespace IL {

class TARV_EXPORT ClientListenerIF {
public:
    using OnConnected = std::function<void(std::shared_ptr<Network::ConnectorSocket> const&)>;

    virtual ~ClientListenerIF() = default;

    // Starts connecting to `endpoint`. `onConnected` is called once per established
    // connection, on the listener's own thread, with the connected socket; given an
    // AsyncCallback whose task serves an event loop (an IL::Task), the built-in listener
    // makes its attempts on that task's thread and starts no thread. Listening ends
    // when the returned connection is disconnected or the listener is destroyed; releasing
    // the returned handle alone does not end it.
    virtual CallbackConnection Listen(std::shared_ptr<IPCEndpoint const> const& endpoint,
                                      OnConnected const& onConnected) = 0;
};

using ClientListenerFactory = std::function<std::shared_ptr<ClientListenerIF>(
    std::string const& name, std::chrono::milliseconds period)>;

// A listener called `name` that retries every `period`.
TARV_EXPORT std::shared_ptr<ClientListenerIF> CreateClientListener(
    std::string const& name, std::chrono::milliseconds period);

// Makes CreateClientListener use `factory` from now on and returns the factory used so
// far; an empty one restores the built-in listener.
TARV_EXPORT ClientListenerFactory SetClientListenerFactory(ClientListenerFactory factory);

}  // namespace IL
