#pragma once
// SocketRouter: the IPCMessageRouterIF of one client connection (see that interface).
//
// Requests are numbered per router; a response is handed to the handler of the request
// with its number, once, and that registration ends. Notifications go to every handler
// attached under their identifier, in the order of attachment. Handlers run on the
// connection's loop thread (the user's task, when it serves a loop; else the shared IO
// thread), under the router's dispatch lock: Stop() and CallbackConnection::Disconnect()
// take that lock too, so once they return the handlers they ended never run again. A
// handler may stop its own router.
// When the connection is lost, every registration ends and the disconnect handler runs
// once; after Stop() it does not run at all. Stop() closes the connection.
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "framework/ipc/IPCMessageRouterIF.h"
#include "platform/ipc/transport/FramedConnection.h"

namespace Tarv {

class SocketRouter final : public IPCMessageRouterIF,
                           public std::enable_shared_from_this<SocketRouter> {
public:
    // A router over `connection`, which it starts reading on `loop` (null: where the
    // connection is). Nothing if another router serves the connection already.
    static std::shared_ptr<SocketRouter> Create(std::string name,
                                                std::shared_ptr<FramedConnection> connection,
                                                std::shared_ptr<EventLoop> loop = nullptr);
    ~SocketRouter() override;

    // `socket` is the router's own connection; the handler watches that one.
    void SetDisconnectHandler(std::shared_ptr<Network::ConnectorSocket> const& socket,
                              std::function<void()> const& handler) override;
    bool IsOpen() const override;
    void Stop() override;
    std::string const& Name() const override { return m_name; }
    bool SendEnvelope(unsigned int id, IPCMessageEnvelope const& envelope) override;
    CallbackConnection SendEnvelopeRequest(unsigned int id, IPCMessageEnvelope const& request,
                                           EnvelopeHandler const& onResponse) override;
    std::size_t PendingRequests() const override;
    CallbackConnection AttachEnvelopeHandler(unsigned int id,
                                             EnvelopeHandler const& handler) override;
    void OnPayloadTypeMismatch(IPCMessageEnvelope const& envelope) override;

private:
    SocketRouter(std::string name, std::shared_ptr<FramedConnection> connection);

    void OnFrame(IPCFrame& frame);
    void OnClosed();
    void ReportDisconnect();
    void DeliverResponse(std::uint64_t number, IPCMessageEnvelope const& envelope);
    void DeliverNotification(IPCMessageEnvelope const& envelope);
    // A handle that ends the request `number`, or the attachment `key`.
    CallbackConnection Registration(std::uint64_t key, bool request);
    void Forget(std::uint64_t key, bool request);

    using Requests = std::unordered_map<std::uint64_t, EnvelopeHandler>;
    // Shared, so that a notification takes its handlers out of the lock without copying
    // them (a copy allocates).
    using SharedHandler = std::shared_ptr<EnvelopeHandler const>;
    // By attachment key, so in the order of attachment: identifier and handler.
    using Attachments = std::map<std::uint64_t, std::pair<unsigned int, SharedHandler>>;
    // Every registration, taken out under m_mutex to be released after it: the handlers may
    // own anything.
    struct Registrations {
        Requests requests;
        Attachments attachments;
    };
    Registrations TakeRegistrations();

    std::string const m_name;
    std::shared_ptr<FramedConnection> const m_connection;
    CallbackConnection m_closedRegistration;

    // Held while handlers run, and by Stop and Forget. Recursive, for handlers that stop
    // their router or end a registration.
    std::recursive_mutex m_dispatch;
    mutable std::mutex m_mutex;
    bool m_stopped = false;
    bool m_closed = false;
    bool m_disconnectReported = false;
    std::function<void()> m_onDisconnect;
    std::uint64_t m_lastRequest = 0;
    Requests m_requests;
    std::uint64_t m_lastAttachment = 0;
    Attachments m_attachments;
    // The handlers of the notification being delivered, under m_dispatch: kept between
    // notifications for its memory.
    std::vector<SharedHandler> m_delivering;
};

}  // namespace Tarv
