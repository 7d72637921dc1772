#pragma once
// ProductCall: sends one request of any identifier of the product's endpoint as it is, on a
// connection of its own, and waits for what ends it: its reply, the Error notification of
// its identifier, or the end of the connection. `vellmarkctl call` uses it, since the
// client library's operations make their own requests out of their arguments.
//
// Threads: made and used on one thread, whose calls block; the transport's threads only
// hand over what arrives.
#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "framework/ipc/IPCMessageEnvelope.h"
#include "framework/ipc/IPCMessageRouterIF.h"
#include "platform/ipc/ClientListener.h"

namespace Vellmark::Ctl {

class ProductCall {
public:
    // Starts connecting to the product's endpoint; the connections it makes are taken by
    // Send.
    ProductCall();
    ~ProductCall();
    ProductCall(ProductCall const&) = delete;
    ProductCall& operator=(ProductCall const&) = delete;

    struct Ending {
        enum class Kind {
            Reply,     // the reply arrived: `envelope`
            Error,     // the Error notification of the identifier arrived: `envelope`
            Sent,      // a one-way message went out
            Ended,     // the connection ended first
            NotSent,   // the transport took no frame (over the frame limit)
            NoAnswer,  // none of those before the deadline
        };
        Kind kind;
        IPCMessageEnvelope envelope;
    };

    // Waits for a connection (the next one after the last Send's, if any), then sends
    // `envelope` under `id`: a one-way message when `oneWay`, else a request, hearing the
    // Error notification `errorId` as well when it is not 0. Waits for its end until
    // `deadline` (nothing: no bound).
    Ending Send(unsigned int id, IPCMessageEnvelope const& envelope, bool oneWay,
                unsigned int errorId,
                std::optional<std::chrono::steady_clock::time_point> deadline);

private:
    struct Shared;
    std::shared_ptr<Shared> m_shared;
    std::shared_ptr<IL::ClientListenerIF> m_listener;
    CallbackConnection m_listening;
    std::shared_ptr<IPCMessageRouterIF> m_router;
    std::shared_ptr<Network::ConnectorSocket> m_used;
};

}  // namespace Vellmark::Ctl
