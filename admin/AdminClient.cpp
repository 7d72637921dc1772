#include "admin/AdminClient.h"

#include "admin/AdminProtocol.h"
#include "platform/ipc/IPCDirectory.h"
#include "platform/ipc/IPCFrameLimit.h"
#include "platform/ipc/IPCMessageRouterFactory.h"

namespace Vellmark::Admin {

// What the transport's threads hand to the caller.
struct AdminClient::Shared {
    std::mutex mutex;
    std::condition_variable changed;
    std::shared_ptr<Network::ConnectorSocket> socket;
    bool closed = false;
};

namespace {
constexpr std::chrono::milliseconds kRetryPeriod(50);

// Waits until `done` holds or `bound` has passed (0: no bound); returns `done()`.
template <class Done>
bool WaitFor(std::condition_variable& changed, std::unique_lock<std::mutex>& lock,
             std::chrono::milliseconds bound, Done done) {
    if (bound.count() == 0) {
        changed.wait(lock, done);
        return true;
    }
    return changed.wait_for(lock, bound, done);
}
}  // namespace

AdminClient::AdminClient(std::chrono::milliseconds bound)
    : m_shared(std::make_shared<Shared>()),
      m_listener(IL::CreateClientListener("VellmarkAdminListener", kRetryPeriod)),
      m_bound(bound) {
    auto const endpoint = IPCDirectory::Get().Lookup(Vellmark::Admin::kAdminEndpoint);
    std::weak_ptr<Shared> weak = m_shared;
    auto listening = m_listener->Listen(
        endpoint, [weak](std::shared_ptr<Network::ConnectorSocket> const& socket) {
            if (auto shared = weak.lock()) {
                std::lock_guard<std::mutex> lock(shared->mutex);
                if (!shared->socket) shared->socket = socket;
                shared->changed.notify_all();
            }
        });
    std::shared_ptr<Network::ConnectorSocket> socket;
    {
        std::unique_lock<std::mutex> lock(m_shared->mutex);
        WaitFor(m_shared->changed, lock, bound, [this] { return m_shared->socket != nullptr; });
        socket = m_shared->socket;
    }
    // One connection only: a lost one is reported, not replaced.
    listening.Disconnect();
    if (!socket) {
        throw AdminError(AdminError::Kind::NoAnswer,
                         "vellmarkd does not answer at " + endpoint->Path() + " (is it running?)");
    }
    m_router = IPCMessageRouterFactory::CreateRouter("VellmarkAdminRouter", nullptr, socket);
    if (!m_router)
        throw AdminError(AdminError::Kind::NoAnswer,
                         "cannot talk to vellmarkd at " + endpoint->Path());
    m_router->SetDisconnectHandler(socket, [weak] {
        if (auto shared = weak.lock()) {
            std::lock_guard<std::mutex> lock(shared->mutex);
            shared->closed = true;
            shared->changed.notify_all();
        }
    });
}

AdminClient::~AdminClient() {
    if (m_router) m_router->Stop();
}

Vellmark::Admin::Reply AdminClient::Call(Vellmark::Admin::Request request) {
    std::size_t const limit = IPCFrameLimit::MaxFrameBytes();
    request.set_maxframebytes(static_cast<std::uint32_t>(limit));
    Vellmark::Admin::Reply reply;
    if (Vellmark::Admin::FitsOneFrame(request, limit)) {
        reply = Exchange(request);
    } else {
        auto const slices = Vellmark::Admin::Slices(request.SerializeAsString(), limit);
        for (std::size_t i = 0; i < slices.size(); ++i) {
            Vellmark::Admin::Request slice;
            slice.set_part(slices[i]);
            slice.set_more(i + 1 < slices.size());
            slice.set_maxframebytes(static_cast<std::uint32_t>(limit));
            reply = Exchange(slice);
            if (slice.more() && !reply.ok()) return reply;
        }
    }
    if (!reply.has_part()) return reply;
    // A reply too big for one frame: its slices, asked for one by one.
    std::string joined = reply.part();
    while (reply.more()) {
        Vellmark::Admin::Request next;
        next.set_nextpart(true);
        next.set_maxframebytes(static_cast<std::uint32_t>(limit));
        reply = Exchange(next);
        if (!reply.has_part()) return reply;
        joined += reply.part();
    }
    Vellmark::Admin::Reply whole;
    if (!whole.ParseFromString(joined)) {
        whole.set_ok(false);
        whole.set_error("the slices of the reply do not make a reply");
    }
    return whole;
}

Vellmark::Admin::Reply AdminClient::Exchange(Vellmark::Admin::Request const& request) {
    struct Answer {
        bool arrived = false;
        Vellmark::Admin::Reply reply;
    };
    auto answer = std::make_shared<Answer>();
    std::weak_ptr<Shared> weak = m_shared;
    IPCMessageEnvelope envelope;
    envelope.SetPayload(request);
    m_router->SendEnvelopeRequest(Vellmark::Admin::kCommandId, envelope,
                                  [weak, answer](IPCMessageEnvelope const& response) {
                                      auto shared = weak.lock();
                                      if (!shared) return;
                                      std::lock_guard<std::mutex> lock(shared->mutex);
                                      if (!response.GetPayload(answer->reply)) {
                                          answer->reply.set_ok(false);
                                          answer->reply.set_error("a reply that does not parse");
                                      }
                                      answer->arrived = true;
                                      shared->changed.notify_all();
                                  });
    std::unique_lock<std::mutex> lock(m_shared->mutex);
    WaitFor(m_shared->changed, lock, m_bound, [&] { return answer->arrived || m_shared->closed; });
    if (answer->arrived) return answer->reply;
    if (m_shared->closed)
        throw AdminError(AdminError::Kind::Closed, "vellmarkd closed the connection");
    throw AdminError(AdminError::Kind::NoAnswer,
                     "no answer from vellmarkd within " + std::to_string(m_bound.count()) + " ms");
}

std::string AdminClient::Command(Vellmark::Admin::Request const& request) {
    auto const reply = Call(request);
    if (!reply.ok())
        throw AdminError(AdminError::Kind::Refused, "vellmarkd refused: " + reply.error());
    return reply.json();
}

void AdminClient::Monitor(std::function<void(Vellmark::Admin::TrafficEvent const&)> onEvent) {
    m_router->AttachEnvelopeHandler(Vellmark::Admin::kTrafficId,
                                    [onEvent](IPCMessageEnvelope const& envelope) {
                                        Vellmark::Admin::TrafficEvent event;
                                        if (envelope.GetPayload(event)) onEvent(event);
                                    });
    Vellmark::Admin::Request request;
    request.set_monitor(true);
    Command(request);
}

void AdminClient::Close() {
    m_router->Stop();
    std::lock_guard<std::mutex> lock(m_shared->mutex);
    m_shared->closed = true;
    m_shared->changed.notify_all();
}

bool AdminClient::WaitClosed(std::chrono::milliseconds bound) {
    std::unique_lock<std::mutex> lock(m_shared->mutex);
    return WaitFor(m_shared->changed, lock, bound, [this] { return m_shared->closed; });
}

}  // namespace Vellmark::Admin
