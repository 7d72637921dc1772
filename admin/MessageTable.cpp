#include "admin/MessageTable.h"

#include <map>
#include <string>

#include "Errors.pb.h"
#include "VellmarkAcctOpEnvelope.pb.h"
#include "VellmarkDeleteGVA.pb.h"
#include "VellmarkDeleteSrvcAccount.pb.h"
#include "VellmarkMessageId.pb.h"
#include "VellmarkPresets.pb.h"
#include "VellmarkServiceAccounts.pb.h"
#include "admin/AdminProtocol.h"

namespace Vellmark::Admin {

namespace {

using VellmarkPB::MessageId;

// The identifiers that are not a resource's query or update: the operations of the
// client's interface that write, their error notifications, and the acknowledgement.
std::map<unsigned int, MessageInfo> Operations() {
    using namespace VellmarkPB;
    auto const* account = serviceAccounts::descriptor();
    auto const* envelope = VellmarkAcctOpEnvelope::descriptor();
    auto const* error = Error::descriptor();
    using Type = google::protobuf::Descriptor const*;
    auto row = [](unsigned int id, MessageRole role, Type request, Type reply, bool errorInReply,
                  unsigned int errorId) {
        return std::make_pair(id, MessageInfo{id, role, request, reply, errorInReply, errorId});
    };
    MessageRole const kRequest = MessageRole::Request;
    MessageRole const kError = MessageRole::ErrorNotification;
    return {
        row(VELLMARK_MESSAGE_STORE_PRESETS, kRequest, VellmarkPresets::descriptor(),
            VellmarkPresets::descriptor(), false, 0),
        row(VELLMARK_MESSAGE_CLOUDSYNC_RECEIVED, MessageRole::OneWay,
            CloudSyncReceived::descriptor(), nullptr, false, 0),
        row(VELLMARK_MESSAGE_GVA_CREATE, kRequest, account, account, false,
            VELLMARK_MESSAGE_GVA_CREATE_ERROR),
        row(VELLMARK_MESSAGE_GVA_DELETE, kRequest, VellmarkDeleteGVA::descriptor(),
            VellmarkDeleteGVA::descriptor(), false, VELLMARK_MESSAGE_GVA_DELETE_ERROR),
        row(VELLMARK_MESSAGE_GVA_UPDATE_DEVICE_ID, kRequest, account, account, false,
            VELLMARK_MESSAGE_GVA_UPDATE_ERROR),
        row(VELLMARK_MESSAGE_GVA_CREATE_ERROR, kError, nullptr, error, false, 0),
        row(VELLMARK_MESSAGE_GVA_DELETE_ERROR, kError, nullptr, error, false, 0),
        row(VELLMARK_MESSAGE_GVA_UPDATE_ERROR, kError, nullptr, error, false, 0),
        row(VELLMARK_MESSAGE_CREATE_SERVICE_ACCOUNT, kRequest, account, envelope, true, 0),
        row(VELLMARK_MESSAGE_UPDATE_SERVICE_ACCOUNT, kRequest, account, envelope, true, 0),
        row(VELLMARK_MESSAGE_DELETE_SERVICE_ACCOUNT, kRequest,
            VellmarkDeleteSrvcAccount::descriptor(), envelope, true, 0),
    };
}

MessageInfo RowOf(google::protobuf::EnumValueDescriptor const& value,
                  std::map<unsigned int, MessageInfo> const& operations) {
    auto const id = static_cast<unsigned int>(value.number());
    if (id == VellmarkPB::VELLMARK_MESSAGE_NONE) {
        return {id, MessageRole::None, nullptr, nullptr, false, 0};
    }
    // A query sends an empty message of its answer's type.
    if (auto const* resource = ResourceOfQuery(id)) {
        return {id, MessageRole::Request, resource->type, resource->type, false, 0};
    }
    for (auto const& resource : Resources()) {
        if (resource.updateId == id) {
            return {id, MessageRole::Update, nullptr, resource.type, false, 0};
        }
    }
    auto const operation = operations.find(id);
    if (operation != operations.end()) return operation->second;
    return {id, MessageRole::Reserved, nullptr, nullptr, false, 0};
}

}  // namespace

std::vector<MessageInfo> const& MessageTable() {
    static std::vector<MessageInfo> const table = [] {
        auto const operations = Operations();
        auto const* ids = VellmarkPB::MessageId_descriptor();
        std::vector<MessageInfo> rows;
        for (int i = 0; i < ids->value_count(); ++i)
            rows.push_back(RowOf(*ids->value(i), operations));
        return rows;
    }();
    return table;
}

MessageInfo const* FindMessage(unsigned int id) {
    for (auto const& row : MessageTable()) {
        if (row.id == id) return &row;
    }
    return nullptr;
}

char const* RoleName(MessageRole role) {
    switch (role) {
        case MessageRole::None:
            return "none";
        case MessageRole::Request:
            return "request";
        case MessageRole::Update:
            return "update";
        case MessageRole::ErrorNotification:
            return "error notification";
        case MessageRole::OneWay:
            return "one-way";
        case MessageRole::Reserved:
            return "reserved";
    }
    return "unknown";
}

}  // namespace Vellmark::Admin
