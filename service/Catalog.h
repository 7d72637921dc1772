#pragma once
// Catalog: what vellmarkd does with each request, on top of its Store.
//
// Every operation that writes does so in one transaction and reports, in `changed`, the
// resources whose content changed, so that the caller can push their updates once the
// answer has been sent. Refusals come back as an Error with code 6 and a Code subcode,
// naming the request's identifier; nothing is written then. Their texts name accounts and
// persons in masked form, since they reach the service's log and every tool's output.
//
// Decisions of this service:
// - A service account appears as a source: create and update put a source with the
//   account's identifier into "sources", delete takes it out. A GVA account appears the
//   same way in "voice-accounts".
// - StorePresets merges by key: a preset replaces the stored one with its key or is added
//   at the end. Presets with an empty or repeated key are refused as a whole; since the
//   operation has no error path, the service then answers the stored list, unchanged.
// - Every answer and update must fit one frame (IPCFrameLimit.h), or the service would keep
//   what it cannot send: a write that would make a resource, or the answer to it, too big
//   is refused (CODE_RESOURCE_TOO_LARGE), and nothing of it is stored.
// - UpdateGVAAssistantDeviceId names no account: the product has one assistant device,
//   so every GVA account takes the new identifier; the answer is the oldest of them.
//   With no GVA account it is refused as an unknown account.
//
// Not thread-safe; used on the service's task, like its Store.
#include <ctime>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <variant>

#include "Errors.pb.h"
#include "VellmarkAcctOpEnvelope.pb.h"
#include "VellmarkAdmin.pb.h"
#include "VellmarkDeleteGVA.pb.h"
#include "VellmarkPresets.pb.h"
#include "admin/AdminProtocol.h"
#include "platform/ipc/IPCFrameLimit.h"
#include "service/store/Store.h"

namespace Vellmark::Service {

// Names of the resources changed by one operation.
using Changes = std::set<std::string>;

// A write that would make a resource, or an answer, too big for one frame. Nothing of it
// is stored.
class ResourceTooLarge : public std::invalid_argument {
public:
    using std::invalid_argument::invalid_argument;
};

template <class T>
using Outcome = std::variant<T, VellmarkPB::Error>;

class Catalog {
public:
    // Answers and updates must fit frames of `maxFrameBytes`.
    explicit Catalog(Store& store, std::size_t maxFrameBytes = IPCFrameLimit::MaxFrameBytes());

    // The stored resource, or its empty message when none was stored.
    std::unique_ptr<google::protobuf::Message> Read(Vellmark::Admin::ResourceInfo const& resource);
    // Replaces a resource. Throws StoreError, and ResourceTooLarge when its answer or update
    // would not fit one frame.
    void Write(Vellmark::Admin::ResourceInfo const& resource,
               google::protobuf::Message const& value, Changes& changed);
    // Throws StoreError when a stored resource would not fit one frame: a store written with
    // a larger frame limit.
    void CheckEveryResourceFits();

    // The stored presets after the merge, or why nothing was stored.
    Outcome<VellmarkPB::VellmarkPresets> StorePresets(VellmarkPB::VellmarkPresets const& presets,
                                                      Changes& changed);

    VellmarkPB::VellmarkAcctOpEnvelope CreateServiceAccount(
        VellmarkPB::serviceAccounts const& account, Changes& changed);
    VellmarkPB::VellmarkAcctOpEnvelope UpdateServiceAccount(
        VellmarkPB::serviceAccounts const& account, Changes& changed);
    VellmarkPB::VellmarkAcctOpEnvelope DeleteServiceAccount(
        VellmarkPB::VellmarkDeleteSrvcAccount const& request, Changes& changed);

    Outcome<VellmarkPB::serviceAccounts> CreateGVAAccount(
        VellmarkPB::serviceAccounts const& request, Changes& changed);
    Outcome<VellmarkPB::VellmarkDeleteGVA> DeleteGVAAccount(
        VellmarkPB::VellmarkDeleteGVA const& request, Changes& changed);
    Outcome<VellmarkPB::serviceAccounts> UpdateGVAAssistantDeviceId(
        VellmarkPB::serviceAccounts const& request, Changes& changed);

    // The whole store as one document, and its replacement by one (ResourceTooLarge when
    // a resource of it would not fit a frame).
    Vellmark::Admin::StoreDocument Export();
    void Seed(Vellmark::Admin::StoreDocument const& document, Changes& changed);
    Vellmark::Admin::ServiceAccountList Accounts();
    void PutAccounts(Vellmark::Admin::ServiceAccountList const& accounts);

private:
    // The body of the largest frame that carries `value` as the answer or the update of
    // `resource`.
    std::size_t FrameBytesOf(Vellmark::Admin::ResourceInfo const& resource,
                             google::protobuf::Message const& value) const;
    // Throws ResourceTooLarge when `reply`, the answer to a request under `id`, would not
    // fit one frame.
    void CheckReplyFits(unsigned int id, google::protobuf::Message const& reply) const;
    VellmarkPB::VellmarkAcctOpEnvelope AccountFailure(VellmarkPB::MessageId id,
                                                      VellmarkPB::Code code,
                                                      std::string const& text);
    // Puts (or with `remove`, takes out) the source entry of `account` in the list
    // `resourceName`.
    void MirrorAsSource(char const* resourceName, VellmarkPB::serviceAccounts const& account,
                        bool remove, Changes& changed);

    Store& m_store;
    std::size_t const m_maxFrameBytes;
};

// An Error with code 6, `code` as subcode, the request's identifier and `text`.
VellmarkPB::Error Refusal(VellmarkPB::MessageId id, VellmarkPB::Code code, std::string const& text);
// The time now, as the service writes it into createdOn and updatedOn (UTC, ISO 8601).
std::string Timestamp();
std::string Timestamp(std::time_t at);

}  // namespace Vellmark::Service
