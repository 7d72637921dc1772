#pragma once
// SocketAcceptor: a server's listening Unix socket and its accept loop, on one EventLoop.
//
// Out of descriptors or memory (accept fails with EMFILE, ENFILE, ENOBUFS or ENOMEM), the
// waiting connection stays in the listen backlog and the socket stays readable, so trying
// again at once would spin a core. The acceptor pauses instead until Resume() (its server
// calls it when one of its connections closes, freeing a descriptor) or until kBackOff has
// passed, and logs one line a minute with the count of failed accepts.
// An acceptor made with a reserve keeps descriptors open for that moment: when accept
// finds none left, one of them is closed and the connection taken in its place, and the
// reserve is made whole again as soon as descriptors free. The admin endpoint has one, so
// that an operator can still see who holds the service's descriptors.
//
// Threads: Bind, Listen and Adopt run on the thread that makes the acceptor, before Start;
// afterwards every operation, and the accepted handler, runs on the loop's thread.
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/log/LogWindow.h"
#include "platform/task/EventLoop.h"

namespace Tarv {

class SocketAcceptor : public std::enable_shared_from_this<SocketAcceptor> {
public:
    // Gets each accepted connection's descriptor, to own.
    using Accepted = std::function<void(int fd)>;
    // Short enough that a descriptor freed by something else than this server's connections
    // (the store closing a file, the other endpoint) is used within a quarter of a second;
    // long enough that a listener out of descriptors stays idle: four failed accepts a
    // second cost microseconds.
    static constexpr std::chrono::milliseconds kBackOff{250};

    // The acceptor of the server `server` (named in its log lines and errors), on `loop`,
    // keeping `reserve` descriptors in reserve (see above).
    static std::shared_ptr<SocketAcceptor> Create(std::string server,
                                                  std::shared_ptr<EventLoop> loop,
                                                  std::size_t reserve);
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
    // A descriptor has been freed: the reserve is made whole, and a paused acceptor accepts
    // again at once.
    void Resume();
    // On the loop's thread, once started: accepts now the connections waiting in the
    // socket's backlog, which their clients count as made already, and returns how many.
    // Elsewhere, or while paused, it accepts nothing.
    std::size_t AcceptWaiting();
    // Stops accepting and closes the socket. Idempotent.
    void Close();

private:
    struct Io;
    SocketAcceptor(std::string server, std::shared_ptr<EventLoop> loop, std::size_t reserve);

    void Accept();
    // Accept failed for want of descriptors or memory: uses the reserve (true: accept
    // again), else pauses.
    bool UseReserve(int error);
    void Pause(int error);
    void Wake();
    // Opens reserve descriptors until there are as many as asked, or none can be opened.
    void FillReserve();
    void LogFailure(int error);

    std::string const m_server;
    std::shared_ptr<EventLoop> const m_loop;
    std::unique_ptr<Io> m_io;
    std::size_t const m_reserveSize;
    Accepted m_accepted;  // set by Start, before the loop's thread uses it

    // The loop thread's.
    std::vector<int> m_reserve;
    bool m_paused = false;
    LogWindow m_logWindow;
};

}  // namespace Tarv
