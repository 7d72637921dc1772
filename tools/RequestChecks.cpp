#include "tools/RequestChecks.h"

#include <map>
#include <set>

#include "VellmarkAdmin.pb.h"
#include "VellmarkDeleteGVA.pb.h"
#include "VellmarkDeleteSrvcAccount.pb.h"
#include "VellmarkMessageId.pb.h"
#include "VellmarkPresets.pb.h"
#include "VellmarkServiceAccounts.pb.h"
#include "admin/AdminProtocol.h"
#include "admin/Json.h"
#include "admin/Sensitivity.h"
#include "platform/ipc/IPCFrameLimit.h"
#include "tools/Command.h"

namespace Vellmark::Ctl {
namespace {

// JSON text per byte of the frame it makes, at most: a pretty-printed list of presets
// (names, quotes, two spaces of indentation a level) takes about three.
constexpr std::size_t kTextPerFrameByte = 4;

// Throws BadInput: "SOURCE:LINE:COLUMN: <path>: <why>; nothing was sent", or without the
// place when the command line made the request.
[[noreturn]] void Refuse(Document const* document, std::string const& path,
                         std::string const& why) {
    std::string const where = document ? document->Where(path) + ": " : "";
    throw BadInput(where + (path.empty() ? "" : path + ": ") + why + "; nothing was sent");
}

void CheckNotMasked(google::protobuf::Message const& message, Document const* document) {
    auto const masked = Vellmark::Admin::FindMaskedValue(message);
    if (!masked) return;
    std::string const where = document ? document->Where(masked->path) + ": " : "";
    throw BadInput(where + Vellmark::Admin::DescribeMaskedValue(*masked) +
                   ". Sent, it would replace the clear value for good. Start from a document "
                   "that has them in clear: `vellmarkctl get RESOURCE --show-secrets`, "
                   "`vellmarkctl admin get RESOURCE --show-secrets` or `vellmarkctl admin "
                   "export`; nothing was sent");
}

void CheckPresetKeys(VellmarkPB::VellmarkPresets const& presets, Document const* document) {
    std::map<std::string, int> first;
    for (int i = 0; i < presets.presets_size(); ++i) {
        std::string const place = "presets[" + std::to_string(i) + "]";
        auto const& key = presets.presets(i).key();
        if (key.empty()) {
            Refuse(document, place + ".key",
                   "empty; every preset needs a key of its own (the service would store none "
                   "of the list)");
        }
        auto const [earlier, added] = first.emplace(key, i);
        if (!added) {
            Refuse(document, place + ".key",
                   "\"" + key + "\" is the key of presets[" + std::to_string(earlier->second) +
                       "] too; every preset needs a key of its own (the service would store "
                       "none of the list)");
        }
    }
}

void CheckNotEmpty(std::string const& value, std::string const& path, Document const* document) {
    if (value.empty()) Refuse(document, path, "empty; the service refuses a request without it");
}

void CheckAccounts(google::protobuf::RepeatedPtrField<VellmarkPB::serviceAccounts> const& accounts,
                   std::string const& field, Document const& document) {
    std::map<std::string, int> first;
    for (int i = 0; i < accounts.size(); ++i) {
        std::string const place = field + "[" + std::to_string(i) + "].accountID";
        auto const& id = accounts.Get(i).accountid();
        if (id.empty()) Refuse(&document, place, "empty; every service account needs one");
        auto const [earlier, added] = first.emplace(id, i);
        if (!added) {
            Refuse(&document, place,
                   "the accountID of " + field + "[" + std::to_string(earlier->second) +
                       "] too; the service refuses accounts that share one");
        }
    }
}

}  // namespace

std::size_t RequestDocumentBytes() {
    return kTextPerFrameByte * IPCFrameLimit::MaxFrameBytes();
}

std::size_t AdminDocumentBytes() {
    return Vellmark::Admin::kMaxAdminRequestBytes;
}

Document LoadDocument(std::string const& path, google::protobuf::Message& message,
                      std::size_t maxBytes) {
    Document document = ReadDocument(path, maxBytes);
    std::string const problem = Vellmark::Json::Parse(document.text, message);
    if (!problem.empty()) {
        throw BadInput(document.Where(PlaceInParserProblem(problem)) + ": not a " +
                       message.GetDescriptor()->name() + " document: " + problem +
                       " (`vellmarkctl describe " + message.GetDescriptor()->name() +
                       "` lists its fields)");
    }
    return document;
}

void CheckRequest(unsigned int id, google::protobuf::Message const& request,
                  Document const* document) {
    using namespace VellmarkPB;
    CheckNotMasked(request, document);
    switch (id) {
        case VELLMARK_MESSAGE_STORE_PRESETS:
            if (auto const* presets = dynamic_cast<VellmarkPresets const*>(&request)) {
                CheckPresetKeys(*presets, document);
            }
            break;
        case VELLMARK_MESSAGE_CREATE_SERVICE_ACCOUNT:
        case VELLMARK_MESSAGE_UPDATE_SERVICE_ACCOUNT:
            if (auto const* account = dynamic_cast<serviceAccounts const*>(&request)) {
                CheckNotEmpty(account->accountid(), "accountID", document);
            }
            break;
        case VELLMARK_MESSAGE_DELETE_SERVICE_ACCOUNT:
            if (auto const* remove = dynamic_cast<VellmarkDeleteSrvcAccount const*>(&request)) {
                CheckNotEmpty(remove->accountid(), "accountID", document);
            }
            break;
        case VELLMARK_MESSAGE_GVA_CREATE:
            if (auto const* account = dynamic_cast<serviceAccounts const*>(&request)) {
                CheckNotEmpty(account->tarvpersonid(), "tarvPersonID", document);
                CheckNotEmpty(account->provideraccountid(), "providerAccountID", document);
            }
            break;
        case VELLMARK_MESSAGE_GVA_DELETE:
            if (auto const* remove = dynamic_cast<VellmarkDeleteGVA const*>(&request)) {
                CheckNotEmpty(remove->accountid(), "accountID", document);
            }
            break;
        case VELLMARK_MESSAGE_GVA_UPDATE_DEVICE_ID:
            if (auto const* account = dynamic_cast<serviceAccounts const*>(&request)) {
                CheckNotEmpty(account->attributes().assistantdeviceid(),
                              "attributes.assistantDeviceId", document);
            }
            break;
        default:
            break;
    }
    CheckFits(id, request);
}

void CheckAdminDocument(google::protobuf::Message const& value, Document const& document) {
    CheckNotMasked(value, &document);
    if (auto const* store = dynamic_cast<Vellmark::Admin::StoreDocument const*>(&value)) {
        CheckAccounts(store->serviceaccounts(), "serviceAccounts", document);
    } else if (auto const* list =
                   dynamic_cast<Vellmark::Admin::ServiceAccountList const*>(&value)) {
        CheckAccounts(list->serviceaccounts(), "serviceAccounts", document);
    }
}

}  // namespace Vellmark::Ctl
