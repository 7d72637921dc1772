#pragma once
// How sensitive each text field of the schema is, and the one masking that vellmarkd and
// its tools apply before they show a message.
//
// Every string and bytes field of the product's schema, of the service's messages and of
// the admin protocol has one entry in a table (SensitivityTable.cpp); a unit test walks
// every descriptor and fails on a field the table leaves out, so a new field is classified
// before it can be shown. A field that only wraps a text (a source's `Name`, `AccountId`)
// is Wrapped: it takes its class from the field that holds the wrapper, which the table
// classifies instead ("username" is a user name, "name" free text, both of type `Name`).
//
// Masking keeps a value recognisable without revealing it, in the shape of the client
// library's own redaction: identifiers and user names through Redact::RedactID with '-',
// tokens through Redact::RedactTokens bounded at 350. Free text and values that are not
// sensitive stay in clear: labels people typed are what a reader needs to follow a trace.
//
// Pure functions of their arguments: any thread may call them at once.
#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Vellmark::Admin {

enum class Sensitivity {
    Token,         // a token or credential: masked as a token
    AccountId,     // an account's identifier, here or at a provider: masked as an identifier
    PersonId,      // a person's identifier: masked as an identifier
    UserName,      // a user name or an e-mail address: masked as an identifier
    FreeText,      // text people write (names, messages): shown
    NotSensitive,  // kinds, times, settings, product data: shown
    Wrapped,       // the text of a wrapper: classified by the field holding the wrapper
};

// The class of `field` (of any type), or nothing when the table does not name it.
std::optional<Sensitivity> SensitivityOf(google::protobuf::FieldDescriptor const* field);
// Every field the table names, by full name, with its class: for checks of the table.
std::vector<std::pair<std::string, Sensitivity>> SensitivityTable();

// True for the classes whose values are masked.
bool IsMasked(Sensitivity sensitivity);
// `value` masked as its class asks (unchanged for the classes that are shown).
std::string Masked(Sensitivity sensitivity, std::string const& value);

// Masks, in place and at any depth, every set field whose class is masked. A field that
// the table does not classify is masked as a token: what is not known to be safe is not
// shown.
void Mask(google::protobuf::Message& message);
// A value that LooksMasked, and where it is: "presets[0].value.actions[0].metadata.accountID"
// (schema names; an index after a repeated field).
struct MaskedValue {
    std::string path;
    Sensitivity sensitivity;
    std::string value;
};
// True when `value`, of a class that is masked, is already masked: not empty, and left as
// it is by masking. A document printed masked and read back holds such values; written,
// they would replace the clear ones for good.
bool LooksMasked(Sensitivity sensitivity, std::string const& value);
// The first set field of `message`, at any depth and in field order, whose value
// LooksMasked; nothing when there is none.
std::optional<MaskedValue> FindMaskedValue(google::protobuf::Message const& message);
// "<path> holds a masked value (\"<value>\"), as tools print secrets unless asked for them in
// clear": the start of a refusal of such a document.
std::string DescribeMaskedValue(MaskedValue const& masked);

// The set, non-empty values that Mask would hide, in clear: for checks that an output
// shows none of them.
std::vector<std::string> SecretValues(google::protobuf::Message const& message);

}  // namespace Vellmark::Admin
