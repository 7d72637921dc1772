#pragma once
// How vellmarkctl monitor shows a TrafficEvent: a line of text, a line of JSON (JSON Lines:
// one object per line, for jq and scripts), and the frame rebuilt as it travelled, for a
// capture file. Pure functions: any thread may call them.
#include <cstdint>
#include <string>
#include <vector>

#include "VellmarkAdmin.pb.h"

namespace Vellmark::Ctl {

// Which frames monitor shows: those under one of `ids` (none given: any) on one of
// `connections` (the session numbers `admin clients` lists; none given: any).
struct MonitorFilter {
    std::vector<unsigned int> ids;
    std::vector<std::uint64_t> connections;
    bool Shows(Vellmark::Admin::TrafficEvent const& event) const;
};

// `micros` after 1970-01-01 UTC in RFC 3339: "2026-11-24T10:15:30.123456Z".
std::string Rfc3339(std::int64_t micros);

// When the event happened, in microseconds since the epoch: as the service stamped it, or
// now for a service that does not send the date.
std::int64_t EventMicros(Vellmark::Admin::TrafficEvent const& event);

// "2026-11-24T10:15:30.123456Z <- #3 request 1 VELLMARK_MESSAGE_GET_SOURCES sources {}"
// and a newline: time, direction, connection, kind, identifier, its name, payload type and
// payload.
std::string TextLine(Vellmark::Admin::TrafficEvent const& event);

// One JSON object and a newline: time, direction, session, kind, messageId, messageName,
// requestNumber (requests and responses), payloadType and payload (the masked message as an
// object; a string saying why when it cannot be shown).
std::string JsonLine(Vellmark::Admin::TrafficEvent const& event);

// The frame as it went over the socket (length, then the Tarv::IPCFrame), with the masked
// payload, encoded again from its JSON, in place of the one sent; the payload is left out
// when the service could not show it. Empty for an event of a kind no frame has.
std::string WireFrame(Vellmark::Admin::TrafficEvent const& event);

}  // namespace Vellmark::Ctl
