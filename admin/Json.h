#pragma once
// JSON in and out of protocol-buffer messages, with errors a person can act on.
#include <google/protobuf/message.h>

#include <string>

namespace Vellmark::Json {

// Parses `json` into `message` (cleared first). Field names may be written as in the
// schema or in lowerCamelCase. Returns "" on success, otherwise what is wrong: a syntax
// error, an unknown field, a value of the wrong type, or a required field left out.
std::string Parse(std::string const& json, google::protobuf::Message& message);

// Renders `message` as JSON with the schema's field names; set fields only.
std::string Print(google::protobuf::Message const& message, bool pretty);

// Reads the file at `path` ("-" for standard input) into `text`; returns "" or what went
// wrong.
std::string ReadFile(std::string const& path, std::string& text);

// Keeps protobuf's own log on standard error, less one warning: the Tokens schema has
// access_token and accessToken side by side on purpose, and the JSON converter warns about
// the pair each time it meets the type. Call once, early in main.
void QuietenKnownWarnings();

}  // namespace Vellmark::Json
