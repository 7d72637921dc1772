#pragma once
// What `vellmarkctl describe` prints: the fields of a message type (names, numbers,
// labels, types, defaults, sensitivity) and of every message type inside it, what travels
// under a message identifier, and an input document to fill. Read from the descriptors
// and from the identifier table (admin/MessageTable.h), so nothing here can fall behind
// the schema. Pure; any thread may call them.
#include <google/protobuf/descriptor.h>

#include <string>

#include "admin/MessageTable.h"

namespace Vellmark::Ctl {

// The message type named `name`: a full name ("VellmarkPB.serviceAccounts") or, in the
// product's and the admin protocol's packages, a short one ("serviceAccounts",
// "StoreDocument"); null when there is none.
google::protobuf::Descriptor const* FindMessageType(std::string const& name);

// `type` as a JSON object: {"type", "fields": [...], "messages": [every message type its
// fields hold, at any depth, once each]}.
std::string DescribeType(google::protobuf::Descriptor const* type, bool pretty);
// The identifier's row as a JSON object: id, name, role, the description of its request
// and of its reply (as DescribeType), and where a refusal comes back.
std::string DescribeMessage(Vellmark::Admin::MessageInfo const& info, bool pretty);

// A document of `type` with every field present (one element in each list; only the first
// member of each oneof; a type inside itself left out), text empty, numbers 0, enums their
// first value: what to fill in. It parses back as `type`.
std::string TemplateOf(google::protobuf::Descriptor const* type, bool pretty);
// The document to fill for a request under the identifier: TemplateOf its request type,
// or {} for a query, which sends an empty message. Empty when nothing is sent under it.
std::string RequestTemplateOf(Vellmark::Admin::MessageInfo const& info, bool pretty);

}  // namespace Vellmark::Ctl
