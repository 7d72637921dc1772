#pragma once
// Masks, in place and at any depth of a message, what must not be shown in clear:
// account and person identifiers with Redact::RedactID, tokens with Redact::RedactTokens.
// Fields are recognised by name, so every schema that uses these names is covered.
#include <google/protobuf/message.h>

void MaskSensitiveFields(google::protobuf::Message& message);
