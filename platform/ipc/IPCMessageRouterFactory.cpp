#include "platform/ipc/IPCMessageRouterFactory.h"

#include "platform/ipc/ReplaceableFactory.h"
#include "platform/ipc/transport/SocketRouter.h"
#include "platform/task/EventLoopOwner.h"

namespace {

using Signature = std::shared_ptr<IPCMessageRouterIF>(
    std::string const&, NotifyTargetTaskIF*, std::shared_ptr<Network::ConnectorSocket> const&);

// The built-in routers serve the sockets of the built-in listener; there is none for any
// other socket. A task that serves an event loop gets its router on that loop: frames are
// read, decoded and fired on the task's own thread, and no other thread wakes. Any other
// task's router stays on the shared IO thread.
Tarv::ReplaceableFactory<Signature>& RouterFactory() {
    static Tarv::ReplaceableFactory<Signature> factory(
        [](std::string const& name, NotifyTargetTaskIF* task,
           std::shared_ptr<Network::ConnectorSocket> const& socket)
            -> std::shared_ptr<IPCMessageRouterIF> {
            auto connection = std::dynamic_pointer_cast<Tarv::FramedConnection>(socket);
            if (!connection) return nullptr;
            auto const* owner = dynamic_cast<Tarv::EventLoopOwner const*>(task);
            return Tarv::SocketRouter::Create(name, std::move(connection),
                                              owner ? owner->Loop() : nullptr);
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
