#pragma once
// The fields of a JSON object, parsed with protobuf's JSON parser into a Struct and read
// through reflection. Never through Struct::fields(): a ThreadSanitizer build lays out
// protobuf's map fields with two more members than the prebuilt libprotobuf that filled
// them, so inline map access there reads the wrong words.
#include <google/protobuf/struct.pb.h>
#include <google/protobuf/util/json_util.h>

#include <map>
#include <string>

namespace TestJson {

using Fields = std::map<std::string, google::protobuf::Value>;

inline Fields FieldsOf(google::protobuf::Struct const& object) {
    Fields fields;
    auto const* reflection = object.GetReflection();
    auto const* map = object.GetDescriptor()->FindFieldByName("fields");
    for (int i = 0; i < reflection->FieldSize(object, map); ++i) {
        auto const& entry = reflection->GetRepeatedMessage(object, map, i);
        auto const* entryReflection = entry.GetReflection();
        auto const* descriptor = entry.GetDescriptor();
        fields[entryReflection->GetString(entry, descriptor->FindFieldByName("key"))].CopyFrom(
            entryReflection->GetMessage(entry, descriptor->FindFieldByName("value")));
    }
    return fields;
}

// The fields of `json`; false when it is not one JSON object.
inline bool ParseObject(std::string const& json, Fields& fields) {
    google::protobuf::Struct object;
    if (!google::protobuf::util::JsonStringToMessage(json, &object).ok()) return false;
    fields = FieldsOf(object);
    return true;
}

}  // namespace TestJson
