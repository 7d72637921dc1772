#pragma once
// ProtoToMarkup: renders protocol-buffer messages as mark-up text for logs and tools.
//
// Stateless; any thread may call it at once, as long as nobody changes the message meanwhile.
#include <string>

#include <google/protobuf/message.h>

#include "platform/TarvExport.h"

namespace ProtoToMarkup {

// Renders `message` as JSON.
// - pretty: indent and break lines; otherwise compact, on one line.
// - printDefaults: also print primitive fields that are not set, with their default values;
//   otherwise only fields that are set.
// - camelCaseNames: use the lowerCamelCase JSON names of the fields (access_token becomes
//   accessToken); otherwise the field names as written in the schema, which keeps fields
//   such as access_token and accessToken apart.
// Returns an empty string when the message cannot be rendered.
TARV_EXPORT std::string ToJson(google::protobuf::Message const& message, bool pretty, bool printDefaults,
                   bool camelCaseNames);

}  // namespace ProtoToMarkup
