#include "Command.h"

#include <iostream>

#include "Json.h"
#include "VellmarkMessageId.pb.h"

namespace Ctl {

void PrintJson(google::protobuf::Message const& message, bool pretty) {
    std::string json = VellmarkJson::Print(message, pretty);
    PrintText(json.empty() ? "{}" : json);
}

void PrintText(std::string const& text) {
    std::cout << text;
    if (text.empty() || text.back() != '\n') std::cout << '\n';
    std::cout.flush();
}

void LoadJson(std::string const& path, google::protobuf::Message& message) {
    std::string text;
    std::string problem = VellmarkJson::ReadFile(path, text);
    if (!problem.empty()) throw BadInput(path + ": cannot read: " + problem);
    problem = VellmarkJson::Parse(text, message);
    if (!problem.empty()) {
        throw BadInput(path + ": not a " + message.GetDescriptor()->name() +
                       " document: " + problem);
    }
}

unsigned int ParseMessageId(std::string const& text) {
    auto const* descriptor = VellmarkPB::MessageId_descriptor();
    if (auto const* value = descriptor->FindValueByName(text)) {
        return static_cast<unsigned int>(value->number());
    }
    try {
        std::size_t used = 0;
        unsigned long const number = std::stoul(text, &used);
        if (used == text.size() && descriptor->FindValueByNumber(static_cast<int>(number))) {
            return static_cast<unsigned int>(number);
        }
    } catch (std::exception const&) {
    }
    throw BadInput("\"" + text +
                   "\" is not a message identifier (a number or a name such as "
                   "VELLMARK_MESSAGE_GVA_CREATE)");
}

}  // namespace Ctl
