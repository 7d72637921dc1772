#pragma once
// The store as the page shows and edits it. On the way out every value is masked (there is
// no way to show a secret here). On the way back, the page's document holds the masks it
// was shown; each mask left as it was is put back to the clear value it stands for, so that
// saving an edit never writes a mask over a secret. A mask that stands for no stored value,
// or for more than one, refuses the edit: nothing is written.
//
// Pure functions of their arguments: any thread may call them.
#include <google/protobuf/message.h>

#include <memory>
#include <string>

#include "admin/Sensitivity.h"

namespace Vellmark::Console {

// The name under which the admin protocol keeps the service accounts.
inline constexpr char kServiceAccounts[] = "service-accounts";

// An empty message of the type that holds `resource` (a name of the resource table, or
// "service-accounts"), or null for a name that is neither.
std::unique_ptr<google::protobuf::Message> NewResourceMessage(std::string const& resource);

// `message` masked (Sensitivity.h), as indented JSON ("{}" when nothing is set).
std::string MaskedJson(google::protobuf::Message const& message);

// Puts back, in `edited`, the clear value of every mask that stands for a value of
// `stored` (the same type): first the value at the same place, then the only stored value
// of that field with that mask. Returns "" or what is wrong, naming the field.
std::string RestoreMasked(google::protobuf::Message& edited,
                          google::protobuf::Message const& stored);

}  // namespace Vellmark::Console
