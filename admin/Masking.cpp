// The one masking of vellmarkd and its tools: a walk of a message by its descriptor that
// applies the sensitivity table.
#include <functional>
#include <memory>

#include "admin/Sensitivity.h"
#include "platform/log/Redact.h"

namespace Vellmark::Admin {
namespace {

// The longest masked token shown, as the client library bounds the tokens it masks.
constexpr unsigned int kTokenLength = 350;

using google::protobuf::FieldDescriptor;
using google::protobuf::Message;

// The class a text field's value has inside a field classed `holder` (nothing at the top).
Sensitivity ClassOf(FieldDescriptor const* field, std::optional<Sensitivity> holder) {
    auto const own = SensitivityOf(field);
    if (!own) return Sensitivity::Token;  // not known to be safe
    if (*own != Sensitivity::Wrapped) return *own;
    // A wrapper outside any classified field cannot tell what it wraps.
    return holder && *holder != Sensitivity::Wrapped ? *holder : Sensitivity::Token;
}

// Calls `visit` for every set text field of `message`, at any depth, with its class. With
// `path`, the field's place in the message ("presets[0].value.name", without the field
// itself) is kept there while it is visited; without, no path is made.
using Visitor = std::function<void(Message&, FieldDescriptor const*, Sensitivity)>;
void Walk(Message& message, std::optional<Sensitivity> holder, Visitor const& visit,
          std::string* path = nullptr) {
    auto const* reflection = message.GetReflection();
    std::vector<FieldDescriptor const*> fields;
    reflection->ListFields(message, &fields);
    std::size_t const length = path ? path->size() : 0;
    auto const enter = [&](FieldDescriptor const* field, int index) {
        if (!path) return;
        path->resize(length);
        if (!path->empty()) *path += '.';
        *path += field->name();
        if (index >= 0) *path += "[" + std::to_string(index) + "]";
    };
    for (auto const* field : fields) {
        if (field->cpp_type() == FieldDescriptor::CPPTYPE_MESSAGE) {
            // What the field wraps takes its class; other messages are classed field by field.
            auto const inner = SensitivityOf(field);
            if (!field->is_repeated()) {
                enter(field, -1);
                Walk(*reflection->MutableMessage(&message, field), inner, visit, path);
                continue;
            }
            for (int i = 0; i < reflection->FieldSize(message, field); ++i) {
                enter(field, i);
                Walk(*reflection->MutableRepeatedMessage(&message, field, i), inner, visit, path);
            }
        } else if (field->cpp_type() == FieldDescriptor::CPPTYPE_STRING) {
            if (path) path->resize(length);
            visit(message, field, ClassOf(field, holder));
        }
    }
    if (path) path->resize(length);
}

// The values of a text field, one or repeated.
std::vector<std::string> Values(Message const& message, FieldDescriptor const* field) {
    auto const* reflection = message.GetReflection();
    if (!field->is_repeated()) return {reflection->GetString(message, field)};
    std::vector<std::string> values;
    for (int i = 0; i < reflection->FieldSize(message, field); ++i) {
        values.push_back(reflection->GetRepeatedString(message, field, i));
    }
    return values;
}

}  // namespace

bool IsMasked(Sensitivity sensitivity) {
    switch (sensitivity) {
        case Sensitivity::Token:
        case Sensitivity::AccountId:
        case Sensitivity::PersonId:
        case Sensitivity::UserName:
            return true;
        case Sensitivity::FreeText:
        case Sensitivity::NotSensitive:
        case Sensitivity::Wrapped:
            return false;
    }
    return true;
}

std::string Masked(Sensitivity sensitivity, std::string const& value) {
    if (!IsMasked(sensitivity)) return value;
    if (sensitivity == Sensitivity::Token) return Redact::RedactTokens(value, kTokenLength);
    return Redact::RedactID(value, '-');
}

void Mask(Message& message) {
    Walk(message, std::nullopt,
         [](Message& holder, FieldDescriptor const* field, Sensitivity sensitivity) {
             if (!IsMasked(sensitivity)) return;
             auto const* reflection = holder.GetReflection();
             auto const values = Values(holder, field);
             if (!field->is_repeated()) {
                 reflection->SetString(&holder, field, Masked(sensitivity, values.front()));
                 return;
             }
             for (std::size_t i = 0; i < values.size(); ++i) {
                 reflection->SetRepeatedString(&holder, field, static_cast<int>(i),
                                               Masked(sensitivity, values[i]));
             }
         });
}

bool LooksMasked(Sensitivity sensitivity, std::string const& value) {
    // Masking a masked value again leaves it as it is: the characters an identifier's mask
    // fills are '-' already, a token's masked middle is '*' already and its length within
    // the bound. A clear identifier or token is not left so: its first characters (for an
    // identifier, at least half of it) would have to be '-', or its middle '*'.
    return IsMasked(sensitivity) && !value.empty() && Masked(sensitivity, value) == value;
}

std::optional<MaskedValue> FindMaskedValue(Message const& message) {
    std::unique_ptr<Message> copy(message.New());
    copy->CopyFrom(message);
    std::optional<MaskedValue> found;
    std::string path;
    Walk(
        *copy, std::nullopt,
        [&found, &path](Message& holder, FieldDescriptor const* field, Sensitivity sensitivity) {
            if (found) return;
            auto const values = Values(holder, field);
            for (std::size_t i = 0; i < values.size(); ++i) {
                if (!LooksMasked(sensitivity, values[i])) continue;
                std::string where = path.empty() ? field->name() : path + "." + field->name();
                if (field->is_repeated()) where += "[" + std::to_string(i) + "]";
                found = MaskedValue{where, sensitivity, values[i]};
                return;
            }
        },
        &path);
    return found;
}

std::string DescribeMaskedValue(MaskedValue const& masked) {
    return masked.path + " holds a masked value (\"" + masked.value +
           "\"), as tools print secrets unless asked for them in clear";
}

std::vector<std::string> SecretValues(Message const& message) {
    std::unique_ptr<Message> copy(message.New());
    copy->CopyFrom(message);
    std::vector<std::string> secrets;
    Walk(*copy, std::nullopt,
         [&secrets](Message& holder, FieldDescriptor const* field, Sensitivity sensitivity) {
             if (!IsMasked(sensitivity)) return;
             for (auto& value : Values(holder, field)) {
                 if (!value.empty()) secrets.push_back(std::move(value));
             }
         });
    return secrets;
}

}  // namespace Vellmark::Admin
