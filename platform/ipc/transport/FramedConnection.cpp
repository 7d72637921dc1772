#include "platform/ipc/transport/FramedConnection.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <asio/io_context.hpp>
#include <asio/local/stream_protocol.hpp>
#include <asio/posix/stream_descriptor.hpp>
#include <asio/post.hpp>
#include <cerrno>
#include <cstring>

#include "platform/ipc/IPCLog.h"

namespace Tarv {

namespace {
constexpr std::size_t kReadChunk = 64 * 1024;
// A drained send queue keeps this much of its memory for the next burst and gives back the
// rest: a burst to a slow reader (up to the queue's bound) is not held by every idle
// connection afterwards.
constexpr std::size_t kKeptQueueBytes = 64 * 1024;
// Frames sent in a turn of the loop are held back to its end (see Cork) up to this many
// bytes; what reaches it leaves at once, so that a turn that pushes much to many peers
// holds little memory, and a larger frame gains nothing from waiting.
constexpr std::size_t kHeldBytes = 64 * 1024;

bool WouldBlock(int error) {
    return error == EAGAIN || error == EWOULDBLOCK || error == EINTR;
}
}  // namespace

struct FramedConnection::Io {
    Io(EventLoop& loop, int fd)
        : loop(loop), socket(loop.Context(), asio::local::stream_protocol(), fd) {}
    EventLoop& loop;  // the one the socket is bound to
    asio::local::stream_protocol::socket socket;
    // The last read found the socket drained (it did not fill the room offered), and the
    // loop has not waited since: the next read waits for the socket first, rather than
    // asking it once more only to hear EAGAIN.
    bool drained = false;
    // While the send queue waits for room: a duplicate of the socket that waits for it.
    // Asio keeps EPOLLOUT in a descriptor's registration once it has waited for writing,
    // so the socket itself would wake the loop each time the peer read from it, for the
    // rest of the connection; the duplicate is closed, and its registration with it, once
    // the queue drains.
    std::optional<asio::posix::stream_descriptor> writeWait;
};

std::shared_ptr<FramedConnection> FramedConnection::Adopt(int fd, std::string description,
                                                          Limits limits,
                                                          std::shared_ptr<EventLoop> loop) {
    return std::shared_ptr<FramedConnection>(
        new FramedConnection(fd, std::move(description), limits, std::move(loop)));
}

FramedConnection::FramedConnection(int fd, std::string description, Limits limits,
                                   std::shared_ptr<EventLoop> loop)
    // The shared IO thread only for a connection that starts on no loop of its own.
    : m_service(loop ? nullptr : IoService::Shared()),
      m_loop(loop ? std::move(loop) : m_service->Loop()),
      m_io(std::make_unique<Io>(*m_loop, fd)),
      m_fd(fd),
      m_description(std::move(description)),
      m_limits(limits),
      m_peer(ReadPeerCredentials(fd)),
      m_closedHandlers(CallbackList<std::function<void()>>::Create()),
      m_decoder(limits.maxFrameBytes) {
    asio::error_code ignored;
    m_io->socket.non_blocking(true, ignored);
}

FramedConnection::~FramedConnection() {
    m_loopEnd.Disconnect();
}  // the socket closes with m_io

bool FramedConnection::Start(FrameHandler onFrame, std::shared_ptr<EventLoop> loop) {
    std::shared_ptr<EventLoop> serving;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_started) return false;
        m_started = true;
        if (!m_open) return true;  // nothing to read; the closed handlers tell the rest
        // Before the start nothing runs on the old loop unless a send queued bytes or a
        // close is under way (then m_open is false, above).
        if (loop && loop != m_loop && m_pending.empty()) MoveTo(std::move(loop));
        m_onFrame = std::move(onFrame);  // read by the loop's thread after the post below
        serving = m_loop;
    }
    std::weak_ptr<FramedConnection> weak = shared_from_this();
    // Registered before the first read: a loop that ends from now on closes the connection.
    // On a loop that has ended already this closes it at once, here.
    auto ending = serving->OnEnd([weak] {
        if (auto self = weak.lock()) {
            if (self->MarkClosed()) self->Finish();
        }
    });
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_loopEnd = std::move(ending);
    }
    serving->Post([self = shared_from_this()] {
        EventLoop::Turn turn(self->m_io->loop);
        self->ReadSome();
    });
    return true;
}

void FramedConnection::MoveTo(std::shared_ptr<EventLoop> loop) {
    int const fd = m_io->socket.release();
    m_io = std::make_unique<Io>(*loop, fd);
    asio::error_code ignored;
    m_io->socket.non_blocking(true, ignored);
    m_loop = std::move(loop);
}

std::shared_ptr<EventLoop> FramedConnection::CurrentLoop() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_loop;
}

bool FramedConnection::Post(std::function<void()> work) {
    return CurrentLoop()->Post(std::move(work));
}

void FramedConnection::OnQueueFull(std::function<void(std::size_t queued)> onQueueFull) {
    m_onQueueFull = std::move(onQueueFull);
}

CallbackConnection FramedConnection::OnClosed(std::function<void()> onClosed) {
    std::shared_ptr<EventLoop> loop;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_open) return m_closedHandlers->Add(std::move(onClosed));
        loop = m_loop;
    }
    // Once the loop has ended nobody else will call it: the caller's thread does.
    auto shared = std::make_shared<std::function<void()>>(std::move(onClosed));
    if (!loop->Post([shared] { (*shared)(); })) (*shared)();
    return CallbackConnection();
}

bool FramedConnection::IsOpen() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_open;
}

void FramedConnection::Close() {
    {
        // What a handler sent before closing goes out, as it would have without the cork.
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_open && m_corked) {
            m_corked = false;
            SendSome(m_pending.data() + m_pendingOffset, m_pending.size() - m_pendingOffset);
        }
    }
    if (!MarkClosed()) return;
    // A loop that has ended closed its started connections itself; one never started has
    // nothing under way there, so the caller's thread may finish it.
    if (!Post([self = shared_from_this()] { self->Finish(); })) Finish();
}

bool FramedConnection::MarkClosed() {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_open) return false;
    m_open = false;
    std::string().swap(m_pending);
    m_pendingOffset = 0;
    return true;
}

void FramedConnection::Finish() {
    m_io->writeWait.reset();
    asio::error_code ignored;
    m_io->socket.shutdown(asio::socket_base::shutdown_both, ignored);
    m_io->socket.close(ignored);
    FrameHandler released;  // it may hold its owner: let it go outside the lock
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        released.swap(m_onFrame);
    }
    for (auto& onClosed : m_closedHandlers->TakeAll()) onClosed();
}

void FramedConnection::ReadSome() {
    if (!IsOpen()) return;
    // Straight into the decoder's buffer: no copy from a read buffer of our own.
    char* const room = m_decoder.Prepare(kReadChunk);
    ssize_t const got = ::recv(m_fd, room, kReadChunk, MSG_DONTWAIT);
    if (got > 0) {
        m_decoder.Commit(static_cast<std::size_t>(got));
        m_io->drained = static_cast<std::size_t>(got) < kReadChunk;
        HandleFrames();
        return;
    }
    if (got < 0 && WouldBlock(errno)) {
        WaitReadable();
        return;
    }
    OnReadFailed(got == 0 ? asio::error_code(asio::error::eof)
                          : asio::error_code(errno, asio::error::get_system_category()));
}

void FramedConnection::WaitReadable() {
    m_io->drained = false;
    m_io->socket.async_wait(asio::socket_base::wait_read,
                            [self = shared_from_this()](asio::error_code const& error) {
                                if (error) {
                                    self->OnReadFailed(error);
                                    return;
                                }
                                // What the frames hand on to the task (a firing) runs
                                // before the loop waits again.
                                EventLoop::Turn turn(self->m_io->loop);
                                self->ReadSome();
                            });
}

void FramedConnection::ReadMore() {
    if (m_io->drained) {
        WaitReadable();
        return;
    }
    // The socket may hold more: read it again, behind what else the loop has ready now.
    asio::post(m_io->socket.get_executor(), [self = shared_from_this()] {
        EventLoop::Turn turn(self->m_io->loop);
        self->ReadSome();
    });
}

void FramedConnection::OnReadFailed(std::error_code const& error) {
    if (error == asio::error::operation_aborted || !IsOpen()) return;
    if (m_decoder.Buffered() > 0) {
        IPCLog().Log(DPrint::Warning, "%s: connection ended inside a frame (%zu bytes)",
                     m_description.c_str(), m_decoder.Buffered());
    } else if (error == asio::error::eof) {
        IPCLog().Log(DPrint::Info, "%s: closed by the peer", m_description.c_str());
    } else {
        IPCLog().Log(DPrint::Info, "%s: read failed: %s", m_description.c_str(),
                     error.message().c_str());
    }
    Close();
}

void FramedConnection::HandleFrames() {
    for (int handled = 0;;) {
        switch (m_decoder.Next(m_frame)) {
            case FrameDecoder::Status::Frame:
                if (m_onFrame) m_onFrame(m_frame);
                if (!IsOpen()) return;
                if (++handled == kFramesPerTurn) {
                    // Behind whatever the loop has ready now. Asio keeps the handler's
                    // memory for the next one: no allocation per turn.
                    // The loop waits on its sockets before the rest: the socket's
                    // readiness may be told then, with no read waiting to hear it.
                    m_io->drained = false;
                    asio::post(m_io->socket.get_executor(), [self = shared_from_this()] {
                        EventLoop::Turn turn(self->m_io->loop);
                        if (self->IsOpen()) self->HandleFrames();
                    });
                    return;
                }
                continue;
            case FrameDecoder::Status::NeedMore:
                ReadMore();
                return;
            case FrameDecoder::Status::TooLarge:
                IPCLog().Log(DPrint::Warning,
                             "%s: frame of %zu bytes is over the limit of %zu bytes; closing",
                             m_description.c_str(), m_decoder.RefusedLength(),
                             m_limits.maxFrameBytes);
                Close();
                return;
            case FrameDecoder::Status::Malformed:
                IPCLog().Log(DPrint::Warning, "%s: frame does not parse; closing",
                             m_description.c_str());
                Close();
                return;
        }
    }
}

FramedConnection::SendResult FramedConnection::Send(IPCFrame const& frame) {
    return Send(frame.kind(), frame.envelope().message_id(), frame.request_number(),
                frame.envelope());
}

FramedConnection::SendResult FramedConnection::Send(IPCFrame::Kind kind, unsigned int id,
                                                    std::uint64_t number,
                                                    IPCMessageEnvelopeBase const& envelope) {
    // One buffer per thread, kept between sends unless a rare large frame grew it.
    constexpr std::size_t kKeptBufferBytes = 256 * 1024;
    thread_local std::string buffer;
    buffer.clear();
    if (!AppendFrame(kind, id, envelope, number, buffer, m_limits.maxFrameBytes)) {
        IPCLog().Log(DPrint::Warning,
                     "%s: frame of %zu bytes is over the limit of %zu bytes; not sent",
                     m_description.c_str(), FrameBodyBytes(kind, id, envelope, number),
                     m_limits.maxFrameBytes);
        return SendResult::TooLarge;
    }
    SendResult const result = SendBytes(buffer);
    if (buffer.capacity() > kKeptBufferBytes) std::string().swap(buffer);
    return result;
}

FramedConnection::SendResult FramedConnection::SendBytes(std::string const& bytes) {
    std::unique_lock<std::mutex> lock(m_mutex);
    if (!m_open) return SendResult::Closed;
    std::size_t written = 0;
    if (m_pending.empty()) {
        if (Cork(bytes)) return SendResult::Sent;
        ssize_t sent = SendSome(bytes.data(), bytes.size());
        if (sent < 0 && !WouldBlock(errno)) {
            FailSend(lock, errno);
            return SendResult::Closed;
        }
        written = sent > 0 ? static_cast<std::size_t>(sent) : 0;
        if (written == bytes.size()) return SendResult::Sent;
    }
    std::size_t const queued = m_pending.size() - m_pendingOffset;
    if (queued + bytes.size() - written > m_limits.maxQueuedBytes) {
        lock.unlock();
        if (m_onQueueFull) {
            m_onQueueFull(queued);
        } else {
            IPCLog().Log(DPrint::Warning,
                         "%s: the peer is not reading and %zu bytes wait to be sent; closing",
                         m_description.c_str(), queued);
        }
        Close();
        return SendResult::QueueFull;
    }
    bool const wake = m_pending.empty();  // otherwise a wait for the socket is under way
    m_pending.append(bytes, written, std::string::npos);
    if (m_corked && queued < kHeldBytes && queued + bytes.size() >= kHeldBytes) {
        // Enough held back: the socket takes what it can now, the turn's end the rest.
        ssize_t const sent =
            SendSome(m_pending.data() + m_pendingOffset, m_pending.size() - m_pendingOffset);
        if (sent < 0 && !WouldBlock(errno)) {
            FailSend(lock, errno);
            return SendResult::Closed;
        }
        if (sent > 0) m_pendingOffset += static_cast<std::size_t>(sent);
        if (m_pendingOffset == m_pending.size()) {
            m_pending.clear();
            m_pendingOffset = 0;
        }
        return SendResult::Sent;
    }
    lock.unlock();
    if (wake) Post([self = shared_from_this()] { self->WaitWritable(); });
    return SendResult::Sent;
}

bool FramedConnection::Cork(std::string const& bytes) {
    // A handler's send waits for the end of the loop's turn: a turn that answers several
    // frames (acknowledgements of a burst of updates, replies to pipelined requests) writes
    // them in one syscall and wakes the peer once instead of once per frame, which on one
    // CPU would let the peer preempt this thread for every frame.
    if (m_corked) {  // the turn's end is due already
        m_pending.append(bytes);
        return true;
    }
    if (!m_started || bytes.size() >= kHeldBytes || !m_loop->RunsOnCurrentThread() ||
        !m_loop->ContinueInTurn(
            [](void* connection) { static_cast<FramedConnection*>(connection)->WriteCorked(); },
            this)) {
        return false;
    }
    m_pending.append(bytes);
    m_corked = true;
    m_corkHolder = shared_from_this();
    return true;
}

void FramedConnection::WriteCorked() {
    auto const holder = std::move(m_corkHolder);
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_corked = false;
    }
    OnWritable();
}

ssize_t FramedConnection::SendSome(char const* data, std::size_t size) {
    // Never blocks and never raises SIGPIPE: a closed peer shows as an error instead.
    return ::send(m_fd, data, size, MSG_NOSIGNAL | MSG_DONTWAIT);
}

void FramedConnection::FailSend(std::unique_lock<std::mutex>& lock, int error) {
    lock.unlock();
    IPCLog().Log(DPrint::Info, "%s: send failed: %s", m_description.c_str(), std::strerror(error));
    Close();
}

void FramedConnection::WaitWritable() {
    auto onWritable = [self = shared_from_this()](asio::error_code const& error) {
        if (!error) self->OnWritable();
    };
    if (!m_io->writeWait) {
        int const fd = ::fcntl(m_fd, F_DUPFD_CLOEXEC, 0);
        if (fd < 0) {
            // Out of descriptors: the socket waits itself, at the cost of later wake-ups.
            m_io->socket.async_wait(asio::socket_base::wait_write, std::move(onWritable));
            return;
        }
        m_io->writeWait.emplace(m_io->loop.Context(), fd);
    }
    m_io->writeWait->async_wait(asio::posix::stream_descriptor::wait_write, std::move(onWritable));
}

void FramedConnection::OnWritable() {
    std::unique_lock<std::mutex> lock(m_mutex);
    while (m_open && m_pendingOffset < m_pending.size()) {
        ssize_t sent =
            SendSome(m_pending.data() + m_pendingOffset, m_pending.size() - m_pendingOffset);
        if (sent < 0) {
            if (WouldBlock(errno)) {
                if (m_pendingOffset > m_pending.size() / 2) {
                    m_pending.erase(0, m_pendingOffset);
                    m_pendingOffset = 0;
                }
                lock.unlock();
                WaitWritable();
                return;
            }
            FailSend(lock, errno);
            return;
        }
        m_pendingOffset += static_cast<std::size_t>(sent);
    }
    if (m_pending.capacity() > kKeptQueueBytes) {
        std::string().swap(m_pending);
    } else {
        m_pending.clear();
    }
    m_pendingOffset = 0;
    lock.unlock();
    m_io->writeWait.reset();  // drained: no more waiting for room
}

}  // namespace Tarv
