#include "platform/ipc/transport/SocketRouter.h"

#include <vector>

#include "platform/ipc/IPCLog.h"

namespace Tarv {

std::shared_ptr<SocketRouter> SocketRouter::Create(std::string name,
                                                   std::shared_ptr<FramedConnection> connection,
                                                   std::shared_ptr<EventLoop> loop) {
    std::shared_ptr<SocketRouter> router(new SocketRouter(std::move(name), connection));
    std::weak_ptr<SocketRouter> weak = router;
    if (!connection->Start(
            [weak](IPCFrame& frame) {
                if (auto self = weak.lock()) self->OnFrame(frame);
            },
            std::move(loop))) {
        IPCLog().Log(DPrint::Warning, "router %s: the connection has a router already",
                     router->m_name.c_str());
        router->m_stopped = true;  // so that its destructor leaves the connection alone
        return nullptr;
    }
    router->m_closedRegistration = connection->OnClosed([weak] {
        if (auto self = weak.lock()) self->OnClosed();
    });
    return router;
}

SocketRouter::SocketRouter(std::string name, std::shared_ptr<FramedConnection> connection)
    : m_name(std::move(name)), m_connection(std::move(connection)) {}

SocketRouter::~SocketRouter() {
    Stop();
}

void SocketRouter::SetDisconnectHandler(std::shared_ptr<Network::ConnectorSocket> const&,
                                        std::function<void()> const& handler) {
    bool closed;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_stopped) return;
        m_onDisconnect = handler;
        closed = m_closed;
    }
    if (closed) {
        // Lost before anyone listened: reported from the loop's thread, like any other loss.
        std::weak_ptr<SocketRouter> weak = shared_from_this();
        m_connection->Post([weak] {
            if (auto self = weak.lock()) self->ReportDisconnect();
        });
    }
}

bool SocketRouter::IsOpen() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return !m_stopped && !m_closed;
}

void SocketRouter::Stop() {
    std::lock_guard<std::recursive_mutex> dispatch(m_dispatch);
    Registrations ended;
    std::function<void()> onDisconnect;  // released with `ended`, after m_mutex
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_stopped) return;
        m_stopped = true;
        ended = TakeRegistrations();
        onDisconnect.swap(m_onDisconnect);
    }
    m_closedRegistration.Disconnect();
    m_connection->Close();
}

bool SocketRouter::SendEnvelope(unsigned int id, IPCMessageEnvelope const& envelope) {
    if (!IsOpen()) return false;
    return m_connection->Send(IPCFrame::ONE_WAY, id, 0, envelope.Base()) ==
           FramedConnection::SendResult::Sent;
}

CallbackConnection SocketRouter::SendEnvelopeRequest(unsigned int id,
                                                     IPCMessageEnvelope const& request,
                                                     EnvelopeHandler const& onResponse) {
    std::uint64_t number;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_stopped || m_closed) {
            IPCLog().Log(DPrint::Info, "router %s: not connected; request %u not sent",
                         m_name.c_str(), id);
            return CallbackConnection();
        }
        number = ++m_lastRequest;
        // Registered before sending: the response may come back before Send returns.
        m_requests.emplace(number, onResponse);
    }
    if (m_connection->Send(IPCFrame::REQUEST, id, number, request.Base()) !=
        FramedConnection::SendResult::Sent) {
        Forget(number, true);
        return CallbackConnection();
    }
    return Registration(number, true);
}

std::size_t SocketRouter::PendingRequests() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_requests.size();
}

CallbackConnection SocketRouter::AttachEnvelopeHandler(unsigned int id,
                                                       EnvelopeHandler const& handler) {
    std::uint64_t key;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_stopped || m_closed) return CallbackConnection();
        key = ++m_lastAttachment;
        m_attachments.emplace(key,
                              std::make_pair(id, std::make_shared<EnvelopeHandler const>(handler)));
    }
    return Registration(key, false);
}

void SocketRouter::OnPayloadTypeMismatch(IPCMessageEnvelope const& envelope) {
    IPCLog().Log(DPrint::Warning,
                 "router %s: message %u: payload type \"%s\" is not the expected one; dropped",
                 m_name.c_str(), envelope.message_id(), envelope.payload_type_name().c_str());
}

SocketRouter::Registrations SocketRouter::TakeRegistrations() {
    Registrations taken;
    taken.requests.swap(m_requests);
    taken.attachments.swap(m_attachments);
    return taken;
}

CallbackConnection SocketRouter::Registration(std::uint64_t key, bool request) {
    std::weak_ptr<SocketRouter> weak = shared_from_this();
    return CallbackConnection([weak, key, request] {
        if (auto self = weak.lock()) self->Forget(key, request);
    });
}

void SocketRouter::Forget(std::uint64_t key, bool request) {
    std::lock_guard<std::recursive_mutex> dispatch(m_dispatch);
    EnvelopeHandler released;
    SharedHandler releasedAttachment;
    std::lock_guard<std::mutex> lock(m_mutex);
    if (request) {
        auto it = m_requests.find(key);
        if (it == m_requests.end()) return;
        released = std::move(it->second);
        m_requests.erase(it);
    } else {
        auto it = m_attachments.find(key);
        if (it == m_attachments.end()) return;
        releasedAttachment = std::move(it->second.second);
        m_attachments.erase(it);
    }
}

void SocketRouter::OnFrame(IPCFrame& frame) {
    std::lock_guard<std::recursive_mutex> dispatch(m_dispatch);
    // Borrowed from the frame and handed back after delivery, not moved out: the frame keeps
    // its payload buffer for the next one, so decoding allocates nothing once it has grown.
    IPCMessageEnvelope envelope;
    envelope.MutableBase().Swap(frame.mutable_envelope());
    switch (frame.kind()) {
        case IPCFrame::RESPONSE:
            DeliverResponse(frame.request_number(), envelope);
            break;
        case IPCFrame::NOTIFICATION:
            DeliverNotification(envelope);
            break;
        default:
            IPCLog().Log(DPrint::Info,
                         "router %s: message %u of kind %s is not for a client; "
                         "dropped",
                         m_name.c_str(), envelope.message_id(),
                         IPCFrame::Kind_Name(frame.kind()).c_str());
    }
    frame.mutable_envelope()->Swap(&envelope.MutableBase());
}

void SocketRouter::DeliverResponse(std::uint64_t number, IPCMessageEnvelope const& envelope) {
    EnvelopeHandler handler;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_stopped) return;
        auto it = m_requests.find(number);
        if (it != m_requests.end()) {
            handler = std::move(it->second);
            m_requests.erase(it);
        }
    }
    if (!handler) {
        // Its registration was ended by the requester.
        IPCLog().Log(DPrint::Detail, "router %s: response %llu to message %u is not awaited",
                     m_name.c_str(), static_cast<unsigned long long>(number),
                     envelope.message_id());
        return;
    }
    handler(envelope);
}

void SocketRouter::DeliverNotification(IPCMessageEnvelope const& envelope) {
    // Taken out while the handlers run, so that a delivery within one finds its own.
    std::vector<SharedHandler> handlers;
    handlers.swap(m_delivering);
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (!m_stopped) {
            for (auto const& attachment : m_attachments) {
                if (attachment.second.first == envelope.message_id()) {
                    handlers.push_back(attachment.second.second);
                }
            }
        }
    }
    for (auto const& handler : handlers) (*handler)(envelope);
    handlers.clear();  // the last owner of an ended registration lets it go here, unlocked
    handlers.swap(m_delivering);
}

void SocketRouter::OnClosed() {
    std::lock_guard<std::recursive_mutex> dispatch(m_dispatch);
    Registrations ended;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_stopped || m_closed) return;
        m_closed = true;
        ended = TakeRegistrations();
    }
    IPCLog().Log(DPrint::Info, "router %s: connection lost (%zu requests unanswered)",
                 m_name.c_str(), ended.requests.size());
    ReportDisconnect();
}

void SocketRouter::ReportDisconnect() {
    std::lock_guard<std::recursive_mutex> dispatch(m_dispatch);
    std::function<void()> handler;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_stopped || !m_closed || m_disconnectReported || !m_onDisconnect) return;
        m_disconnectReported = true;
        handler = m_onDisconnect;
    }
    handler();
}

}  // namespace Tarv
