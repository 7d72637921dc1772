#include "admin/Json.h"

#include <google/protobuf/type.pb.h>
#include <google/protobuf/util/json_util.h>
#include <google/protobuf/util/type_resolver.h>
#include <google/protobuf/util/type_resolver_util.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>

#include "platform/log/ProtoToMarkup.h"

namespace Vellmark::Json {
namespace {

using google::protobuf::util::TypeResolver;

// Gives a field its schema name as JSON name when its camel-case name is another field's
// schema name. Tokens holds access_token and accessToken side by side; without this, a
// document's "accessToken" would land in access_token.
class UnambiguousResolver : public TypeResolver {
public:
    explicit UnambiguousResolver(google::protobuf::DescriptorPool const* pool)
        : m_inner(google::protobuf::util::NewTypeResolverForDescriptorPool(kUrlPrefix, pool)) {}

    google::protobuf::util::Status ResolveMessageType(std::string const& url,
                                                      google::protobuf::Type* type) override {
        auto status = m_inner->ResolveMessageType(url, type);
        if (!status.ok()) return status;
        for (auto& field : *type->mutable_fields()) {
            for (auto const& other : type->fields()) {
                if (&other != &field && other.name() == field.json_name()) {
                    field.set_json_name(field.name());
                }
            }
        }
        return status;
    }
    google::protobuf::util::Status ResolveEnumType(std::string const& url,
                                                   google::protobuf::Enum* type) override {
        return m_inner->ResolveEnumType(url, type);
    }

    static constexpr char kUrlPrefix[] = "type.googleapis.com";

private:
    std::unique_ptr<TypeResolver> m_inner;
};

}  // namespace

std::string Parse(std::string const& json, google::protobuf::Message& message) {
    message.Clear();
    // Parsed without the required-field check, so that a missing field is named below
    // instead of reported as an opaque transcoding failure.
    std::string binary;
    UnambiguousResolver resolver(message.GetDescriptor()->file()->pool());
    auto status = google::protobuf::util::JsonToBinaryString(
        &resolver,
        std::string(UnambiguousResolver::kUrlPrefix) + "/" + message.GetDescriptor()->full_name(),
        json, &binary);
    if (!status.ok()) return std::string(status.message());
    if (!message.ParsePartialFromString(binary)) return "the document does not make a message";
    if (!message.IsInitialized()) {
        return "required field missing: " + message.InitializationErrorString();
    }
    return {};
}

void QuietenKnownWarnings() {
    google::protobuf::SetLogHandler([](google::protobuf::LogLevel level, char const* file, int line,
                                       std::string const& message) {
        if (message.find("map to the same camel case name") != std::string::npos) return;
        static char const* const kNames[] = {"INFO", "WARNING", "ERROR", "FATAL"};
        std::cerr << "[libprotobuf " << kNames[level] << ' ' << file << ':' << line << "] "
                  << message << std::endl;
    });
}

std::string Print(google::protobuf::Message const& message, bool pretty) {
    return ProtoToMarkup::ToJson(message, pretty, false, false);
}

std::string ReadFile(std::string const& path, std::string& text) {
    if (path == "-") {
        text.assign(std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>());
        return {};
    }
    std::ifstream file(path, std::ios::binary);
    if (!file) return std::strerror(errno);
    std::ostringstream content;
    content << file.rdbuf();
    if (file.bad()) return "read error";
    text = content.str();
    return {};
}

}  // namespace Vellmark::Json
