#pragma once
// SocketClientListener: the built-in IL::ClientListenerIF, connecting over Unix sockets.
//
// Each Listen starts its own attempt loop: connect to the endpoint's socket; on failure wait
// one period and try again; on success report the connection and wait for it to end, then
// wait one period and start again. The loop runs on the loop of the task its connections go
// to when `onConnected` is an AsyncCallback bound to a task that serves an event loop
// (EventLoopOwner), so that such a client needs no thread beyond its task's; otherwise on
// the shared IO thread. When a task's loop ends, the attempts made there end with it. The
// listener holds the reported connection until it ends. Waiting for a service is normal:
// the first failed try of a run is logged at level 2, later ones not at all. A server that
// does not run as a user the directory trusts (IPCDirectory::TrustedServerUsers) is not
// connected to: the first refusal of a run is logged as a warning, and the loop goes on
// trying.
#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/ipc/ClientListener.h"

namespace Tarv {

class SocketClientListener final : public IL::ClientListenerIF {
public:
    SocketClientListener(std::string name, std::chrono::milliseconds period);
    // Ends every Listen of this listener.
    ~SocketClientListener() override;

    CallbackConnection Listen(std::shared_ptr<IPCEndpoint const> const& endpoint,
                              OnConnected const& onConnected) override;

private:
    class Attempts;

    std::string const m_name;
    std::chrono::milliseconds const m_period;
    std::mutex m_mutex;
    // Held here, not by the handles Listen returns: a caller may drop its handle and
    // still expect the listening to go on.
    std::vector<std::shared_ptr<Attempts>> m_attempts;
};

}  // namespace Tarv
