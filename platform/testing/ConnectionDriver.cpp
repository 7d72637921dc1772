#include "platform/testing/ConnectionDriver.h"

#include <atomic>
#include <mutex>
#include <optional>

namespace Tarv::Testing {

namespace {

class FakeSocket final : public Network::ConnectorSocket {
public:
    bool IsOpen() const override { return m_open; }
    void Close() override { m_open = false; }

private:
    std::atomic<bool> m_open{true};
};

// Keeps the functions given to Listen; they die with the listener, as real ones do.
class FakeListener final : public IL::ClientListenerIF {
public:
    CallbackConnection Listen(std::shared_ptr<IPCEndpoint const> const& endpoint,
                              OnConnected const& onConnected) override {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_endpoints.push_back(endpoint ? endpoint->Name() : std::string());
        m_onConnected = onConnected;
        return CallbackConnection();
    }

    std::vector<std::string> Endpoints() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_endpoints;
    }
    OnConnected Function() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_onConnected;
    }

private:
    mutable std::mutex m_mutex;
    std::vector<std::string> m_endpoints;
    OnConnected m_onConnected;
};

}  // namespace

struct ConnectionDriver::State {
    std::mutex mutex;
    std::vector<ListenerRequest> listeners;
    std::weak_ptr<FakeListener> listener;
    std::vector<RouterRequest> routers;
    std::optional<std::size_t> failAfter;  // successes left before the failing creation

    std::shared_ptr<FakeListener> Listener() {
        std::lock_guard<std::mutex> lock(mutex);
        return listener.lock();
    }
};

ConnectionDriver::ConnectionDriver() : m_state(std::make_shared<State>()) {
    std::weak_ptr<State> weak = m_state;
    m_previousListenerFactory = IL::SetClientListenerFactory(
        [weak](std::string const& name, std::chrono::milliseconds period) {
            auto listener = std::make_shared<FakeListener>();
            if (auto state = weak.lock()) {
                std::lock_guard<std::mutex> lock(state->mutex);
                state->listeners.push_back({name, period});
                state->listener = listener;
            }
            return std::shared_ptr<IL::ClientListenerIF>(listener);
        });
    m_previousRouterFactory = IPCMessageRouterFactory::SetFactory(
        [weak](std::string const& name, NotifyTargetTaskIF* task,
               std::shared_ptr<Network::ConnectorSocket> const& socket) {
            auto state = weak.lock();
            if (!state) return std::shared_ptr<IPCMessageRouterIF>();
            std::lock_guard<std::mutex> lock(state->mutex);
            std::shared_ptr<FakeRouter> router;
            if (state->failAfter && *state->failAfter == 0) {
                state->failAfter.reset();
            } else {
                if (state->failAfter) --*state->failAfter;
                router = std::make_shared<FakeRouter>(name);
            }
            state->routers.push_back({name, task, socket, router});
            return std::shared_ptr<IPCMessageRouterIF>(router);
        });
}

ConnectionDriver::~ConnectionDriver() {
    IL::SetClientListenerFactory(std::move(m_previousListenerFactory));
    IPCMessageRouterFactory::SetFactory(std::move(m_previousRouterFactory));
}

std::vector<ConnectionDriver::ListenerRequest> ConnectionDriver::Listeners() const {
    std::lock_guard<std::mutex> lock(m_state->mutex);
    return m_state->listeners;
}

bool ConnectionDriver::ListenerAlive() const {
    return m_state->Listener() != nullptr;
}

std::vector<std::string> ConnectionDriver::ListenedEndpoints() const {
    auto listener = m_state->Listener();
    return listener ? listener->Endpoints() : std::vector<std::string>();
}

std::shared_ptr<Network::ConnectorSocket> ConnectionDriver::Connect() {
    auto listener = m_state->Listener();
    if (!listener) return nullptr;
    auto onConnected = listener->Function();
    if (!onConnected) return nullptr;
    auto socket = std::make_shared<FakeSocket>();
    onConnected(socket);
    return socket;
}

void ConnectionDriver::FailNextRouter(std::size_t successes) {
    std::lock_guard<std::mutex> lock(m_state->mutex);
    m_state->failAfter = successes;
}

std::vector<ConnectionDriver::RouterRequest> ConnectionDriver::RouterRequests() const {
    std::lock_guard<std::mutex> lock(m_state->mutex);
    return m_state->routers;
}

std::shared_ptr<FakeRouter> ConnectionDriver::Router() const {
    std::lock_guard<std::mutex> lock(m_state->mutex);
    return m_state->routers.empty() ? nullptr : m_state->routers.back().router;
}

bool ConnectionDriver::Disconnect() {
    auto router = Router();
    return router && router->FireDisconnect();
}

}  // namespace Tarv::Testing
