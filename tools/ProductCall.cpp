#include "tools/ProductCall.h"

#include <condition_variable>
#include <mutex>

#include "admin/AdminProtocol.h"
#include "platform/ipc/IPCDirectory.h"
#include "platform/ipc/IPCMessageRouterFactory.h"

namespace Vellmark::Ctl {
namespace {
// As often as the client library tries.
constexpr std::chrono::milliseconds kRetryPeriod(100);
}  // namespace

// What the transport's threads hand to the caller.
struct ProductCall::Shared {
    std::mutex mutex;
    std::condition_variable changed;
    std::shared_ptr<Network::ConnectorSocket> socket;  // the latest connection
    // Of the current Send: what ended it, once something did.
    std::optional<Ending> ending;
    std::uint64_t round = 0;

    void End(std::uint64_t of, Ending::Kind kind, IPCMessageEnvelope const* envelope = nullptr) {
        std::lock_guard<std::mutex> lock(mutex);
        if (of != round || ending) return;
        ending = Ending{kind, envelope ? *envelope : IPCMessageEnvelope()};
        changed.notify_all();
    }
};

ProductCall::ProductCall()
    : m_shared(std::make_shared<Shared>()),
      m_listener(IL::CreateClientListener("vellmarkctl call", kRetryPeriod)) {
    std::weak_ptr<Shared> weak = m_shared;
    m_listening =
        m_listener->Listen(IPCDirectory::Get().Lookup(Vellmark::Admin::kServiceEndpoint),
                           [weak](std::shared_ptr<Network::ConnectorSocket> const& socket) {
                               if (auto shared = weak.lock()) {
                                   std::lock_guard<std::mutex> lock(shared->mutex);
                                   shared->socket = socket;
                                   shared->changed.notify_all();
                               }
                           });
}

ProductCall::~ProductCall() {
    m_listening.Disconnect();
    if (m_router) m_router->Stop();
}

ProductCall::Ending ProductCall::Send(
    unsigned int id, IPCMessageEnvelope const& envelope, bool oneWay, unsigned int errorId,
    std::optional<std::chrono::steady_clock::time_point> deadline) {
    std::shared_ptr<Network::ConnectorSocket> socket;
    std::uint64_t round = 0;
    {
        std::unique_lock<std::mutex> lock(m_shared->mutex);
        auto const fresh = [this] { return m_shared->socket && m_shared->socket != m_used; };
        if (deadline) {
            m_shared->changed.wait_until(lock, *deadline, fresh);
        } else {
            m_shared->changed.wait(lock, fresh);
        }
        if (!fresh()) return Ending{Ending::Kind::NoAnswer, {}};
        socket = m_shared->socket;
        round = ++m_shared->round;
        m_shared->ending.reset();
    }
    if (m_router) m_router->Stop();
    m_used = socket;
    m_router = IPCMessageRouterFactory::CreateRouter("vellmarkctl call", nullptr, socket);
    if (!m_router) return Ending{Ending::Kind::Ended, {}};
    std::weak_ptr<Shared> weak = m_shared;
    m_router->SetDisconnectHandler(socket, [weak, round] {
        if (auto shared = weak.lock()) shared->End(round, Ending::Kind::Ended);
    });
    if (errorId != 0) {
        m_router->AttachEnvelopeHandler(errorId, [weak, round](IPCMessageEnvelope const& error) {
            if (auto shared = weak.lock()) shared->End(round, Ending::Kind::Error, &error);
        });
    }
    if (oneWay) {
        bool const queued = m_router->SendEnvelope(id, envelope);
        return Ending{queued ? Ending::Kind::Sent : Ending::Kind::NotSent, {}};
    }
    m_router->SendEnvelopeRequest(id, envelope, [weak, round](IPCMessageEnvelope const& reply) {
        if (auto shared = weak.lock()) shared->End(round, Ending::Kind::Reply, &reply);
    });
    std::unique_lock<std::mutex> lock(m_shared->mutex);
    auto const ended = [this] { return m_shared->ending.has_value(); };
    if (deadline) {
        m_shared->changed.wait_until(lock, *deadline, ended);
    } else {
        m_shared->changed.wait(lock, ended);
    }
    if (!m_shared->ending) return Ending{Ending::Kind::NoAnswer, {}};
    return *m_shared->ending;
}

}  // namespace Vellmark::Ctl
