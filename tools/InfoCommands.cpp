// Commands that tell about the schema and need no service.
#include <memory>
#include <string>

#include "VellmarkAdmin.pb.h"
#include "VellmarkMessageId.pb.h"
#include "admin/AdminProtocol.h"
#include "admin/MessageTable.h"
#include "tools/Commands.h"
#include "tools/MessageDescription.h"

namespace Vellmark::Ctl {
namespace {

std::string Name(unsigned int id) {
    return VellmarkPB::MessageId_Name(static_cast<VellmarkPB::MessageId>(id));
}

// One identifier as a JSON object, its fields in a fixed order. Every text in it is a
// schema name, which needs no escaping.
std::string RowOf(Vellmark::Admin::MessageInfo const& info) {
    std::string row = "{\"id\":" + std::to_string(info.id) + ",\"name\":\"" + Name(info.id) +
                      "\",\"role\":\"" + Vellmark::Admin::RoleName(info.role) + "\"";
    // Payload types as frames name them (and `monitor` prints them): the short name.
    if (info.request) row += ",\"request\":\"" + info.request->name() + "\"";
    if (info.reply) row += ",\"reply\":\"" + info.reply->name() + "\"";
    bool const hasErrorReply = info.errorInReply || info.errorId != 0;
    row += std::string(",\"hasErrorReply\":") + (hasErrorReply ? "true" : "false");
    if (hasErrorReply) {
        row += ",\"errorIn\":\"" + (info.errorInReply ? std::string("reply") : Name(info.errorId)) +
               "\"";
    }
    return row + "}";
}

struct DescribeArgs {
    std::string what;
    bool makeTemplate = false;
};

// describe: a message type, an identifier's request and reply, or a resource's type.
int Describe(Settings const& settings, DescribeArgs const& args) {
    google::protobuf::Descriptor const* type = FindMessageType(args.what);
    if (auto const* resource = Vellmark::Admin::FindResource(args.what)) type = resource->type;
    if (args.what == "service-accounts") type = Vellmark::Admin::ServiceAccountList::descriptor();
    if (type) {
        PrintText(args.makeTemplate ? TemplateOf(type, settings.pretty)
                                    : DescribeType(type, settings.pretty));
        return kOk;
    }
    unsigned int id = 0;
    try {
        id = ParseMessageId(args.what);
    } catch (BadInput const&) {
        throw BadInput("\"" + args.what +
                       "\" is neither a message type (such as serviceAccounts or "
                       "VellmarkPB.serviceAccounts), nor a message identifier (`vellmarkctl "
                       "ids`), nor a resource (" +
                       Vellmark::Admin::ResourceNames(false) + ")");
    }
    auto const* info = Vellmark::Admin::FindMessage(id);
    if (!args.makeTemplate) {
        PrintText(DescribeMessage(*info, settings.pretty));
        return kOk;
    }
    std::string const document = RequestTemplateOf(*info, settings.pretty);
    if (document.empty()) {
        throw BadInput(Vellmark::Admin::MessageName(id) + " has the role \"" +
                       Vellmark::Admin::RoleName(info->role) +
                       "\": nothing is sent under it, so there is no request to fill");
    }
    PrintText(document);
    return kOk;
}

}  // namespace

void AddInfoCommands(CLI::App& app, Settings& settings, Run& run) {
    app.add_subcommand("ids",
                       "list every message identifier: its number, name, role (request, "
                       "update, error notification, one-way, reserved), the payload types of "
                       "its request and reply, and whether a refusal has a way back (errorIn: "
                       "the reply itself, or the Error notification's identifier)")
        ->callback([&settings, &run] {
            run = [&settings] {
                // One identifier a line; --pretty indents them.
                std::string const indent = settings.pretty ? "\n  " : "";
                std::string text = "{\"messageIds\":[";
                bool first = true;
                for (auto const& info : Vellmark::Admin::MessageTable()) {
                    text += (first ? "" : ",") + indent + RowOf(info);
                    first = false;
                }
                PrintText(text + (settings.pretty ? "\n]}" : "]}"));
                return kOk;
            };
        });

    auto* describe = app.add_subcommand(
        "describe",
        "print the fields of a message type (name, JSON name, number, label, type, enum "
        "values, default, sensitivity and whether tools mask it) and of every type inside "
        "it; for an identifier, those of its request and reply; for a resource (as `admin "
        "put` takes it), those of its type. --template prints a document to fill instead");
    auto args = std::make_shared<DescribeArgs>();
    describe
        ->add_option("what", args->what,
                     "a message type (serviceAccounts, VellmarkPB.serviceAccounts, "
                     "StoreDocument), an identifier (number or name), or a resource")
        ->type_name(kDescribedType)
        ->required();
    describe->add_flag("--template", args->makeTemplate,
                       "print a JSON document with every field, to fill in: for an identifier "
                       "the input of `vellmarkctl call`, for a resource that of `admin put`");
    describe->callback(
        [&settings, &run, args] { run = [&settings, args] { return Describe(settings, *args); }; });
}

}  // namespace Vellmark::Ctl
