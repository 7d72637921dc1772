#include "ClientListener.h"

#include "DPrint.h"
#include "ReplaceableFactory.h"

namespace IL {
namespace {

DPrint g_log("IPC");

// Stands in until a socket transport is linked in: it never connects, and says so once
// per Listen instead of once per period.
class UnconnectedListener final : public ClientListenerIF {
public:
    explicit UnconnectedListener(std::string name) : m_name(std::move(name)) {}

    CallbackConnection Listen(std::shared_ptr<IPCEndpoint const> const& endpoint,
                              OnConnected const&) override {
        g_log.Log(DPrint::Warning, "listener %s: no IPC transport in this build, %s unreachable",
                  m_name.c_str(), endpoint ? endpoint->Name().c_str() : "(no endpoint)");
        return CallbackConnection();
    }

private:
    std::string m_name;
};

using Signature = std::shared_ptr<ClientListenerIF>(std::string const&, std::chrono::milliseconds);

ReplaceableFactory<Signature>& ListenerFactory() {
    static ReplaceableFactory<Signature> factory(
        [](std::string const& name, std::chrono::milliseconds) {
            return std::make_shared<UnconnectedListener>(name);
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
