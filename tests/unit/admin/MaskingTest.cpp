// The masking of vellmarkd and its tools: what each class of field becomes, at any depth.
#include <google/protobuf/util/message_differencer.h>
#include <gtest/gtest.h>

#include <string>

#include "VellmarkAcctOpEnvelope.pb.h"
#include "VellmarkAdmin.pb.h"
#include "VellmarkPresets.pb.h"
#include "VellmarkServiceAccounts.pb.h"
#include "VellmarkSources.pb.h"
#include "admin/Json.h"
#include "admin/Sensitivity.h"
#include "platform/log/Redact.h"

namespace {

using Vellmark::Admin::Mask;

std::string MaskedId(std::string const& id) {
    return Redact::RedactID(id, '-');
}
std::string MaskedToken(std::string const& token) {
    return Redact::RedactTokens(token, 350);
}

// A token of `size` characters, different at every place.
std::string Token(std::size_t size, char first) {
    std::string token;
    for (std::size_t i = 0; i < size; ++i) token.push_back(static_cast<char>(first + i % 20));
    return token;
}

VellmarkPB::serviceAccounts FullAccount() {
    VellmarkPB::serviceAccounts account;
    account.set_accountid("account-0123456789");
    account.set_tarvpersonid("person-9876543210");
    account.set_provideraccountid("provider-account-5555");
    account.set_name("Living room speaker");
    account.mutable_tokens()->set_refresh_token(Token(64, 'A'));
    account.mutable_tokens()->set_refreshtoken(Token(40, 'a'));
    account.mutable_tokens()->set_access_token(Token(400, 'K'));
    account.mutable_tokens()->set_access_token_expiration("3600");
    account.mutable_attributes()->set_email("someone@example.com");
    account.mutable_attributes()->set_language("de");
    return account;
}

VellmarkPB::VellmarkSource_source Source(std::string const& accountId, std::string const& person) {
    VellmarkPB::VellmarkSource_source source;
    source.set_id("source-id");
    source.mutable_sourceproviderid()->set_text("SPOTIFY");
    source.mutable_name()->set_text("Kitchen");
    source.mutable_username()->set_text("kitchen.user@example.com");
    source.mutable_sourcename()->set_text("Kitchen Premium");
    source.mutable_credential()->set_type("token");
    source.mutable_credential()->set_text(Token(36, 'r'));
    source.mutable_accountid()->set_text(accountId);
    source.set_tarvpersonid(person);
    return source;
}

TEST(MaskingTest, MasksAnAccountsIdentifiersTokensAndAddressAndNothingElse) {
    VellmarkPB::serviceAccounts const original = FullAccount();
    VellmarkPB::serviceAccounts account = original;
    Mask(account);

    EXPECT_EQ(account.accountid(), MaskedId(original.accountid()));
    EXPECT_EQ(account.tarvpersonid(), MaskedId(original.tarvpersonid()));
    EXPECT_EQ(account.provideraccountid(), MaskedId(original.provideraccountid()));
    EXPECT_EQ(account.attributes().email(), MaskedId(original.attributes().email()));
    EXPECT_EQ(account.tokens().refresh_token(), MaskedToken(original.tokens().refresh_token()));
    EXPECT_EQ(account.tokens().refreshtoken(), MaskedToken(original.tokens().refreshtoken()));
    EXPECT_EQ(account.tokens().access_token(), MaskedToken(original.tokens().access_token()));
    EXPECT_EQ(account.tokens().access_token().size(), 350u);

    EXPECT_EQ(account.name(), original.name());
    EXPECT_EQ(account.attributes().language(), "de");
    EXPECT_EQ(account.tokens().access_token_expiration(), "3600");
    EXPECT_NE(account.accountid(), original.accountid());
}

TEST(MaskingTest, LeavesFieldsThatAreNotSetUnset) {
    VellmarkPB::serviceAccounts account;
    account.set_accountid("account-0123456789");
    Mask(account);
    EXPECT_FALSE(account.has_tarvpersonid());
    EXPECT_FALSE(account.has_tokens());
    EXPECT_FALSE(account.has_attributes());
}

TEST(MaskingTest, MasksAnAccountInsideAnEnvelope) {
    VellmarkPB::VellmarkAcctOpEnvelope envelope;
    envelope.set_success(true);
    *envelope.mutable_account() = FullAccount();
    Mask(envelope);
    EXPECT_EQ(envelope.account().accountid(), MaskedId(FullAccount().accountid()));
    EXPECT_EQ(envelope.account().tokens().refresh_token(),
              MaskedToken(FullAccount().tokens().refresh_token()));
    EXPECT_EQ(envelope.account().name(), FullAccount().name());
}

TEST(MaskingTest, MasksASourcesCredentialUserNameAccountAndPerson) {
    VellmarkPB::sources list;
    *list.add_source() = Source("account-1111111111", "person-aaaaaaaa");
    *list.add_source() = Source("account-2222222222", "person-bbbbbbbb");
    VellmarkPB::sources const original = list;
    Mask(list);

    ASSERT_EQ(list.source_size(), 2);
    for (int i = 0; i < 2; ++i) {
        auto const& masked = list.source(i);
        auto const& clear = original.source(i);
        EXPECT_EQ(masked.accountid().text(), MaskedId(clear.accountid().text()));
        EXPECT_EQ(masked.tarvpersonid(), MaskedId(clear.tarvpersonid()));
        EXPECT_EQ(masked.credential().text(), MaskedToken(clear.credential().text()));
        EXPECT_EQ(masked.username().text(), MaskedId(clear.username().text()));
        // An account's source carries the account's identifier as its own.
        EXPECT_EQ(masked.id(), MaskedId(clear.id()));
        // The same wrapper holds a name, which stays readable.
        EXPECT_EQ(masked.name().text(), "Kitchen");
        EXPECT_EQ(masked.sourcename().text(), "Kitchen Premium");
        EXPECT_EQ(masked.credential().type(), "token");
        EXPECT_EQ(masked.sourceproviderid().text(), "SPOTIFY");
    }
}

TEST(MaskingTest, MasksSourcesDeepInsideADocument) {
    Vellmark::Admin::StoreDocument document;
    *document.mutable_sources()->add_source() = Source("account-1111111111", "person-aaaaaaaa");
    *document.mutable_voiceaccounts()->add_source() =
        Source("account-3333333333", "person-cccccccc");
    *document.add_serviceaccounts() = FullAccount();
    Mask(document);

    EXPECT_EQ(document.sources().source(0).accountid().text(), MaskedId("account-1111111111"));
    EXPECT_EQ(document.sources().source(0).tarvpersonid(), MaskedId("person-aaaaaaaa"));
    EXPECT_EQ(document.voiceaccounts().source(0).accountid().text(),
              MaskedId("account-3333333333"));
    EXPECT_EQ(document.voiceaccounts().source(0).tarvpersonid(), MaskedId("person-cccccccc"));
    EXPECT_EQ(document.serviceaccounts(0).accountid(), MaskedId(FullAccount().accountid()));
    EXPECT_EQ(document.serviceaccounts(0).tokens().access_token(),
              MaskedToken(FullAccount().tokens().access_token()));
}

TEST(MaskingTest, MasksThePresetsAccounts) {
    VellmarkPB::VellmarkPresets presets;
    auto* preset = presets.add_presets();
    preset->set_key("1");
    auto* action = preset->mutable_value()->add_actions();
    action->mutable_metadata()->set_accountid("preset-account-42424242");
    action->mutable_metadata()->set_name("Morning radio");
    action->mutable_payload()->mutable_contentitem()->set_sourceaccount("preset-account-42424242");
    Mask(presets);

    auto const& masked = presets.presets(0).value().actions(0);
    EXPECT_EQ(masked.metadata().accountid(), MaskedId("preset-account-42424242"));
    EXPECT_EQ(masked.payload().contentitem().sourceaccount(), MaskedId("preset-account-42424242"));
    EXPECT_EQ(masked.metadata().name(), "Morning radio");
    EXPECT_EQ(presets.presets(0).key(), "1");
}

TEST(MaskingTest, MaskingTwiceChangesNothingMore) {
    VellmarkPB::serviceAccounts account = FullAccount();
    Mask(account);
    VellmarkPB::serviceAccounts const once = account;
    Mask(account);
    EXPECT_TRUE(google::protobuf::util::MessageDifferencer::Equals(account, once));
}

TEST(MaskingTest, SecretValuesAreWhatMaskingHides) {
    Vellmark::Admin::StoreDocument document;
    *document.mutable_sources()->add_source() = Source("account-1111111111", "person-aaaaaaaa");
    *document.add_serviceaccounts() = FullAccount();
    auto const secrets = Vellmark::Admin::SecretValues(document);
    auto const has = [&](std::string const& value) {
        return std::find(secrets.begin(), secrets.end(), value) != secrets.end();
    };
    EXPECT_TRUE(has("account-1111111111"));
    EXPECT_TRUE(has("kitchen.user@example.com"));
    EXPECT_TRUE(has(FullAccount().tokens().refresh_token()));
    EXPECT_TRUE(has("someone@example.com"));
    EXPECT_FALSE(has("Kitchen"));
    EXPECT_FALSE(has("3600"));

    Mask(document);
    std::string const json = Vellmark::Json::Print(document, false);
    for (auto const& secret : secrets) EXPECT_EQ(json.find(secret), std::string::npos) << secret;
}

// Masked values are told from clear ones: every length of identifier and token, masked,
// looks masked, and no clear value of the sample data does.
TEST(MaskedValueTest, WhatMaskingMakesLooksMaskedAtEveryLength) {
    using Vellmark::Admin::LooksMasked;
    using Vellmark::Admin::Sensitivity;
    for (std::size_t size = 1; size <= 400; ++size) {
        std::string const clear = Token(size, 'a');
        for (auto const sensitivity : {Sensitivity::AccountId, Sensitivity::PersonId,
                                       Sensitivity::UserName, Sensitivity::Token}) {
            std::string const masked = Vellmark::Admin::Masked(sensitivity, clear);
            EXPECT_TRUE(LooksMasked(sensitivity, masked)) << masked;
            EXPECT_FALSE(LooksMasked(sensitivity, clear)) << clear;
        }
    }
    // Shown classes are never taken for masked, nor is an empty value.
    EXPECT_FALSE(LooksMasked(Sensitivity::FreeText, "------2938"));
    EXPECT_FALSE(LooksMasked(Sensitivity::NotSensitive, "****"));
    EXPECT_FALSE(LooksMasked(Sensitivity::AccountId, ""));
    // Values with a dash or a star in them are not masked for that.
    EXPECT_FALSE(LooksMasked(Sensitivity::AccountId, "acct-aurora-55102938"));
    EXPECT_FALSE(LooksMasked(Sensitivity::AccountId, "-x-1"));
    EXPECT_FALSE(LooksMasked(Sensitivity::Token, "rt-4f9a*c0e7b2d4e6f8a9b0c1d2e3f4a5b"));
}

TEST(MaskedValueTest, FindsTheFirstMaskedValueOfADocumentWithItsPlace) {
    VellmarkPB::VellmarkPresets presets;
    auto* first = presets.add_presets();
    first->set_key("1");
    first->mutable_value()->add_actions()->mutable_metadata()->set_accountid(
        "acct-aurora-55102938");
    auto* second = presets.add_presets();
    second->set_key("2");
    second->mutable_value()->add_actions()->mutable_metadata()->set_accountid(
        MaskedId("acct-harbor-77316420"));
    auto found = Vellmark::Admin::FindMaskedValue(presets);
    ASSERT_TRUE(found.has_value());
    EXPECT_EQ(found->path, "presets[1].value.actions[0].metadata.accountID");
    EXPECT_EQ(found->value, "----------------6420");
    EXPECT_EQ(found->sensitivity, Vellmark::Admin::Sensitivity::AccountId);
    EXPECT_EQ(Vellmark::Admin::DescribeMaskedValue(*found),
              "presets[1].value.actions[0].metadata.accountID holds a masked value "
              "(\"----------------6420\"), as tools print secrets unless asked for them in clear");

    // A wrapped text takes its holder's class.
    VellmarkPB::sources sources;
    auto* source = sources.add_source();
    source->mutable_sourceproviderid()->set_text("AURORA_RADIO");
    source->mutable_username()->set_text(MaskedId("lena@example.com"));
    found = Vellmark::Admin::FindMaskedValue(sources);
    ASSERT_TRUE(found.has_value());
    EXPECT_EQ(found->path, "source[0].username.text");
}

TEST(MaskedValueTest, TheSampleStoreHoldsNoMaskedValueAndItsMaskedCopyDoes) {
    std::string text;
    ASSERT_EQ(Vellmark::Json::ReadFile(VELLMARK_SEED_PATH, text), "");
    Vellmark::Admin::StoreDocument document;
    ASSERT_EQ(Vellmark::Json::Parse(text, document), "");
    EXPECT_FALSE(Vellmark::Admin::FindMaskedValue(document).has_value());
    Mask(document);
    EXPECT_TRUE(Vellmark::Admin::FindMaskedValue(document).has_value());
}

}  // namespace
