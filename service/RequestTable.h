#pragma once
// The requests of the product's endpoint, one row per identifier: what its payload is
// decoded as, which Catalog operation answers it, and how a refusal of it travels. An
// identifier without a row is no request of this service's.
//
// MessageTable (admin/MessageTable.h) tells the tools the same of every identifier: its
// payload types and where its error goes. The two must agree; Disagreements says where they
// do not, and the service does not start then.
#include <google/protobuf/descriptor.h>

#include <string>
#include <vector>

#include "VellmarkMessageId.pb.h"
#include "admin/AdminProtocol.h"
#include "framework/ipc/IPCMessageEnvelope.h"
#include "service/Catalog.h"

namespace Vellmark::Service {

// How a refusal of a request reaches its client.
enum class RefusalRoute {
    None,          // no error path: the client hears nothing
    InReply,       // in the reply: a VellmarkAcctOpEnvelope with success false and the Error
    Notification,  // as an Error notification under the identifier's error identifier
};

struct RequestRow {
    unsigned int id;
    // What the payload is decoded as, and what answers it.
    google::protobuf::Descriptor const* request;
    google::protobuf::Descriptor const* reply;
    RefusalRoute route;
    // For RefusalRoute::Notification: the identifier the Error goes under (MessageTable's).
    unsigned int errorId;
    // A query: the resource it answers, as stored, whatever its payload. Null for a write.
    Vellmark::Admin::ResourceInfo const* query;
    // A write: decodes `payload` and runs the Catalog's operation; the answer, or the
    // refusal to send on `route`. Null for a query.
    Outcome<IPCMessageEnvelope> (*write)(Catalog& catalog, VellmarkPB::MessageId id,
                                         IPCMessageEnvelope const& payload, Changes& changed);
};

// Every row, in the order of the identifiers.
std::vector<RequestRow> const& RequestTable();
// The row of `id`, or null when the service serves no request under it.
RequestRow const* FindRequest(unsigned int id);
// Where `rows` and MessageTable disagree, one line each: a request of either without a row
// in the other (or with two rows), other payload types, another refusal route. Empty when
// they agree.
std::vector<std::string> Disagreements(std::vector<RequestRow> const& rows);

}  // namespace Vellmark::Service
