#include "service/Catalog.h"

#include <google/protobuf/message.h>

#include <algorithm>
#include <ctime>
#include <stdexcept>
#include <type_traits>

#include "VellmarkSources.pb.h"
#include "admin/Sensitivity.h"

namespace Vellmark::Service {

using Vellmark::Admin::Masked;
using Vellmark::Admin::ResourceInfo;
using Vellmark::Admin::Sensitivity;
using VellmarkPB::Code;
using VellmarkPB::MessageId;

namespace {

char const kProviderGVA[] = "GVA";
char const kVoiceAssistantType[] = "VPA";
// The admin's writes answer no request.
constexpr MessageId kNoRequest = VellmarkPB::VELLMARK_MESSAGE_NONE;

bool IsGVA(VellmarkPB::serviceAccounts const& account) {
    return account.provider() == kProviderGVA;
}

// A resource of the table; its absence is a fault of the build, found at start.
ResourceInfo const& Resource(char const* name) {
    auto const* resource = Vellmark::Admin::FindResource(name);
    if (!resource) throw std::logic_error(std::string("no resource ") + name);
    return *resource;
}

VellmarkPB::VellmarkSource_source SourceOf(VellmarkPB::serviceAccounts const& account) {
    VellmarkPB::VellmarkSource_source source;
    source.set_id(account.accountid());
    if (account.has_accounttype()) source.set_type(account.accounttype());
    source.mutable_sourceproviderid()->set_text(account.provider());
    if (account.has_name()) source.mutable_name()->set_text(account.name());
    source.mutable_accountid()->set_text(account.accountid());
    if (account.has_tarvpersonid()) source.set_tarvpersonid(account.tarvpersonid());
    if (account.has_createdon()) source.mutable_createdon()->set_text(account.createdon());
    if (account.has_updatedon()) source.mutable_updatedon()->set_text(account.updatedon());
    return source;
}

VellmarkPB::VellmarkAcctOpEnvelope AccountSuccess(VellmarkPB::serviceAccounts const& account) {
    VellmarkPB::VellmarkAcctOpEnvelope reply;
    reply.set_success(true);
    *reply.mutable_account() = account;
    return reply;
}

std::size_t EnvelopeFrameBytes(unsigned int id, google::protobuf::Message const& message) {
    IPCMessageEnvelope envelope;
    envelope.SetPayload(message);
    return IPCFrameLimit::FrameBytes(id, envelope);
}

// Refuses accounts without an identifier or with one used twice.
std::optional<VellmarkPB::Error> CheckAccounts(
    google::protobuf::RepeatedPtrField<VellmarkPB::serviceAccounts> const& accounts) {
    std::set<std::string> ids;
    for (auto const& account : accounts) {
        if (account.accountid().empty()) {
            return Refusal(kNoRequest, VellmarkPB::CODE_EMPTY_ACCOUNT_ID,
                           "a service account without accountID");
        }
        if (!ids.insert(account.accountid()).second) {
            return Refusal(kNoRequest, VellmarkPB::CODE_DUPLICATE_ACCOUNT,
                           "service account " +
                               Masked(Sensitivity::AccountId, account.accountid()) +
                               " appears twice");
        }
    }
    return std::nullopt;
}

}  // namespace

VellmarkPB::Error Refusal(MessageId id, Code code, std::string const& text) {
    VellmarkPB::Error error;
    error.set_code(6);
    error.set_subcode(code);
    // A number that is no MessageId value cannot travel in the field.
    if (VellmarkPB::MessageId_IsValid(id)) error.set_messageid(id);
    error.set_message(text);
    return error;
}

std::string Timestamp() {
    return Timestamp(std::time(nullptr));
}

std::string Timestamp(std::time_t at) {
    std::tm utc{};
    gmtime_r(&at, &utc);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc);
    return text;
}

Catalog::Catalog(Store& store, std::size_t maxFrameBytes)
    : m_store(store),
      m_maxFrameBytes(maxFrameBytes),
      m_presets(Resource("presets")),
      m_sources(Resource("sources")),
      m_voiceAccounts(Resource("voice-accounts")) {}

template <class Reply, class Write>
Outcome<Reply> Catalog::Transact(MessageId id, Changes& changed, Write write) {
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

std::size_t Catalog::FrameBytesOf(ResourceInfo const& resource,
                                  google::protobuf::Message const& value) const {
    std::size_t bytes = 0;
    for (unsigned int id : {resource.queryId, resource.updateId}) {
        if (id != 0) bytes = std::max(bytes, EnvelopeFrameBytes(id, value));
    }
    return bytes;
}

std::optional<VellmarkPB::Error> Catalog::ReplyTooLarge(
    MessageId id, google::protobuf::Message const& reply) const {
    std::size_t const bytes = EnvelopeFrameBytes(id, reply);
    if (bytes <= m_maxFrameBytes) return std::nullopt;
    return Refusal(id, VellmarkPB::CODE_RESOURCE_TOO_LARGE,
                   "the answer would take a frame of " + std::to_string(bytes) +
                       " bytes, over the frame limit of " + std::to_string(m_maxFrameBytes));
}

void Catalog::CheckEveryResourceFits() {
    for (auto const& resource : Vellmark::Admin::Resources()) {
        std::size_t const bytes = FrameBytesOf(resource, *Read(resource));
        if (bytes > m_maxFrameBytes) {
            throw StoreError(m_store.Path(),
                             std::string(resource.name) + " takes a frame of " +
                                 std::to_string(bytes) + " bytes, over the frame limit of " +
                                 std::to_string(m_maxFrameBytes) +
                                 " bytes: it could never be sent. Start with a larger "
                                 "--max-frame-bytes (the store was written with one)");
        }
    }
}

std::unique_ptr<google::protobuf::Message> Catalog::Read(ResourceInfo const& resource) {
    std::unique_ptr<google::protobuf::Message> message(
        google::protobuf::MessageFactory::generated_factory()->GetPrototype(resource.type)->New());
    auto const bytes = m_store.Resource(resource.name);
    if (bytes && !message->ParsePartialFromString(*bytes)) {
        throw StoreError(m_store.Path(), std::string("damaged resource ") + resource.name);
    }
    return message;
}

std::optional<VellmarkPB::Error> Catalog::PutResource(MessageId id, ResourceInfo const& resource,
                                                      google::protobuf::Message const& value,
                                                      Changes& changed) {
    std::size_t const bytes = FrameBytesOf(resource, value);
    if (bytes > m_maxFrameBytes) {
        return Refusal(id, VellmarkPB::CODE_RESOURCE_TOO_LARGE,
                       std::string(resource.name) + " would take a frame of " +
                           std::to_string(bytes) + " bytes, over the frame limit of " +
                           std::to_string(m_maxFrameBytes) + "; nothing was stored");
    }
    m_store.PutResource(resource.name, value.SerializePartialAsString());
    changed.insert(resource.name);
    return std::nullopt;
}

ResourceInfo const& Catalog::ListOf(VellmarkPB::serviceAccounts const& account) const {
    return IsGVA(account) ? m_voiceAccounts : m_sources;
}

std::optional<VellmarkPB::Error> Catalog::MirrorAsSource(MessageId id, ResourceInfo const& list,
                                                         VellmarkPB::serviceAccounts const& account,
                                                         Listing listing, Changes& changed) {
    VellmarkPB::sources stored;
    stored.CopyFrom(*Read(list));
    auto* sources = stored.mutable_source();
    int found = -1;
    for (int i = 0; i < sources->size(); ++i) {
        if (sources->Get(i).id() == account.accountid()) found = i;
    }
    if (listing == Listing::Unlisted) {
        if (found < 0) return std::nullopt;
        sources->DeleteSubrange(found, 1);
    } else if (found >= 0) {
        *sources->Mutable(found) = SourceOf(account);
    } else {
        *sources->Add() = SourceOf(account);
    }
    return PutResource(id, list, stored, changed);
}

Outcome<VellmarkPB::VellmarkPresets> Catalog::StorePresets(
    VellmarkPB::VellmarkPresets const& presets, Changes& changed) {
    auto const id = VellmarkPB::VELLMARK_MESSAGE_STORE_PRESETS;
    std::set<std::string> keys;
    for (auto const& preset : presets.presets()) {
        if (preset.key().empty() || !keys.insert(preset.key()).second) {
            return Refusal(id, VellmarkPB::CODE_DUPLICATE_PRESET_KEY,
                           "every preset needs a key of its own; nothing was stored");
        }
    }
    VellmarkPB::VellmarkPresets stored;
    stored.CopyFrom(*Read(m_presets));
    for (auto const& preset : presets.presets()) {
        auto place = stored.mutable_presets()->begin();
        auto end = stored.mutable_presets()->end();
        while (place != end && place->key() != preset.key()) ++place;
        if (place != end) {
            place->CopyFrom(preset);
        } else {
            stored.add_presets()->CopyFrom(preset);
        }
    }
    return Transact<VellmarkPB::VellmarkPresets>(
        id, changed, [&](Changes& written) -> Outcome<VellmarkPB::VellmarkPresets> {
            if (auto refusal = PutResource(id, m_presets, stored, written)) return *refusal;
            return stored;
        });
}

Outcome<VellmarkPB::VellmarkAcctOpEnvelope> Catalog::CreateServiceAccount(
    VellmarkPB::serviceAccounts const& account, Changes& changed) {
    auto const id = VellmarkPB::VELLMARK_MESSAGE_CREATE_SERVICE_ACCOUNT;
    if (account.accountid().empty()) {
        return Refusal(id, VellmarkPB::CODE_EMPTY_ACCOUNT_ID, "accountID is empty");
    }
    if (m_store.Account(account.accountid())) {
        return Refusal(
            id, VellmarkPB::CODE_DUPLICATE_ACCOUNT,
            "account " + Masked(Sensitivity::AccountId, account.accountid()) + " exists already");
    }
    VellmarkPB::serviceAccounts stored = account;
    std::string const now = Timestamp();
    if (!stored.has_createdon()) stored.set_createdon(now);
    stored.set_updatedon(now);

    return Transact<VellmarkPB::VellmarkAcctOpEnvelope>(
        id, changed, [&](Changes& written) -> Outcome<VellmarkPB::VellmarkAcctOpEnvelope> {
            m_store.PutAccount(stored);
            if (auto refusal = MirrorAsSource(id, ListOf(stored), stored, Listing::Listed, written))
                return *refusal;
            return AccountSuccess(stored);
        });
}

Outcome<VellmarkPB::VellmarkAcctOpEnvelope> Catalog::UpdateServiceAccount(
    VellmarkPB::serviceAccounts const& account, Changes& changed) {
    auto const id = VellmarkPB::VELLMARK_MESSAGE_UPDATE_SERVICE_ACCOUNT;
    if (account.accountid().empty()) {
        return Refusal(id, VellmarkPB::CODE_EMPTY_ACCOUNT_ID, "accountID is empty");
    }
    auto stored = m_store.Account(account.accountid());
    if (!stored) {
        return Refusal(id, VellmarkPB::CODE_UNKNOWN_ACCOUNT,
                       "no account " + Masked(Sensitivity::AccountId, account.accountid()));
    }
    // Fields the update leaves out keep their stored values.
    VellmarkPB::serviceAccounts const before = *stored;
    stored->MergeFrom(account);
    stored->set_createdon(before.createdon());
    stored->set_updatedon(Timestamp());

    return Transact<VellmarkPB::VellmarkAcctOpEnvelope>(
        id, changed, [&](Changes& written) -> Outcome<VellmarkPB::VellmarkAcctOpEnvelope> {
            m_store.PutAccount(*stored);
            // A change of provider moves the account to the other list.
            if (&ListOf(before) != &ListOf(*stored)) {
                if (auto refusal =
                        MirrorAsSource(id, ListOf(before), before, Listing::Unlisted, written))
                    return *refusal;
            }
            if (auto refusal =
                    MirrorAsSource(id, ListOf(*stored), *stored, Listing::Listed, written))
                return *refusal;
            return AccountSuccess(*stored);
        });
}

Outcome<VellmarkPB::VellmarkAcctOpEnvelope> Catalog::DeleteServiceAccount(
    VellmarkPB::VellmarkDeleteSrvcAccount const& request, Changes& changed) {
    auto const id = VellmarkPB::VELLMARK_MESSAGE_DELETE_SERVICE_ACCOUNT;
    if (request.accountid().empty()) {
        return Refusal(id, VellmarkPB::CODE_EMPTY_ACCOUNT_ID, "accountID is empty");
    }
    auto stored = m_store.Account(request.accountid());
    if (!stored) {
        return Refusal(id, VellmarkPB::CODE_UNKNOWN_ACCOUNT,
                       "no account " + Masked(Sensitivity::AccountId, request.accountid()));
    }
    return Transact<VellmarkPB::VellmarkAcctOpEnvelope>(
        id, changed, [&](Changes& written) -> Outcome<VellmarkPB::VellmarkAcctOpEnvelope> {
            m_store.DeleteAccount(request.accountid());
            if (auto refusal =
                    MirrorAsSource(id, ListOf(*stored), *stored, Listing::Unlisted, written))
                return *refusal;
            VellmarkPB::VellmarkAcctOpEnvelope reply;
            reply.set_success(true);
            auto* deleted = reply.mutable_delaccount();
            deleted->set_accountid(request.accountid());
            deleted->set_code(0);
            deleted->set_subcode(0);
            deleted->set_status(0);
            deleted->set_message("account deleted");
            return reply;
        });
}

Outcome<VellmarkPB::serviceAccounts> Catalog::CreateGVAAccount(
    VellmarkPB::serviceAccounts const& request, Changes& changed) {
    auto const id = VellmarkPB::VELLMARK_MESSAGE_GVA_CREATE;
    if (request.tarvpersonid().empty()) {
        return Refusal(id, VellmarkPB::CODE_EMPTY_PERSON_ID, "tarvPersonID is empty");
    }
    if (request.provideraccountid().empty()) {
        return Refusal(id, VellmarkPB::CODE_EMPTY_ACCOUNT_ID, "providerAccountID is empty");
    }
    for (auto const& account : m_store.Accounts()) {
        if (IsGVA(account) && account.tarvpersonid() == request.tarvpersonid()) {
            return Refusal(id, VellmarkPB::CODE_GVA_ACCOUNT_EXISTS,
                           "person " + Masked(Sensitivity::PersonId, request.tarvpersonid()) +
                               " has a GVA account already");
        }
    }
    return Transact<VellmarkPB::serviceAccounts>(
        id, changed, [&](Changes& written) -> Outcome<VellmarkPB::serviceAccounts> {
            VellmarkPB::serviceAccounts account = request;
            account.set_accountid("gva-" + std::to_string(m_store.NextNumber("gva")));
            account.set_provider(kProviderGVA);
            if (!account.has_accounttype()) account.set_accounttype(kVoiceAssistantType);
            std::string const now = Timestamp();
            account.set_createdon(now);
            account.set_updatedon(now);
            m_store.PutAccount(account);
            if (auto refusal =
                    MirrorAsSource(id, m_voiceAccounts, account, Listing::Listed, written))
                return *refusal;
            return account;
        });
}

Outcome<VellmarkPB::VellmarkDeleteGVA> Catalog::DeleteGVAAccount(
    VellmarkPB::VellmarkDeleteGVA const& request, Changes& changed) {
    auto const id = VellmarkPB::VELLMARK_MESSAGE_GVA_DELETE;
    if (request.accountid().empty()) {
        return Refusal(id, VellmarkPB::CODE_EMPTY_ACCOUNT_ID, "accountID is empty");
    }
    auto stored = m_store.Account(request.accountid());
    if (!stored || !IsGVA(*stored)) {
        return Refusal(id, VellmarkPB::CODE_UNKNOWN_ACCOUNT,
                       "no GVA account " + Masked(Sensitivity::AccountId, request.accountid()));
    }
    return Transact<VellmarkPB::VellmarkDeleteGVA>(
        id, changed, [&](Changes& written) -> Outcome<VellmarkPB::VellmarkDeleteGVA> {
            m_store.DeleteAccount(request.accountid());
            if (auto refusal =
                    MirrorAsSource(id, m_voiceAccounts, *stored, Listing::Unlisted, written))
                return *refusal;
            VellmarkPB::VellmarkDeleteGVA reply;
            reply.set_accountid(request.accountid());
            reply.set_code(0);
            reply.set_subcode(0);
            reply.set_status(0);
            reply.set_message("GVA account deleted");
            return reply;
        });
}

Outcome<VellmarkPB::serviceAccounts> Catalog::UpdateGVAAssistantDeviceId(
    VellmarkPB::serviceAccounts const& request, Changes& changed) {
    auto const id = VellmarkPB::VELLMARK_MESSAGE_GVA_UPDATE_DEVICE_ID;
    std::string const& deviceId = request.attributes().assistantdeviceid();
    if (deviceId.empty()) {
        return Refusal(id, VellmarkPB::CODE_EMPTY_ASSISTANT_DEVICE_ID,
                       "assistantDeviceId is empty");
    }
    return Transact<VellmarkPB::serviceAccounts>(
        id, changed, [&](Changes& written) -> Outcome<VellmarkPB::serviceAccounts> {
            std::optional<VellmarkPB::serviceAccounts> first;
            std::string const now = Timestamp();
            for (auto account : m_store.Accounts()) {
                if (!IsGVA(account)) continue;
                account.mutable_attributes()->set_assistantdeviceid(deviceId);
                account.set_updatedon(now);
                m_store.PutAccount(account);
                if (auto refusal =
                        MirrorAsSource(id, m_voiceAccounts, account, Listing::Listed, written))
                    return *refusal;
                if (!first) first = account;
            }
            if (!first) return Refusal(id, VellmarkPB::CODE_UNKNOWN_ACCOUNT, "no GVA account");
            return *first;
        });
}

Outcome<Written> Catalog::Put(ResourceInfo const& resource, google::protobuf::Message const& value,
                              Changes& changed) {
    return Transact<Written>(kNoRequest, changed, [&](Changes& written) -> Outcome<Written> {
        if (auto refusal = PutResource(kNoRequest, resource, value, written)) return *refusal;
        return Written{};
    });
}

Outcome<Written> Catalog::Seed(Vellmark::Admin::StoreDocument const& document, Changes& changed) {
    if (auto refusal = CheckAccounts(document.serviceaccounts())) return *refusal;
    return Transact<Written>(kNoRequest, changed, [&](Changes& written) -> Outcome<Written> {
        auto const* reflection = document.GetReflection();
        for (auto const& resource : Vellmark::Admin::Resources()) {
            auto const* field = document.GetDescriptor()->FindFieldByName(resource.documentField);
            if (auto refusal = PutResource(kNoRequest, resource,
                                           reflection->GetMessage(document, field), written))
                return *refusal;
        }
        m_store.DeleteAllAccounts();
        for (auto const& account : document.serviceaccounts()) m_store.PutAccount(account);
        return Written{};
    });
}

Outcome<Written> Catalog::PutAccounts(Vellmark::Admin::ServiceAccountList const& accounts) {
    if (auto refusal = CheckAccounts(accounts.serviceaccounts())) return *refusal;
    Changes none;  // accounts are no resource: nothing to push
    return Transact<Written>(kNoRequest, none, [&](Changes&) -> Outcome<Written> {
        m_store.DeleteAllAccounts();
        for (auto const& account : accounts.serviceaccounts()) m_store.PutAccount(account);
        return Written{};
    });
}

Vellmark::Admin::StoreDocument Catalog::Export() {
    Vellmark::Admin::StoreDocument document;
    auto const* reflection = document.GetReflection();
    // Every resource, stored or not, so that seeding from the export gives the same store.
    for (auto const& resource : Vellmark::Admin::Resources()) {
        auto const* field = document.GetDescriptor()->FindFieldByName(resource.documentField);
        reflection->MutableMessage(&document, field)->CopyFrom(*Read(resource));
    }
    for (auto const& account : m_store.Accounts()) *document.add_serviceaccounts() = account;
    return document;
}

Vellmark::Admin::ServiceAccountList Catalog::Accounts() {
    Vellmark::Admin::ServiceAccountList list;
    for (auto const& account : m_store.Accounts()) *list.add_serviceaccounts() = account;
    return list;
}

}  // namespace Vellmark::Service
