// Commands that tell about the schema and need no service.
#include <string>

#include "VellmarkMessageId.pb.h"
#include "admin/MessageTable.h"
#include "tools/Commands.h"

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
    if (info.request) row += ",\"request\":\"" + info.request->full_name() + "\"";
    if (info.reply) row += ",\"reply\":\"" + info.reply->full_name() + "\"";
    bool const hasErrorReply = info.errorInReply || info.errorId != 0;
    row += std::string(",\"hasErrorReply\":") + (hasErrorReply ? "true" : "false");
    if (hasErrorReply) {
        row += ",\"errorIn\":\"" + (info.errorInReply ? std::string("reply") : Name(info.errorId)) +
               "\"";
    }
    return row + "}";
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
}

}  // namespace Vellmark::Ctl
