#include "service/VellmarkService.h"

#include <future>

#include "VellmarkMessageId.pb.h"
#include "VellmarkServiceAccounts.pb.h"
#include "admin/Json.h"
#include "platform/task/BreakThread.h"

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

// The identifier of the Error notification that fails a GVA request, or 0.
unsigned int GVAErrorId(unsigned int id) {
    switch (id) {
        case VellmarkPB::VELLMARK_MESSAGE_GVA_CREATE:
            return VellmarkPB::VELLMARK_MESSAGE_GVA_CREATE_ERROR;
        case VellmarkPB::VELLMARK_MESSAGE_GVA_DELETE:
            return VellmarkPB::VELLMARK_MESSAGE_GVA_DELETE_ERROR;
        case VellmarkPB::VELLMARK_MESSAGE_GVA_UPDATE_DEVICE_ID:
            return VellmarkPB::VELLMARK_MESSAGE_GVA_UPDATE_ERROR;
        default:
            return 0;
    }
}

bool IsServiceAccountOperation(unsigned int id) {
    return id == VellmarkPB::VELLMARK_MESSAGE_CREATE_SERVICE_ACCOUNT ||
           id == VellmarkPB::VELLMARK_MESSAGE_UPDATE_SERVICE_ACCOUNT ||
           id == VellmarkPB::VELLMARK_MESSAGE_DELETE_SERVICE_ACCOUNT;
}

// Decodes the request's payload as `message`: false when its type name is another one or
// its bytes do not parse.
bool Decode(IPCRequest const& request, google::protobuf::Message& message) {
    auto const& envelope = request.envelope;
    if (envelope.has_payload_type_name() &&
        envelope.payload_type_name() != message.GetDescriptor()->name()) {
        return false;
    }
    return envelope.GetPayload(message);
}

IPCMessageEnvelope EnvelopeOf(google::protobuf::Message const& message) {
    IPCMessageEnvelope envelope;
    envelope.SetPayload(message);
    return envelope;
}

}  // namespace

DPrint& VellmarkService::Log() {
    static DPrint log("vellmarkd");
    return log;
}

VellmarkService::VellmarkService(std::string const& dbPath,
                                 std::optional<Vellmark::Admin::StoreDocument> seed,
                                 Settings settings)
    : m_maxFrameBytes(IPCFrameLimit::MaxFrameBytes()),
      m_store(dbPath, settings.store),
      m_catalog(m_store, m_maxFrameBytes),
      m_task("vellmarkd") {
    if (auto const mode = m_store.TightenedFrom()) {
        Log().Log(DPrint::Warning,
                  "the store %s was readable by group or others (mode %03o); made it private "
                  "to its owner",
                  dbPath.c_str(), *mode);
    }
    if (seed) {
        Changes changed;
        m_catalog.Seed(*seed, changed);
    }
    // What the store holds must be sendable: written with a larger frame limit, it is not.
    m_catalog.CheckEveryResourceFits();
    m_delayed = std::make_unique<DelayedRunner>();

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
    if (m_task.RunsOnCurrentThread()) return HandleRequest(request);
    Post([this, request] { HandleRequest(request); });
}

void VellmarkService::ReceiveOneWay(std::shared_ptr<IPCServerSession> const& session,
                                    unsigned int id, IPCMessageEnvelope const& envelope) {
    m_monitor.Received(session->Id(), "one-way", id, 0, envelope);
    if (m_task.RunsOnCurrentThread()) return HandleOneWay(session, id, envelope);
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

template <class Work>
void VellmarkService::OnTask(Work&& work) {
    if (m_task.RunsOnCurrentThread()) {
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
    if (ApplyFault(request)) return;
    try {
        if (auto const* resource = Vellmark::Admin::ResourceOfQuery(request.id)) {
            HandleQuery(request, *resource);
        } else if (request.id == VellmarkPB::VELLMARK_MESSAGE_STORE_PRESETS) {
            HandleStorePresets(request);
        } else if (IsServiceAccountOperation(request.id)) {
            HandleServiceAccount(request);
        } else if (GVAErrorId(request.id) != 0) {
            HandleGVA(request);
        } else {
            RefuseUnknown(request);
        }
    } catch (StoreError const& error) {
        Log().Log(DPrint::Error, "request %u failed: %s", request.id, error.what());
        Fail(request, InternalError(request.id, "the service's store failed: " + error.Reason()));
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

bool VellmarkService::ApplyFault(IPCRequest const& request) {
    auto failure = m_faults.Take(request.id);
    if (!failure) return false;
    if (!failure->error) {
        Log().Log(DPrint::Flow, "request %u left unanswered, as asked", request.id);
        return true;
    }
    VellmarkPB::Error error = *failure->error;
    if (!error.has_messageid()) error.set_messageid(static_cast<MessageId>(request.id));
    Log().Log(DPrint::Flow, "request %u failed, as asked", request.id);
    Fail(request, error);
    return true;
}

void VellmarkService::Fail(IPCRequest const& request, VellmarkPB::Error const& error) {
    if (IsServiceAccountOperation(request.id)) {
        VellmarkPB::VellmarkAcctOpEnvelope reply;
        reply.set_success(false);
        *reply.mutable_error() = error;
        Answer(request, reply);
    } else if (unsigned int const errorId = GVAErrorId(request.id)) {
        NotifyRequester(request, errorId, error);
    }
    // Queries and preset storage have no error path: the client hears nothing.
}

void VellmarkService::HandleQuery(IPCRequest const& request,
                                  Vellmark::Admin::ResourceInfo const& resource) {
    // The request's content does not matter: the identifier names the resource.
    Answer(request, QueryAnswer(resource));
}

void VellmarkService::HandleStorePresets(IPCRequest const& request) {
    VellmarkPB::VellmarkPresets presets;
    if (!Decode(request, presets)) {
        Log().Log(DPrint::Warning, "presets to store do not parse; the stored ones are answered");
        presets.Clear();
    }
    Changes changed;
    auto const outcome = m_catalog.StorePresets(presets, changed);
    if (auto const* refusal = std::get_if<VellmarkPB::Error>(&outcome)) {
        // The operation has no error path: the answer is the stored list, unchanged.
        Log().Log(DPrint::Warning, "presets refused: %s", refusal->message().c_str());
        Answer(request, *m_catalog.Read(*Vellmark::Admin::FindResource("presets")));
        return;
    }
    Answer(request, std::get<VellmarkPB::VellmarkPresets>(outcome));
    Broadcast(changed);
}

void VellmarkService::HandleServiceAccount(IPCRequest const& request) {
    Changes changed;
    VellmarkPB::VellmarkAcctOpEnvelope reply;
    auto const refusal = [&request] {
        return Refusal(static_cast<MessageId>(request.id), VellmarkPB::CODE_INVALID_INPUT,
                       "the request does not parse");
    };
    if (request.id == VellmarkPB::VELLMARK_MESSAGE_DELETE_SERVICE_ACCOUNT) {
        VellmarkPB::VellmarkDeleteSrvcAccount deletion;
        if (!Decode(request, deletion)) return Fail(request, refusal());
        reply = m_catalog.DeleteServiceAccount(deletion, changed);
    } else {
        VellmarkPB::serviceAccounts account;
        if (!Decode(request, account)) return Fail(request, refusal());
        reply = request.id == VellmarkPB::VELLMARK_MESSAGE_CREATE_SERVICE_ACCOUNT
                    ? m_catalog.CreateServiceAccount(account, changed)
                    : m_catalog.UpdateServiceAccount(account, changed);
    }
    if (!reply.success()) {
        Log().Log(DPrint::Flow, "request %u refused: %s", request.id,
                  reply.error().message().c_str());
    }
    Answer(request, reply);
    Broadcast(changed);
}

void VellmarkService::HandleGVA(IPCRequest const& request) {
    Changes changed;
    auto const refusal = Refusal(static_cast<MessageId>(request.id), VellmarkPB::CODE_INVALID_INPUT,
                                 "the request does not parse");
    // Sends the success as the reply, a refusal on the identifier's error path.
    auto const conclude = [&](auto const& outcome) {
        if (auto const* error = std::get_if<VellmarkPB::Error>(&outcome)) {
            Log().Log(DPrint::Flow, "request %u refused: %s", request.id, error->message().c_str());
            Fail(request, *error);
        } else {
            Answer(request, std::get<0>(outcome));
        }
    };
    if (request.id == VellmarkPB::VELLMARK_MESSAGE_GVA_DELETE) {
        VellmarkPB::VellmarkDeleteGVA deletion;
        if (!Decode(request, deletion)) return Fail(request, refusal);
        conclude(m_catalog.DeleteGVAAccount(deletion, changed));
    } else {
        VellmarkPB::serviceAccounts account;
        if (!Decode(request, account)) return Fail(request, refusal);
        conclude(request.id == VellmarkPB::VELLMARK_MESSAGE_GVA_CREATE
                     ? m_catalog.CreateGVAAccount(account, changed)
                     : m_catalog.UpdateGVAAssistantDeviceId(account, changed));
    }
    Broadcast(changed);
}

void VellmarkService::HandleOneWay(std::shared_ptr<IPCServerSession> const& session,
                                   unsigned int id, IPCMessageEnvelope const& envelope) {
    VellmarkPB::CloudSyncReceived acknowledgement;
    if (id != VellmarkPB::VELLMARK_MESSAGE_CLOUDSYNC_RECEIVED ||
        (envelope.has_payload_type_name() &&
         envelope.payload_type_name() != acknowledgement.GetDescriptor()->name()) ||
        !envelope.GetPayload(acknowledgement)) {
        Log().Log(DPrint::Warning, "one-way message %u from session %llu ignored", id,
                  static_cast<unsigned long long>(session->Id()));
        return;
    }
    m_acknowledgements.Record(acknowledgement.messageid(), session->Id());
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
        for (auto const& session : m_server->Sessions())
            Notify(session, resource->updateId, envelope);
    }
}

bool VellmarkService::Notify(std::shared_ptr<IPCServerSession> const& session, unsigned int id,
                             IPCMessageEnvelope const& envelope) {
    return m_monitor.Send(session->Id(), "notification", id, 0, envelope,
                          [&] { return session->Notify(id, envelope); });
}

}  // namespace Vellmark::Service
