// The Catalog's writes of service accounts and GVA accounts, and the sources that show
// them.
#include "service/Catalog.h"

#include "VellmarkSources.pb.h"
#include "admin/Sensitivity.h"

namespace Vellmark::Service {

using Vellmark::Admin::Masked;
using Vellmark::Admin::ResourceInfo;
using Vellmark::Admin::Sensitivity;
using VellmarkPB::MessageId;

namespace {

char const kProviderGVA[] = "GVA";
char const kVoiceAssistantType[] = "VPA";

bool IsGVA(VellmarkPB::serviceAccounts const& account) {
    return account.provider() == kProviderGVA;
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

}  // namespace Vellmark::Service
