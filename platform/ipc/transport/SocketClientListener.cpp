#include "platform/ipc/transport/SocketClientListener.h"

#include <algorithm>
#include <asio/io_context.hpp>
#include <asio/local/stream_protocol.hpp>
#include <asio/post.hpp>
#include <asio/steady_timer.hpp>

#include "platform/ipc/IPCLog.h"
#include "platform/ipc/PeerCredentials.h"
#include "platform/ipc/transport/FramedConnection.h"
#include "platform/ipc/transport/IoService.h"

namespace Tarv {

// One Listen: the attempt loop for one endpoint. Its state is the IO thread's, except
// the stop flag, which guards the reporting of connections.
class SocketClientListener::Attempts : public std::enable_shared_from_this<Attempts> {
public:
    Attempts(std::string listener, std::shared_ptr<IPCEndpoint const> endpoint,
             std::chrono::milliseconds period, OnConnected onConnected)
        : m_service(IoService::Shared()),
          m_listener(std::move(listener)),
          m_endpoint(std::move(endpoint)),
          m_period(period),
          m_onConnected(std::move(onConnected)),
          m_socket(m_service->Context()),
          m_timer(m_service->Context()) {}

    void Start() {
        asio::post(m_service->Context(), [self = shared_from_this()] { self->Try(); });
    }

    // No connection is reported once this returns; the loop ends on the IO thread.
    void Stop() {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            if (m_stopped) return;
            m_stopped = true;
        }
        asio::post(m_service->Context(), [self = shared_from_this()] {
            asio::error_code ignored;
            self->m_timer.cancel();
            self->m_socket.close(ignored);
            self->m_watch.Disconnect();
            self->m_connection.reset();
        });
    }

    bool Stopped() {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_stopped;
    }

private:
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
        auto connection = FramedConnection::Adopt(m_socket.release(), m_endpoint->Name());
        IPCLog().Log(DPrint::Info, "listener %s: connected to %s", m_listener.c_str(),
                     m_endpoint->Name().c_str());
        m_connection = connection;
        // The connection may move to its router's task loop and end there: the attempt
        // loop hears of it on its own thread.
        m_watch = connection->OnClosed([weak = weak_from_this()] {
            if (auto self = weak.lock()) {
                self->m_service->Loop()->Post([self] { self->Lost(); });
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

    std::shared_ptr<IoService> const m_service;
    std::string const m_listener;
    std::shared_ptr<IPCEndpoint const> const m_endpoint;
    std::chrono::milliseconds const m_period;
    OnConnected const m_onConnected;

    std::mutex m_mutex;
    bool m_stopped = false;

    // The IO thread's.
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
