// The admin endpoint of VellmarkService: how vellmarkctl plays the cloud.
#include <algorithm>

#include "VellmarkMessageId.pb.h"
#include "admin/Json.h"
#include "admin/MessageTable.h"
#include "admin/Sensitivity.h"
#include "service/VellmarkService.h"

namespace Vellmark::Service {

namespace {

char const kServiceAccounts[] = "service-accounts";

Vellmark::Admin::Reply Ok(std::string json = {}) {
    Vellmark::Admin::Reply reply;
    reply.set_ok(true);
    if (!json.empty()) reply.set_json(std::move(json));
    return reply;
}

Vellmark::Admin::Reply Refused(std::string const& why) {
    Vellmark::Admin::Reply reply;
    reply.set_ok(false);
    reply.set_error(why);
    return reply;
}

// A document read back from masked output would put the masks in place of the secrets for
// good: refused, whichever tool sends it.
std::optional<Vellmark::Admin::Reply> RefusedIfMasked(google::protobuf::Message const& document) {
    auto const masked = Vellmark::Admin::FindMaskedValue(document);
    if (!masked) return std::nullopt;
    return Refused(Vellmark::Admin::DescribeMaskedValue(*masked) + "; nothing was stored");
}

// The reply to a write of the Catalog's: its refusal, or `done`.
Vellmark::Admin::Reply ReplyTo(Outcome<Written> const& outcome, Vellmark::Admin::Reply done) {
    if (auto const* refusal = std::get_if<VellmarkPB::Error>(&outcome)) {
        return Refused(refusal->message());
    }
    return done;
}

}  // namespace

void VellmarkService::HandleAdmin(IPCRequest const& request) {
    Vellmark::Admin::Request command;
    if ((request.envelope.has_payload_type_name() &&
         request.envelope.payload_type_name() != command.GetDescriptor()->name()) ||
        !request.envelope.GetPayload(command)) {
        return RespondAdmin(request, Refused("not an admin request"), m_maxFrameBytes);
    }
    // Replies are cut to fit the smaller of the two ends' frames.
    std::size_t limit = m_maxFrameBytes;
    if (command.maxframebytes() > 0) {
        limit = std::clamp<std::size_t>(command.maxframebytes(), IPCFrameLimit::kMinFrameBytes,
                                        m_maxFrameBytes);
    }
    auto step = m_adminSlices.Receive(request.session->Id(), command);
    // A slice, or its acknowledgement: cut already, it goes as it is.
    if (!step.run) return SendAdmin(request, step.reply);
    // The one place where a failing store ends an admin command.
    try {
        if (step.run->has_push()) return StartPush(*step.run, request, limit);
        RespondAdmin(request, RunAdmin(*step.run, request.session), limit);
    } catch (StoreError const& error) {
        Log().Log(DPrint::Error, "admin request failed: %s", error.what());
        RespondAdmin(request, Refused("the service's store failed: " + error.Reason()), limit);
    }
}

void VellmarkService::RespondAdmin(IPCRequest const& request, Vellmark::Admin::Reply const& reply,
                                   std::size_t limit) {
    SendAdmin(request, m_adminSlices.Send(request.session->Id(), reply, limit));
}

void VellmarkService::SendAdmin(IPCRequest const& request, Vellmark::Admin::Reply const& reply) {
    IPCMessageEnvelope envelope;
    envelope.SetPayload(reply);
    request.Respond(envelope);
}

void VellmarkService::StartPush(Vellmark::Admin::Request const& command, IPCRequest const& request,
                                std::size_t limit) {
    auto const& push = command.push();
    auto const* resource = Vellmark::Admin::FindResource(push.resource());
    if (!resource || resource->updateId == 0) {
        return RespondAdmin(
            request, Refused("no resource with updates called \"" + push.resource() + "\""), limit);
    }
    // A push ends when every client has acknowledged it, and clients never acknowledge
    // the association's updates: such a push would never end.
    if (resource->updateId == VellmarkPB::VELLMARK_MESSAGE_ACCOUNT_ASSOCIATED_UPDATE) {
        return RespondAdmin(
            request, Refused("clients do not acknowledge " + push.resource() + " updates"), limit);
    }
    if (m_push) m_push->Abandon();  // its requester hears so; this one takes over
    IPCMessageEnvelope const update = QueryAnswer(*resource);
    Vellmark::Admin::PushReport identity;
    identity.set_resource(resource->name);
    identity.set_messageid(resource->updateId);
    unsigned int const id = resource->updateId;
    auto send = [this, id, update](std::shared_ptr<IPCServerSession> const& session) {
        return Notify(session, id, update);
    };
    auto done = [this, request, limit, pretty = command.pretty()](
                    Vellmark::Admin::PushReport const& report, bool abandoned) {
        Log().Log(DPrint::Flow, "push of %s %s: %llu updates to %llu clients, %llu acknowledged",
                  report.resource().c_str(), abandoned ? "abandoned" : "done",
                  static_cast<unsigned long long>(report.pushed()),
                  static_cast<unsigned long long>(report.clients()),
                  static_cast<unsigned long long>(report.acknowledged()));
        RespondAdmin(request,
                     abandoned ? Refused("push abandoned: another push started")
                               : Ok(Vellmark::Json::Print(report, pretty)),
                     limit);
    };
    m_push = std::make_unique<UpdatePush>(identity, push.has_count() ? push.count() : 1000,
                                          push.has_window() ? push.window() : 64, send, done);
    // In turns, each behind the requests read meanwhile.
    m_push->SpreadOver([this](std::function<void()> work) {
        Post([this, work] {
            work();
            EndFinishedPush();
        });
    });
    auto const sessions = Sessions();
    Log().Log(DPrint::Flow, "pushing %s to %zu clients", resource->name, sessions.size());
    m_push->Start(sessions);
    EndFinishedPush();
}

void VellmarkService::EndFinishedPush() {
    if (m_push && m_push->Finished()) m_push.reset();
}

Vellmark::Admin::Reply VellmarkService::RunAdmin(Vellmark::Admin::Request const& command,
                                                 std::shared_ptr<IPCServerSession> const& session) {
    bool const pretty = command.pretty();
    switch (command.command_case()) {
        case Vellmark::Admin::Request::kPut:
            return Put(command.put());
        case Vellmark::Admin::Request::kGet:
            return Get(command.get(), pretty);
        case Vellmark::Admin::Request::kListClients:
            return Ok(Vellmark::Json::Print(Clients(), pretty));
        case Vellmark::Admin::Request::kListAcknowledgements:
            return Ok(Vellmark::Json::Print(m_acknowledgements.Report(), pretty));
        case Vellmark::Admin::Request::kFailNext:
            return FailNext(command.failnext());
        case Vellmark::Admin::Request::kDelay:
            m_faults.SetDelay(std::chrono::milliseconds(command.delay().milliseconds()),
                              command.delay().messageid());
            Log().Log(DPrint::Flow, "replies %s delayed by %u ms",
                      command.delay().messageid() ? "of one identifier" : "all",
                      command.delay().milliseconds());
            return Ok();
        case Vellmark::Admin::Request::kDropConnections:
            return Ok("{\"dropped\":" + std::to_string(DropConnections()) + "}");
        case Vellmark::Admin::Request::kExportStore:
            return Ok(Vellmark::Json::Print(m_catalog.Export(), pretty));
        case Vellmark::Admin::Request::kSeed:
            return Seed(command.seed());
        case Vellmark::Admin::Request::kMonitor:
            m_monitor.Add(session);
            return Ok();
        case Vellmark::Admin::Request::kPush:  // answered later, by StartPush
        case Vellmark::Admin::Request::kPart:
        case Vellmark::Admin::Request::kNextPart:
        case Vellmark::Admin::Request::COMMAND_NOT_SET:
            break;
    }
    return Refused("an admin request without a command");
}

Vellmark::Admin::Reply VellmarkService::Put(Vellmark::Admin::Put const& put) {
    if (put.resource() == kServiceAccounts) {
        Vellmark::Admin::ServiceAccountList accounts;
        std::string const problem = Vellmark::Json::Parse(put.json(), accounts);
        if (!problem.empty()) return Refused(problem);
        if (auto refused = RefusedIfMasked(accounts)) return *refused;
        auto const outcome = m_catalog.PutAccounts(accounts);
        if (std::holds_alternative<Written>(outcome)) {
            Log().Log(DPrint::Flow, "service accounts replaced (%d)",
                      accounts.serviceaccounts_size());
        }
        return ReplyTo(outcome, Ok());
    }
    auto const* resource = Vellmark::Admin::FindResource(put.resource());
    if (!resource) return Refused("no resource \"" + put.resource() + "\"");
    std::unique_ptr<google::protobuf::Message> value(
        google::protobuf::MessageFactory::generated_factory()->GetPrototype(resource->type)->New());
    std::string const problem = Vellmark::Json::Parse(put.json(), *value);
    if (!problem.empty()) return Refused(problem);
    if (auto refused = RefusedIfMasked(*value)) return *refused;
    Changes changed;
    auto const outcome = m_catalog.Put(*resource, *value, changed);
    if (std::holds_alternative<Written>(outcome)) {
        Log().Log(DPrint::Flow, "%s replaced", resource->name);
        Broadcast(changed);
    }
    return ReplyTo(outcome, Ok());
}

Vellmark::Admin::Reply VellmarkService::Get(Vellmark::Admin::Get const& get, bool pretty) {
    if (get.resource() == kServiceAccounts) {
        return Ok(Vellmark::Json::Print(m_catalog.Accounts(), pretty));
    }
    auto const* resource = Vellmark::Admin::FindResource(get.resource());
    if (!resource) return Refused("no resource \"" + get.resource() + "\"");
    std::string json = Vellmark::Json::Print(*m_catalog.Read(*resource), pretty);
    return Ok(json.empty() ? "{}" : json);
}

Vellmark::Admin::Reply VellmarkService::FailNext(Vellmark::Admin::FailNext const& failNext) {
    unsigned int const id = failNext.messageid();
    auto const* message = Vellmark::Admin::FindMessage(id);
    if (!message || message->role != Vellmark::Admin::MessageRole::Request) {
        return Refused("identifier " + std::to_string(id) + " is not a request of the service");
    }
    if (failNext.has_error() && !message->errorInReply && message->errorId == 0) {
        return Refused("requests under " + std::to_string(id) +
                       " have no error reply; make them go unanswered instead");
    }
    std::optional<VellmarkPB::Error> error;
    if (failNext.has_error()) error = failNext.error();
    m_faults.FailNext(id, failNext.count(), error);
    Log().Log(DPrint::Flow, "the next %u requests %u %s", failNext.count(), id,
              error ? "fail" : "go unanswered");
    return Ok();
}

Vellmark::Admin::Reply VellmarkService::Seed(Vellmark::Admin::Seed const& seed) {
    Vellmark::Admin::StoreDocument document;
    std::string const problem = Vellmark::Json::Parse(seed.json(), document);
    if (!problem.empty()) return Refused(problem);
    if (auto refused = RefusedIfMasked(document)) return *refused;
    Changes changed;
    auto const outcome = m_catalog.Seed(document, changed);
    if (std::holds_alternative<Written>(outcome)) {
        Log().Log(DPrint::Flow, "store seeded");
        Broadcast(changed);
    }
    return ReplyTo(outcome, Ok());
}

Vellmark::Admin::ClientList VellmarkService::Clients() const {
    Vellmark::Admin::ClientList list;
    for (auto const& [id, client] : m_clients) {
        auto const session = client.session.lock();
        if (!session) continue;
        auto const peer = session->Peer();
        auto* entry = list.add_clients();
        entry->set_session(id);
        entry->set_pid(static_cast<std::int32_t>(peer.pid));
        entry->set_uid(static_cast<std::uint32_t>(peer.uid));
        entry->set_connectedat(client.connectedAt);
        entry->set_requests(client.requests);
    }
    // Without endpoints (the fuzzers' core) there are no users and no limits to show.
    if (!m_server) return list;
    for (auto const& user : m_server->Users()) {
        auto* entry = list.add_users();
        entry->set_uid(static_cast<std::uint32_t>(user.uid));
        entry->set_connections(user.connections);
        entry->set_refused(user.refused);
    }
    auto const& limits = m_server->ClientLimits();
    auto* shown = list.mutable_limits();
    shown->set_connectionsperuser(limits.connectionsPerUser.max);
    shown->set_connections(limits.connections.max);
    shown->set_pendingrequests(limits.pendingRequests.max);
    shown->set_incomingbytes(limits.incomingBytes.max);
    shown->set_outgoingbytes(limits.outgoingBytes.max);
    return list;
}

std::size_t VellmarkService::DropConnections() {
    // A client whose connection waits in the backlog counts itself connected: it is
    // dropped too, as a restart would.
    if (m_server) m_server->AcceptWaiting();
    auto const sessions = Sessions();
    for (auto const& session : sessions) session->Close();
    Log().Log(DPrint::Flow, "dropped %zu connections", sessions.size());
    return sessions.size();
}

}  // namespace Vellmark::Service
