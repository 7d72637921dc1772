#pragma once
// The console's JSON documents, built as protobuf Structs and printed by protobuf's JSON
// printer.
//
// A key is set with Field(), never through Struct::mutable_fields(): a ThreadSanitizer
// build lays out protobuf's map fields with two more members than the prebuilt libprotobuf
// that makes each Struct, so map access inlined into our code would read the wrong words
// there. Field() goes through reflection, which runs inside libprotobuf.
#include <google/protobuf/struct.pb.h>

#include <string>

namespace Vellmark::Console {

// A new value under `key` in `object`. Each key of an object is set once.
google::protobuf::Value& Field(google::protobuf::Struct& object, std::string const& key);

google::protobuf::Value Text(std::string const& text);
google::protobuf::Value Number(double number);
google::protobuf::Value Flag(bool flag);

// `message` as JSON (protobuf's mapping: a Struct prints as a plain object).
std::string ToJson(google::protobuf::Message const& message);

}  // namespace Vellmark::Console
