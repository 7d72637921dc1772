#pragma once
// VellmarkService: the reference Vellmark service. It serves the product's endpoint
// "Vellmark" (every request of the client's table, update notifications to every
// connection, acknowledgements recorded) and the admin endpoint "VellmarkAdmin" (see
// VellmarkAdmin.proto), keeping its data in a Store.
//
// Threads: one task of the service's own reads both endpoints' sockets on its loop and
// runs everything (store, faults, acknowledgements, answers) where a frame is read: one
// request at a time, in arrival order, with no other thread woken. Delayed answers leave
// from a timer thread.
#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "VellmarkAdmin.pb.h"
#include "platform/ipc/IPCServer.h"
#include "platform/log/DPrint.h"
#include "platform/log/LogWindow.h"
#include "platform/task/Task.h"
#include "service/Acknowledgements.h"
#include "service/AdminSlices.h"
#include "service/Catalog.h"
#include "service/DelayedRunner.h"
#include "service/Faults.h"
#include "service/RequestTable.h"
#include "service/TrafficMonitor.h"
#include "service/UpdatePush.h"
#include "service/store/Store.h"

namespace Vellmark::Service {

// Whether a VellmarkService serves its sockets. Without (fuzzers), whatever it receives is
// handled at once on the calling thread, which calls one at a time.
struct ServiceEndpoints {
    bool served = true;
};

class VellmarkService {
public:
    struct Settings {
        Store::Options store;
        // Who may connect to the product's endpoint and to the admin endpoint.
        IPCServer::Options service;
        IPCServer::Options admin;
        ServiceEndpoints endpoints;
    };

    // Opens the store at `dbPath` (StoreError), replaces its content with `seed` when
    // given (std::invalid_argument when the seed is refused), and serves both endpoints
    // (std::system_error when a socket cannot be made). Throws std::logic_error when its
    // request table and MessageTable disagree.
    VellmarkService(std::string const& dbPath, std::optional<Vellmark::Admin::StoreDocument> seed,
                    Settings settings = Settings());
    // Stops.
    ~VellmarkService();
    VellmarkService(VellmarkService const&) = delete;
    VellmarkService& operator=(VellmarkService const&) = delete;

    // Closes every connection and both sockets, then finishes the work in hand. Idempotent.
    void Stop();

    // What the two endpoints hand over: a request of the product, a one-way message, an
    // admin request, as if it had come over the socket of `session`. Handled at once when
    // called on the service's task (as the endpoints do), else later there; tests and
    // fuzzers enter here too, from any thread.
    void Receive(IPCRequest const& request);
    void ReceiveOneWay(std::shared_ptr<IPCServerSession> const& session, unsigned int id,
                       IPCMessageEnvelope const& envelope);
    void ReceiveAdmin(IPCRequest const& request);
    // Returns once everything received before the call has been handled.
    void WaitUntilIdle();
    // Replaces what the store holds with `image` (Store::Image()): without endpoints and on
    // a store in memory, a fuzzer's next input starts from the same store. StoreError
    // otherwise.
    void RestoreStore(std::string const& image);

    // The sockets' paths; only with endpoints.
    std::string const& ServicePath() const { return m_server->Path(); }
    std::string const& AdminPath() const { return m_admin->Path(); }

    // The service's logger, "vellmarkd" (ServiceLog.h).
    static DPrint& Log();

private:
    struct Client {
        std::weak_ptr<IPCServerSession> session;
        std::string connectedAt;
        std::uint64_t requests = 0;
    };

    // Product endpoint, on the task: each request is served as its row of the request
    // table says (RequestTable.h); a failing store refuses it.
    void HandleRequest(IPCRequest const& request);
    void Serve(IPCRequest const& request, RequestRow const& row);
    void HandleOneWay(std::shared_ptr<IPCServerSession> const& session, unsigned int id,
                      IPCMessageEnvelope const& envelope);
    // Answers a request under an identifier the service does not serve.
    void RefuseUnknown(IPCRequest const& request);
    // Fails `request` as planned; false when nothing was planned for it.
    bool ApplyFault(IPCRequest const& request, RequestRow const* row);
    // Sends `error`, the refusal of `request`, where its row's route takes it.
    void Refuse(IPCRequest const& request, RequestRow const& row, VellmarkPB::Error const& error);

    // Answers, after the delay asked for its identifier.
    void Answer(IPCRequest const& request, google::protobuf::Message const& reply);
    void Answer(IPCRequest const& request, IPCMessageEnvelope const& envelope);
    // The answer to a query of `resource`, as the store holds it now.
    IPCMessageEnvelope const& QueryAnswer(Vellmark::Admin::ResourceInfo const& resource);
    // Sends `message` to the requester alone under `id`, after the same delay.
    void NotifyRequester(IPCRequest const& request, unsigned int id,
                         google::protobuf::Message const& message);
    // Runs `send` now, or after the delay asked for answers under `id`.
    void AfterDelayOf(unsigned int id, std::function<void()> send);
    // Pushes the update of every changed resource to every connection.
    void Broadcast(Changes const& changed);
    // Sends `envelope` as a notification under `id`, as the traffic monitor sees it.
    bool Notify(std::shared_ptr<IPCServerSession> const& session, unsigned int id,
                IPCMessageEnvelope const& envelope);

    // Admin endpoint, on the task: answers `request`, joining and cutting slices of
    // messages too big for one frame.
    void HandleAdmin(IPCRequest const& request);
    // Sends `reply`, or its first slice when it does not fit frames of `limit` bytes.
    void RespondAdmin(IPCRequest const& request, Vellmark::Admin::Reply const& reply,
                      std::size_t limit);
    // Sends `reply` as it is.
    void SendAdmin(IPCRequest const& request, Vellmark::Admin::Reply const& reply);
    // Starts the push `command` asks for; `request` is answered when it is done.
    void StartPush(Vellmark::Admin::Request const& command, IPCRequest const& request,
                   std::size_t limit);
    void EndFinishedPush();
    // Carries out one whole admin command that came on `session`.
    Vellmark::Admin::Reply RunAdmin(Vellmark::Admin::Request const& command,
                                    std::shared_ptr<IPCServerSession> const& session);
    Vellmark::Admin::Reply Put(Vellmark::Admin::Put const& put);
    Vellmark::Admin::Reply Get(Vellmark::Admin::Get const& get, bool pretty);
    Vellmark::Admin::Reply FailNext(Vellmark::Admin::FailNext const& failNext);
    Vellmark::Admin::Reply Seed(Vellmark::Admin::Seed const& seed);
    Vellmark::Admin::ClientList Clients() const;
    std::size_t DropConnections();

    // True where what is received is handled: on the task, or anywhere without endpoints.
    bool OnServiceThread() const { return !m_endpoints || m_task.RunsOnCurrentThread(); }
    // The product endpoint's connections (none without endpoints).
    std::vector<std::shared_ptr<IPCServerSession>> Sessions() const;
    void Post(std::function<void()> work);
    // Runs `work` now when on the task, else posts it.
    template <class Work>
    void OnTask(Work&& work);

    // Every answer and update fits a frame of this many bytes.
    std::size_t const m_maxFrameBytes;
    bool const m_endpoints;
    Store m_store;
    Catalog m_catalog;
    Faults m_faults;
    Acknowledgements m_acknowledgements;
    Tarv::LogWindow m_ignoredOneWayLog;
    std::map<std::uint64_t, Client> m_clients;
    TrafficMonitor m_monitor;
    AdminSlices m_adminSlices;
    std::unique_ptr<UpdatePush> m_push;  // the push under way, if any
    struct KeptAnswer {
        std::optional<IPCMessageEnvelope> envelope;
        std::uint64_t generation = 0;  // the store's, when it was made
    };
    // By the resource's row, which lives as long as the process.
    std::map<Vellmark::Admin::ResourceInfo const*, KeptAnswer> m_queryAnswers;
    IL::Task m_task;
    std::unique_ptr<IPCServer> m_server;
    std::unique_ptr<IPCServer> m_admin;
    // Last: destroyed first, so that no delayed answer runs on a dismantled service.
    std::unique_ptr<DelayedRunner> m_delayed;
};

}  // namespace Vellmark::Service
