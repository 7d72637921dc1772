#include "tools/JsonOutput.h"

#include <google/protobuf/descriptor.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <vector>

#include "admin/Json.h"

namespace Vellmark::Ctl {
namespace {

using google::protobuf::Descriptor;
using google::protobuf::FieldDescriptor;
using Json = nlohmann::ordered_json;

bool Is64Bit(FieldDescriptor const* field) {
    return field->cpp_type() == FieldDescriptor::CPPTYPE_INT64 ||
           field->cpp_type() == FieldDescriptor::CPPTYPE_UINT64;
}

// A 64-bit integer protobuf wrote as a string, as a number; anything else as it is.
void AsNumber(Json& value, FieldDescriptor const* field) {
    if (!value.is_string()) return;
    std::string const& text = value.get_ref<std::string const&>();
    try {
        std::size_t used = 0;
        if (field->cpp_type() == FieldDescriptor::CPPTYPE_UINT64) {
            auto const number = std::stoull(text, &used);
            if (used == text.size() && text.front() != '-') value = number;
        } else {
            auto const number = std::stoll(text, &used);
            if (used == text.size()) value = number;
        }
    } catch (std::exception const&) {
        // Not a number protobuf wrote: left as it is.
    }
}

void Shape(Json& object, Descriptor const* type, bool listsAlways);

void ShapeValue(Json& value, FieldDescriptor const* field) {
    if (Is64Bit(field)) {
        AsNumber(value, field);
    } else if (field->cpp_type() == FieldDescriptor::CPPTYPE_MESSAGE && !field->is_map() &&
               value.is_object()) {
        Shape(value, field->message_type(), false);
    }
}

// Rebuilds `object`, a rendering of a message of `type`, in the order of the fields'
// numbers, as protobuf writes them; with `listsAlways`, a repeated field that is absent
// comes as [].
void Shape(Json& object, Descriptor const* type, bool listsAlways) {
    std::vector<FieldDescriptor const*> fields;
    for (int i = 0; i < type->field_count(); ++i) fields.push_back(type->field(i));
    std::sort(fields.begin(), fields.end(),
              [](auto const* a, auto const* b) { return a->number() < b->number(); });
    Json shaped = Json::object();
    for (FieldDescriptor const* field : fields) {
        auto found = object.find(field->name());
        if (found == object.end()) {
            if (listsAlways && field->is_repeated() && !field->is_map()) {
                shaped[field->name()] = Json::array();
            }
            continue;
        }
        Json value = std::move(*found);
        object.erase(found);
        if (field->is_repeated() && value.is_array()) {
            for (auto& element : value) ShapeValue(element, field);
        } else if (!field->is_repeated()) {
            ShapeValue(value, field);
        }
        shaped[field->name()] = std::move(value);
    }
    // Whatever the type does not name (none is expected) keeps its place at the end.
    for (auto& [name, value] : object.items()) shaped[name] = std::move(value);
    object = std::move(shaped);
}

}  // namespace

std::string JsonOf(google::protobuf::Message const& message, bool pretty) {
    std::string const text = Vellmark::Json::Print(message, false);
    Json document = Json::parse(text, nullptr, false);
    if (document.is_discarded() || !document.is_object()) {
        // What nlohmann cannot read (text that is not UTF-8) is printed as protobuf wrote it.
        std::string const plain = Vellmark::Json::Print(message, pretty);
        return plain.empty() ? "{}" : plain;
    }
    Shape(document, message.GetDescriptor(), true);
    return document.dump(pretty ? 2 : -1, ' ', false, Json::error_handler_t::replace);
}

}  // namespace Vellmark::Ctl
