#include "platform/ipc/transport/SocketAcceptor.h"

#include <fcntl.h>
#include <unistd.h>

#include <asio/io_context.hpp>
#include <asio/local/stream_protocol.hpp>
#include <cerrno>
#include <system_error>

#include "platform/ipc/IPCLog.h"
#include "platform/ipc/transport/ListeningSocket.h"

namespace Tarv {

namespace {

std::system_error PathError(int error, std::string const& what, std::string const& path) {
    return std::system_error(error, std::generic_category(), what + " " + path);
}

}  // namespace

struct SocketAcceptor::Io {
    explicit Io(asio::io_context& context) : acceptor(context) {}
    asio::local::stream_protocol::acceptor acceptor;
};

std::shared_ptr<SocketAcceptor> SocketAcceptor::Create(std::string server,
                                                       std::shared_ptr<EventLoop> loop) {
    return std::shared_ptr<SocketAcceptor>(new SocketAcceptor(std::move(server), std::move(loop)));
}

SocketAcceptor::SocketAcceptor(std::string server, std::shared_ptr<EventLoop> loop)
    : m_server(std::move(server)),
      m_loop(std::move(loop)),
      m_io(std::make_unique<Io>(m_loop->Context())) {}

SocketAcceptor::~SocketAcceptor() = default;

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
    m_loop->Post([self = shared_from_this()] { self->Accept(); });
}

void SocketAcceptor::Accept() {
    if (!m_io->acceptor.is_open()) return;
    m_io->acceptor.async_accept(
        [self = shared_from_this()](asio::error_code const& error,
                                    asio::local::stream_protocol::socket socket) {
            if (error == asio::error::operation_aborted || !self->m_io->acceptor.is_open()) return;
            if (!error) self->m_accepted(socket.release());
            self->Accept();
        });
}

void SocketAcceptor::Close() {
    asio::error_code ignored;
    m_io->acceptor.close(ignored);
}

}  // namespace Tarv
