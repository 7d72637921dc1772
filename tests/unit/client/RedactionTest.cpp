// RedactSensitiveFieldsSA: a copy of a service account whose identifiers and refresh tokens
// are masked, and nothing else.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <google/protobuf/descriptor.h>
#include <google/protobuf/util/message_differencer.h>

#include "platform/log/Redact.h"
#include "tests/unit/client/ClientTestSupport.h"

using namespace Vellmark::ClientTests;

namespace {

using google::protobuf::util::MessageDifferencer;

// A token longer than 350 characters, so that the bound given to the token masker counts.
std::string LongToken(char first) {
    std::string token;
    for (int i = 0; i < 400; ++i) token.push_back(static_cast<char>(first + i % 26));
    return token;
}

// An account with every field of the account, its tokens and its attributes set.
VellmarkPB::serviceAccounts FullAccount() {
    VellmarkPB::serviceAccounts account;
    account.set_tarvpersonid("person-1234567890");
    account.set_accountid("account-1234567890");
    account.set_accounttype("VPA");
    account.set_provider("GVA");
    account.set_provideraccountid("provider-account-1234567890");
    account.set_name("Anna's assistant");
    account.set_updatedon("2024-05-02T10:00:00Z");
    account.set_createdon("2024-05-01T09:00:00Z");
    account.set_disabled(true);
    account.set_productid("product-42");

    auto* tokens = account.mutable_tokens();
    tokens->set_access_token("snake-access-token-0123456789abcdef0123456789");
    tokens->set_access_token_expiration("3600");
    tokens->set_refresh_token(LongToken('a'));
    tokens->set_refresh_token_expiration("86400");
    tokens->set_accesstoken("camel-access-token-0123456789abcdef0123456789");
    tokens->set_refreshtoken(LongToken('A'));
    tokens->set_idtoken("id-token-0123456789abcdef0123456789");
    tokens->set_expiresin("1800");
    tokens->set_signaturetimestamp("1714640000");
    tokens->set_uidsignature("uid-signature-0123456789");
    tokens->set_uid("uid-0123456789");

    auto* attributes = account.mutable_attributes();
    attributes->set_email("anna@example.com");
    attributes->set_subscriptionstatus("active");
    attributes->set_language("de-DE");
    attributes->set_wuwmodel("model-3");
    attributes->set_wuword("Hey Vellmark");
    attributes->set_assistantdeviceid("device-0123456789");
    attributes->set_collectdata("yes");
    return account;
}

// The account, tokens and attributes fields that are not masked, each set.
VellmarkPB::serviceAccounts AccountWithoutSensitiveFields() {
    auto account = FullAccount();
    account.clear_tarvpersonid();
    account.clear_accountid();
    account.clear_provideraccountid();
    account.mutable_tokens()->clear_refresh_token();
    account.mutable_tokens()->clear_refreshtoken();
    return account;
}

std::string Differences(google::protobuf::Message const& a, google::protobuf::Message const& b) {
    std::string report;
    MessageDifferencer differencer;
    differencer.ReportDifferencesToString(&report);
    differencer.Compare(a, b);
    return report;
}

}  // namespace

class RedactionTest : public ClientTest {};

TEST_F(RedactionTest, EachSensitiveFieldIsReplacedByItsMaskedFormAndStaysPresent) {
    auto const account = FullAccount();

    auto const result = client->RedactSensitiveFieldsSA(account);

    EXPECT_TRUE(result.has_tarvpersonid());
    EXPECT_EQ(result.tarvpersonid(), Redact::RedactID(account.tarvpersonid(), '-'));
    EXPECT_TRUE(result.has_accountid());
    EXPECT_EQ(result.accountid(), Redact::RedactID(account.accountid(), '-'));
    EXPECT_TRUE(result.has_provideraccountid());
    EXPECT_EQ(result.provideraccountid(), Redact::RedactID(account.provideraccountid(), '-'));
    ASSERT_TRUE(result.has_tokens());
    EXPECT_TRUE(result.tokens().has_refresh_token());
    EXPECT_EQ(result.tokens().refresh_token(),
              Redact::RedactTokens(account.tokens().refresh_token(), 350));
    EXPECT_TRUE(result.tokens().has_refreshtoken());
    EXPECT_EQ(result.tokens().refreshtoken(),
              Redact::RedactTokens(account.tokens().refreshtoken(), 350));
}

TEST_F(RedactionTest, NoSensitiveValueIsLeftInClear) {
    auto const account = FullAccount();

    auto const result = client->RedactSensitiveFieldsSA(account);

    EXPECT_NE(result.tarvpersonid(), account.tarvpersonid());
    EXPECT_NE(result.accountid(), account.accountid());
    EXPECT_NE(result.provideraccountid(), account.provideraccountid());
    EXPECT_NE(result.tokens().refresh_token(), account.tokens().refresh_token());
    EXPECT_NE(result.tokens().refreshtoken(), account.tokens().refreshtoken());
}

TEST_F(RedactionTest, EveryOtherFieldIsLeftInClear) {
    auto const account = FullAccount();

    auto const result = client->RedactSensitiveFieldsSA(account);

    auto const* accountType = VellmarkPB::serviceAccounts::descriptor();
    auto const* tokensType = VellmarkPB::Tokens::descriptor();
    MessageDifferencer differencer;
    std::string report;
    differencer.ReportDifferencesToString(&report);
    for (auto const* name : {"tarvPersonID", "accountID", "providerAccountID"}) {
        auto const* field = accountType->FindFieldByName(name);
        ASSERT_NE(field, nullptr) << name;
        differencer.IgnoreField(field);
    }
    for (auto const* name : {"refresh_token", "refreshToken"}) {
        auto const* field = tokensType->FindFieldByName(name);
        ASSERT_NE(field, nullptr) << name;
        differencer.IgnoreField(field);
    }
    EXPECT_TRUE(differencer.Compare(account, result)) << report;
}

TEST_F(RedactionTest, ResultIsTheArgumentWithExactlyTheFiveFieldsMasked) {
    auto const account = FullAccount();
    auto expected = account;
    expected.set_tarvpersonid(Redact::RedactID(account.tarvpersonid(), '-'));
    expected.set_accountid(Redact::RedactID(account.accountid(), '-'));
    expected.set_provideraccountid(Redact::RedactID(account.provideraccountid(), '-'));
    expected.mutable_tokens()->set_refresh_token(
        Redact::RedactTokens(account.tokens().refresh_token(), 350));
    expected.mutable_tokens()->set_refreshtoken(
        Redact::RedactTokens(account.tokens().refreshtoken(), 350));

    auto const result = client->RedactSensitiveFieldsSA(account);

    EXPECT_TRUE(MessageDifferencer::Equals(result, expected)) << Differences(expected, result);
}

TEST_F(RedactionTest, AccountWithNoneOfTheFiveFieldsComesBackEqual) {
    auto const account = AccountWithoutSensitiveFields();

    auto const result = client->RedactSensitiveFieldsSA(account);

    EXPECT_TRUE(MessageDifferencer::Equals(result, account)) << Differences(account, result);
}

TEST_F(RedactionTest, EmptyAccountComesBackEmpty) {
    auto const result = client->RedactSensitiveFieldsSA(VellmarkPB::serviceAccounts());

    EXPECT_TRUE(MessageDifferencer::Equals(result, VellmarkPB::serviceAccounts()))
        << Differences(VellmarkPB::serviceAccounts(), result);
    EXPECT_FALSE(result.has_tokens());
}

TEST_F(RedactionTest, TokensWithoutRefreshFieldsComeBackUnchangedWithNoTokenFieldAdded) {
    VellmarkPB::serviceAccounts account;
    account.set_accountid("account-1234567890");
    account.mutable_tokens()->set_access_token("snake-access-token");
    account.mutable_tokens()->set_idtoken("id-token");

    auto const result = client->RedactSensitiveFieldsSA(account);

    ASSERT_TRUE(result.has_tokens());
    EXPECT_TRUE(MessageDifferencer::Equals(result.tokens(), account.tokens()))
        << Differences(account.tokens(), result.tokens());
    EXPECT_FALSE(result.tokens().has_refresh_token());
    EXPECT_FALSE(result.tokens().has_refreshtoken());
}

TEST_F(RedactionTest, EmptyTokensComeBackPresentAndEmpty) {
    VellmarkPB::serviceAccounts account;
    account.mutable_tokens();

    auto const result = client->RedactSensitiveFieldsSA(account);

    ASSERT_TRUE(result.has_tokens());
    EXPECT_EQ(result.tokens().ByteSizeLong(), 0u);
}

TEST_F(RedactionTest, AccessTokenAndEmailComeBackUnchanged) {
    VellmarkPB::serviceAccounts account;
    account.set_tarvpersonid("person-1234567890");
    account.mutable_tokens()->set_accesstoken("camel-access-token-0123456789abcdef0123456789");
    account.mutable_tokens()->set_refreshtoken("camel-refresh-token-0123456789abcdef01234567");
    account.mutable_attributes()->set_email("anna@example.com");

    auto const result = client->RedactSensitiveFieldsSA(account);

    EXPECT_EQ(result.tokens().accesstoken(), "camel-access-token-0123456789abcdef0123456789");
    EXPECT_EQ(result.attributes().email(), "anna@example.com");
    EXPECT_TRUE(MessageDifferencer::Equals(result.attributes(), account.attributes()));
}

TEST_F(RedactionTest, PresentButEmptyAccountIdIsMaskedAndStaysPresent) {
    VellmarkPB::serviceAccounts account;
    account.set_accountid("");

    auto const result = client->RedactSensitiveFieldsSA(account);

    EXPECT_TRUE(result.has_accountid());
    EXPECT_EQ(result.accountid(), Redact::RedactID("", '-'));
    EXPECT_FALSE(result.has_tarvpersonid());
    EXPECT_FALSE(result.has_provideraccountid());
    EXPECT_FALSE(result.has_tokens());
}

TEST_F(RedactionTest, PresentButEmptyRefreshTokensAreMaskedAndStayPresent) {
    VellmarkPB::serviceAccounts account;
    account.mutable_tokens()->set_refresh_token("");
    account.mutable_tokens()->set_refreshtoken("");

    auto const result = client->RedactSensitiveFieldsSA(account);

    EXPECT_TRUE(result.tokens().has_refresh_token());
    EXPECT_EQ(result.tokens().refresh_token(), Redact::RedactTokens("", 350));
    EXPECT_TRUE(result.tokens().has_refreshtoken());
    EXPECT_EQ(result.tokens().refreshtoken(), Redact::RedactTokens("", 350));
}

TEST_F(RedactionTest, EachSensitiveFieldAloneIsMaskedWithoutCreatingAnyOther) {
    using Account = VellmarkPB::serviceAccounts;
    struct Case {
        char const* field;
        void (*set)(Account&);     // sets the one field in clear
        void (*masked)(Account&);  // sets it as it must come back
    };
    Case const cases[] = {
        {"tarvPersonID", [](Account& a) { a.set_tarvpersonid("person-1234"); },
         [](Account& a) { a.set_tarvpersonid(Redact::RedactID("person-1234", '-')); }},
        {"accountID", [](Account& a) { a.set_accountid("account-1234"); },
         [](Account& a) { a.set_accountid(Redact::RedactID("account-1234", '-')); }},
        {"providerAccountID", [](Account& a) { a.set_provideraccountid("provider-1234"); },
         [](Account& a) { a.set_provideraccountid(Redact::RedactID("provider-1234", '-')); }},
        {"refresh_token", [](Account& a) { a.mutable_tokens()->set_refresh_token(LongToken('a')); },
         [](Account& a) {
             a.mutable_tokens()->set_refresh_token(Redact::RedactTokens(LongToken('a'), 350));
         }},
        {"refreshToken", [](Account& a) { a.mutable_tokens()->set_refreshtoken(LongToken('A')); },
         [](Account& a) {
             a.mutable_tokens()->set_refreshtoken(Redact::RedactTokens(LongToken('A'), 350));
         }},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.field);
        Account account;
        c.set(account);
        Account expected;
        c.masked(expected);

        auto const result = client->RedactSensitiveFieldsSA(account);

        EXPECT_TRUE(MessageDifferencer::Equals(result, expected)) << Differences(expected, result);
    }
}

TEST_F(RedactionTest, ArgumentIsIdenticalBeforeAndAfterTheCall) {
    auto const account = FullAccount();
    std::string const bytesBefore = account.SerializeAsString();

    auto const result = client->RedactSensitiveFieldsSA(account);

    EXPECT_TRUE(MessageDifferencer::Equals(account, FullAccount()))
        << Differences(FullAccount(), account);
    EXPECT_EQ(account.SerializeAsString(), bytesBefore);
    EXPECT_NE(result.accountid(), account.accountid());
}
