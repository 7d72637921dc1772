#include "Masking.h"

#include <cstring>

#include "Redact.h"

namespace {

// The longest masked token shown.
constexpr unsigned int kTokenLength = 350;

char const* const kIdentifiers[] = {"accountID", "tarvPersonID", "providerAccountID",
                                    "tarvpersonid", "productID"};
char const* const kTokens[] = {"access_token", "refresh_token", "accessToken",
                               "refreshToken", "idToken",       "uidSignature"};

template <std::size_t N>
bool Named(std::string const& name, char const* const (&names)[N]) {
    for (char const* candidate : names) {
        if (name == candidate) return true;
    }
    return false;
}

void MaskString(google::protobuf::Message& message, google::protobuf::FieldDescriptor const* field,
                bool token) {
    auto const* reflection = message.GetReflection();
    std::string const value = reflection->GetString(message, field);
    reflection->SetString(
        &message, field,
        token ? Redact::RedactTokens(value, kTokenLength) : Redact::RedactID(value, '-'));
}

}  // namespace

void MaskSensitiveFields(google::protobuf::Message& message) {
    auto const* reflection = message.GetReflection();
    std::vector<google::protobuf::FieldDescriptor const*> fields;
    reflection->ListFields(message, &fields);
    for (auto const* field : fields) {
        using Type = google::protobuf::FieldDescriptor;
        if (field->cpp_type() == Type::CPPTYPE_MESSAGE) {
            // A source's account is a wrapper: its text is the identifier.
            bool const wrappedId = field->name() == "accountid";
            if (field->is_repeated()) {
                for (int i = 0; i < reflection->FieldSize(message, field); ++i) {
                    MaskSensitiveFields(*reflection->MutableRepeatedMessage(&message, field, i));
                }
                continue;
            }
            auto* inner = reflection->MutableMessage(&message, field);
            if (wrappedId) {
                auto const* text = inner->GetDescriptor()->FindFieldByName("text");
                if (text && inner->GetReflection()->HasField(*inner, text)) {
                    MaskString(*inner, text, false);
                }
            }
            MaskSensitiveFields(*inner);
        } else if (field->cpp_type() == Type::CPPTYPE_STRING && !field->is_repeated()) {
            // The service gives an account's source the account's identifier.
            bool const sourceId =
                field->name() == "id" && message.GetDescriptor()->name() == "source";
            if (sourceId || Named(field->name(), kIdentifiers)) {
                MaskString(message, field, false);
            } else if (Named(field->name(), kTokens)) {
                MaskString(message, field, true);
            }
        }
    }
}
