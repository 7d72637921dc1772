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
//   operation has no error path, the answer is then the stored list, unchanged.
// - UpdateGVAAssistantDeviceId names no account: the product has one assistant device,
//   so every GVA account takes the new identifier; the answer is the oldest of them.
//   With no GVA account it is refused as an unknown account.
//
// Not thread-safe; used on the service's task, like its Store.
#include <memory>
#include <set>
#include <string>
#include <variant>

#include "AdminProtocol.h"
#include "Errors.pb.h"
#include "Store.h"
#include "VellmarkAcctOpEnvelope.pb.h"
#include "VellmarkAdmin.pb.h"
#include "VellmarkDeleteGVA.pb.h"
#include "VellmarkPresets.pb.h"

// Names of the resources changed by one operation.
using Changes = std::set<std::string>;

template <class T>
using Outcome = std::variant<T, VellmarkPB::Error>;

class Catalog {
public:
    explicit Catalog(Store& store);

    // The stored resource, or its empty message when none was stored.
    std::unique_ptr<google::protobuf::Message> Read(VellmarkAdmin::ResourceInfo const& resource);
    // Replaces a resource. Throws StoreError.
    void Write(VellmarkAdmin::ResourceInfo const& resource, google::protobuf::Message const& value,
               Changes& changed);

    VellmarkPB::VellmarkPresets StorePresets(VellmarkPB::VellmarkPresets const& presets,
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

    // The whole store as one document, and its replacement by one.
    VellmarkAdmin::StoreDocument Export();
    void Seed(VellmarkAdmin::StoreDocument const& document, Changes& changed);
    VellmarkAdmin::ServiceAccountList Accounts();
    void PutAccounts(VellmarkAdmin::ServiceAccountList const& accounts);

private:
    VellmarkPB::VellmarkAcctOpEnvelope AccountFailure(VellmarkPB::MessageId id,
                                                      VellmarkPB::Code code,
                                                      std::string const& text);
    // Puts (or with `remove`, takes out) the source entry of `account` in the list
    // `resourceName`.
    void MirrorAsSource(char const* resourceName, VellmarkPB::serviceAccounts const& account,
                        bool remove, Changes& changed);

    Store& m_store;
};

// An Error with code 6, `code` as subcode, the request's identifier and `text`.
VellmarkPB::Error Refusal(VellmarkPB::MessageId id, VellmarkPB::Code code, std::string const& text);
// The time now, as the service writes it into createdOn and updatedOn (UTC, ISO 8601).
std::string Timestamp();
