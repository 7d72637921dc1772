#pragma once
// SocketAcceptor: a server's listening Unix socket and its accept loop, on one EventLoop.
//
// Threads: Bind, Listen and Adopt run on the thread that makes the acceptor, before Start;
// afterwards every operation, and the accepted handler, runs on the loop's thread.
#include <functional>
#include <memory>
#include <string>

#include "platform/task/EventLoop.h"

namespace Tarv {

class SocketAcceptor : public std::enable_shared_from_this<SocketAcceptor> {
public:
    // Gets each accepted connection's descriptor, to own.
    using Accepted = std::function<void(int fd)>;

    // The acceptor of the server `server` (named in its errors), on `loop`.
    static std::shared_ptr<SocketAcceptor> Create(std::string server,
                                                  std::shared_ptr<EventLoop> loop);
    ~SocketAcceptor();
    SocketAcceptor(SocketAcceptor const&) = delete;
    SocketAcceptor& operator=(SocketAcceptor const&) = delete;

    // Makes a socket bound to `path`, not yet listening. Throws std::system_error naming
    // the path.
    void Bind(std::string const& path);
    // Listens on the socket Bind made. Throws std::system_error naming `path`.
    void Listen(std::string const& path);
    // Serves `fd`, a socket someone else made and bound, owned from now on (closed when
    // this throws). Throws std::system_error unless it is a listening Unix stream socket.
    void Adopt(int fd);

    // Accepts from now on, on the loop's thread.
    void Start(Accepted accepted);
    // Stops accepting and closes the socket. Idempotent.
    void Close();

private:
    struct Io;
    SocketAcceptor(std::string server, std::shared_ptr<EventLoop> loop);

    void Accept();

    std::string const m_server;
    std::shared_ptr<EventLoop> const m_loop;
    std::unique_ptr<Io> m_io;
    Accepted m_accepted;  // set by Start, before the loop's thread uses it
};

}  // namespace Tarv
