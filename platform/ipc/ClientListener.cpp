#include "platform/ipc/ClientListener.h"

#include "platform/ipc/ReplaceableFactory.h"
#include "platform/ipc/transport/SocketClientListener.h"

namespace IL {
namespace {

using Signature = std::shared_ptr<ClientListenerIF>(std::string const&, std::chrono::milliseconds);

Tarv::ReplaceableFactory<Signature>& ListenerFactory() {
    static Tarv::ReplaceableFactory<Signature> factory(
        [](std::string const& name, std::chrono::milliseconds period) {
            return std::make_shared<Tarv::SocketClientListener>(name, period);
        });
    return factory;
}

}  // namespace

std::shared_ptr<ClientListenerIF> CreateClientListener(std::string const& name,
                                                       std::chrono::milliseconds period) {
    return ListenerFactory().Get()(name, period);
}

ClientListenerFactory SetClientListenerFactory(ClientListenerFactory factory) {
    return ListenerFactory().Set(std::move(factory));
}

}  // namespace IL
