#pragma once
// IPCServer: the service side of the IPC transport. It serves one endpoint of the
// directory: accepts connections, checks who connects, and hands every request and
// one-way message of every connection to its handlers; it can push notifications.
//
// The socket is "<name>.sock" in the directory's runtime folder. A folder that other users
// may write to is refused: any of them could put a socket of their own in the service's
// place. A missing folder is made private (0700; 0711 when other users or groups are
// allowed, so that they can reach the socket). The socket file allows its owner and group
// only (0660); with allowed groups, its group is the first of them. A socket file left by a
// process that died, or a symbolic link, is replaced; a live server's socket or a file of
// another kind is not.
// A server may instead serve a socket that is already listening (Options::listeningFd: one
// an init system made and handed over). It must be a listening Unix stream socket; its file
// and folder are left as they are, on Stop too, since they belong to whoever made them.
// A connecting process is accepted only when its user, as the kernel reports it
// (SO_PEERCRED), is one of the allowed users (by default the server's own user and root) or
// it belongs to one of the allowed groups, and when the limits of Options::clientLimits
// leave room (none by default; see IPCServerLimits.h). Refusals are logged once per user,
// reason and minute, then as a count. Out of descriptors, the server stops accepting until
// one of its connections closes or a short back-off passes, and says so once a minute.
// Policy lives beside it: the runtime folder's in RuntimeFolder.h, who may connect and how
// much each may hold in ServerAdmission.h; the accept loop is transport/SocketAcceptor.h.
//
// Threads: handlers run one at a time on the server's loop thread: the thread of the loop
// given in Options (a task's, so that a service answers on its own task with no hop), else
// the process's shared IO thread. They should be quick: longer work goes elsewhere and
// answers later through its IPCRequest, from any thread. No handler runs after Stop() (or
// the destructor) has returned. When the loop ends first, the server stops serving with it.
#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "framework/ipc/IPCMessageEnvelope.h"
#include "platform/TarvExport.h"
#include "platform/ipc/IPCFrameLimit.h"
#include "platform/ipc/IPCServerLimits.h"
#include "platform/ipc/PeerCredentials.h"
#include "platform/task/EventLoopOwner.h"

namespace Tarv {
class FramedConnection;
class WaitingRequest;
}  // namespace Tarv

// One accepted connection. Any thread may use it; once the connection has ended its
// operations do nothing and report false.
class TARV_EXPORT IPCServerSession {
public:
    IPCServerSession(std::uint64_t id, std::shared_ptr<Tarv::FramedConnection> connection);

    // Unique within its server, counting from 1.
    std::uint64_t Id() const { return m_id; }
    // The connecting process: pid, uid, gid.
    Tarv::PeerCredentials Peer() const;

    // Pushes a notification under `id`.
    bool Notify(unsigned int id, IPCMessageEnvelope const& envelope);
    // Answers the request numbered `number` that came under `id`.
    bool Respond(unsigned int id, std::uint64_t number, IPCMessageEnvelope const& envelope);
    bool IsOpen() const;
    // Ends the connection; the client sees it lost.
    void Close();

private:
    std::uint64_t const m_id;
    std::shared_ptr<Tarv::FramedConnection> const m_connection;
};

// One request, as the request handler receives it. Copyable: keep it to answer later.
struct TARV_EXPORT IPCRequest {
    IPCRequest() = default;
    IPCRequest(std::shared_ptr<IPCServerSession> session, unsigned int id, std::uint64_t number,
               IPCMessageEnvelope envelope, std::shared_ptr<Tarv::WaitingRequest> waiting = nullptr)
        : session(std::move(session)),
          id(id),
          number(number),
          envelope(std::move(envelope)),
          waiting(std::move(waiting)) {}

    std::shared_ptr<IPCServerSession> session;
    unsigned int id = 0;
    std::uint64_t number = 0;
    IPCMessageEnvelope envelope;
    // Holds the request's place among those its connection has waiting for an answer
    // (ServerLimits::pendingRequests) until it is answered or every copy has gone; empty
    // when the server counts none.
    std::shared_ptr<Tarv::WaitingRequest> waiting;

    // Sends `response` under the request's identifier, paired with it. False when the
    // connection has ended.
    bool Respond(IPCMessageEnvelope const& response) const;
};

class TARV_EXPORT IPCServer {
public:
    using SessionPtr = std::shared_ptr<IPCServerSession>;
    struct Handlers {
        std::function<void(SessionPtr const&)> onConnected;
        std::function<void(IPCRequest const&)> onRequest;
        std::function<void(SessionPtr const&, unsigned int id, IPCMessageEnvelope const&)>
            onMessage;
        std::function<void(SessionPtr const&)> onDisconnected;
    };
    struct Options {
        // Users allowed to connect; empty: the server's own user and root.
        std::vector<uid_t> allowedUsers;
        // Groups whose members (primary or supplementary) are allowed to connect.
        std::vector<gid_t> allowedGroups;
        Tarv::ConnectionLimits limits;
        // What each client may hold; none by default.
        Tarv::ServerLimits clientLimits;
        // Users whom others filling the server (clientLimits.connections) never lock out,
        // e.g. the admins.
        std::vector<uid_t> reservedUsers;
        // Descriptors this endpoint keeps in reserve, to accept connections still when the
        // process has run out; none by default.
        Tarv::DescriptorReserve descriptorReserve;
        // The loop that accepts, reads and runs the handlers; null: the shared IO thread's.
        std::shared_ptr<Tarv::EventLoop> loop;
        // A socket already listening, served instead of making one; none: make one. The
        // server owns it from construction on (it is closed when construction throws).
        std::optional<int> listeningFd;
    };

    // Serves `name`. Throws std::system_error, naming the path and what to do, when the
    // runtime folder is not private, the socket cannot be made or another server answers
    // there, or when `options.listeningFd` is not a listening Unix stream socket.
    IPCServer(std::string const& name, Handlers handlers, Options options = Options());
    // Stops.
    ~IPCServer();
    IPCServer(IPCServer const&) = delete;
    IPCServer& operator=(IPCServer const&) = delete;

    // Closes every connection and the socket, and removes the socket file unless the socket
    // was handed over. Idempotent.
    void Stop();

    // The socket's path: for a socket handed over, the path it is bound to.
    std::string const& Path() const;
    // The connections open now, in the order they were accepted.
    std::vector<SessionPtr> Sessions() const;
    // On the server's loop thread: accepts at once the connections still waiting to be
    // accepted (their clients count them as made), so that Sessions() holds them too.
    // Returns how many; elsewhere it accepts nothing and returns 0.
    std::size_t AcceptWaiting();
    // Pushes a notification to every connection; returns to how many it went.
    std::size_t Broadcast(unsigned int id, IPCMessageEnvelope const& envelope);
    // The connections and refusals of every user seen, by uid.
    std::vector<Tarv::ServerUserCount> Users() const;
    Tarv::ServerLimits const& ClientLimits() const;

private:
    class Core;
    std::shared_ptr<Core> m_core;
};
