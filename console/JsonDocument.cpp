#include "console/JsonDocument.h"

#include <google/protobuf/util/json_util.h>

namespace Vellmark::Console {

google::protobuf::Value& Field(google::protobuf::Struct& object, std::string const& key) {
    static auto const* const fields = google::protobuf::Struct::descriptor()->FindFieldByNumber(
        google::protobuf::Struct::kFieldsFieldNumber);
    auto* entry = object.GetReflection()->AddMessage(&object, fields);
    auto const* reflection = entry->GetReflection();
    auto const* descriptor = entry->GetDescriptor();
    reflection->SetString(entry, descriptor->map_key(), key);
    // A map entry of a generated message holds the generated type of its value.
    return *google::protobuf::DynamicCastToGenerated<google::protobuf::Value>(
        reflection->MutableMessage(entry, descriptor->map_value()));
}

google::protobuf::Value Text(std::string const& text) {
    google::protobuf::Value value;
    value.set_string_value(text);
    return value;
}

google::protobuf::Value Number(double number) {
    google::protobuf::Value value;
    value.set_number_value(number);
    return value;
}

google::protobuf::Value Flag(bool flag) {
    google::protobuf::Value value;
    value.set_bool_value(flag);
    return value;
}

std::string ToJson(google::protobuf::Message const& message) {
    std::string json;
    google::protobuf::util::MessageToJsonString(message, &json);
    return json;
}

}  // namespace Vellmark::Console
