#pragma once
// What travels under each MessageId value: its part in the exchange, its payload types and
// how a failure of it reaches the client. Queries and updates come from the resource table
// (AdminProtocol.h), the rest from the operations of the client's interface; `vellmarkctl
// ids` prints it.
#include <google/protobuf/descriptor.h>

#include <vector>

namespace Vellmark::Admin {

enum class MessageRole {
    None,               // VELLMARK_MESSAGE_NONE
    Request,            // the client asks, the service answers under the same identifier
    Update,             // the service pushes a resource's new value
    ErrorNotification,  // the service pushes the Error that fails a request
    OneWay,             // the client tells, nothing answers
    Reserved,           // held back; nothing travels under it
};

struct MessageInfo {
    unsigned int id;
    MessageRole role;
    // The payload of the request (Request, OneWay) and of the answer, update or
    // notification; null where none travels.
    google::protobuf::Descriptor const* request;
    google::protobuf::Descriptor const* reply;
    // How a refusal reaches the client: in the reply itself (its envelope carries the
    // Error), or as the Error notification under `errorId`. Neither: no error path.
    bool errorInReply;
    unsigned int errorId;
};

// One row per MessageId value, in the enum's order.
std::vector<MessageInfo> const& MessageTable();
// The row of `id`, or null for a value the enum does not have.
MessageInfo const* FindMessage(unsigned int id);
char const* RoleName(MessageRole role);

}  // namespace Vellmark::Admin
