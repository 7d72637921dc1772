#pragma once
// Catalog: what vellmarkd does with each request, on top of its Store.
//
// Every write returns an Outcome: what it answers, or the Error that refuses it (code 6,
// a Code subcode, the request's identifier, a text). A refused write leaves the store as
// it was; one that goes through reports, in `changed`, the resources whose content
// changed, so that the caller can push their updates once the answer has been sent.
// Refusal texts name accounts and persons in masked form, since they reach the service's
// log and every tool's output. Only a failing store throws (StoreError).
//
// Decisions of this service:
// - A service account appears as a source: create and update put a source with the
//   account's identifier into "sources", delete takes it out. A GVA account appears the
//   same way in "voice-accounts".
// - StorePresets merges by key: a preset replaces the stored one with its key or is added
//   at the end. Presets with an empty or repeated key are refused as a whole.
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
#include <optional>
#include <set>
#include <string>
#include <type_traits>
#include <variant>

#include "Errors.pb.h"
#include "VellmarkAcctOpEnvelope.pb.h"
#include "VellmarkAdmin.pb.h"
#include "VellmarkDeleteGVA.pb.h"
#include "VellmarkMessageId.pb.h"
#include "VellmarkPresets.pb.h"
#include "admin/AdminProtocol.h"
#include "platform/ipc/IPCFrameLimit.h"
#include "service/store/Store.h"

namespace Vellmark::Service {

// Names of the resources changed by one operation.
using Changes = std::set<std::string>;

// What a write answers, or the Error that refuses it.
template <class T>
using Outcome = std::variant<T, VellmarkPB::Error>;

// What a write answers that tells nothing but that it went through (the admin's imports).
struct Written {};

class Catalog {
public:
    // Answers and updates must fit frames of `maxFrameBytes`.
    explicit Catalog(Store& store, std::size_t maxFrameBytes = IPCFrameLimit::MaxFrameBytes());

    // The stored resource, or its empty message when none was stored.
    std::unique_ptr<google::protobuf::Message> Read(Vellmark::Admin::ResourceInfo const& resource);
    // Throws StoreError when a stored resource would not fit one frame: a store written with
    // a larger frame limit.
    void CheckEveryResourceFits();

    // The product's writes, each answering with its identifier's reply as it travels: the
    // presets as stored after the merge; a service account's VellmarkAcctOpEnvelope; the
    // GVA account, or the deletion's result.
    Outcome<VellmarkPB::VellmarkPresets> StorePresets(VellmarkPB::VellmarkPresets const& presets,
                                                      Changes& changed);
    Outcome<VellmarkPB::VellmarkAcctOpEnvelope> CreateServiceAccount(
        VellmarkPB::serviceAccounts const& account, Changes& changed);
    Outcome<VellmarkPB::VellmarkAcctOpEnvelope> UpdateServiceAccount(
        VellmarkPB::serviceAccounts const& account, Changes& changed);
    Outcome<VellmarkPB::VellmarkAcctOpEnvelope> DeleteServiceAccount(
        VellmarkPB::VellmarkDeleteSrvcAccount const& request, Changes& changed);
    Outcome<VellmarkPB::serviceAccounts> CreateGVAAccount(
        VellmarkPB::serviceAccounts const& request, Changes& changed);
    Outcome<VellmarkPB::VellmarkDeleteGVA> DeleteGVAAccount(
        VellmarkPB::VellmarkDeleteGVA const& request, Changes& changed);
    Outcome<VellmarkPB::serviceAccounts> UpdateGVAAssistantDeviceId(
        VellmarkPB::serviceAccounts const& request, Changes& changed);

    // The admin's writes, whose refusals name no request: one resource replaced, the whole
    // store replaced by one document, every service account replaced.
    Outcome<Written> Put(Vellmark::Admin::ResourceInfo const& resource,
                         google::protobuf::Message const& value, Changes& changed);
    Outcome<Written> Seed(Vellmark::Admin::StoreDocument const& document, Changes& changed);
    Outcome<Written> PutAccounts(Vellmark::Admin::ServiceAccountList const& accounts);
    // The whole store as one document, and every service account.
    Vellmark::Admin::StoreDocument Export();
    Vellmark::Admin::ServiceAccountList Accounts();

private:
    // Whether a write lists an account as a source or takes it out.
    enum class Listing { Listed, Unlisted };

    // The skeleton of every write, once it is validated: `write` runs in one transaction,
    // noting what it changes in the Changes it is given, and gives the answer or refuses.
    // The answer must fit one frame under `id`. Only an answer commits, and only then are
    // the changes added to `changed`; a refusal leaves the store and `changed` as they were.
    template <class Reply, class Write>
    Outcome<Reply> Transact(VellmarkPB::MessageId id, Changes& changed, Write write);
    // Puts `value` as `resource` and notes it in `changed`; or, when its answer or update
    // would not fit one frame, puts nothing and gives the refusal of the request `id`.
    std::optional<VellmarkPB::Error> PutResource(VellmarkPB::MessageId id,
                                                 Vellmark::Admin::ResourceInfo const& resource,
                                                 google::protobuf::Message const& value,
                                                 Changes& changed);
    // Lists `account` as a source in `list`, in place of the entry with its identifier, or
    // takes that entry out; refused like PutResource.
    std::optional<VellmarkPB::Error> MirrorAsSource(VellmarkPB::MessageId id,
                                                    Vellmark::Admin::ResourceInfo const& list,
                                                    VellmarkPB::serviceAccounts const& account,
                                                    Listing listing, Changes& changed);
    // The list an account appears in as a source.
    Vellmark::Admin::ResourceInfo const& ListOf(VellmarkPB::serviceAccounts const& account) const;
    // The refusal of the request `id` when `reply` would not fit one frame under it.
    std::optional<VellmarkPB::Error> ReplyTooLarge(VellmarkPB::MessageId id,
                                                   google::protobuf::Message const& reply) const;
    // The body of the largest frame that carries `value` as the answer or the update of
    // `resource`.
    std::size_t FrameBytesOf(Vellmark::Admin::ResourceInfo const& resource,
                             google::protobuf::Message const& value) const;

    Store& m_store;
    std::size_t const m_maxFrameBytes;
    // The resources the product's writes change.
    Vellmark::Admin::ResourceInfo const& m_presets;
    Vellmark::Admin::ResourceInfo const& m_sources;
    Vellmark::Admin::ResourceInfo const& m_voiceAccounts;
};

// Here for both files of the Catalog's writes (Catalog.cpp, CatalogAccounts.cpp).
template <class Reply, class Write>
Outcome<Reply> Catalog::Transact(VellmarkPB::MessageId id, Changes& changed, Write write) {
    Changes written;
    Store::Transaction transaction(m_store);
    Outcome<Reply> outcome = write(written);
    auto const* reply = std::get_if<Reply>(&outcome);
    if (!reply) return outcome;
    if constexpr (std::is_base_of_v<google::protobuf::Message, Reply>) {
        if (auto refusal = ReplyTooLarge(id, *reply)) return *refusal;
    }
    transaction.Commit();
    changed.insert(written.begin(), written.end());
    return outcome;
}

// An Error with code 6, `code` as subcode, the request's identifier and `text`.
VellmarkPB::Error Refusal(VellmarkPB::MessageId id, VellmarkPB::Code code, std::string const& text);
// The time now, as the service writes it into createdOn and updatedOn (UTC, ISO 8601).
std::string Timestamp();
std::string Timestamp(std::time_t at);

}  // namespace Vellmark::Service
