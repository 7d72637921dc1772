#include "platform/log/ProtoToMarkup.h"

#include <google/protobuf/util/json_util.h>

namespace ProtoToMarkup {

std::string ToJson(google::protobuf::Message const& message, bool pretty, bool printDefaults,
                   bool camelCaseNames) {
    google::protobuf::util::JsonPrintOptions options;
    options.add_whitespace = pretty;
    options.always_print_primitive_fields = printDefaults;
    options.preserve_proto_field_names = !camelCaseNames;
    std::string json;
    if (!google::protobuf::util::MessageToJsonString(message, &json, options).ok()) return {};
    return json;
}

}  // namespace ProtoToMarkup
