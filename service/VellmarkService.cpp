#include "service/VellmarkService.h"

#include <future>
#include <stdexcept>

#include "VellmarkMessageId.pb.h"
#include "admin/Json.h"
#include "platform/task/BreakThread.h"
#include "service/ServiceLog.h"

namespace Vellmark::Service {

using VellmarkPB::MessageId;

namespace {

// The error a request gets when the service itself fails (its store, say).
VellmarkPB::Error InternalError(unsigned int id, std::string const& text) {
    VellmarkPB::Error error;
    error.set_code(VellmarkPB::CODE_INTERNAL_ERROR);
    error.set_subcode(VellmarkPB::CODE_INTERNAL_ERROR);
    error.set_messageid(static_cast<MessageId>(id));
    error.set_message(text);
    return error;
}

IPCMessageEnvelope EnvelopeOf(google::protobuf::Message const& message) {
    IPCMessageEnvelope envelope;
    envelope.SetPayload(message);
    return envelope;
}

}  // namespace

DPrint& VellmarkService::Log() {
    return ServiceLog();
}

VellmarkService::VellmarkService(std::string const& dbPath,
                                 std::optional<Vellmark::Admin::StoreDocument> seed,
                                 Settings settings)
    : m_maxFrameBytes(IPCFrameLimit::MaxFrameBytes()),
      m_endpoints(settings.endpoints.served),
      m_store(dbPath, settings.store),
      m_catalog(m_store, m_maxFrameBytes),
      m_task("vellmarkd") {
    // Every request the tools know of is served, as they expect it to be.
    auto const disagreements = Disagreements(RequestTable());
    if (!disagreements.empty()) {
        std::string text = "the request table and MessageTable disagree:";
        for (auto const& line : disagreements) text += "\n  " + line;
        throw std::logic_error(text);
    }
    if (auto const mode = m_store.TightenedFrom()) {
        Log().Log(DPrint::Warning,
                  "the store %s was readable by group or others (mode %03o); made it private "
                  "to its owner",
                  dbPath.c_str(), *mode);
    }
    if (seed) {
        Changes changed;
        auto const seeded = m_catalog.Seed(*seed, changed);
        if (auto const* refusal = std::get_if<VellmarkPB::Error>(&seeded)) {
            throw std::invalid_argument(refusal->message());
        }
    }
    // What the store holds must be sendable: written with a larger frame limit, it is not.
    m_catalog.CheckEveryResourceFits();
    m_delayed = std::make_unique<DelayedRunner>();
    if (!m_endpoints) return;

    IPCServer::Handlers service;
    service.onConnected = [this](IPCServer::SessionPtr const& session) {
        OnTask([this, session] {
            auto const peer = session->Peer();
            m_clients[session->Id()] = Client{session, Timestamp(), 0};
            Log().Log(DPrint::Flow, "client connected: session %llu, pid %d, uid %u",
                      static_cast<unsigned long long>(session->Id()), static_cast<int>(peer.pid),
                      static_cast<unsigned>(peer.uid));
        });
    };
    service.onDisconnected = [this](IPCServer::SessionPtr const& session) {
        OnTask([this, session] {
            m_clients.erase(session->Id());
            if (m_push) {
                m_push->Gone(session->Id());
                EndFinishedPush();
            }
            Log().Log(DPrint::Flow, "client gone: session %llu",
                      static_cast<unsigned long long>(session->Id()));
        });
    };
    service.onRequest = [this](IPCRequest const& request) { Receive(request); };
    service.onMessage = [this](IPCServer::SessionPtr const& session, unsigned int id,
                               IPCMessageEnvelope const& envelope) {
        ReceiveOneWay(session, id, envelope);
    };
    // Both endpoints are served on the task's own loop: requests are handled where they are
    // read, with no thread woken in between.
    settings.service.loop = m_task.Loop();
    settings.admin.loop = m_task.Loop();
    // Out of descriptors, an operator can still see who holds them: vellmarkctl opens two
    // connections at once (its probe and its client).
    settings.admin.descriptorReserve.descriptors = 2;
    m_server = std::make_unique<IPCServer>(Vellmark::Admin::kServiceEndpoint, std::move(service),
                                           std::move(settings.service));

    IPCServer::Handlers admin;
    admin.onRequest = [this](IPCRequest const& request) { ReceiveAdmin(request); };
    admin.onDisconnected = [this](IPCServer::SessionPtr const& session) {
        OnTask([this, id = session->Id()] { m_adminSlices.Forget(id); });
    };
    m_admin = std::make_unique<IPCServer>(Vellmark::Admin::kAdminEndpoint, std::move(admin),
                                          std::move(settings.admin));
}

VellmarkService::~VellmarkService() {
    Stop();
}

void VellmarkService::Stop() {
    if (m_server) m_server->Stop();
    if (m_admin) m_admin->Stop();
    m_task.Stop();
    m_delayed.reset();
}

void VellmarkService::Receive(IPCRequest const& request) {
    m_monitor.Received(request.session->Id(), "request", request.id, request.number,
                       request.envelope);
    if (OnServiceThread()) return HandleRequest(request);
    Post([this, request] { HandleRequest(request); });
}

void VellmarkService::ReceiveOneWay(std::shared_ptr<IPCServerSession> const& session,
                                    unsigned int id, IPCMessageEnvelope const& envelope) {
    m_monitor.Received(session->Id(), "one-way", id, 0, envelope);
    if (OnServiceThread()) return HandleOneWay(session, id, envelope);
    Post([this, session, id, envelope] { HandleOneWay(session, id, envelope); });
}

void VellmarkService::ReceiveAdmin(IPCRequest const& request) {
    OnTask([this, request] { HandleAdmin(request); });
}

void VellmarkService::WaitUntilIdle() {
    std::promise<void> done;
    Post([&done] { done.set_value(); });
    done.get_future().wait();
}

void VellmarkService::Post(std::function<void()> work) {
    IL::BreakThread(std::move(work), &m_task);
}

void VellmarkService::RestoreStore(std::string const& image) {
    if (m_endpoints) throw StoreError(m_store.Path(), "replaced only without endpoints");
    m_store.Restore(image);
}

std::vector<std::shared_ptr<IPCServerSession>> VellmarkService::Sessions() const {
    if (!m_server) return {};
    return m_server->Sessions();
}

template <class Work>
void VellmarkService::OnTask(Work&& work) {
    if (OnServiceThread()) {
        work();
    } else {
        Post(std::forward<Work>(work));
    }
}

void VellmarkService::HandleRequest(IPCRequest const& request) {
    auto client = m_clients.find(request.session->Id());
    if (client != m_clients.end()) ++client->second.requests;
    if (Log().IsLog(DPrint::Info)) {
        Log().Log(DPrint::Info, "request %u %s from session %llu", request.id,
                  Vellmark::Admin::MessageName(request.id).c_str(),
                  static_cast<unsigned long long>(request.session->Id()));
    }
    auto const* row = FindRequest(request.id);
    if (ApplyFault(request, row)) return;
    if (!row) return RefuseUnknown(request);
    try {
        Serve(request, *row);
    } catch (StoreError const& error) {
        Log().Log(DPrint::Error, "request %u failed: %s", request.id, error.what());
        Refuse(request, *row,
               InternalError(request.id, "the service's store failed: " + error.Reason()));
    }
}

void VellmarkService::Serve(IPCRequest const& request, RequestRow const& row) {
    // A query's content does not matter: the identifier names the resource.
    if (row.query) return Answer(request, QueryAnswer(*row.query));
    Changes changed;
    auto const outcome =
        row.write(m_catalog, static_cast<MessageId>(request.id), request.envelope, changed);
    if (auto const* refusal = std::get_if<VellmarkPB::Error>(&outcome)) {
        Log().Log(DPrint::Flow, "request %u refused: %s", request.id, refusal->message().c_str());
        return Refuse(request, row, *refusal);
    }
    Answer(request, std::get<IPCMessageEnvelope>(outcome));
    Broadcast(changed);
}

void VellmarkService::Refuse(IPCRequest const& request, RequestRow const& row,
                             VellmarkPB::Error const& error) {
    switch (row.route) {
        case RefusalRoute::InReply: {
            VellmarkPB::VellmarkAcctOpEnvelope reply;
            reply.set_success(false);
            *reply.mutable_error() = error;
            return Answer(request, reply);
        }
        case RefusalRoute::Notification:
            return NotifyRequester(request, row.errorId, error);
        case RefusalRoute::None:
            return;  // queries and preset storage have no error path: the client hears nothing
    }
}

// A client of the product never sends such a request, so the answer is for whoever wrote
// one by hand: an Error, where silence would leave them waiting. A client that expected
// another type drops it as a payload type mismatch.
void VellmarkService::RefuseUnknown(IPCRequest const& request) {
    std::string const name = Vellmark::Admin::MessageName(request.id);
    bool const reserved = name.find("RESERVED") != std::string::npos;
    Log().Log(DPrint::Warning,
              "request %u%s from session %llu: the service serves no request under this "
              "identifier; answered with an Error",
              request.id, reserved ? " (reserved)" : "",
              static_cast<unsigned long long>(request.session->Id()));
    Answer(request,
           Refusal(static_cast<MessageId>(request.id), VellmarkPB::CODE_UNKNOWN_REQUEST,
                   "the service serves no request under identifier " + std::to_string(request.id)));
}

bool VellmarkService::ApplyFault(IPCRequest const& request, RequestRow const* row) {
    auto failure = m_faults.Take(request.id);
    if (!failure) return false;
    if (!failure->error) {
        Log().Log(DPrint::Flow, "request %u left unanswered, as asked", request.id);
        return true;
    }
    VellmarkPB::Error error = *failure->error;
    if (!error.has_messageid()) error.set_messageid(static_cast<MessageId>(request.id));
    Log().Log(DPrint::Flow, "request %u failed, as asked", request.id);
    if (row) Refuse(request, *row, error);
    return true;
}

void VellmarkService::HandleOneWay(std::shared_ptr<IPCServerSession> const& session,
                                   unsigned int id, IPCMessageEnvelope const& envelope) {
    VellmarkPB::CloudSyncReceived acknowledgement;
    if (id != VellmarkPB::VELLMARK_MESSAGE_CLOUDSYNC_RECEIVED ||
        (envelope.has_payload_type_name() &&
         envelope.payload_type_name() != acknowledgement.GetDescriptor()->name()) ||
        !envelope.GetPayload(acknowledgement)) {
        // Any client may send these in a loop: a line a minute, the rest counted.
        if (auto const held = m_ignoredOneWayLog.Admit(Tarv::LogWindow::Clock::now())) {
            Log().Log(DPrint::Warning, "one-way message %u from session %llu ignored%s", id,
                      static_cast<unsigned long long>(session->Id()),
                      Tarv::HeldBackSuffix(*held, "ignored").c_str());
        }
        return;
    }
    if (!m_acknowledgements.Record(acknowledgement.messageid(), session->Id())) {
        if (auto const line = m_acknowledgements.RefusalLine(
                acknowledgement.messageid(), session->Id(), Acknowledgements::Clock::now())) {
            Log().Log(DPrint::Warning, "%s", line->c_str());
        }
        return;
    }
    if (m_push) {
        m_push->Acknowledged(acknowledgement.messageid(), session->Id());
        EndFinishedPush();
    }
    Log().Log(DPrint::Info, "update %d acknowledged by session %llu", acknowledgement.messageid(),
              static_cast<unsigned long long>(session->Id()));
}

void VellmarkService::Answer(IPCRequest const& request, google::protobuf::Message const& reply) {
    Answer(request, EnvelopeOf(reply));
}

void VellmarkService::Answer(IPCRequest const& request, IPCMessageEnvelope const& envelope) {
    auto const send = [this](IPCRequest const& request, IPCMessageEnvelope const& envelope) {
        m_monitor.Send(request.session->Id(), "response", request.id, request.number, envelope,
                       [&] { return request.Respond(envelope); });
    };
    // Undelayed, the answer leaves at once, without copies of the request and the answer.
    if (m_faults.DelayOf(request.id).count() == 0) return send(request, envelope);
    AfterDelayOf(request.id, [send, request, envelope] { send(request, envelope); });
}

IPCMessageEnvelope const& VellmarkService::QueryAnswer(
    Vellmark::Admin::ResourceInfo const& resource) {
    // Kept while the store stays as it was: a query is answered without reading, parsing
    // and serializing the resource again.
    auto& kept = m_queryAnswers[&resource];
    if (!kept.envelope || kept.generation != m_store.Generation()) {
        kept.envelope = EnvelopeOf(*m_catalog.Read(resource));
        kept.generation = m_store.Generation();
    }
    return *kept.envelope;
}

void VellmarkService::NotifyRequester(IPCRequest const& request, unsigned int id,
                                      google::protobuf::Message const& message) {
    auto const envelope = EnvelopeOf(message);
    auto send = [this, session = request.session, id, envelope] { Notify(session, id, envelope); };
    AfterDelayOf(request.id, std::move(send));
}

void VellmarkService::AfterDelayOf(unsigned int id, std::function<void()> send) {
    auto const delay = m_faults.DelayOf(id);
    if (delay.count() > 0) {
        m_delayed->RunAfter(delay, std::move(send));
    } else {
        send();
    }
}

void VellmarkService::Broadcast(Changes const& changed) {
    for (auto const& name : changed) {
        auto const* resource = Vellmark::Admin::FindResource(name);
        if (!resource || resource->updateId == 0) continue;
        auto const& envelope = QueryAnswer(*resource);
        for (auto const& session : Sessions()) Notify(session, resource->updateId, envelope);
    }
}

bool VellmarkService::Notify(std::shared_ptr<IPCServerSession> const& session, unsigned int id,
                             IPCMessageEnvelope const& envelope) {
    return m_monitor.Send(session->Id(), "notification", id, 0, envelope,
                          [&] { return session->Notify(id, envelope); });
}

}  // namespace Vellmark::Service
