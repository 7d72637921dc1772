#include "service/Catalog.h"

#include <google/protobuf/message.h>

#include <algorithm>
#include <ctime>
#include <stdexcept>

#include "VellmarkSources.pb.h"
#include "admin/Sensitivity.h"

namespace Vellmark::Service {

using Vellmark::Admin::Masked;
using Vellmark::Admin::Sensitivity;
using VellmarkPB::Code;
using VellmarkPB::MessageId;

namespace {

char const kProviderGVA[] = "GVA";
char const kVoiceAssistantType[] = "VPA";

bool IsGVA(VellmarkPB::serviceAccounts const& account) {
    return account.provider() == kProviderGVA;
}

// The list an account appears in as a source.
char const* ListOf(VellmarkPB::serviceAccounts const& account) {
    return IsGVA(account) ? "voice-accounts" : "sources";
}

Vellmark::Admin::ResourceInfo const& Resource(char const* name) {
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

// Runs `operation`; a ResourceTooLarge becomes `refuse(reason)`, and the changes it noted
// are forgotten, like everything of its transaction.
template <class Operation, class Refuse>
auto RefusingTooLarge(Changes& changed, Operation operation, Refuse refuse)
    -> decltype(operation()) {
    Changes const before = changed;
    try {
        return operation();
    } catch (ResourceTooLarge const& error) {
        changed = before;
        return refuse(std::string(error.what()));
    }
}

std::size_t EnvelopeFrameBytes(unsigned int id, google::protobuf::Message const& message) {
    IPCMessageEnvelope envelope;
    envelope.SetPayload(message);
    return IPCFrameLimit::FrameBytes(id, envelope);
}

Catalog::Catalog(Store& store, std::size_t maxFrameBytes)
    : m_store(store), m_maxFrameBytes(maxFrameBytes) {}

std::size_t Catalog::FrameBytesOf(Vellmark::Admin::ResourceInfo const& resource,
                                  google::protobuf::Message const& value) const {
    std::size_t bytes = 0;
    for (unsigned int id : {resource.queryId, resource.updateId}) {
        if (id != 0) bytes = std::max(bytes, EnvelopeFrameBytes(id, value));
    }
    return bytes;
}

void Catalog::CheckReplyFits(unsigned int id, google::protobuf::Message const& reply) const {
    std::size_t const bytes = EnvelopeFrameBytes(id, reply);
    if (bytes > m_maxFrameBytes) {
        throw ResourceTooLarge("the answer would take a frame of " + std::to_string(bytes) +
                               " bytes, over the frame limit of " +
                               std::to_string(m_maxFrameBytes));
    }
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

std::unique_ptr<google::protobuf::Message> Catalog::Read(
    Vellmark::Admin::ResourceInfo const& resource) {
    std::unique_ptr<google::protobuf::Message> message(
        google::protobuf::MessageFactory::generated_factory()->GetPrototype(resource.type)->New());
    auto const bytes = m_store.Resource(resource.name);
    if (bytes && !message->ParsePartialFromString(*bytes)) {
        throw StoreError(m_store.Path(), std::string("damaged resource ") + resource.name);
    }
    return message;
}

void Catalog::Write(Vellmark::Admin::ResourceInfo const& resource,
                    google::protobuf::Message const& value, Changes& changed) {
    std::size_t const bytes = FrameBytesOf(resource, value);
    if (bytes > m_maxFrameBytes) {
        throw ResourceTooLarge(std::string(resource.name) + " would take a frame of " +
                               std::to_string(bytes) + " bytes, over the frame limit of " +
                               std::to_string(m_maxFrameBytes) + "; nothing was stored");
    }
    m_store.PutResource(resource.name, value.SerializePartialAsString());
    changed.insert(resource.name);
}

Outcome<VellmarkPB::VellmarkPresets> Catalog::StorePresets(
    VellmarkPB::VellmarkPresets const& presets, Changes& changed) {
    auto const id = VellmarkPB::VELLMARK_MESSAGE_STORE_PRESETS;
    auto const& resource = Resource("presets");
    VellmarkPB::VellmarkPresets stored;
    stored.CopyFrom(*Read(resource));

    std::set<std::string> keys;
    for (auto const& preset : presets.presets()) {
        if (preset.key().empty() || !keys.insert(preset.key()).second) {
            return Refusal(id, VellmarkPB::CODE_DUPLICATE_PRESET_KEY,
                           "every preset needs a key of its own; nothing was stored");
        }
    }
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
    return RefusingTooLarge(
        changed,
        [&]() -> Outcome<VellmarkPB::VellmarkPresets> {
            Store::Transaction transaction(m_store);
            Write(resource, stored, changed);
            transaction.Commit();
            return stored;
        },
        [&](std::string const& why) {
            return Refusal(id, VellmarkPB::CODE_RESOURCE_TOO_LARGE, why);
        });
}

VellmarkPB::VellmarkAcctOpEnvelope Catalog::AccountFailure(MessageId id, Code code,
                                                           std::string const& text) {
    VellmarkPB::VellmarkAcctOpEnvelope reply;
    reply.set_success(false);
    *reply.mutable_error() = Refusal(id, code, text);
    return reply;
}

void Catalog::MirrorAsSource(char const* resourceName, VellmarkPB::serviceAccounts const& account,
                             bool remove, Changes& changed) {
    auto const& resource = Resource(resourceName);
    VellmarkPB::sources list;
    list.CopyFrom(*Read(resource));
    auto* sources = list.mutable_source();
    int found = -1;
    for (int i = 0; i < sources->size(); ++i) {
        if (sources->Get(i).id() == account.accountid()) found = i;
    }
    if (remove) {
        if (found < 0) return;
        sources->DeleteSubrange(found, 1);
    } else if (found >= 0) {
        *sources->Mutable(found) = SourceOf(account);
    } else {
        *sources->Add() = SourceOf(account);
    }
    Write(resource, list, changed);
}

VellmarkPB::VellmarkAcctOpEnvelope Catalog::CreateServiceAccount(
    VellmarkPB::serviceAccounts const& account, Changes& changed) {
    auto const id = VellmarkPB::VELLMARK_MESSAGE_CREATE_SERVICE_ACCOUNT;
    if (account.accountid().empty()) {
        return AccountFailure(id, VellmarkPB::CODE_EMPTY_ACCOUNT_ID, "accountID is empty");
    }
    if (m_store.Account(account.accountid())) {
        return AccountFailure(
            id, VellmarkPB::CODE_DUPLICATE_ACCOUNT,
            "account " + Masked(Sensitivity::AccountId, account.accountid()) + " exists already");
    }
    VellmarkPB::serviceAccounts stored = account;
    std::string const now = Timestamp();
    if (!stored.has_createdon()) stored.set_createdon(now);
    stored.set_updatedon(now);

    return RefusingTooLarge(
        changed,
        [&] {
            Store::Transaction transaction(m_store);
            m_store.PutAccount(stored);
            MirrorAsSource(ListOf(stored), stored, false, changed);
            auto reply = AccountSuccess(stored);
            CheckReplyFits(id, reply);
            transaction.Commit();
            return reply;
        },
        [&](std::string const& why) {
            return AccountFailure(id, VellmarkPB::CODE_RESOURCE_TOO_LARGE, why);
        });
}

VellmarkPB::VellmarkAcctOpEnvelope Catalog::UpdateServiceAccount(
    VellmarkPB::serviceAccounts const& account, Changes& changed) {
    auto const id = VellmarkPB::VELLMARK_MESSAGE_UPDATE_SERVICE_ACCOUNT;
    if (account.accountid().empty()) {
        return AccountFailure(id, VellmarkPB::CODE_EMPTY_ACCOUNT_ID, "accountID is empty");
    }
    auto stored = m_store.Account(account.accountid());
    if (!stored) {
        return AccountFailure(id, VellmarkPB::CODE_UNKNOWN_ACCOUNT,
                              "no account " + Masked(Sensitivity::AccountId, account.accountid()));
    }
    // Fields the update leaves out keep their stored values.
    VellmarkPB::serviceAccounts const before = *stored;
    stored->MergeFrom(account);
    stored->set_createdon(before.createdon());
    stored->set_updatedon(Timestamp());

    return RefusingTooLarge(
        changed,
        [&] {
            Store::Transaction transaction(m_store);
            m_store.PutAccount(*stored);
            // A change of provider moves the account to the other list.
            if (std::string(ListOf(before)) != ListOf(*stored)) {
                MirrorAsSource(ListOf(before), before, true, changed);
            }
            MirrorAsSource(ListOf(*stored), *stored, false, changed);
            auto reply = AccountSuccess(*stored);
            CheckReplyFits(id, reply);
            transaction.Commit();
            return reply;
        },
        [&](std::string const& why) {
            return AccountFailure(id, VellmarkPB::CODE_RESOURCE_TOO_LARGE, why);
        });
}

VellmarkPB::VellmarkAcctOpEnvelope Catalog::DeleteServiceAccount(
    VellmarkPB::VellmarkDeleteSrvcAccount const& request, Changes& changed) {
    auto const id = VellmarkPB::VELLMARK_MESSAGE_DELETE_SERVICE_ACCOUNT;
    if (request.accountid().empty()) {
        return AccountFailure(id, VellmarkPB::CODE_EMPTY_ACCOUNT_ID, "accountID is empty");
    }
    auto stored = m_store.Account(request.accountid());
    if (!stored) {
        return AccountFailure(id, VellmarkPB::CODE_UNKNOWN_ACCOUNT,
                              "no account " + Masked(Sensitivity::AccountId, request.accountid()));
    }
    Store::Transaction transaction(m_store);
    m_store.DeleteAccount(request.accountid());
    MirrorAsSource(ListOf(*stored), *stored, true, changed);
    transaction.Commit();

    VellmarkPB::VellmarkAcctOpEnvelope reply;
    reply.set_success(true);
    auto* deleted = reply.mutable_delaccount();
    deleted->set_accountid(request.accountid());
    deleted->set_code(0);
    deleted->set_subcode(0);
    deleted->set_status(0);
    deleted->set_message("account deleted");
    return reply;
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
    return RefusingTooLarge(
        changed,
        [&]() -> Outcome<VellmarkPB::serviceAccounts> {
            Store::Transaction transaction(m_store);
            VellmarkPB::serviceAccounts account = request;
            account.set_accountid("gva-" + std::to_string(m_store.NextNumber("gva")));
            account.set_provider(kProviderGVA);
            if (!account.has_accounttype()) account.set_accounttype(kVoiceAssistantType);
            std::string const now = Timestamp();
            account.set_createdon(now);
            account.set_updatedon(now);
            m_store.PutAccount(account);
            MirrorAsSource("voice-accounts", account, false, changed);
            CheckReplyFits(id, account);
            transaction.Commit();
            return account;
        },
        [&](std::string const& why) {
            return Refusal(id, VellmarkPB::CODE_RESOURCE_TOO_LARGE, why);
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
    Store::Transaction transaction(m_store);
    m_store.DeleteAccount(request.accountid());
    MirrorAsSource("voice-accounts", *stored, true, changed);
    transaction.Commit();

    VellmarkPB::VellmarkDeleteGVA reply;
    reply.set_accountid(request.accountid());
    reply.set_code(0);
    reply.set_subcode(0);
    reply.set_status(0);
    reply.set_message("GVA account deleted");
    return reply;
}

Outcome<VellmarkPB::serviceAccounts> Catalog::UpdateGVAAssistantDeviceId(
    VellmarkPB::serviceAccounts const& request, Changes& changed) {
    auto const id = VellmarkPB::VELLMARK_MESSAGE_GVA_UPDATE_DEVICE_ID;
    std::string const& deviceId = request.attributes().assistantdeviceid();
    if (deviceId.empty()) {
        return Refusal(id, VellmarkPB::CODE_EMPTY_ASSISTANT_DEVICE_ID,
                       "assistantDeviceId is empty");
    }
    return RefusingTooLarge(
        changed,
        [&]() -> Outcome<VellmarkPB::serviceAccounts> {
            std::optional<VellmarkPB::serviceAccounts> first;
            Store::Transaction transaction(m_store);
            std::string const now = Timestamp();
            for (auto account : m_store.Accounts()) {
                if (!IsGVA(account)) continue;
                account.mutable_attributes()->set_assistantdeviceid(deviceId);
                account.set_updatedon(now);
                m_store.PutAccount(account);
                MirrorAsSource("voice-accounts", account, false, changed);
                if (!first) first = account;
            }
            if (!first) return Refusal(id, VellmarkPB::CODE_UNKNOWN_ACCOUNT, "no GVA account");
            CheckReplyFits(id, *first);
            transaction.Commit();
            return *first;
        },
        [&](std::string const& why) {
            return Refusal(id, VellmarkPB::CODE_RESOURCE_TOO_LARGE, why);
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

namespace {

// Refuses accounts without an identifier or with one used twice.
void CheckAccounts(
    google::protobuf::RepeatedPtrField<VellmarkPB::serviceAccounts> const& accounts) {
    std::set<std::string> ids;
    for (auto const& account : accounts) {
        if (account.accountid().empty()) {
            throw std::invalid_argument("a service account without accountID");
        }
        if (!ids.insert(account.accountid()).second) {
            throw std::invalid_argument("service account " +
                                        Masked(Sensitivity::AccountId, account.accountid()) +
                                        " appears twice");
        }
    }
}

}  // namespace

void Catalog::Seed(Vellmark::Admin::StoreDocument const& document, Changes& changed) {
    CheckAccounts(document.serviceaccounts());
    auto const* reflection = document.GetReflection();
    Store::Transaction transaction(m_store);
    for (auto const& resource : Vellmark::Admin::Resources()) {
        auto const* field = document.GetDescriptor()->FindFieldByName(resource.documentField);
        Write(resource, reflection->GetMessage(document, field), changed);
    }
    m_store.DeleteAllAccounts();
    for (auto const& account : document.serviceaccounts()) m_store.PutAccount(account);
    transaction.Commit();
}

Vellmark::Admin::ServiceAccountList Catalog::Accounts() {
    Vellmark::Admin::ServiceAccountList list;
    for (auto const& account : m_store.Accounts()) *list.add_serviceaccounts() = account;
    return list;
}

void Catalog::PutAccounts(Vellmark::Admin::ServiceAccountList const& accounts) {
    CheckAccounts(accounts.serviceaccounts());
    Store::Transaction transaction(m_store);
    m_store.DeleteAllAccounts();
    for (auto const& account : accounts.serviceaccounts()) m_store.PutAccount(account);
    transaction.Commit();
}

}  // namespace Vellmark::Service
