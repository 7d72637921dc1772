#pragma once
// FramedConnection: one connected Unix stream socket carrying IPC frames. The client's
// router and the server's sessions are built on it.
//
// Reading: after Start, the IO thread reads frames and hands each to the frame handler. A
// frame over the size limit, or one that does not parse, closes the connection with one
// log line.
// Writing: Send may be called from any thread; each frame is written whole, in the order
// of the calls. When nothing waits before it and the socket takes it, a frame is written
// on the calling thread (no thread hop); otherwise its bytes join the send queue, which
// the IO thread drains as the peer reads. The queue is bounded (Limits::maxQueuedBytes,
// 4 MiB by default): a peer that lets it fill is treated as gone, so the connection is
// closed and Send reports QueueFull. A caller never blocks on a slow peer.
// End: the connection ends once: when the peer closes, on an error, on bad input or on
// Close(). Every closed handler then runs once, on the IO thread.
#include <sys/types.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "framework/ipc/ConnectorSocket.h"
#include "framework/task/CallbackConnection.h"
#include "platform/ipc/PeerCredentials.h"
#include "platform/ipc/transport/FrameCodec.h"
#include "platform/ipc/transport/IoService.h"
#include "platform/task/CallbackList.h"

namespace Tarv {

class FramedConnection final : public Network::ConnectorSocket,
                               public std::enable_shared_from_this<FramedConnection> {
public:
    using FrameHandler = std::function<void(IPCFrame& frame)>;
    enum class SendResult { Sent, Closed, TooLarge, QueueFull };
    using Limits = ConnectionLimits;

    // Takes ownership of `fd`, a connected stream socket. `description` names the
    // connection in log lines ("Vellmark", "client pid 42").
    static std::shared_ptr<FramedConnection> Adopt(int fd, std::string description,
                                                   Limits limits = Limits());
    ~FramedConnection() override;
    FramedConnection(FramedConnection const&) = delete;
    FramedConnection& operator=(FramedConnection const&) = delete;

    // Starts reading; `onFrame` runs on the IO thread for every frame, and may move out of
    // it. Only the first call starts anything (false for later calls); on a closed
    // connection it reads nothing.
    bool Start(FrameHandler onFrame);
    // Calls `onClosed` once, on the IO thread, when the connection ends; soon after the
    // call when it has ended already. Disconnecting the handle ends the registration.
    CallbackConnection OnClosed(std::function<void()> onClosed);

    SendResult Send(IPCFrame const& frame);

    bool IsOpen() const override;
    void Close() override;

    // The peer's credentials, as read when the connection was adopted.
    std::optional<PeerCredentials> const& Peer() const { return m_peer; }
    std::string const& Description() const { return m_description; }

private:
    struct Io;
    FramedConnection(int fd, std::string description, Limits limits);

    void ReadSome();
    void OnRead(std::size_t bytes);
    // Writes what the socket takes now, with the lock held.
    ssize_t SendSome(char const* data, std::size_t size);
    // Logs a failed write and closes; releases `lock` first.
    void FailSend(std::unique_lock<std::mutex>& lock, int error);
    void WaitWritable();
    void OnWritable();
    // Marks the connection closed; true for the call that closed it.
    bool MarkClosed();
    // The IO thread's half of closing: the socket, the frame handler, the closed handlers.
    void Finish();

    std::shared_ptr<IoService> const m_service;
    std::unique_ptr<Io> const m_io;
    int const m_fd;
    std::string const m_description;
    Limits const m_limits;
    std::optional<PeerCredentials> const m_peer;
    std::shared_ptr<CallbackList<std::function<void()>>> const m_closedHandlers;

    // Set by Start and cleared by Finish under m_mutex; called on the IO thread only.
    FrameHandler m_onFrame;
    // Touched on the IO thread only.
    FrameDecoder m_decoder;
    IPCFrame m_frame;

    mutable std::mutex m_mutex;
    bool m_open = true;
    bool m_started = false;
    // Bytes accepted by Send and not yet taken by the socket; the front part, up to
    // m_pendingOffset, has gone out already.
    std::string m_pending;
    std::size_t m_pendingOffset = 0;
};

}  // namespace Tarv
