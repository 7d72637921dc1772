#include "tools/Command.h"

#include <algorithm>
#include <cctype>
#include <iostream>
#include <memory>

#include "VellmarkMessageId.pb.h"
#include "admin/Json.h"
#include "admin/Sensitivity.h"
#include "platform/ipc/IPCFrameLimit.h"
#include "tools/JsonOutput.h"

namespace Vellmark::Ctl {

void PrintJson(google::protobuf::Message const& message, Settings const& settings) {
    std::unique_ptr<google::protobuf::Message> masked;
    if (!settings.showSecrets) {
        masked.reset(message.New());
        masked->CopyFrom(message);
        Vellmark::Admin::Mask(*masked);
    }
    PrintText(JsonOf(masked ? *masked : message, settings.pretty));
}

void PrintJson(std::string const& json, google::protobuf::Message& message,
               Settings const& settings) {
    std::string const problem = Vellmark::Json::Parse(json, message);
    if (!problem.empty()) {
        throw BadInput("vellmarkd sent what is not a " + message.GetDescriptor()->name() +
                       " document: " + problem);
    }
    PrintJson(message, settings);
}

void PrintRefusal(VellmarkPB::Error const& error) {
    VellmarkPB::Error shown = error;
    Vellmark::Admin::Mask(shown);
    std::cerr << "vellmarkctl: refused: " << shown.message() << "\n"
              << Vellmark::Json::Print(shown, false) << std::endl;
}

void PrintText(std::string const& text) {
    std::cout << text;
    if (text.empty() || text.back() != '\n') std::cout << '\n';
    std::cout.flush();
}

unsigned int ParseMessageId(std::string const& text) {
    auto const* descriptor = VellmarkPB::MessageId_descriptor();
    // The names' common prefix may be left out, and the case does not matter: get_sources.
    std::string name = text;
    std::transform(name.begin(), name.end(), name.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    for (std::string const& candidate : {name, "VELLMARK_MESSAGE_" + name}) {
        if (auto const* value = descriptor->FindValueByName(candidate)) {
            return static_cast<unsigned int>(value->number());
        }
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
                   "VELLMARK_MESSAGE_GVA_CREATE or GVA_CREATE)");
}

void CheckFits(unsigned int id, google::protobuf::Message const& request) {
    IPCMessageEnvelope envelope;
    envelope.SetPayload(request);
    std::size_t const bytes = IPCFrameLimit::FrameBytes(id, envelope);
    std::size_t const limit = IPCFrameLimit::MaxFrameBytes();
    if (bytes > limit) {
        throw BadInput("the request takes a frame of " + std::to_string(bytes) +
                       " bytes, over the frame limit of " + std::to_string(limit) +
                       " bytes (--max-frame-bytes, TARV_IPC_MAX_FRAME_BYTES); nothing was sent");
    }
}

}  // namespace Vellmark::Ctl
