#include "platform/ipc/IPCServer.h"

#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <future>
#include <map>
#include <mutex>
#include <system_error>

#include "platform/ipc/IPCDirectory.h"
#include "platform/ipc/IPCLog.h"
#include "platform/ipc/RuntimeFolder.h"
#include "platform/ipc/ServerAdmission.h"
#include "platform/ipc/transport/FramedConnection.h"
#include "platform/ipc/transport/IoService.h"
#include "platform/ipc/transport/ListeningSocket.h"
#include "platform/ipc/transport/SocketAcceptor.h"

using Tarv::IPCFrame;

namespace Tarv {

// What one connection has read and not yet answered.
struct Waiting {
    std::atomic<std::size_t> requests{0};
    std::atomic<std::size_t> bytes{0};
};

// One request's place among its connection's waiting ones: given back once, when it is
// answered or when the last copy of its IPCRequest goes, whichever comes first.
class WaitingRequest {
public:
    WaitingRequest(std::shared_ptr<Waiting> waiting, std::size_t bytes)
        : m_waiting(std::move(waiting)), m_bytes(bytes) {
        m_waiting->requests.fetch_add(1);
        m_waiting->bytes.fetch_add(m_bytes);
    }
    ~WaitingRequest() { Settle(); }
    WaitingRequest(WaitingRequest const&) = delete;
    WaitingRequest& operator=(WaitingRequest const&) = delete;

    void Settle() {
        if (m_settled.exchange(true)) return;
        m_waiting->requests.fetch_sub(1);
        m_waiting->bytes.fetch_sub(m_bytes);
    }

private:
    std::shared_ptr<Waiting> const m_waiting;
    std::size_t const m_bytes;
    std::atomic<bool> m_settled{false};
};

}  // namespace Tarv

namespace {

bool Send(Tarv::FramedConnection& connection, IPCFrame::Kind kind, unsigned int id,
          std::uint64_t number, IPCMessageEnvelope const& envelope) {
    return connection.Send(kind, id, number, envelope.Base()) ==
           Tarv::FramedConnection::SendResult::Sent;
}

}  // namespace

IPCServerSession::IPCServerSession(std::uint64_t id,
                                   std::shared_ptr<Tarv::FramedConnection> connection)
    : m_id(id), m_connection(std::move(connection)) {}

Tarv::PeerCredentials IPCServerSession::Peer() const {
    return m_connection->Peer().value_or(Tarv::PeerCredentials());
}

bool IPCServerSession::Notify(unsigned int id, IPCMessageEnvelope const& envelope) {
    return Send(*m_connection, IPCFrame::NOTIFICATION, id, 0, envelope);
}

bool IPCServerSession::Respond(unsigned int id, std::uint64_t number,
                               IPCMessageEnvelope const& envelope) {
    return Send(*m_connection, IPCFrame::RESPONSE, id, number, envelope);
}

bool IPCServerSession::IsOpen() const {
    return m_connection->IsOpen();
}

void IPCServerSession::Close() {
    m_connection->Close();
}

bool IPCRequest::Respond(IPCMessageEnvelope const& response) const {
    bool const sent = session->Respond(id, number, response);
    if (waiting) waiting->Settle();
    return sent;
}

// Hidden although its enclosing class is exported: it is the server's private state.
class __attribute__((visibility("hidden"))) IPCServer::Core
    : public std::enable_shared_from_this<Core> {
public:
    Core(std::string name, Handlers handlers, Options options)
        // The shared IO thread only for a server on no loop of its own: vellmarkd's
        // endpoints, on its task's loop, start no thread for it.
        : m_service(options.loop ? nullptr : Tarv::IoService::Shared()),
          m_loop(options.loop ? options.loop : m_service->Loop()),
          m_name(std::move(name)),
          m_path(IPCDirectory::Get().Lookup(m_name)->Path()),
          m_handlers(std::move(handlers)),
          m_options(std::move(options)),
          m_admission(m_name, RulesOf(m_options)),
          m_sessionLimits(SessionLimitsOf(m_options)),
          m_countsWaiting(m_options.clientLimits.pendingRequests.max > 0 ||
                          m_options.clientLimits.incomingBytes.max > 0),
          m_acceptor(Tarv::SocketAcceptor::Create(m_name, m_loop,
                                                  m_options.descriptorReserve.descriptors)) {}

    ~Core() { m_loopEnd.Disconnect(); }

    void Open() {
        if (m_options.listeningFd) {
            Adopt(*m_options.listeningFd);
        } else {
            Bind();
        }
        IPCLog().Log(DPrint::Info, "server %s: listening at %s%s", m_name.c_str(), m_path.c_str(),
                     m_adopted ? " (socket handed over)" : "");
        std::weak_ptr<Core> weak = shared_from_this();
        // A loop that ends before Stop takes the server down with it: a pending accept
        // would otherwise keep the server alive in a loop nobody runs.
        m_loopEnd = m_loop->OnEnd([weak] {
            if (auto self = weak.lock()) self->Stop();
        });
        m_acceptor->Start([weak](int fd) {
            if (auto self = weak.lock()) {
                self->Accepted(fd);
            } else {
                ::close(fd);
            }
        });
    }

    // Makes the socket file and listens on it.
    void Bind() {
        Tarv::PrepareSocketPath(m_path, m_admission.AllowsOthers() ? 0711 : 0700);
        m_acceptor->Bind(m_path);
        // Before listen(): nobody can connect while the file still has the umask's mode.
        // Members of an allowed group must be able to open the socket file.
        std::optional<gid_t> group;
        if (!m_options.allowedGroups.empty()) group = m_options.allowedGroups.front();
        Tarv::RestrictSocketFile(m_name, m_path, group);
        try {
            m_acceptor->Listen(m_path);
        } catch (std::system_error const&) {
            ::unlink(m_path.c_str());
            throw;
        }
        // listen() itself changes nothing a watcher of the folder sees; setting the mode
        // again does (inotify's IN_ATTRIB), so that one waiting for the service
        // (vellmarkctl --wait) learns that the socket now takes connections.
        (void)::chmod(m_path.c_str(), 0660);
    }

    // Serves `fd`, a socket someone else made and bound; its file stays theirs.
    void Adopt(int fd) {
        m_acceptor->Adopt(fd);
        m_adopted = true;
        std::string const bound = Tarv::BoundPath(fd);
        if (bound != m_path) {
            IPCLog().Log(DPrint::Warning,
                         "server %s: the socket handed over is at %s, but clients look for it "
                         "at %s",
                         m_name.c_str(), bound.empty() ? "no path" : bound.c_str(), m_path.c_str());
        }
        if (!bound.empty()) m_path = bound;
    }

    void Stop() {
        std::map<std::uint64_t, SessionPtr> sessions;
        {
            // Once the flag is set under the dispatch lock, no handler starts; waiting for
            // the loop's thread below must happen without that lock, which it may be after.
            std::lock_guard<std::recursive_mutex> dispatch(m_dispatch);
            std::lock_guard<std::mutex> lock(m_mutex);
            if (m_stopped) return;
            m_stopped = true;
            sessions.swap(m_sessions);
        }
        if (!m_adopted) ::unlink(m_path.c_str());
        auto closeAcceptor = [self = shared_from_this()] { self->m_acceptor->Close(); };
        if (m_loop->RunsOnCurrentThread()) {
            closeAcceptor();
        } else {
            // Waited for, so that no connection is accepted after Stop returns. A loop that
            // has ended runs nothing more, the acceptor's waits included.
            auto closing = std::make_shared<std::packaged_task<void()>>(closeAcceptor);
            auto closed = closing->get_future();
            if (m_loop->Post([closing] { (*closing)(); })) closed.wait();
        }
        for (auto& entry : sessions) entry.second->Close();
    }

    std::string const& Path() const { return m_path; }

    std::vector<SessionPtr> Sessions() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        std::vector<SessionPtr> out;
        for (auto const& entry : m_sessions) out.push_back(entry.second);
        return out;
    }

    std::size_t AcceptWaiting() { return m_acceptor->AcceptWaiting(); }

    std::vector<Tarv::ServerUserCount> Users() const { return m_admission.Users(); }
    Tarv::ServerLimits const& ClientLimits() const { return m_admission.Limits(); }

private:
    using Over = Tarv::ServerAdmission::Over;

    static Tarv::ServerAdmission::Rules RulesOf(Options const& options) {
        Tarv::ServerAdmission::Rules rules{options.allowedUsers, options.allowedGroups,
                                           options.reservedUsers, options.clientLimits};
        if (rules.allowedUsers.empty()) rules.allowedUsers = {::getuid(), 0};
        return rules;
    }

    static Tarv::ConnectionLimits SessionLimitsOf(Options const& options) {
        Tarv::ConnectionLimits limits = options.limits;
        if (options.clientLimits.outgoingBytes.max > 0) {
            limits.maxQueuedBytes = options.clientLimits.outgoingBytes.max;
        }
        return limits;
    }

    bool Stopped() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_stopped;
    }

    void Accepted(int fd) {
        std::lock_guard<std::recursive_mutex> dispatch(m_dispatch);
        if (Stopped()) {
            ::close(fd);
            return;
        }
        auto const peer = Tarv::ReadPeerCredentials(fd);
        if (!m_admission.Admit(peer, fd)) {
            ::close(fd);
            return;
        }
        std::string description = "server " + m_name + ": client pid " + std::to_string(peer->pid);
        auto connection = Tarv::FramedConnection::Adopt(fd, description, m_sessionLimits, m_loop);
        std::weak_ptr<Core> weakCore = shared_from_this();
        connection->OnQueueFull([weakCore, peer = *peer](std::size_t) {
            if (auto core = weakCore.lock()) {
                core->m_admission.Closing(peer, Over::OutgoingBytes,
                                          core->m_sessionLimits.maxQueuedBytes);
            }
        });
        SessionPtr session;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            session = std::make_shared<IPCServerSession>(++m_lastSession, connection);
            m_sessions.emplace(session->Id(), session);
        }
        IPCLog().Log(DPrint::Info, "%s (uid %d) connected", description.c_str(), int(peer->uid));
        std::weak_ptr<IPCServerSession> weakSession = session;
        connection->OnClosed([weakCore, weakSession, uid = peer->uid] {
            auto core = weakCore.lock();
            if (!core) return;
            core->Left(uid);
            if (auto session = weakSession.lock()) core->Closed(session);
        });
        if (m_handlers.onConnected) m_handlers.onConnected(session);
        auto waiting = m_countsWaiting ? std::make_shared<Tarv::Waiting>() : nullptr;
        connection->Start([weakCore, weakSession, waiting](IPCFrame& frame) {
            auto core = weakCore.lock();
            auto session = weakSession.lock();
            if (core && session) core->Received(session, waiting, frame);
        });
    }

    // Counts a new request of `session` among its waiting ones; nothing, with the
    // connection closed, when it would go over a limit.
    std::optional<std::shared_ptr<Tarv::WaitingRequest>> Wait(
        SessionPtr const& session, std::shared_ptr<Tarv::Waiting> const& waiting,
        IPCFrame const& frame) {
        if (!waiting) return std::shared_ptr<Tarv::WaitingRequest>();
        auto const& limits = m_admission.Limits();
        std::size_t const bytes = frame.ByteSizeLong();
        std::optional<std::pair<Over, std::size_t>> over;
        if (limits.pendingRequests.max > 0 &&
            waiting->requests.load() >= limits.pendingRequests.max) {
            over.emplace(Over::PendingRequests, limits.pendingRequests.max);
        } else if (limits.incomingBytes.max > 0 &&
                   waiting->bytes.load() + bytes > limits.incomingBytes.max) {
            over.emplace(Over::IncomingBytes, limits.incomingBytes.max);
        }
        if (!over) return std::make_shared<Tarv::WaitingRequest>(waiting, bytes);
        m_admission.Closing(session->Peer(), over->first, over->second);
        session->Close();
        return std::nullopt;
    }

    void Received(SessionPtr const& session, std::shared_ptr<Tarv::Waiting> const& waiting,
                  IPCFrame& frame) {
        std::lock_guard<std::recursive_mutex> dispatch(m_dispatch);
        if (Stopped()) return;
        unsigned int const id = frame.envelope().message_id();
        switch (frame.kind()) {
            case IPCFrame::REQUEST:
                if (m_handlers.onRequest) {
                    auto place = Wait(session, waiting, frame);
                    if (!place) return;
                    m_handlers.onRequest(
                        IPCRequest{session, id, frame.request_number(),
                                   IPCMessageEnvelope(std::move(*frame.mutable_envelope())),
                                   std::move(*place)});
                }
                return;
            case IPCFrame::ONE_WAY:
                if (m_handlers.onMessage) {
                    m_handlers.onMessage(session, id,
                                         IPCMessageEnvelope(std::move(*frame.mutable_envelope())));
                }
                return;
            default:
                IPCLog().Log(DPrint::Warning,
                             "server %s: message %u of kind %s is not for a "
                             "service; dropped",
                             m_name.c_str(), id, IPCFrame::Kind_Name(frame.kind()).c_str());
        }
    }

    // A connection of `uid` has ended: its place and its descriptor are free.
    void Left(uid_t uid) {
        m_admission.Left(uid);
        // On the loop's thread, as the acceptor wants, unless the loop has ended (and the
        // acceptor with it).
        if (m_loop->RunsOnCurrentThread()) m_acceptor->Resume();
    }

    void Closed(SessionPtr const& session) {
        std::lock_guard<std::recursive_mutex> dispatch(m_dispatch);
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            if (m_stopped || m_sessions.erase(session->Id()) == 0) return;
        }
        if (m_handlers.onDisconnected) m_handlers.onDisconnected(session);
    }

    // Null when the server serves a loop of its own.
    std::shared_ptr<Tarv::IoService> const m_service;
    std::shared_ptr<Tarv::EventLoop> const m_loop;
    CallbackConnection m_loopEnd;
    std::string const m_name;
    std::string m_path;      // set while opening
    bool m_adopted = false;  // the socket was handed over: its file is not ours
    Handlers const m_handlers;
    Options const m_options;
    Tarv::ServerAdmission m_admission;
    Tarv::ConnectionLimits const m_sessionLimits;
    bool const m_countsWaiting;  // a limit needs the requests waiting counted
    std::shared_ptr<Tarv::SocketAcceptor> const m_acceptor;

    // Held while handlers run and by Stop; recursive, for handlers that stop the server.
    std::recursive_mutex m_dispatch;
    mutable std::mutex m_mutex;
    bool m_stopped = false;
    std::uint64_t m_lastSession = 0;
    std::map<std::uint64_t, SessionPtr> m_sessions;
};

IPCServer::IPCServer(std::string const& name, Handlers handlers, Options options)
    : m_core(std::make_shared<Core>(name, std::move(handlers), std::move(options))) {
    m_core->Open();
}

IPCServer::~IPCServer() {
    Stop();
}

void IPCServer::Stop() {
    m_core->Stop();
}

std::string const& IPCServer::Path() const {
    return m_core->Path();
}

std::vector<IPCServer::SessionPtr> IPCServer::Sessions() const {
    return m_core->Sessions();
}

std::size_t IPCServer::AcceptWaiting() {
    return m_core->AcceptWaiting();
}

std::size_t IPCServer::Broadcast(unsigned int id, IPCMessageEnvelope const& envelope) {
    std::size_t sent = 0;
    for (auto const& session : Sessions()) sent += session->Notify(id, envelope) ? 1 : 0;
    return sent;
}

std::vector<Tarv::ServerUserCount> IPCServer::Users() const {
    return m_core->Users();
}

Tarv::ServerLimits const& IPCServer::ClientLimits() const {
    return m_core->ClientLimits();
}
