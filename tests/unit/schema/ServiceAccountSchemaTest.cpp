// Service accounts, their tokens and attributes, the account-operation envelope and the
// two delete messages.
#include <gtest/gtest.h>

#include <string>

#include "Errors.pb.h"
#include "VellmarkAcctOpEnvelope.pb.h"
#include "VellmarkDeleteGVA.pb.h"
#include "VellmarkDeleteSrvcAccount.pb.h"
#include "VellmarkMessageId.pb.h"
#include "VellmarkServiceAccounts.pb.h"
#include "tests/unit/schema/SchemaTestSupport.h"

namespace {

using namespace Vellmark::SchemaTest;

VellmarkPB::Tokens MakeTokens() {
    VellmarkPB::Tokens tokens;
    tokens.set_access_token("at-snake");
    tokens.set_access_token_expiration("2031-01-01T00:00:00Z");
    tokens.set_refresh_token("rt-snake");
    tokens.set_refresh_token_expiration("2032-01-01T00:00:00Z");
    tokens.set_accesstoken("at-camel");
    tokens.set_refreshtoken("rt-camel");
    tokens.set_idtoken("id-token");
    tokens.set_expiresin("3600");
    tokens.set_signaturetimestamp("1700000000");
    tokens.set_uidsignature("sig");
    tokens.set_uid("uid-7");
    return tokens;
}

VellmarkPB::Attributes MakeAttributes() {
    VellmarkPB::Attributes attributes;
    attributes.set_email("a@example.com");
    attributes.set_subscriptionstatus("active");
    attributes.set_language("de-DE");
    attributes.set_wuwmodel("model-3");
    attributes.set_wuword("hey");
    attributes.set_assistantdeviceid("device-9");
    attributes.set_collectdata("yes");
    return attributes;
}

VellmarkPB::serviceAccounts MakeAccount() {
    VellmarkPB::serviceAccounts account;
    account.set_tarvpersonid("person-1");
    account.set_accountid("account-2");
    account.set_accounttype("VPA");
    account.set_provider("GVA");
    account.set_provideraccountid("provider-3");
    account.set_name("Kitchen");
    *account.mutable_tokens() = MakeTokens();
    *account.mutable_attributes() = MakeAttributes();
    account.set_updatedon("2024-02-02");
    account.set_createdon("2024-01-01");
    account.set_disabled(true);
    account.set_productid("product-4");
    return account;
}

template <class T>
T MakeDelete() {
    T result;
    result.set_code(6);
    result.set_subcode(1005);
    result.set_status(-2);
    result.set_accountid("account-2");
    result.set_message("not found");
    return result;
}

VellmarkPB::Error MakeError() {
    VellmarkPB::Error error;
    error.set_message("cloud unreachable");
    error.set_productguid("guid-5");
    error.set_messageid(VellmarkPB::VELLMARK_MESSAGE_CREATE_SERVICE_ACCOUNT);
    error.set_code(5);
    error.set_subcode(1009);
    return error;
}

TEST(ServiceAccountSchema, ServiceAccountFieldsAreDeclaredAsListed) {
    ExpectFields(VellmarkPB::serviceAccounts::descriptor(),
                 {{1, "tarvPersonID", kOptional, kString, ""},
                  {2, "accountID", kOptional, kString, ""},
                  {3, "accountType", kOptional, kString, ""},
                  {4, "provider", kOptional, kString, ""},
                  {5, "providerAccountID", kOptional, kString, ""},
                  {6, "name", kOptional, kString, ""},
                  {7, "tokens", kOptional, kMessage, "VellmarkPB.Tokens"},
                  {8, "attributes", kOptional, kMessage, "VellmarkPB.Attributes"},
                  {9, "updatedOn", kOptional, kString, ""},
                  {10, "createdOn", kOptional, kString, ""},
                  {11, "disabled", kOptional, kBool, ""},
                  {12, "productID", kOptional, kString, ""}});
}

TEST(ServiceAccountSchema, TokenFieldsAreDeclaredAsListed) {
    ExpectFields(VellmarkPB::Tokens::descriptor(),
                 {{1, "access_token", kOptional, kString, ""},
                  {2, "access_token_expiration", kOptional, kString, ""},
                  {3, "refresh_token", kOptional, kString, ""},
                  {4, "refresh_token_expiration", kOptional, kString, ""},
                  {5, "accessToken", kOptional, kString, ""},
                  {6, "refreshToken", kOptional, kString, ""},
                  {7, "idToken", kOptional, kString, ""},
                  {8, "expiresIn", kOptional, kString, ""},
                  {9, "signatureTimestamp", kOptional, kString, ""},
                  {10, "uidSignature", kOptional, kString, ""},
                  {11, "uid", kOptional, kString, ""}});
}

TEST(ServiceAccountSchema, AttributeFieldsAreDeclaredAsListed) {
    ExpectFields(VellmarkPB::Attributes::descriptor(),
                 {{1, "email", kOptional, kString, ""},
                  {2, "subscriptionStatus", kOptional, kString, ""},
                  {3, "language", kOptional, kString, ""},
                  {4, "WuWModel", kOptional, kString, ""},
                  {5, "WuWord", kOptional, kString, ""},
                  {6, "assistantDeviceId", kOptional, kString, ""},
                  {7, "collectData", kOptional, kString, ""}});
}

TEST(ServiceAccountSchema, EnvelopeFieldsAreDeclaredAsListed) {
    ExpectFields(VellmarkPB::VellmarkAcctOpEnvelope::descriptor(),
                 {{1, "success", kOptional, kBool, ""},
                  {2, "account", kOptional, kMessage, "VellmarkPB.serviceAccounts"},
                  {3, "delAccount", kOptional, kMessage, "VellmarkPB.VellmarkDeleteSrvcAccount"},
                  {4, "error", kOptional, kMessage, "VellmarkPB.Error"}});
}

TEST(ServiceAccountSchema, BothDeleteMessagesDeclareTheSameFields) {
    const std::vector<ExpectedField> fields = {{1, "code", kOptional, kInt32, ""},
                                               {2, "subcode", kOptional, kInt32, ""},
                                               {3, "status", kOptional, kInt32, ""},
                                               {4, "accountID", kOptional, kString, ""},
                                               {5, "message", kOptional, kString, ""}};
    ExpectFields(VellmarkPB::VellmarkDeleteSrvcAccount::descriptor(), fields);
    ExpectFields(VellmarkPB::VellmarkDeleteGVA::descriptor(), fields);
}

TEST(ServiceAccountSchema, UnsetCollectDataReadsNoButIsAbsent) {
    VellmarkPB::Attributes sent = MakeAttributes();
    sent.clear_collectdata();
    const VellmarkPB::Attributes parsed = RoundTrip(sent);
    EXPECT_EQ(parsed.email(), "a@example.com");
    EXPECT_FALSE(parsed.has_collectdata());
    EXPECT_EQ(parsed.collectdata(), "no");
    EXPECT_EQ(VellmarkPB::Attributes().collectdata(), "no");
}

TEST(ServiceAccountSchema, CollectDataSetToEmptyIsPresentAndEmpty) {
    VellmarkPB::Attributes sent;
    sent.set_collectdata("");
    const VellmarkPB::Attributes parsed = RoundTrip(sent);
    EXPECT_TRUE(parsed.has_collectdata());
    EXPECT_EQ(parsed.collectdata(), "");
}

TEST(ServiceAccountSchema, OtherAttributesDefaultToEmpty) {
    const VellmarkPB::Attributes attributes;
    EXPECT_EQ(attributes.email(), "");
    EXPECT_EQ(attributes.subscriptionstatus(), "");
    EXPECT_EQ(attributes.language(), "");
    EXPECT_EQ(attributes.wuwmodel(), "");
    EXPECT_EQ(attributes.wuword(), "");
    EXPECT_EQ(attributes.assistantdeviceid(), "");
}

TEST(ServiceAccountSchema, EnvelopeWithOnlyErrorReadsSuccessFalse) {
    VellmarkPB::VellmarkAcctOpEnvelope sent;
    *sent.mutable_error() = MakeError();
    const VellmarkPB::VellmarkAcctOpEnvelope parsed = RoundTrip(sent);
    EXPECT_FALSE(parsed.has_success());
    EXPECT_FALSE(parsed.success());
    EXPECT_FALSE(parsed.has_account());
    EXPECT_FALSE(parsed.has_delaccount());
    ASSERT_TRUE(parsed.has_error());
    EXPECT_EQ(parsed.error().subcode(), 1009);
    EXPECT_EQ(parsed.error().messageid(), VellmarkPB::VELLMARK_MESSAGE_CREATE_SERVICE_ACCOUNT);
}

TEST(ServiceAccountSchema, DeleteGvaAndDeleteSrvcAccountShareBytesButNotTypeName) {
    const auto gva = MakeDelete<VellmarkPB::VellmarkDeleteGVA>();
    const auto srvc = MakeDelete<VellmarkPB::VellmarkDeleteSrvcAccount>();
    std::string gvaBytes;
    std::string srvcBytes;
    ASSERT_TRUE(gva.SerializeToString(&gvaBytes));
    ASSERT_TRUE(srvc.SerializeToString(&srvcBytes));
    EXPECT_FALSE(gvaBytes.empty());
    EXPECT_EQ(gvaBytes, srvcBytes);

    EXPECT_EQ(VellmarkPB::VellmarkDeleteGVA::descriptor()->name(), "VellmarkDeleteGVA");
    EXPECT_EQ(VellmarkPB::VellmarkDeleteSrvcAccount::descriptor()->name(),
              "VellmarkDeleteSrvcAccount");
    EXPECT_NE(VellmarkPB::VellmarkDeleteGVA::descriptor(),
              VellmarkPB::VellmarkDeleteSrvcAccount::descriptor());
    EXPECT_EQ(gva.GetTypeName(), "VellmarkPB.VellmarkDeleteGVA");
    EXPECT_EQ(srvc.GetTypeName(), "VellmarkPB.VellmarkDeleteSrvcAccount");
}

TEST(ServiceAccountSchema, SnakeAndCamelCaseTokensAreSeparateFields) {
    VellmarkPB::Tokens sent;
    sent.set_access_token("snake");
    sent.set_refreshtoken("camel");
    const VellmarkPB::Tokens parsed = RoundTrip(sent);
    EXPECT_TRUE(parsed.has_access_token());
    EXPECT_FALSE(parsed.has_accesstoken());
    EXPECT_EQ(parsed.access_token(), "snake");
    EXPECT_TRUE(parsed.has_refreshtoken());
    EXPECT_FALSE(parsed.has_refresh_token());
    EXPECT_EQ(parsed.refreshtoken(), "camel");
}

TEST(ServiceAccountSchema, TokensSurviveRoundTrip) {
    const VellmarkPB::Tokens parsed = ExpectSurvivesRoundTrip(MakeTokens());
    EXPECT_EQ(parsed.access_token(), "at-snake");
    EXPECT_EQ(parsed.accesstoken(), "at-camel");
}

TEST(ServiceAccountSchema, AttributesSurviveRoundTrip) {
    const VellmarkPB::Attributes parsed = ExpectSurvivesRoundTrip(MakeAttributes());
    EXPECT_EQ(parsed.collectdata(), "yes");
}

TEST(ServiceAccountSchema, ServiceAccountSurvivesRoundTrip) {
    const VellmarkPB::serviceAccounts parsed = ExpectSurvivesRoundTrip(MakeAccount());
    EXPECT_EQ(parsed.tarvpersonid(), "person-1");
    EXPECT_TRUE(parsed.disabled());
    EXPECT_EQ(parsed.tokens().uid(), "uid-7");
    EXPECT_EQ(parsed.attributes().assistantdeviceid(), "device-9");
}

TEST(ServiceAccountSchema, EnvelopeSurvivesRoundTrip) {
    VellmarkPB::VellmarkAcctOpEnvelope envelope;
    envelope.set_success(true);
    *envelope.mutable_account() = MakeAccount();
    *envelope.mutable_delaccount() = MakeDelete<VellmarkPB::VellmarkDeleteSrvcAccount>();
    *envelope.mutable_error() = MakeError();
    const VellmarkPB::VellmarkAcctOpEnvelope parsed = ExpectSurvivesRoundTrip(envelope);
    EXPECT_TRUE(parsed.success());
    EXPECT_EQ(parsed.account().accountid(), "account-2");
    EXPECT_EQ(parsed.delaccount().subcode(), 1005);
    EXPECT_EQ(parsed.error().productguid(), "guid-5");
}

TEST(ServiceAccountSchema, DeleteSrvcAccountSurvivesRoundTrip) {
    const auto parsed =
        ExpectSurvivesRoundTrip(MakeDelete<VellmarkPB::VellmarkDeleteSrvcAccount>());
    EXPECT_EQ(parsed.status(), -2);
    EXPECT_EQ(parsed.message(), "not found");
}

TEST(ServiceAccountSchema, DeleteGvaSurvivesRoundTrip) {
    const auto parsed = ExpectSurvivesRoundTrip(MakeDelete<VellmarkPB::VellmarkDeleteGVA>());
    EXPECT_EQ(parsed.code(), 6);
    EXPECT_EQ(parsed.accountid(), "account-2");
}

TEST(ServiceAccountSchema, DeleteRequestCarriesOnlyTheAccountId) {
    VellmarkPB::VellmarkDeleteGVA request;
    request.set_accountid("account-2");
    const VellmarkPB::VellmarkDeleteGVA parsed = RoundTrip(request);
    EXPECT_EQ(parsed.accountid(), "account-2");
    EXPECT_FALSE(parsed.has_code());
    EXPECT_FALSE(parsed.has_subcode());
    EXPECT_FALSE(parsed.has_status());
    EXPECT_FALSE(parsed.has_message());
}

}  // namespace
