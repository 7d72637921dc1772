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

// Calls `visit` for every set text field of `message`, at any depth, with its class.
using Visitor = std::function<void(Message&, FieldDescriptor const*, Sensitivity)>;
void Walk(Message& message, std::optional<Sensitivity> holder, Visitor const& visit) {
    auto const* reflection = message.GetReflection();
    std::vector<FieldDescriptor const*> fields;
    reflection->ListFields(message, &fields);
    for (auto const* field : fields) {
        if (field->cpp_type() == FieldDescriptor::CPPTYPE_MESSAGE) {
            // What the field wraps takes its class; other messages are classed field by field.
            auto const inner = SensitivityOf(field);
            if (!field->is_repeated()) {
                Walk(*reflection->MutableMessage(&message, field), inner, visit);
                continue;
            }
            for (int i = 0; i < reflection->FieldSize(message, field); ++i) {
                Walk(*reflection->MutableRepeatedMessage(&message, field, i), inner, visit);
            }
        } else if (field->cpp_type() == FieldDescriptor::CPPTYPE_STRING) {
            visit(message, field, ClassOf(field, holder));
        }
    }
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
