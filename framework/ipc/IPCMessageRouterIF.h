#pragma once
// IPCMessageRouterIF: moves envelopes to and from one peer over one connection, under
// numeric message identifiers.
//
// The virtual operations are untyped; the member templates SendRequest and Attach turn
// them into typed protobuf messages delivered through an AsyncCallback (or any callback
// template with the same shape: a member `impl` whose `fire(T const&)` delivers).
//
// Threads: every operation may be called from any thread and none blocks for a reply.
// Handlers run on the router's own thread; they only decode and fire, and the callback's
// task runs the user's function.
// Ownership: each registration (a response handler or an attached handler, with the
// callback copy inside it) belongs to the router until it ends: through its
// CallbackConnection, when its response has arrived, or with the router. Destroying a
// CallbackConnection without calling Disconnect() leaves the registration in force.
#include <cstddef>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "framework/ipc/ConnectorSocket.h"
#include "framework/ipc/IPCMessageEnvelope.h"
#include "framework/task/CallbackConnection.h"

class IPCMessageRouterIF {
public:
    using EnvelopeHandler = std::function<void(IPCMessageEnvelope const&)>;

    virtual ~IPCMessageRouterIF() = default;

    // Calls `handler` once when the connection of `socket` is lost (not after Stop()).
    virtual void SetDisconnectHandler(std::shared_ptr<Network::ConnectorSocket> const& socket,
                                      std::function<void()> const& handler) = 0;
    // True while the connection is up and the router not stopped.
    virtual bool IsOpen() const = 0;
    // Shuts the router down and drops every registration; no handler runs after it returns.
    // Idempotent.
    virtual void Stop() = 0;
    // The name the router was created with.
    virtual std::string const& Name() const = 0;
    // Sends a one-way message; no reply is expected. False if it could not be queued.
    virtual bool SendEnvelope(unsigned int id, IPCMessageEnvelope const& envelope) = 0;
    // Sends a request and calls `onResponse` once with the peer's response envelope.
    virtual CallbackConnection SendEnvelopeRequest(unsigned int id,
                                                   IPCMessageEnvelope const& request,
                                                   EnvelopeHandler const& onResponse) = 0;
    // The number of requests still waiting for their response.
    virtual std::size_t PendingRequests() const = 0;
    // Calls `handler` for every envelope the peer sends under `id`, while registered.
    // Several registrations under one identifier each receive every envelope.
    virtual CallbackConnection AttachEnvelopeHandler(unsigned int id,
                                                     EnvelopeHandler const& handler) = 0;
    // Takes note of an envelope that was not delivered because its payload type name was
    // not the expected one.
    virtual void OnPayloadTypeMismatch(IPCMessageEnvelope const& envelope) = 0;

    // Sends `request` under `id`; the typed response is fired at `callback`.
    template <class Resp, class Req, template <class> class AsyncCallback>
    CallbackConnection SendRequest(unsigned int id, Req const& request,
                                   AsyncCallback<Resp> const& callback) {
        IPCMessageEnvelope envelope;
        envelope.SetPayload(request);
        std::function<void(IPCMessageEnvelope const&, AsyncCallback<Resp>&)> adapter =
            [this](IPCMessageEnvelope const& response, AsyncCallback<Resp>& cb) {
                CallbackHelper<AsyncCallback<Resp>>(response, cb);
            };
        EnvelopeHandler handler = std::bind(adapter, std::placeholders::_1, callback);
        return SendEnvelopeRequest(id, envelope, handler);
    }

    // Fires `callback` with every message that arrives under `id`, typed.
    template <class T, template <class> class AsyncCallback>
    CallbackConnection Attach(unsigned int id, AsyncCallback<T> const& callback) {
        EnvelopeHandler handler = std::bind(&IPCMessageRouterIF::CallbackHelper<AsyncCallback<T>>,
                                            this, std::placeholders::_1, callback);
        return AttachEnvelopeHandler(id, handler);
    }

    // Decodes `envelope` as the callback's message type and fires the callback with it.
    // An envelope whose payload type name is present and not exactly the type's short name
    // goes to OnPayloadTypeMismatch instead. Bytes that do not parse are not detected: the
    // message holds what could be parsed.
    template <class Callback>
    void CallbackHelper(IPCMessageEnvelope const& envelope, Callback& callback) {
        using T = typename CallbackMessage<Callback>::type;
        if (!AcceptsPayloadType(envelope, T::descriptor()->name())) return;
        // Each thread decodes into one message of each type, cleared by the parse: it holds
        // exactly what a fresh message would, but keeps its parts' memory for the next
        // message instead of allocating and freeing all of them each time. The firing makes
        // its own full copy. One that a large payload grew is let go afterwards.
        constexpr std::size_t kKeptPayloadBytes = 64 * 1024;
        thread_local T message;
        envelope.GetPayload(message);
        callback.impl->fire(message);
        if (envelope.payload().size() > kKeptPayloadBytes) T().Swap(&message);
    }

private:
    template <class Callback>
    struct CallbackMessage;
    template <template <class> class AsyncCallback, class T>
    struct CallbackMessage<AsyncCallback<T>> {
        using type = T;
    };

    // The untyped half of CallbackHelper, written once for every message type.
    bool AcceptsPayloadType(IPCMessageEnvelope const& envelope, std::string const& expected) {
        if (!envelope.has_payload_type_name()) return true;
        std::string const& name = envelope.payload_type_name();
        if (name.size() == expected.size() &&
            std::memcmp(name.data(), expected.data(), name.size()) == 0) {
            return true;
        }
        OnPayloadTypeMismatch(envelope);
        return false;
    }
};
