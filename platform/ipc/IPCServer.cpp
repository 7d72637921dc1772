#include "platform/ipc/IPCServer.h"

#include "platform/ipc/transport/FramedConnection.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <asio/io_context.hpp>
#include <asio/local/stream_protocol.hpp>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <future>
#include <map>
#include <mutex>
#include <system_error>

#include "platform/ipc/IPCDirectory.h"
#include "platform/ipc/IPCLog.h"
#include "platform/ipc/transport/IoService.h"
#include "platform/ipc/transport/ListeningSocket.h"
#include "platform/ipc/transport/RefusalLog.h"

using Tarv::IPCFrame;

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

namespace {

std::system_error PathError(int error, std::string const& what, std::string const& path) {
    return std::system_error(error, std::generic_category(), what + " " + path);
}

// True when a server answers at `path`.
bool Answers(std::string const& path) {
    int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return false;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    bool const answers =
        ::connect(fd, reinterpret_cast<sockaddr const*>(&address), sizeof address) == 0;
    ::close(fd);
    return answers;
}

// Makes `folder` and its missing parents with `mode`, exactly (the umask aside).
void MakeFolders(std::filesystem::path const& folder, mode_t mode) {
    std::filesystem::path made;
    for (auto const& part : folder) {
        made /= part;
        if (::mkdir(made.c_str(), mode) == 0) {
            ::chmod(made.c_str(), mode);
        } else if (errno != EEXIST) {
            throw PathError(errno, "cannot make the runtime folder", made);
        }
    }
}

// A runtime folder that every user may write to lets any of them take the service's place
// (or squat its socket name): refused, with what to do instead.
void CheckFolder(std::filesystem::path const& folder) {
    struct stat status {};
    if (::stat(folder.c_str(), &status) != 0) {
        throw PathError(errno, "cannot use the runtime folder", folder);
    }
    if (!S_ISDIR(status.st_mode)) throw PathError(ENOTDIR, "not a folder:", folder);
    if (status.st_mode & S_IWOTH) {
        throw PathError(EPERM,
                        "refusing a runtime folder that every user may write to (any of them "
                        "could put a socket in the service's place); use a private folder "
                        "(TARV_RUNTIME_DIR, --runtime-dir) or remove that permission "
                        "(chmod o-w):",
                        folder);
    }
}

// Makes or checks the runtime folder, and clears the way for a new socket file.
void PrepareSocketPath(std::string const& path, mode_t folderMode) {
    std::filesystem::path const folder = std::filesystem::path(path).parent_path();
    if (!folder.empty()) {
        struct stat status {};
        if (::stat(folder.c_str(), &status) != 0 && errno == ENOENT) {
            MakeFolders(folder, folderMode);
            IPCLog().Log(DPrint::Info, "made the runtime folder %s (mode %o)", folder.c_str(),
                         static_cast<unsigned>(folderMode));
        }
        CheckFolder(folder);
    }
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0) return;
    if (S_ISLNK(status.st_mode)) {
        // Never ours to keep: a link would make the socket land wherever it points.
        IPCLog().Log(DPrint::Info, "removing the symbolic link at %s", path.c_str());
    } else if (!S_ISSOCK(status.st_mode)) {
        throw PathError(EEXIST, "a file that is not a socket is in the way, left alone:", path);
    } else if (Answers(path)) {
        throw PathError(EADDRINUSE, "another server answers at", path);
    }
    ::unlink(path.c_str());
}

}  // namespace

// Hidden although its enclosing class is exported: it is the server's private state, and
// the Asio types in its members must not leave the library.
class __attribute__((visibility("hidden"))) IPCServer::Core
    : public std::enable_shared_from_this<Core> {
public:
    Core(std::string name, Handlers handlers, Options options)
        : m_service(Tarv::IoService::Shared()),
          m_loop(options.loop ? options.loop : m_service->Loop()),
          m_name(std::move(name)),
          m_path(IPCDirectory::Get().Lookup(m_name)->Path()),
          m_handlers(std::move(handlers)),
          m_options(std::move(options)),
          m_acceptor(m_loop->Context()) {
        if (m_options.allowedUsers.empty()) m_options.allowedUsers = {::getuid(), 0};
    }

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
        m_loop->Post([self = shared_from_this()] { self->Accept(); });
    }

    // Makes the socket file and listens on it.
    void Bind() {
        PrepareSocketPath(m_path, AllowsOthers() ? 0711 : 0700);
        asio::error_code error;
        asio::local::stream_protocol::endpoint address;
        try {
            address = asio::local::stream_protocol::endpoint(m_path);
        } catch (asio::system_error const& e) {
            throw PathError(e.code().value(), "socket path unusable:", m_path);
        }
        m_acceptor.open(address.protocol(), error);
        if (!error) m_acceptor.bind(address, error);
        if (error) throw PathError(error.value(), "cannot make the socket", m_path);
        // Before listen(): nobody can connect while the file still has the umask's mode.
        if (::chmod(m_path.c_str(), 0660) != 0) {
            int const chmodError = errno;
            ::unlink(m_path.c_str());
            throw PathError(chmodError, "cannot restrict the socket", m_path);
        }
        // Members of an allowed group must be able to open the socket file.
        if (!m_options.allowedGroups.empty() &&
            ::chown(m_path.c_str(), static_cast<uid_t>(-1), m_options.allowedGroups.front()) != 0) {
            IPCLog().Log(DPrint::Warning,
                         "server %s: cannot give the socket to group %u (%s); members of the "
                         "allowed groups outside the service's own group cannot open it",
                         m_name.c_str(), static_cast<unsigned>(m_options.allowedGroups.front()),
                         std::strerror(errno));
        }
        m_acceptor.listen(asio::socket_base::max_listen_connections, error);
        if (error) {
            ::unlink(m_path.c_str());
            throw PathError(error.value(), "cannot listen on", m_path);
        }
        // listen() itself changes nothing a watcher of the folder sees; setting the mode
        // again does (inotify's IN_ATTRIB), so that one waiting for the service
        // (vellmarkctl --wait) learns that the socket now takes connections.
        (void)::chmod(m_path.c_str(), 0660);
    }

    // Serves `fd`, a socket someone else made and bound; its file stays theirs.
    void Adopt(int fd) {
        auto const problem = Tarv::CheckListeningUnixStream(fd);
        if (problem.error != 0) {
            if (::fcntl(fd, F_GETFD) != -1) ::close(fd);
            throw std::system_error(problem.error, std::generic_category(),
                                    "server " + m_name + ": refusing the socket handed over (fd " +
                                        std::to_string(fd) + "), " + problem.what +
                                        ": it must be a listening Unix stream socket");
        }
        ::fcntl(fd, F_SETFD, FD_CLOEXEC);
        asio::error_code error;
        m_acceptor.assign(asio::local::stream_protocol(), fd, error);
        if (error) {
            ::close(fd);
            throw std::system_error(error.value(), std::generic_category(),
                                    "server " + m_name + ": cannot serve the socket handed over");
        }
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
        auto closeAcceptor = [self = shared_from_this()] {
            asio::error_code ignored;
            self->m_acceptor.close(ignored);
        };
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

private:
    // True when users other than the server's own and root may connect.
    bool AllowsOthers() const {
        if (!m_options.allowedGroups.empty()) return true;
        for (uid_t uid : m_options.allowedUsers) {
            if (uid != 0 && uid != ::getuid()) return true;
        }
        return false;
    }

    bool Allowed(Tarv::PeerCredentials const& peer, int fd) const {
        auto const& users = m_options.allowedUsers;
        if (std::find(users.begin(), users.end(), peer.uid) != users.end()) return true;
        auto const& groups = m_options.allowedGroups;
        if (groups.empty()) return false;
        auto const allowedGroup = [&groups](gid_t gid) {
            return std::find(groups.begin(), groups.end(), gid) != groups.end();
        };
        if (allowedGroup(peer.gid)) return true;
        auto const peerGroups = Tarv::ReadPeerGroups(fd);
        return std::any_of(peerGroups.begin(), peerGroups.end(), allowedGroup);
    }

    void Accept() {
        m_acceptor.async_accept(
            [self = shared_from_this()](asio::error_code const& error,
                                        asio::local::stream_protocol::socket socket) {
                if (error == asio::error::operation_aborted) return;
                if (!error) self->Accepted(std::move(socket));
                if (!self->Stopped()) self->Accept();
            });
    }

    bool Stopped() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_stopped;
    }

    void Accepted(asio::local::stream_protocol::socket socket) {
        std::lock_guard<std::recursive_mutex> dispatch(m_dispatch);
        if (Stopped()) return;
        int const fd = socket.release();
        auto const peer = Tarv::ReadPeerCredentials(fd);
        if (!peer || !Allowed(*peer, fd)) {
            auto const line =
                m_refusals.Refused(peer ? peer->uid : static_cast<uid_t>(-1), peer ? peer->pid : -1,
                                   Tarv::RefusalLog::Clock::now());
            if (line) IPCLog().Log(DPrint::Warning, "server %s: %s", m_name.c_str(), line->c_str());
            ::close(fd);
            return;
        }
        std::string description = "server " + m_name + ": client pid " + std::to_string(peer->pid);
        auto connection = Tarv::FramedConnection::Adopt(fd, description, m_options.limits, m_loop);
        SessionPtr session;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            session = std::make_shared<IPCServerSession>(++m_lastSession, connection);
            m_sessions.emplace(session->Id(), session);
        }
        IPCLog().Log(DPrint::Info, "%s (uid %d) connected", description.c_str(), int(peer->uid));
        std::weak_ptr<Core> weakCore = shared_from_this();
        std::weak_ptr<IPCServerSession> weakSession = session;
        connection->OnClosed([weakCore, weakSession] {
            auto core = weakCore.lock();
            auto session = weakSession.lock();
            if (core && session) core->Closed(session);
        });
        if (m_handlers.onConnected) m_handlers.onConnected(session);
        connection->Start([weakCore, weakSession](IPCFrame& frame) {
            auto core = weakCore.lock();
            auto session = weakSession.lock();
            if (core && session) core->Received(session, frame);
        });
    }

    void Received(SessionPtr const& session, IPCFrame& frame) {
        std::lock_guard<std::recursive_mutex> dispatch(m_dispatch);
        if (Stopped()) return;
        unsigned int const id = frame.envelope().message_id();
        switch (frame.kind()) {
            case IPCFrame::REQUEST:
                if (m_handlers.onRequest) {
                    m_handlers.onRequest(
                        IPCRequest{session, id, frame.request_number(),
                                   IPCMessageEnvelope(std::move(*frame.mutable_envelope()))});
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

    void Closed(SessionPtr const& session) {
        std::lock_guard<std::recursive_mutex> dispatch(m_dispatch);
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            if (m_stopped || m_sessions.erase(session->Id()) == 0) return;
        }
        if (m_handlers.onDisconnected) m_handlers.onDisconnected(session);
    }

    std::shared_ptr<Tarv::IoService> const m_service;
    std::shared_ptr<Tarv::EventLoop> const m_loop;
    CallbackConnection m_loopEnd;
    std::string const m_name;
    std::string m_path;      // set while opening
    bool m_adopted = false;  // the socket was handed over: its file is not ours
    Handlers const m_handlers;
    Options m_options;
    asio::local::stream_protocol::acceptor m_acceptor;  // the loop thread's, once open

    // Held while handlers run and by Stop; recursive, for handlers that stop the server.
    std::recursive_mutex m_dispatch;
    mutable std::mutex m_mutex;
    bool m_stopped = false;
    std::uint64_t m_lastSession = 0;
    std::map<std::uint64_t, SessionPtr> m_sessions;
    Tarv::RefusalLog m_refusals;  // the loop thread's
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

std::size_t IPCServer::Broadcast(unsigned int id, IPCMessageEnvelope const& envelope) {
    std::size_t sent = 0;
    for (auto const& session : Sessions()) sent += session->Notify(id, envelope) ? 1 : 0;
    return sent;
}
