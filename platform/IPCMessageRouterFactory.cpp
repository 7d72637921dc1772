#include "IPCMessageRouterFactory.h"

#include "ReplaceableFactory.h"

namespace {

using Signature = std::shared_ptr<IPCMessageRouterIF>(
    std::string const&, NotifyTargetTaskIF*, std::shared_ptr<Network::ConnectorSocket> const&);

// Without a socket transport linked in there is no socket a router could serve.
ReplaceableFactory<Signature>& RouterFactory() {
    static ReplaceableFactory<Signature> factory(
        [](std::string const&, NotifyTargetTaskIF*,
           std::shared_ptr<Network::ConnectorSocket> const&) {
            return std::shared_ptr<IPCMessageRouterIF>();
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
