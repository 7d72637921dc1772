// vellmarkctl call: any request of the product's endpoint, its payload a JSON document of
// the identifier's request type, as busctl call and grpcurl send any method. The
// identifier table (admin/MessageTable.h) says what to send and what comes back.
#include <iostream>
#include <memory>

#include "VellmarkAcctOpEnvelope.pb.h"
#include "admin/AdminProtocol.h"
#include "admin/MessageTable.h"
#include "platform/ipc/IPCDirectory.h"
#include "tools/Commands.h"
#include "tools/ProductCall.h"
#include "tools/RequestChecks.h"
#include "tools/ServiceProbe.h"
#include "tools/ServiceWait.h"

namespace Vellmark::Ctl {
namespace {

using Admin::MessageInfo;
using Admin::MessageRole;
using Ending = ProductCall::Ending;

struct CallArgs {
    std::string id;
    std::string file;
};

std::unique_ptr<google::protobuf::Message> New(google::protobuf::Descriptor const* type) {
    return std::unique_ptr<google::protobuf::Message>(
        google::protobuf::MessageFactory::generated_factory()->GetPrototype(type)->New());
}

// The identifier's row, when something may be sent under it.
MessageInfo const& Callable(std::string const& text) {
    unsigned int const id = ParseMessageId(text);
    MessageInfo const* info = Admin::FindMessage(id);
    if (!info || (info->role != MessageRole::Request && info->role != MessageRole::OneWay)) {
        throw BadInput(Admin::MessageName(id) + " has the role \"" +
                       (info ? Admin::RoleName(info->role) : "unknown") +
                       "\": nothing is sent under it (`vellmarkctl ids` lists the requests)");
    }
    return *info;
}

// Prints what ended the call and returns the exit code.
int Show(Ending const& ending, MessageInfo const& info, Settings const& settings) {
    VellmarkPB::Error error;
    if (ending.kind == Ending::Kind::Error) {
        ending.envelope.GetPayload(error);
        PrintRefusal(error);
        return kRefused;
    }
    auto const& envelope = ending.envelope;
    std::string const expected = info.reply->name();
    if (envelope.has_payload_type_name() && envelope.payload_type_name() != expected) {
        // The service answers a request it does not serve with an Error.
        if (envelope.payload_type_name() == VellmarkPB::Error::descriptor()->name() &&
            envelope.GetPayload(error)) {
            PrintRefusal(error);
            return kRefused;
        }
        std::cerr << "vellmarkctl: vellmarkd answered with a " << envelope.payload_type_name()
                  << ", not a " << expected << "\n";
        return kRefused;
    }
    auto reply = New(info.reply);
    if (!envelope.GetPayload(*reply)) {
        std::cerr << "vellmarkctl: vellmarkd's answer is not a " << expected << "\n";
        return kRefused;
    }
    // An operation whose refusal travels in its reply.
    if (auto const* result = dynamic_cast<VellmarkPB::VellmarkAcctOpEnvelope const*>(reply.get());
        result && info.errorInReply && !result->success()) {
        PrintRefusal(result->error());
        return kRefused;
    }
    PrintJson(*reply, settings);
    return kOk;
}

int Call(Settings const& settings, CallArgs const& args) {
    MessageInfo const& info = Callable(args.id);
    auto payload = New(info.request);
    std::optional<Document> document;
    if (!args.file.empty()) document = LoadDocument(args.file, *payload, RequestDocumentBytes());
    CheckRequest(info.id, *payload, document ? &*document : nullptr);
    IPCMessageEnvelope envelope;
    envelope.SetPayload(*payload);

    std::string const path = IPCDirectory::Get().Lookup(Admin::kServiceEndpoint)->Path();
    if (auto const code = AwaitService(path, settings)) return *code;
    ServiceProbe probe(path, "--allow-user and --allow-group");
    if (probe.Found()) return Report(*probe.Found());
    probe.Watch([] {});

    std::optional<std::chrono::steady_clock::time_point> deadline;
    if (settings.Timeout().count() > 0) {
        deadline = std::chrono::steady_clock::now() + settings.Timeout();
    }
    bool const query = Admin::ResourceOfQuery(info.id) != nullptr;
    bool const oneWay = info.role == MessageRole::OneWay;
    ProductCall call;
    Ending ending = call.Send(info.id, envelope, oneWay, info.errorId, deadline);
    // A query asks again once; what changes the store is not sent twice (see `get`).
    if (ending.kind == Ending::Kind::Ended && query && AcceptsConnections(path)) {
        std::cerr << "vellmarkctl: the connection to vellmarkd at " << path
                  << " ended before the answer; asking again once it is back" << std::endl;
        ending = call.Send(info.id, envelope, oneWay, info.errorId, deadline);
    }
    switch (ending.kind) {
        case Ending::Kind::Reply:
        case Ending::Kind::Error:
            return Show(ending, info, settings);
        case Ending::Kind::Sent:
            return kOk;
        case Ending::Kind::NotSent:
            std::cerr << "vellmarkctl: the transport did not send the request\n";
            return kBadInput;
        case Ending::Kind::Ended:
            if (auto const refused = probe.AwaitVerdict(settings.Timeout())) {
                return Report(*refused);
            }
            std::cerr << "vellmarkctl: the connection to vellmarkd at " << path
                      << " ended before the answer"
                      << (query ? ""
                                : "; whether the service carried out the request is not "
                                  "known (a request in flight when a connection ends is "
                                  "never answered)")
                      << "\n";
            return kNoAnswer;
        case Ending::Kind::NoAnswer:
            break;
    }
    if (auto const refused = probe.Verdict()) return Report(*refused);
    std::cerr << "vellmarkctl: no answer from the Vellmark service within "
              << settings.timeoutSeconds << " s (socket " << path << ")\n";
    return kNoAnswer;
}

}  // namespace

void AddCallCommand(CLI::App& app, Settings& settings, Run& run) {
    auto* call = app.add_subcommand(
        "call",
        "send any request of the protocol: ID is a message identifier (number or name; "
        "`vellmarkctl ids` lists them), FILE a JSON document of its request type (- for "
        "standard input; `vellmarkctl describe ID --template` prints one to fill; none: the "
        "request empty, as queries send it). Prints the reply, or the refusal on standard "
        "error (exit 1). A query is asked again once if the connection ends before its "
        "answer; any other request is not sent twice (exit 3)");
    AddShowSecrets(*call, settings);
    auto args = std::make_shared<CallArgs>();
    call->add_option("id", args->id, "the message identifier")
        ->type_name(kMessageIdType)
        ->required();
    call->add_option("file", args->file, "the request's payload as JSON")->type_name(kFileType);
    call->callback(
        [&settings, &run, args] { run = [&settings, args] { return Call(settings, *args); }; });
}

}  // namespace Vellmark::Ctl
