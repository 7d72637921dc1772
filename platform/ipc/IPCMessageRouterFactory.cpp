#include "platform/ipc/IPCMessageRouterFactory.h"

#include "platform/ipc/ReplaceableFactory.h"
#include "platform/ipc/transport/SocketRouter.h"

namespace {

using Signature = std::shared_ptr<IPCMessageRouterIF>(
    std::string const&, NotifyTargetTaskIF*, std::shared_ptr<Network::ConnectorSocket> const&);

// The built-in routers serve the sockets of the built-in listener; there is none for any
// other socket. The router runs its handlers on the IO thread, so the task is not needed.
Tarv::ReplaceableFactory<Signature>& RouterFactory() {
    static Tarv::ReplaceableFactory<Signature> factory(
        [](std::string const& name, NotifyTargetTaskIF*,
           std::shared_ptr<Network::ConnectorSocket> const& socket)
            -> std::shared_ptr<IPCMessageRouterIF> {
            auto connection = std::dynamic_pointer_cast<Tarv::FramedConnection>(socket);
            if (!connection) return nullptr;
            return Tarv::SocketRouter::Create(name, std::move(connection));
        });
    return factory;
}

}  // namespace

std::shared_ptr<IPCMessageRouterIF> IPCMessageRouterFactory::CreateRouter(
    std::string const& name, NotifyTargetTaskIF* task,
    std::shared_ptr<Network::ConnectorSocket> const& socket) {
    return RouterFactory().Get()(name, task, socket);
}

IPCMessageRouterFactory::Factory IPCMessageRouterFactory::SetFactory(Factory factory) {
    return RouterFactory().Set(std::move(factory));
}
