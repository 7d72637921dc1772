#include "tools/MonitorFormat.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <limits>
#include <memory>
#include <optional>
#include <sstream>

#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>

#include "admin/Json.h"
#include "platform/ipc/transport/FrameCodec.h"

namespace Vellmark::Ctl {
namespace {

// The length of the UTF-8 sequence starting at `at`, or 0 when it is not one.
std::size_t Utf8Length(std::string const& text, std::size_t at) {
    auto const byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    unsigned char const lead = byte(at);
    std::size_t const length = lead >= 0xF0 && lead <= 0xF4   ? 4
                               : lead >= 0xE0                 ? 3
                               : lead >= 0xC2 && lead <= 0xDF ? 2
                                                              : 0;
    if (length == 0 || at + length > text.size()) return 0;
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(at + i) & 0xC0) != 0x80) return 0;
    }
    // No overlong forms, no surrogates, nothing past U+10FFFF.
    unsigned char const second = byte(at + 1);
    if ((lead == 0xE0 && second < 0xA0) || (lead == 0xED && second >= 0xA0) ||
        (lead == 0xF0 && second < 0x90) || (lead == 0xF4 && second >= 0x90)) {
        return 0;
    }
    return length;
}

// `text` as a JSON string, quotes included; bytes that are not UTF-8 (a name a client
// made up) become U+FFFD, so that every line stays valid JSON.
std::string Quoted(std::string const& text) {
    std::string out = "\"";
    for (std::size_t i = 0; i < text.size(); ++i) {
        char const c = text[i];
        auto const code = static_cast<unsigned char>(c);
        if (code >= 0x80) {
            std::size_t const length = Utf8Length(text, i);
            if (length == 0) {
                out += "\\ufffd";
                continue;
            }
            out.append(text, i, length);
            i += length - 1;
        } else if (c == '"' || c == '\\') {
            out += '\\';
            out += c;
        } else if (code < 0x20) {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\u%04x", static_cast<unsigned>(code));
            out += escaped;
        } else {
            out += c;
        }
    }
    return out + "\"";
}

// The payload's JSON: the service writes an object, or a string when it cannot show it.
// Anything else (an older service, an empty field) is given as a string.
std::string PayloadValue(std::string const& json) {
    auto const first = json.find_first_not_of(" \t\r\n");
    if (first != std::string::npos && (json[first] == '{' || json[first] == '"')) return json;
    return Quoted(json);
}

// The payload as the service showed it, masked, encoded again from its JSON; nothing when
// the service could not show it (an unknown type, a payload that does not parse). Fields
// the JSON does not hold (unknown to the schema, hence never masked) stay out.
std::optional<std::string> MaskedPayload(Vellmark::Admin::TrafficEvent const& event) {
    auto const* type = google::protobuf::DescriptorPool::generated_pool()->FindMessageTypeByName(
        "VellmarkPB." + event.payloadtype());
    if (!type) return std::nullopt;
    std::unique_ptr<google::protobuf::Message> message(
        google::protobuf::MessageFactory::generated_factory()->GetPrototype(type)->New());
    // Json::Parse reads the schema's names as Json::Print wrote them (Tokens has
    // access_token and accessToken side by side). A payload that left out a required field
    // is not rebuilt: the frame goes into the capture without it.
    if (!Vellmark::Json::Parse(event.payloadjson(), *message).empty()) return std::nullopt;
    std::string bytes;
    if (!message->SerializePartialToString(&bytes)) return std::nullopt;
    return bytes;
}

}  // namespace

bool MonitorFilter::Shows(Vellmark::Admin::TrafficEvent const& event) const {
    auto const among = [](auto const& values, auto value) {
        return values.empty() || std::find(values.begin(), values.end(), value) != values.end();
    };
    return among(ids, event.messageid()) && among(connections, event.session());
}

std::string Rfc3339(std::int64_t micros) {
    std::int64_t seconds = micros / 1000000;
    std::int64_t fraction = micros % 1000000;
    if (fraction < 0) {
        fraction += 1000000;
        --seconds;
    }
    std::time_t const whole = static_cast<std::time_t>(seconds);
    std::tm utc{};
    gmtime_r(&whole, &utc);
    char text[48];
    std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%06dZ", utc.tm_year + 1900,
                  utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec,
                  static_cast<int>(fraction));
    return text;
}

std::int64_t EventMicros(Vellmark::Admin::TrafficEvent const& event) {
    if (event.has_timemicros()) return event.timemicros();
    return std::chrono::duration_cast<std::chrono::microseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

std::string TextLine(Vellmark::Admin::TrafficEvent const& event) {
    std::ostringstream line;
    line << (event.has_timemicros() ? Rfc3339(event.timemicros()) : event.time()) << ' '
         << (event.direction() == "in" ? "<-" : "->") << " #" << event.session() << ' '
         << event.kind() << ' ' << event.messageid() << ' ' << event.messagename() << ' '
         << event.payloadtype() << ' ' << event.payloadjson() << '\n';
    return line.str();
}

std::string JsonLine(Vellmark::Admin::TrafficEvent const& event) {
    std::ostringstream line;
    line << "{\"time\":" << Quoted(Rfc3339(EventMicros(event)))
         << ",\"direction\":" << Quoted(event.direction()) << ",\"session\":" << event.session()
         << ",\"kind\":" << Quoted(event.kind()) << ",\"messageId\":" << event.messageid()
         << ",\"messageName\":" << Quoted(event.messagename());
    if (event.has_requestnumber()) line << ",\"requestNumber\":" << event.requestnumber();
    line << ",\"payloadType\":" << Quoted(event.payloadtype())
         << ",\"payload\":" << PayloadValue(event.payloadjson()) << "}\n";
    return line.str();
}

std::string WireFrame(Vellmark::Admin::TrafficEvent const& event) {
    Tarv::IPCFrame::Kind kind;
    if (event.kind() == "request") {
        kind = Tarv::IPCFrame::REQUEST;
    } else if (event.kind() == "response") {
        kind = Tarv::IPCFrame::RESPONSE;
    } else if (event.kind() == "notification") {
        kind = Tarv::IPCFrame::NOTIFICATION;
    } else if (event.kind() == "one-way") {
        kind = Tarv::IPCFrame::ONE_WAY;
    } else {
        return {};
    }
    Tarv::IPCMessageEnvelopeBase envelope;
    if (!event.payloadtype().empty()) envelope.set_payload_type_name(event.payloadtype());
    if (auto payload = MaskedPayload(event)) envelope.set_payload(std::move(*payload));
    std::string frame;
    // Masking may lengthen a value: the frame is written whatever the limit.
    if (!Tarv::AppendFrame(kind, event.messageid(), envelope, event.requestnumber(), frame,
                           std::numeric_limits<std::int32_t>::max())) {
        return {};
    }
    return frame;
}

}  // namespace Vellmark::Ctl
