#include "platform/ipc/transport/SocketClientListener.h"

#include <algorithm>
#include <asio/io_context.hpp>
#include <asio/local/stream_protocol.hpp>
#include <asio/steady_timer.hpp>

#include "framework/AsyncCallback.h"
#include "platform/ipc/IPCLog.h"
#include "platform/ipc/PeerCredentials.h"
#include "platform/ipc/transport/FramedConnection.h"
#include "platform/ipc/transport/IoService.h"
#include "platform/task/EventLoopOwner.h"

namespace Tarv {

namespace {

// The loop of the task that `onConnected` delivers to, when it is an AsyncCallback bound to
// a task that serves an event loop of its own (EventLoopOwner); null otherwise. A client on
// such a task then has its attempts made, and its connections reported, on the task's own
// thread: it needs no other.
std::shared_ptr<EventLoop> LoopOfTarget(IL::ClientListenerIF::OnConnected const& onConnected) {
    using Reported = AsyncCallback<std::shared_ptr<Network::ConnectorSocket>>;
    auto const* callback = onConnected.target<Reported>();
    if (!callback) return nullptr;
    auto const* owner = dynamic_cast<EventLoopOwner const*>(callback->impl->target.load());
    return owner ? owner->Loop() : nullptr;
}

}  // namespace

// One Listen: the attempt loop for one endpoint, on the loop of the task its connections go
// to, or on the shared IO thread. Its state is that loop's thread's, except the stop flag,
// which guards the reporting of connections.
class SocketClientListener::Attempts : public std::enable_shared_from_this<Attempts> {
public:
    Attempts(std::string listener, std::shared_ptr<IPCEndpoint const> endpoint,
             std::chrono::milliseconds period, OnConnected onConnected)
        : m_taskLoop(LoopOfTarget(onConnected)),
          // The shared IO thread starts only for a listener that reports to no such task.
          m_service(m_taskLoop ? nullptr : IoService::Shared()),
          m_loop(m_taskLoop ? m_taskLoop : m_service->Loop()),
          m_listener(std::move(listener)),
          m_endpoint(std::move(endpoint)),
          m_period(period),
          m_onConnected(std::move(onConnected)),
          m_socket(m_loop->Context()),
          m_timer(m_loop->Context()) {}

    void Start() {
        // A task's loop that ends first ends the attempts there (and at once, here, when it
        // has ended already): its socket and timer close while their loop can still finish
        // them.
        auto ending = m_loop->OnEnd([weak = weak_from_this()] {
            if (auto self = weak.lock()) {
                self->MarkStopped();
                self->Close();
            }
        });
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_loopEnd = std::move(ending);
        }
        m_loop->Post([self = shared_from_this()] { self->Try(); });
    }

    // No connection is reported once this returns; the loop ends on its loop's thread.
    void Stop() {
        if (!MarkStopped()) return;
        m_loop->Post([self = shared_from_this()] { self->Close(); });
    }

    bool Stopped() {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_stopped;
    }

private:
    // True for the call that stopped the attempts.
    bool MarkStopped() {
        CallbackConnection loopEnd;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            if (m_stopped) return false;
            m_stopped = true;
            loopEnd = std::move(m_loopEnd);
        }
        loopEnd.Disconnect();
        return true;
    }

    void Close() {
        asio::error_code ignored;
        m_timer.cancel();
        m_socket.close(ignored);
        m_watch.Disconnect();
        m_connection.reset();
    }

    void Try() {
        if (Stopped()) return;
        asio::error_code ignored;
        m_socket.close(ignored);
        asio::local::stream_protocol::endpoint address;
        try {
            address = asio::local::stream_protocol::endpoint(m_endpoint->Path());
        } catch (asio::system_error const& e) {  // a path too long for a socket address
            Connected(e.code());
            return;
        }
        m_socket.async_connect(address, [self = shared_from_this()](asio::error_code const& error) {
            if (error == asio::error::operation_aborted) return;
            self->Connected(error);
        });
    }

    void RetryLater() {
        m_timer.expires_after(m_period);
        m_timer.async_wait([self = shared_from_this()](asio::error_code const& error) {
            if (!error) self->Try();
        });
    }

    void Connected(asio::error_code const& error) {
        if (Stopped()) return;
        if (error) {
            if (!m_waiting) {
                m_waiting = true;
                IPCLog().Log(DPrint::Flow, "listener %s: waiting for %s at %s (%s)",
                             m_listener.c_str(), m_endpoint->Name().c_str(),
                             m_endpoint->Path().c_str(), error.message().c_str());
            }
            RetryLater();
            return;
        }
        m_waiting = false;
        if (!TrustsServer()) {
            asio::error_code ignored;
            m_socket.close(ignored);
            RetryLater();
            return;
        }
        m_distrustLogged = false;
        auto connection = FramedConnection::Adopt(m_socket.release(), m_endpoint->Name(),
                                                  FramedConnection::Limits(), m_taskLoop);
        IPCLog().Log(DPrint::Info, "listener %s: connected to %s", m_listener.c_str(),
                     m_endpoint->Name().c_str());
        m_connection = connection;
        // The connection may move to its router's task loop and end there: the attempt
        // loop hears of it on its own thread.
        m_watch = connection->OnClosed([weak = weak_from_this()] {
            if (auto self = weak.lock()) {
                self->m_loop->Post([self] { self->Lost(); });
            }
        });
        std::lock_guard<std::mutex> lock(m_mutex);
        if (!m_stopped) m_onConnected(connection);
    }

    // True when the server runs as a user the directory trusts. Otherwise another user may
    // have put a socket of its own in the service's place: the connection is refused, with
    // one log line for a run of refusals.
    bool TrustsServer() {
        auto const peer = ReadPeerCredentials(m_socket.native_handle());
        auto const trusted = IPCDirectory::Get().TrustedServerUsers();
        if (peer && std::find(trusted.begin(), trusted.end(), peer->uid) != trusted.end()) {
            return true;
        }
        if (!m_distrustLogged) {
            m_distrustLogged = true;
            std::string users;
            for (uid_t uid : trusted) users += (users.empty() ? "" : ", ") + std::to_string(uid);
            IPCLog().Log(DPrint::Warning,
                         "listener %s: refused the server at %s: it runs as uid %d, not as a "
                         "trusted user (uid %s: root and the owner of the runtime folder)",
                         m_listener.c_str(), m_endpoint->Path().c_str(),
                         peer ? static_cast<int>(peer->uid) : -1, users.c_str());
        }
        return false;
    }

    void Lost() {
        m_connection.reset();
        if (Stopped()) return;
        IPCLog().Log(DPrint::Flow, "listener %s: connection to %s ended; reconnecting",
                     m_listener.c_str(), m_endpoint->Name().c_str());
        RetryLater();
    }

    std::shared_ptr<EventLoop> const m_taskLoop;  // null: the shared IO thread's
    std::shared_ptr<IoService> const m_service;   // held while its thread serves the attempts
    std::shared_ptr<EventLoop> const m_loop;
    std::string const m_listener;
    std::shared_ptr<IPCEndpoint const> const m_endpoint;
    std::chrono::milliseconds const m_period;
    OnConnected const m_onConnected;

    std::mutex m_mutex;
    bool m_stopped = false;
    CallbackConnection m_loopEnd;

    // The loop thread's.
    asio::local::stream_protocol::socket m_socket;
    asio::steady_timer m_timer;
    bool m_waiting = false;
    bool m_distrustLogged = false;
    std::shared_ptr<FramedConnection> m_connection;
    CallbackConnection m_watch;
};

SocketClientListener::SocketClientListener(std::string name, std::chrono::milliseconds period)
    : m_name(std::move(name)), m_period(period) {}

SocketClientListener::~SocketClientListener() {
    for (auto const& attempts : m_attempts) attempts->Stop();
}

CallbackConnection SocketClientListener::Listen(std::shared_ptr<IPCEndpoint const> const& endpoint,
                                                OnConnected const& onConnected) {
    if (!endpoint) return CallbackConnection();
    auto attempts = std::make_shared<Attempts>(m_name, endpoint, m_period, onConnected);
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_attempts.erase(std::remove_if(m_attempts.begin(), m_attempts.end(),
                                        [](auto const& old) { return old->Stopped(); }),
                         m_attempts.end());
        m_attempts.push_back(attempts);
    }
    attempts->Start();
    std::weak_ptr<Attempts> weak = attempts;
    return CallbackConnection([weak] {
        if (auto stopping = weak.lock()) stopping->Stop();
    });
}

}  // namespace Tarv
