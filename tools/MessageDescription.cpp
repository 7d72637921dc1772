#include "tools/MessageDescription.h"

#include <google/protobuf/message.h>

#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>
#include <vector>

#include "VellmarkMessageId.pb.h"
#include "admin/AdminProtocol.h"
#include "admin/Sensitivity.h"
#include "tools/JsonOutput.h"

namespace Vellmark::Ctl {
namespace {

using google::protobuf::Descriptor;
using google::protobuf::FieldDescriptor;
using Json = nlohmann::ordered_json;

// The packages whose types may be named without theirs.
constexpr char const* kPackages[] = {"VellmarkPB", "Vellmark.Admin"};

char const* LabelOf(FieldDescriptor const* field) {
    if (field->is_map()) return "map";
    switch (field->label()) {
        case FieldDescriptor::LABEL_REQUIRED:
            return "required";
        case FieldDescriptor::LABEL_REPEATED:
            return "repeated";
        case FieldDescriptor::LABEL_OPTIONAL:
            break;
    }
    return "optional";
}

char const* SensitivityName(Vellmark::Admin::Sensitivity sensitivity) {
    using S = Vellmark::Admin::Sensitivity;
    switch (sensitivity) {
        case S::Token:
            return "token";
        case S::AccountId:
            return "account id";
        case S::PersonId:
            return "person id";
        case S::UserName:
            return "user name";
        case S::FreeText:
            return "free text";
        case S::NotSensitive:
            return "not sensitive";
        case S::Wrapped:
            return "that of the field holding it";
    }
    return "unknown";
}

std::string TypeName(FieldDescriptor const* field) {
    switch (field->type()) {
        case FieldDescriptor::TYPE_MESSAGE:
        case FieldDescriptor::TYPE_GROUP:
            return field->message_type()->full_name();
        case FieldDescriptor::TYPE_ENUM:
            return field->enum_type()->full_name();
        default:
            return field->type_name();
    }
}

Json FieldOf(FieldDescriptor const* field) {
    Json row;
    row["name"] = field->name();
    if (field->json_name() != field->name()) row["jsonName"] = field->json_name();
    row["number"] = field->number();
    row["label"] = LabelOf(field);
    row["type"] = TypeName(field);
    if (field->type() == FieldDescriptor::TYPE_ENUM) {
        Json values = Json::array();
        for (int i = 0; i < field->enum_type()->value_count(); ++i) {
            values.push_back(field->enum_type()->value(i)->name());
        }
        row["values"] = values;
    }
    if (field->has_default_value()) {
        switch (field->cpp_type()) {
            case FieldDescriptor::CPPTYPE_STRING:
                row["default"] = field->default_value_string();
                break;
            case FieldDescriptor::CPPTYPE_ENUM:
                row["default"] = field->default_value_enum()->name();
                break;
            case FieldDescriptor::CPPTYPE_BOOL:
                row["default"] = field->default_value_bool();
                break;
            case FieldDescriptor::CPPTYPE_INT32:
                row["default"] = field->default_value_int32();
                break;
            case FieldDescriptor::CPPTYPE_INT64:
                row["default"] = field->default_value_int64();
                break;
            case FieldDescriptor::CPPTYPE_UINT32:
                row["default"] = field->default_value_uint32();
                break;
            case FieldDescriptor::CPPTYPE_UINT64:
                row["default"] = field->default_value_uint64();
                break;
            case FieldDescriptor::CPPTYPE_FLOAT:
                row["default"] = field->default_value_float();
                break;
            case FieldDescriptor::CPPTYPE_DOUBLE:
                row["default"] = field->default_value_double();
                break;
            case FieldDescriptor::CPPTYPE_MESSAGE:
                break;
        }
    }
    if (field->containing_oneof()) row["oneof"] = field->containing_oneof()->name();
    auto const sensitivity = Vellmark::Admin::SensitivityOf(field);
    if (sensitivity) {
        row["sensitivity"] = SensitivityName(*sensitivity);
        row["masked"] = Vellmark::Admin::IsMasked(*sensitivity);
    } else if (field->cpp_type() == FieldDescriptor::CPPTYPE_STRING) {
        // Mask: what is not known to be safe is not shown.
        row["sensitivity"] = "unclassified: masked as a token";
        row["masked"] = true;
    }
    return row;
}

Json FieldsOf(Descriptor const* type) {
    Json fields = Json::array();
    for (int i = 0; i < type->field_count(); ++i) fields.push_back(FieldOf(type->field(i)));
    return fields;
}

// The message types `type`'s fields hold, at any depth, once each, in the order met.
void Inner(Descriptor const* type, std::vector<Descriptor const*>& met) {
    for (int i = 0; i < type->field_count(); ++i) {
        Descriptor const* inner = type->field(i)->message_type();
        if (!inner || inner == type) continue;
        bool const known = std::find(met.begin(), met.end(), inner) != met.end();
        if (known) continue;
        met.push_back(inner);
        Inner(inner, met);
    }
}

Json Description(Descriptor const* type) {
    Json description;
    description["type"] = type->full_name();
    // As frames name their payload, and as `ids` and `monitor` print it.
    description["payloadType"] = type->name();
    description["fields"] = FieldsOf(type);
    std::vector<Descriptor const*> met{type};
    Inner(type, met);
    Json messages = Json::array();
    for (std::size_t i = 1; i < met.size(); ++i) {
        Json inner;
        inner["type"] = met[i]->full_name();
        inner["fields"] = FieldsOf(met[i]);
        messages.push_back(inner);
    }
    description["messages"] = messages;
    return description;
}

std::string Dump(Json const& json, bool pretty) {
    return json.dump(pretty ? 2 : -1, ' ', false, Json::error_handler_t::replace);
}

// Sets every field of `message` (see TemplateOf); `open` holds the types being filled.
void Fill(google::protobuf::Message& message, std::set<Descriptor const*>& open) {
    Descriptor const* type = message.GetDescriptor();
    auto const* reflection = message.GetReflection();
    open.insert(type);
    for (int i = 0; i < type->field_count(); ++i) {
        FieldDescriptor const* field = type->field(i);
        if (auto const* oneof = field->containing_oneof(); oneof && oneof->field(0) != field) {
            continue;
        }
        bool const repeated = field->is_repeated();
        switch (field->cpp_type()) {
            case FieldDescriptor::CPPTYPE_MESSAGE: {
                if (open.count(field->message_type())) break;
                auto* inner = repeated ? reflection->AddMessage(&message, field)
                                       : reflection->MutableMessage(&message, field);
                Fill(*inner, open);
                break;
            }
            case FieldDescriptor::CPPTYPE_STRING:
                repeated ? reflection->AddString(&message, field, "")
                         : reflection->SetString(&message, field, "");
                break;
            case FieldDescriptor::CPPTYPE_BOOL:
                repeated ? reflection->AddBool(&message, field, false)
                         : reflection->SetBool(&message, field, false);
                break;
            case FieldDescriptor::CPPTYPE_ENUM: {
                auto const* first = field->enum_type()->value(0);
                repeated ? reflection->AddEnum(&message, field, first)
                         : reflection->SetEnum(&message, field, first);
                break;
            }
            case FieldDescriptor::CPPTYPE_INT32:
                repeated ? reflection->AddInt32(&message, field, 0)
                         : reflection->SetInt32(&message, field, 0);
                break;
            case FieldDescriptor::CPPTYPE_INT64:
                repeated ? reflection->AddInt64(&message, field, 0)
                         : reflection->SetInt64(&message, field, 0);
                break;
            case FieldDescriptor::CPPTYPE_UINT32:
                repeated ? reflection->AddUInt32(&message, field, 0)
                         : reflection->SetUInt32(&message, field, 0);
                break;
            case FieldDescriptor::CPPTYPE_UINT64:
                repeated ? reflection->AddUInt64(&message, field, 0)
                         : reflection->SetUInt64(&message, field, 0);
                break;
            case FieldDescriptor::CPPTYPE_FLOAT:
                repeated ? reflection->AddFloat(&message, field, 0)
                         : reflection->SetFloat(&message, field, 0);
                break;
            case FieldDescriptor::CPPTYPE_DOUBLE:
                repeated ? reflection->AddDouble(&message, field, 0)
                         : reflection->SetDouble(&message, field, 0);
                break;
        }
    }
    open.erase(type);
}

std::string IdName(unsigned int id) {
    return Vellmark::Admin::MessageName(id);
}

}  // namespace

Descriptor const* FindMessageType(std::string const& name) {
    auto const* pool = google::protobuf::DescriptorPool::generated_pool();
    if (auto const* type = pool->FindMessageTypeByName(name)) return type;
    for (char const* package : kPackages) {
        if (auto const* type = pool->FindMessageTypeByName(std::string(package) + "." + name)) {
            return type;
        }
    }
    return nullptr;
}

std::string DescribeType(Descriptor const* type, bool pretty) {
    return Dump(Description(type), pretty);
}

std::string DescribeMessage(Vellmark::Admin::MessageInfo const& info, bool pretty) {
    Json row;
    row["id"] = info.id;
    row["name"] = IdName(info.id);
    row["role"] = Vellmark::Admin::RoleName(info.role);
    if (info.request) {
        Json request = Description(info.request);
        if (Vellmark::Admin::ResourceOfQuery(info.id)) {
            request["note"] = "a query sends this type empty: the identifier says what it asks";
        }
        row["request"] = request;
    }
    if (info.reply) row["reply"] = Description(info.reply);
    bool const hasErrorReply = info.errorInReply || info.errorId != 0;
    row["hasErrorReply"] = hasErrorReply;
    if (hasErrorReply) row["errorIn"] = info.errorInReply ? "reply" : IdName(info.errorId);
    return Dump(row, pretty);
}

std::string TemplateOf(Descriptor const* type, bool pretty) {
    std::unique_ptr<google::protobuf::Message> message(
        google::protobuf::MessageFactory::generated_factory()->GetPrototype(type)->New());
    std::set<Descriptor const*> open;
    Fill(*message, open);
    return JsonOf(*message, pretty);
}

std::string RequestTemplateOf(Vellmark::Admin::MessageInfo const& info, bool pretty) {
    if (!info.request) return {};
    if (Vellmark::Admin::ResourceOfQuery(info.id)) return "{}";
    return TemplateOf(info.request, pretty);
}

}  // namespace Vellmark::Ctl
