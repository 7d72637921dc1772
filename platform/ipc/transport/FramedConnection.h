#pragma once
// FramedConnection: one connected Unix stream socket carrying IPC frames. The client's
// router and the server's sessions are built on it.
//
// Loop: a connection is served by one EventLoop: the shared IO thread's unless Adopt or
// Start names another (the loop of the task that will handle its frames). "The loop's thread" below
// is that loop's thread. When the loop ends, the connection closes there. Reading: after Start, the
// loop's thread reads what the socket holds, decodes the whole frames in a row and hands each to
// the frame handler, at most kFramesPerTurn in one turn of the loop: the rest wait behind what
// else the loop has to do (other connections' frames), so that a peer that writes requests as
// fast as it can never starves the others; the socket is read again once they are handled.
// A frame over the size limit, or one that does not parse, closes the connection
// with one log line. Writing: Send may be called from any thread; each frame is written whole, in
// the order of the calls. When nothing waits before it and the socket takes it, a frame is written
// on the calling thread (no thread hop); otherwise its bytes join the send queue, which
// the loop's thread drains as the peer reads. A frame sent on the loop's own thread while
// one of its handlers runs waits for the end of that turn instead (see Cork): what the
// turn sends leaves in one write, just before the loop waits again. The queue is bounded
// (Limits::maxQueuedBytes, 4 MiB by default): a peer that lets it fill is treated as gone,
// so the connection is closed and Send reports QueueFull. A caller never blocks on a slow
// peer.
// End: the connection ends once: when the peer closes, on an error, on bad input or on
// Close(). Every closed handler then runs once, on the loop's thread.
#include <sys/types.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <system_error>

#include "framework/ipc/ConnectorSocket.h"
#include "framework/task/CallbackConnection.h"
#include "platform/TarvExport.h"
#include "platform/ipc/PeerCredentials.h"
#include "platform/ipc/transport/FrameCodec.h"
#include "platform/ipc/transport/IoService.h"
#include "platform/task/CallbackList.h"

namespace Tarv {

class TARV_TRANSPORT_EXPORT FramedConnection final
    : public Network::ConnectorSocket,
      public std::enable_shared_from_this<FramedConnection> {
public:
    using FrameHandler = std::function<void(IPCFrame& frame)>;
    enum class SendResult { Sent, Closed, TooLarge, QueueFull };
    using Limits = ConnectionLimits;
    // Frames handled in one turn of the loop. One turn takes the largest burst a client of
    // the product sends at once (a reconnecting client asks for some twenty resources and
    // subscribes again), while a flooding peer holds the loop for 32 frames' work, tens of
    // microseconds each, before the others' turn.
    static constexpr int kFramesPerTurn = 32;

    // Takes ownership of `fd`, a connected stream socket, on `loop` (null: the shared IO
    // thread's). `description` names the connection in log lines ("Vellmark", "client pid 42").
    static std::shared_ptr<FramedConnection> Adopt(int fd, std::string description,
                                                   Limits limits = Limits(),
                                                   std::shared_ptr<EventLoop> loop = nullptr);
    ~FramedConnection() override;
    FramedConnection(FramedConnection const&) = delete;
    FramedConnection& operator=(FramedConnection const&) = delete;

    // Starts reading; `onFrame` runs on the loop's thread for every frame, and may move out
    // of it. With `loop`, the connection moves to that loop first, unless it has work under
    // way on its own (a queued send, a close), when it stays. Only the first call starts
    // anything (false for later calls); on a closed connection it reads nothing.
    bool Start(FrameHandler onFrame, std::shared_ptr<EventLoop> loop = nullptr);
    // Calls `onClosed` once, on the loop's thread, when the connection ends; soon after the
    // call when it has ended already (at once, on the calling thread, once the loop has
    // ended). Disconnecting the handle ends the registration.
    CallbackConnection OnClosed(std::function<void()> onClosed);
    // Runs `work` on the loop's thread; false, with `work` dropped, once the loop has ended.
    bool Post(std::function<void()> work);
    // Called, on the sending thread, when a send finds the queue full (Limits::maxQueuedBytes)
    // with the bytes queued, in place of the connection's own log line; the connection then
    // closes as always. For a server that reports it its own way: set it before any Send.
    void OnQueueFull(std::function<void(std::size_t queued)> onQueueFull);

    // Sends the frame MakeFrame(kind, id, envelope, number) makes, encoded straight from the
    // envelope into this thread's send buffer: no copy of the payload, no allocation once
    // the buffer has grown.
    SendResult Send(IPCFrame::Kind kind, unsigned int id, std::uint64_t number,
                    IPCMessageEnvelopeBase const& envelope);
    SendResult Send(IPCFrame const& frame);

    bool IsOpen() const override;
    void Close() override;

    // The peer's credentials, as read when the connection was adopted.
    std::optional<PeerCredentials> const& Peer() const { return m_peer; }
    std::string const& Description() const { return m_description; }

private:
    struct Io;
    FramedConnection(int fd, std::string description, Limits limits,
                     std::shared_ptr<EventLoop> loop);

    // Reads what the socket holds now into the decoder and handles it; waits for the
    // socket when it holds nothing.
    void ReadSome();
    void WaitReadable();
    // After the frames read are handled: waits for the socket once it was drained, else
    // reads it again in the loop's next turn.
    void ReadMore();
    // Ends the connection on a failed read or wait, with its log line.
    void OnReadFailed(std::error_code const& error);
    // Hands the frames decoded to the frame handler, one turn's worth, then reads again or
    // leaves the rest for the next turn.
    void HandleFrames();
    // Writes what the socket takes now, with the lock held.
    ssize_t SendSome(char const* data, std::size_t size);
    // With the lock held and nothing queued: holds `bytes` back to the end of the loop's
    // turn when this is the loop's thread in one of its handlers, or when an earlier frame
    // of the turn is held back already. False if it did not.
    bool Cork(std::string const& bytes);
    // The end of the turn: writes what was held back, and what joined it since.
    void WriteCorked();
    // Sends the encoded frame `bytes` (see Send).
    SendResult SendBytes(std::string const& bytes);
    // Logs a failed write and closes; releases `lock` first.
    void FailSend(std::unique_lock<std::mutex>& lock, int error);
    void WaitWritable();
    void OnWritable();
    // Marks the connection closed; true for the call that closed it.
    bool MarkClosed();
    // The loop thread's half of closing: the socket, the frame handler, the closed handlers.
    void Finish();
    // Rebinds the socket to `loop`; with m_mutex held, before anything runs on the old loop.
    void MoveTo(std::shared_ptr<EventLoop> loop);
    // The loop, read under m_mutex: Start may change it.
    std::shared_ptr<EventLoop> CurrentLoop() const;

    // Keeps the shared IO thread alive as long as a connection made on its loop (null for
    // one made on a loop of its own).
    std::shared_ptr<IoService> const m_service;
    std::shared_ptr<EventLoop> m_loop;  // under m_mutex; set again only by Start
    std::unique_ptr<Io> m_io;           // the loop thread's, once started
    CallbackConnection m_loopEnd;       // the loop's ending closes the connection
    int const m_fd;
    std::string const m_description;
    Limits const m_limits;
    std::optional<PeerCredentials> const m_peer;
    std::shared_ptr<CallbackList<std::function<void()>>> const m_closedHandlers;
    std::function<void(std::size_t)> m_onQueueFull;  // set before any send

    // Set by Start and cleared by Finish under m_mutex; called on the loop's thread only.
    FrameHandler m_onFrame;
    // Touched on the loop's thread only.
    FrameDecoder m_decoder;
    IPCFrame m_frame;

    mutable std::mutex m_mutex;
    bool m_open = true;
    bool m_started = false;
    // Bytes accepted by Send and not yet taken by the socket; the front part, up to
    // m_pendingOffset, has gone out already.
    std::string m_pending;
    std::size_t m_pendingOffset = 0;
    // m_pending holds bytes held back to the end of the loop's turn (see Cork).
    bool m_corked = false;
    // Keeps the connection alive until the held-back bytes are written; the loop thread's.
    std::shared_ptr<FramedConnection> m_corkHolder;
};

}  // namespace Tarv
