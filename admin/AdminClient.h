#pragma once
// AdminClient: a blocking client of vellmarkd's admin endpoint, for vellmarkctl and the
// tests. One connection, made in the constructor; no reconnection.
//
// Threads: the calls block their caller, each for at most the bound given at
// construction (0: no bound). Traffic events are handed to their function on the transport's
// IO thread.
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>

#include "VellmarkAdmin.pb.h"
#include "framework/ipc/IPCMessageRouterIF.h"
#include "platform/ipc/ClientListener.h"

namespace Vellmark::Admin {

class AdminError : public std::runtime_error {
public:
    enum class Kind {
        NoAnswer,  // not reached, or no answer within the bound
        Closed,    // the service closed the connection
        Refused,   // the service answered with a refusal
    };
    AdminError(Kind kind, std::string const& what) : std::runtime_error(what), m_kind(kind) {}
    Kind kind() const { return m_kind; }

private:
    Kind m_kind;
};

class AdminClient {
public:
    // Connects, waiting at most `bound` (0: no bound). Throws AdminError when vellmarkd does
    // not answer.
    explicit AdminClient(std::chrono::milliseconds bound);
    ~AdminClient();
    AdminClient(AdminClient const&) = delete;
    AdminClient& operator=(AdminClient const&) = delete;

    // Sends `request` and returns the service's reply, each in slices when it does not fit
    // one frame (so a seed or an export of any size goes through). Throws AdminError when
    // no reply comes within the bound or the connection ends first.
    Vellmark::Admin::Reply Call(Vellmark::Admin::Request request);
    // Calls Call and returns the reply's JSON; throws AdminError with the service's reason
    // when it refused.
    std::string Command(Vellmark::Admin::Request const& request);

    // Asks for the traffic of the "Vellmark" endpoint; `onEvent` receives each frame.
    void Monitor(std::function<void(Vellmark::Admin::TrafficEvent const&)> onEvent);
    // Ends the connection; WaitClosed returns.
    void Close();
    // Waits until the connection ends, or `bound` has passed (0: no bound). True when it ended.
    bool WaitClosed(std::chrono::milliseconds bound);

private:
    // One Request, one Reply.
    Vellmark::Admin::Reply Exchange(Vellmark::Admin::Request const& request);

    struct Shared;
    std::shared_ptr<Shared> m_shared;
    std::shared_ptr<IL::ClientListenerIF> m_listener;
    std::shared_ptr<IPCMessageRouterIF> m_router;
    std::chrono::milliseconds const m_bound;
};

}  // namespace Vellmark::Admin
