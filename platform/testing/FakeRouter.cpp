#include "platform/testing/FakeRouter.h"

#include <utility>

namespace Tarv::Testing {

IPCMessageEnvelope EnvelopeOf(google::protobuf::Message const& message) {
    IPCMessageEnvelope envelope;
    envelope.SetPayload(message);
    return envelope;
}

FakeRouter::FakeRouter(std::string name) : m_name(std::move(name)) {}

void FakeRouter::SetDisconnectHandler(std::shared_ptr<Network::ConnectorSocket> const& socket,
                                      std::function<void()> const& handler) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_disconnectSocket = socket;
    m_disconnectHandler = handler;
}

bool FakeRouter::IsOpen() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_stops == 0;
}

void FakeRouter::Stop() {
    std::function<void()> disconnectHandler;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        ++m_stops;
        disconnectHandler.swap(m_disconnectHandler);
    }
    // Dropped outside the lock: the handlers own callback copies.
    m_requests->TakeAll();
    m_attachments->TakeAll();
}

bool FakeRouter::SendEnvelope(unsigned int id, IPCMessageEnvelope const& envelope) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_sends.push_back({id, envelope.has_payload_type_name(), envelope.payload_type_name(),
                       envelope.payload(), false});
    return true;
}

CallbackConnection FakeRouter::SendEnvelopeRequest(unsigned int id,
                                                   IPCMessageEnvelope const& request,
                                                   EnvelopeHandler const& onResponse) {
    std::size_t index;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        index = m_sends.size();
        m_sends.push_back({id, request.has_payload_type_name(), request.payload_type_name(),
                           request.payload(), true});
    }
    return m_requests->Add({index, onResponse});
}

std::size_t FakeRouter::PendingRequests() const {
    return m_requests->Size();
}

CallbackConnection FakeRouter::AttachEnvelopeHandler(unsigned int id,
                                                     EnvelopeHandler const& handler) {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_attachedIds.push_back(id);
    }
    return m_attachments->Add({id, handler});
}

void FakeRouter::OnPayloadTypeMismatch(IPCMessageEnvelope const& envelope) {
    std::lock_guard<std::mutex> lock(m_mutex);
    ++m_mismatches;
    m_lastMismatch = envelope;
}

std::vector<FakeRouter::Send> FakeRouter::Sends() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_sends;
}

std::vector<unsigned int> FakeRouter::AttachedIds() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_attachedIds;
}

bool FakeRouter::Respond(std::size_t sendIndex, IPCMessageEnvelope const& response) {
    // A request's registration ends with its response: take it out, then call it.
    auto answered =
        m_requests->TakeFirst([sendIndex](Registration const& r) { return r.key == sendIndex; });
    if (!answered) return false;
    IPCMessageEnvelope delivered = response;
    delivered.set_message_id(Sends().at(sendIndex).id);
    answered->handler(delivered);
    return true;
}

bool FakeRouter::Respond(std::size_t sendIndex, google::protobuf::Message const& response) {
    return Respond(sendIndex, EnvelopeOf(response));
}

std::size_t FakeRouter::Push(unsigned int id, IPCMessageEnvelope const& envelope) {
    IPCMessageEnvelope delivered = envelope;
    delivered.set_message_id(id);
    std::size_t called = 0;
    for (auto const& registration : m_attachments->Snapshot()) {
        if (registration.key != id) continue;
        registration.handler(delivered);
        ++called;
    }
    return called;
}

std::size_t FakeRouter::Push(unsigned int id, google::protobuf::Message const& message) {
    return Push(id, EnvelopeOf(message));
}

std::size_t FakeRouter::AttachedCount(unsigned int id) const {
    std::size_t count = 0;
    for (auto const& registration : m_attachments->Snapshot()) count += registration.key == id;
    return count;
}

bool FakeRouter::FireDisconnect() {
    std::function<void()> handler;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        handler = m_disconnectHandler;
    }
    if (!handler) return false;
    handler();
    return true;
}

bool FakeRouter::HasDisconnectHandler() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return static_cast<bool>(m_disconnectHandler);
}

std::shared_ptr<Network::ConnectorSocket> FakeRouter::DisconnectSocket() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_disconnectSocket;
}

int FakeRouter::StopCount() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_stops;
}

int FakeRouter::MismatchCount() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_mismatches;
}

std::optional<IPCMessageEnvelope> FakeRouter::LastMismatch() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_lastMismatch;
}

}  // namespace Tarv::Testing
