#pragma once
// FakeRouter: an IPCMessageRouterIF for unit tests, without a connection.
//
// It records every send (identifier, payload type name, payload bytes, whether a response
// is expected) and every attach, in call order; lets the test answer a recorded request,
// push a notification to the handlers attached under an identifier, and fire the
// disconnect handler; and counts Stop() calls and payload-type mismatches. Handlers run on
// the thread that calls Respond/Push, outside the router's lock. Stop() drops every
// registration, as the real router does.
#include <cstddef>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "framework/ipc/IPCMessageRouterIF.h"
#include "platform/task/CallbackList.h"

namespace Tarv::Testing {

class FakeRouter final : public IPCMessageRouterIF {
public:
    struct Send {
        unsigned int id;
        bool hasPayloadTypeName;
        std::string payloadTypeName;
        std::string payload;
        bool expectsResponse;
    };

    explicit FakeRouter(std::string name = "FakeRouter");

    void SetDisconnectHandler(std::shared_ptr<Network::ConnectorSocket> const& socket,
                              std::function<void()> const& handler) override;
    bool IsOpen() const override;
    void Stop() override;
    std::string const& Name() const override { return m_name; }
    bool SendEnvelope(unsigned int id, IPCMessageEnvelope const& envelope) override;
    CallbackConnection SendEnvelopeRequest(unsigned int id, IPCMessageEnvelope const& request,
                                           EnvelopeHandler const& onResponse) override;
    std::size_t PendingRequests() const override;
    CallbackConnection AttachEnvelopeHandler(unsigned int id,
                                             EnvelopeHandler const& handler) override;
    void OnPayloadTypeMismatch(IPCMessageEnvelope const& envelope) override;

    std::vector<Send> Sends() const;
    // Identifiers of AttachEnvelopeHandler calls, in call order (also ended ones).
    std::vector<unsigned int> AttachedIds() const;
    // Parses the payload of send number `index` as M.
    template <class M>
    M SentPayload(std::size_t index) const {
        M message;
        message.ParsePartialFromString(Sends().at(index).payload);
        return message;
    }

    // Answers the request recorded as send number `sendIndex`; its registration ends.
    // False if that send is no request or was already answered, disconnected or dropped.
    bool Respond(std::size_t sendIndex, IPCMessageEnvelope const& response);
    bool Respond(std::size_t sendIndex, google::protobuf::Message const& response);
    // Calls every handler attached under `id`; returns how many were called.
    std::size_t Push(unsigned int id, IPCMessageEnvelope const& envelope);
    std::size_t Push(unsigned int id, google::protobuf::Message const& message);
    // Handlers attached under `id` and still registered.
    std::size_t AttachedCount(unsigned int id) const;
    // Calls the disconnect handler, if one is set; false otherwise.
    bool FireDisconnect();

    bool HasDisconnectHandler() const;
    std::shared_ptr<Network::ConnectorSocket> DisconnectSocket() const;
    int StopCount() const;
    int MismatchCount() const;
    std::optional<IPCMessageEnvelope> LastMismatch() const;

private:
    struct Registration {
        std::size_t key;  // send index of a request, identifier of an attachment
        EnvelopeHandler handler;
    };
    using Registrations = CallbackList<Registration>;

    std::string const m_name;
    mutable std::mutex m_mutex;
    std::vector<Send> m_sends;
    std::vector<unsigned int> m_attachedIds;
    std::shared_ptr<Registrations> m_requests = Registrations::Create();
    std::shared_ptr<Registrations> m_attachments = Registrations::Create();
    std::shared_ptr<Network::ConnectorSocket> m_disconnectSocket;
    std::function<void()> m_disconnectHandler;
    int m_stops = 0;
    int m_mismatches = 0;
    std::optional<IPCMessageEnvelope> m_lastMismatch;
};

// Wraps `message` in an envelope, as a peer would send it.
IPCMessageEnvelope EnvelopeOf(google::protobuf::Message const& message);

}  // namespace Tarv::Testing
