#include "bench/Payload.h"

#include <cstdio>

#include "VellmarkMessageId.pb.h"
#include "framework/ipc/IPCMessageEnvelope.h"

namespace Vellmark::Bench {
namespace {

// Deterministic text that looks like an access token: base64 characters.
std::string TokenText(std::size_t length, unsigned seed) {
    static char const kAlphabet[] =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    text.reserve(length);
    std::uint32_t state = 2654435761u * (seed + 1);
    for (std::size_t i = 0; i < length; ++i) {
        state = state * 1664525u + 1013904223u;
        text.push_back(kAlphabet[(state >> 24) % 64]);
    }
    return text;
}

std::string Uuid(unsigned group, unsigned index) {
    char text[40];
    std::snprintf(text, sizeof text, "%08x-4c7a-4e21-9b3d-%012u", 0x3f6c2a1eu + group,
                  100000u + index);
    return text;
}

}  // namespace

VellmarkPB::sources MakeSources(int count) {
    struct Provider {
        char const* type;
        char const* id;
        char const* name;
    };
    static Provider const kProviders[] = {{"MUSIC_SERVICE", "15", "Spotify"},
                                          {"MUSIC_SERVICE", "25", "Deezer"},
                                          {"RADIO", "11", "TuneIn"},
                                          {"MUSIC_SERVICE", "36", "Amazon Music"},
                                          {"VOICE_ASSISTANT", "40", "Assistant"}};
    VellmarkPB::sources sources;
    for (int i = 0; i < count; ++i) {
        auto const index = static_cast<unsigned>(i);
        Provider const& provider = kProviders[index % 5];
        auto& source = *sources.add_source();
        source.set_id(Uuid(0, index));
        source.set_type(provider.type);
        source.mutable_credential()->set_type("token_version_3");
        source.mutable_credential()->set_text(TokenText(180, index));
        source.mutable_name()->set_text("user" + std::to_string(i) + "@example.com");
        source.mutable_username()->set_text("Household member " + std::to_string(i));
        source.mutable_sourceproviderid()->set_text(provider.id);
        source.mutable_sourcename()->set_text(provider.name);
        auto& settings = *source.mutable_sourcesettings();
        auto& explicitContent = *settings.add_source_setting();
        explicitContent.mutable_keyname()->set_text("explicitContentFilter");
        explicitContent.mutable_value()->set_text(i % 2 ? "true" : "false");
        auto& quality = *settings.add_source_setting();
        quality.mutable_keyname()->set_text("streamingQuality");
        quality.mutable_value()->set_text("HIGH");
        source.mutable_accountid()->set_text(Uuid(1, index));
        source.mutable_updatedon()->set_text("2024-05-17T09:12:44.512Z");
        source.mutable_createdon()->set_text("2023-11-02T18:40:03.087Z");
        source.set_tarvpersonid(Uuid(2, index % 3));
    }
    return sources;
}

Tarv::IPCFrame FrameOf(Tarv::IPCFrame::Kind kind, unsigned int id, std::uint64_t number,
                       google::protobuf::Message const& payload) {
    IPCMessageEnvelope envelope;
    envelope.SetPayload(payload);
    return Tarv::MakeFrame(kind, id, envelope.Base(), number);
}

Tarv::IPCFrame RequestFrame(std::uint64_t number) {
    return FrameOf(Tarv::IPCFrame::REQUEST, VellmarkPB::VELLMARK_MESSAGE_GET_SOURCES, number,
                   VellmarkPB::sources());
}

}  // namespace Vellmark::Bench
