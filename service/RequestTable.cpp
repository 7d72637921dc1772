#include "service/RequestTable.h"

#include <algorithm>

#include "VellmarkServiceAccounts.pb.h"
#include "admin/MessageTable.h"
#include "service/ServiceLog.h"

namespace Vellmark::Service {

using Vellmark::Admin::MessageInfo;
using Vellmark::Admin::ResourceInfo;
using VellmarkPB::MessageId;

namespace {

// Decodes `payload` as `message`: false when its type name is another one or its bytes do
// not parse.
bool Decode(IPCMessageEnvelope const& payload, google::protobuf::Message& message) {
    if (payload.has_payload_type_name() &&
        payload.payload_type_name() != message.GetDescriptor()->name()) {
        return false;
    }
    return payload.GetPayload(message);
}

IPCMessageEnvelope EnvelopeOf(google::protobuf::Message const& message) {
    IPCMessageEnvelope envelope;
    envelope.SetPayload(message);
    return envelope;
}

// A write of the Catalog's, `Operation`: its request and reply types, and a request's run
// of it.
template <auto Operation>
struct CatalogOperation;
template <class Reply, class Request,
          Outcome<Reply> (Catalog::*Operation)(Request const&, Changes&)>
struct CatalogOperation<Operation> {
    using RequestType = Request;
    using ReplyType = Reply;

    static Outcome<IPCMessageEnvelope> Run(Catalog& catalog, MessageId id,
                                           IPCMessageEnvelope const& payload, Changes& changed) {
        Request request;
        if (!Decode(payload, request)) {
            return Refusal(id, VellmarkPB::CODE_INVALID_INPUT, "the request does not parse");
        }
        auto const outcome = (catalog.*Operation)(request, changed);
        if (auto const* refusal = std::get_if<VellmarkPB::Error>(&outcome)) return *refusal;
        return EnvelopeOf(std::get<Reply>(outcome));
    }
};

// The identifier of the Error notification that refuses `id`, as MessageTable has it; 0
// for none.
unsigned int ErrorIdOf(MessageId id) {
    auto const* message = Vellmark::Admin::FindMessage(id);
    return message ? message->errorId : 0;
}

// A write of `Request` answered by `Reply`, carried out by `write`.
template <class Request, class Reply>
RequestRow WriteRow(MessageId id, RefusalRoute route,
                    Outcome<IPCMessageEnvelope> (*write)(Catalog&, MessageId,
                                                         IPCMessageEnvelope const&, Changes&)) {
    RequestRow row{};
    row.id = static_cast<unsigned int>(id);
    row.request = Request::descriptor();
    row.reply = Reply::descriptor();
    row.route = route;
    row.errorId = ErrorIdOf(id);
    row.write = write;
    return row;
}

// A write carried out by the Catalog's `Operation`.
template <auto Operation>
RequestRow Write(MessageId id, RefusalRoute route) {
    using Types = CatalogOperation<Operation>;
    return WriteRow<typename Types::RequestType, typename Types::ReplyType>(id, route, &Types::Run);
}

// The query of `resource`: a request of its type (empty), answered with it.
RequestRow Query(ResourceInfo const& resource) {
    RequestRow row{};
    row.id = resource.queryId;
    row.request = resource.type;
    row.reply = resource.type;
    row.route = RefusalRoute::None;
    row.query = &resource;
    return row;
}

// Storing presets has no error path, so the client is always answered with the presets as
// they are stored: presets that do not parse store nothing new, and a refusal stores
// nothing.
Outcome<IPCMessageEnvelope> StorePresets(Catalog& catalog, MessageId,
                                         IPCMessageEnvelope const& payload, Changes& changed) {
    VellmarkPB::VellmarkPresets presets;
    if (!Decode(payload, presets)) {
        ServiceLog().Log(DPrint::Warning,
                         "presets to store do not parse; the stored ones are answered");
        presets.Clear();
    }
    auto const outcome = catalog.StorePresets(presets, changed);
    if (auto const* refusal = std::get_if<VellmarkPB::Error>(&outcome)) {
        ServiceLog().Log(DPrint::Warning, "presets refused: %s", refusal->message().c_str());
        return EnvelopeOf(*catalog.Read(*Vellmark::Admin::FindResource("presets")));
    }
    return EnvelopeOf(std::get<VellmarkPB::VellmarkPresets>(outcome));
}

std::vector<RequestRow> Rows() {
    using namespace VellmarkPB;
    std::vector<RequestRow> rows;
    // Each resource's query: the identifier alone names the resource.
    for (auto const& resource : Vellmark::Admin::Resources()) {
        if (resource.queryId != 0) rows.push_back(Query(resource));
    }
    rows.push_back(WriteRow<VellmarkPresets, VellmarkPresets>(VELLMARK_MESSAGE_STORE_PRESETS,
                                                              RefusalRoute::None, &StorePresets));
    rows.push_back(Write<&Catalog::CreateServiceAccount>(VELLMARK_MESSAGE_CREATE_SERVICE_ACCOUNT,
                                                         RefusalRoute::InReply));
    rows.push_back(Write<&Catalog::UpdateServiceAccount>(VELLMARK_MESSAGE_UPDATE_SERVICE_ACCOUNT,
                                                         RefusalRoute::InReply));
    rows.push_back(Write<&Catalog::DeleteServiceAccount>(VELLMARK_MESSAGE_DELETE_SERVICE_ACCOUNT,
                                                         RefusalRoute::InReply));
    rows.push_back(
        Write<&Catalog::CreateGVAAccount>(VELLMARK_MESSAGE_GVA_CREATE, RefusalRoute::Notification));
    rows.push_back(
        Write<&Catalog::DeleteGVAAccount>(VELLMARK_MESSAGE_GVA_DELETE, RefusalRoute::Notification));
    rows.push_back(Write<&Catalog::UpdateGVAAssistantDeviceId>(
        VELLMARK_MESSAGE_GVA_UPDATE_DEVICE_ID, RefusalRoute::Notification));
    std::sort(rows.begin(), rows.end(),
              [](RequestRow const& a, RequestRow const& b) { return a.id < b.id; });
    return rows;
}

// The route MessageTable gives a request's error.
RefusalRoute RouteOf(MessageInfo const& message) {
    if (message.errorInReply) return RefusalRoute::InReply;
    if (message.errorId != 0) return RefusalRoute::Notification;
    return RefusalRoute::None;
}

char const* Name(google::protobuf::Descriptor const* type) {
    return type ? type->name().c_str() : "nothing";
}

char const* Name(RefusalRoute route) {
    switch (route) {
        case RefusalRoute::None:
            return "no error path";
        case RefusalRoute::InReply:
            return "the reply";
        case RefusalRoute::Notification:
            return "an Error notification";
    }
    return "?";
}

// Where `row` and its identifier's row of MessageTable disagree.
void Compare(RequestRow const& row, MessageInfo const& message, std::vector<std::string>& found) {
    std::string const id = "request " + std::to_string(row.id) + ": ";
    if (row.request != message.request || row.reply != message.reply) {
        found.push_back(id + "decoded as " + Name(row.request) + " and answered with " +
                        Name(row.reply) + ", where MessageTable has " + Name(message.request) +
                        " and " + Name(message.reply));
    }
    if (row.route != RouteOf(message) || row.errorId != message.errorId) {
        found.push_back(id + "refused through " + Name(row.route) + " under " +
                        std::to_string(row.errorId) + ", where MessageTable has " +
                        Name(RouteOf(message)) + " under " + std::to_string(message.errorId));
    }
    if (row.route == RefusalRoute::InReply &&
        row.reply != VellmarkPB::VellmarkAcctOpEnvelope::descriptor()) {
        found.push_back(id + "refused in a reply that cannot carry an Error");
    }
    if ((row.query == nullptr) == (row.write == nullptr)) {
        found.push_back(id + "needs either a resource to answer or a write");
    } else if (row.query && row.query->queryId != row.id) {
        found.push_back(id + "answers " + row.query->name + ", whose query is another");
    }
}

}  // namespace

std::vector<RequestRow> const& RequestTable() {
    static std::vector<RequestRow> const rows = Rows();
    return rows;
}

RequestRow const* FindRequest(unsigned int id) {
    // By identifier: the identifiers are small numbers, and a query's lookup is on the
    // path of every query.
    static std::vector<RequestRow const*> const byId = [] {
        std::vector<RequestRow const*> index;
        for (auto const& row : RequestTable()) {
            if (row.id >= index.size()) index.resize(row.id + 1, nullptr);
            index[row.id] = &row;
        }
        return index;
    }();
    return id < byId.size() ? byId[id] : nullptr;
}

std::vector<std::string> Disagreements(std::vector<RequestRow> const& rows) {
    using Vellmark::Admin::MessageRole;
    std::vector<std::string> found;
    for (auto const& row : rows) {
        auto const* message = Vellmark::Admin::FindMessage(row.id);
        if (!message || message->role != MessageRole::Request) {
            found.push_back("request " + std::to_string(row.id) +
                            ": MessageTable has no request under this identifier");
            continue;
        }
        Compare(row, *message, found);
    }
    for (auto const& message : Vellmark::Admin::MessageTable()) {
        if (message.role != MessageRole::Request) continue;
        auto const count = std::count_if(
            rows.begin(), rows.end(), [&](RequestRow const& row) { return row.id == message.id; });
        if (count != 1) {
            found.push_back("request " + std::to_string(message.id) + ": " + std::to_string(count) +
                            " rows where MessageTable has one request");
        }
    }
    return found;
}

}  // namespace Vellmark::Service
