#pragma once
// IPCMessageRouterFactory: builds the router for one connected socket.
//
// The built-in factory makes a socket router for the connections of the built-in client
// listener. Tests replace what CreateRouter makes with SetFactory.
#include <functional>
#include <memory>
#include <string>

#include "framework/ipc/ConnectorSocket.h"
#include "framework/ipc/IPCMessageRouterIF.h"
#include "framework/task/NotifyTargetTaskIF.h"
#include "platform/TarvExport.h"

class TARV_EXPORT IPCMessageRouterFactory {
public:
    using Factory = std::function<std::shared_ptr<IPCMessageRouterIF>(
        std::string const& name, NotifyTargetTaskIF* task,
        std::shared_ptr<Network::ConnectorSocket> const& socket)>;

    // A router called `name` over `socket`; `task` is the task of its user. Returns nothing
    // when no router can be made for the socket.
    static std::shared_ptr<IPCMessageRouterIF> CreateRouter(
        std::string const& name, NotifyTargetTaskIF* task,
        std::shared_ptr<Network::ConnectorSocket> const& socket);

    // Makes CreateRouter use `factory` from now on and returns the factory used so far; an
    // empty one restores the built-in factory.
    static Factory SetFactory(Factory factory);
};
