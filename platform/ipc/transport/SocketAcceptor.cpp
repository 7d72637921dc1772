#include "platform/ipc/transport/SocketAcceptor.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <asio/io_context.hpp>
#include <asio/local/stream_protocol.hpp>
#include <asio/steady_timer.hpp>
#include <cerrno>
#include <system_error>

#include "platform/ipc/IPCLog.h"
#include "platform/ipc/transport/ListeningSocket.h"

namespace Tarv {

namespace {

std::system_error PathError(int error, std::string const& what, std::string const& path) {
    return std::system_error(error, std::generic_category(), what + " " + path);
}

// Failures that leave the connection waiting in the backlog until something is freed.
bool OutOfResources(int error) {
    return error == EMFILE || error == ENFILE || error == ENOBUFS || error == ENOMEM;
}

}  // namespace

struct SocketAcceptor::Io {
    explicit Io(asio::io_context& context) : acceptor(context), timer(context) {}
    asio::local::stream_protocol::acceptor acceptor;
    asio::steady_timer timer;
};

std::shared_ptr<SocketAcceptor> SocketAcceptor::Create(std::string server,
                                                       std::shared_ptr<EventLoop> loop,
                                                       std::size_t reserve) {
    return std::shared_ptr<SocketAcceptor>(
        new SocketAcceptor(std::move(server), std::move(loop), reserve));
}

SocketAcceptor::SocketAcceptor(std::string server, std::shared_ptr<EventLoop> loop,
                               std::size_t reserve)
    : m_server(std::move(server)),
      m_loop(std::move(loop)),
      m_io(std::make_unique<Io>(m_loop->Context())),
      m_reserveSize(reserve) {}

SocketAcceptor::~SocketAcceptor() {
    for (int fd : m_reserve) ::close(fd);
}

void SocketAcceptor::Bind(std::string const& path) {
    asio::error_code error;
    asio::local::stream_protocol::endpoint address;
    try {
        address = asio::local::stream_protocol::endpoint(path);
    } catch (asio::system_error const& e) {
        throw PathError(e.code().value(), "socket path unusable:", path);
    }
    m_io->acceptor.open(address.protocol(), error);
    if (!error) m_io->acceptor.bind(address, error);
    if (error) throw PathError(error.value(), "cannot make the socket", path);
}

void SocketAcceptor::Listen(std::string const& path) {
    asio::error_code error;
    m_io->acceptor.listen(asio::socket_base::max_listen_connections, error);
    if (error) throw PathError(error.value(), "cannot listen on", path);
}

void SocketAcceptor::Adopt(int fd) {
    auto const problem = CheckListeningUnixStream(fd);
    if (problem.error != 0) {
        if (::fcntl(fd, F_GETFD) != -1) ::close(fd);
        throw std::system_error(problem.error, std::generic_category(),
                                "server " + m_server + ": refusing the socket handed over (fd " +
                                    std::to_string(fd) + "), " + problem.what +
                                    ": it must be a listening Unix stream socket");
    }
    ::fcntl(fd, F_SETFD, FD_CLOEXEC);
    asio::error_code error;
    m_io->acceptor.assign(asio::local::stream_protocol(), fd, error);
    if (error) {
        ::close(fd);
        throw std::system_error(error.value(), std::generic_category(),
                                "server " + m_server + ": cannot serve the socket handed over");
    }
}

void SocketAcceptor::Start(Accepted accepted) {
    m_accepted = std::move(accepted);
    m_loop->Post([self = shared_from_this()] {
        self->FillReserve();
        self->Accept();
    });
}

void SocketAcceptor::Accept() {
    if (!m_io->acceptor.is_open()) return;
    m_io->acceptor.async_accept([self = shared_from_this()](
                                    asio::error_code const& error,
                                    asio::local::stream_protocol::socket socket) {
        if (error == asio::error::operation_aborted || !self->m_io->acceptor.is_open()) return;
        if (!error) {
            self->m_accepted(socket.release());
        } else if (error.category() == asio::system_category() && OutOfResources(error.value())) {
            if (!self->UseReserve(error.value())) return self->Pause(error.value());
        }
        self->Accept();
    });
}

std::size_t SocketAcceptor::AcceptWaiting() {
    // Everything below is the loop thread's.
    if (!m_loop->RunsOnCurrentThread()) return 0;
    if (!m_accepted || m_paused || !m_io->acceptor.is_open()) return 0;
    // The pending async_accept finds nothing left and waits on; a failure here (out of
    // descriptors) is left for it to meet and handle.
    // Bounded, so that a peer connecting without end cannot hold the loop here: what is
    // left waits for the pending async_accept.
    constexpr std::size_t kAtMost = 1024;
    std::size_t accepted = 0;
    int const listening = m_io->acceptor.native_handle();
    while (accepted < kAtMost) {
        pollfd waiting{listening, POLLIN, 0};
        if (::poll(&waiting, 1, 0) != 1 || !(waiting.revents & POLLIN)) return accepted;
        int const fd = ::accept4(listening, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0) return accepted;
        ++accepted;
        m_accepted(fd);
    }
    return accepted;
}

bool SocketAcceptor::UseReserve(int error) {
    // The reserve frees one descriptor of the process (EMFILE) or of the system (ENFILE);
    // it does nothing for memory.
    if (m_reserve.empty() || (error != EMFILE && error != ENFILE)) return false;
    ::close(m_reserve.back());
    m_reserve.pop_back();
    IPCLog().Log(DPrint::Info,
                 "server %s: out of descriptors; one kept in reserve makes room for a connection",
                 m_server.c_str());
    return true;
}

void SocketAcceptor::Pause(int error) {
    LogFailure(error);
    m_paused = true;
    m_io->timer.expires_after(kBackOff);
    m_io->timer.async_wait([self = shared_from_this()](asio::error_code const& waited) {
        if (!waited) self->Wake();
    });
}

void SocketAcceptor::Wake() {
    if (!m_paused) return;  // resumed already; the wait had ended before it was cancelled
    m_paused = false;
    FillReserve();
    Accept();
}

void SocketAcceptor::Resume() {
    FillReserve();
    if (!m_paused) return;
    m_io->timer.cancel();
    m_paused = false;
    Accept();
}

void SocketAcceptor::FillReserve() {
    if (!m_io->acceptor.is_open()) return;
    while (m_reserve.size() < m_reserveSize) {
        int const fd = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
        if (fd < 0) return;
        m_reserve.push_back(fd);
    }
}

void SocketAcceptor::LogFailure(int error) {
    auto const held = m_logWindow.Admit(LogWindow::Clock::now());
    if (!held) return;
    std::string const text =
        "server " + m_server +
        ": cannot accept a connection: " + std::system_category().message(error) +
        "; accepting paused until a connection closes or " + std::to_string(kBackOff.count()) +
        " ms pass" + HeldBackSuffix(*held, "failed");
    IPCLog().Log(DPrint::Warning, "%s", text.c_str());
}

void SocketAcceptor::Close() {
    asio::error_code ignored;
    m_io->timer.cancel();
    m_io->acceptor.close(ignored);
    m_paused = false;
    for (int fd : m_reserve) ::close(fd);
    m_reserve.clear();
}

}  // namespace Tarv
