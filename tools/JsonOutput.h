#pragma once
// The JSON vellmarkctl prints for a message: protobuf's rendering with the schema's field
// names, in one shape per concept across the commands:
// - 64-bit integers as numbers (protobuf writes them as strings), as `monitor --json`
//   writes sessions and request numbers: the counts, sessions and sizes shown never come
//   near 2^53;
// - the message's own lists always present, an empty one as [] (so that
//   `jq '.clients[]'` needs no guard).
// A document read back parses to the same message. Pure; any thread may call it.
#include <google/protobuf/message.h>

#include <string>

namespace Vellmark::Ctl {

// `message` as JSON, indented when `pretty`; "{}" for a message that cannot be rendered.
std::string JsonOf(google::protobuf::Message const& message, bool pretty);

}  // namespace Vellmark::Ctl
