#include "admin/Json.h"

#include <google/protobuf/util/message_differencer.h>
#include <gtest/gtest.h>

#include <string>

#include "VellmarkAdmin.pb.h"
#include "VellmarkPresets.pb.h"
#include "VellmarkServiceAccounts.pb.h"
#include "VellmarkSourceSettings.pb.h"
#include "VellmarkSources.pb.h"

namespace {

using google::protobuf::util::MessageDifferencer;

bool Contains(std::string const& text, std::string const& part) {
    return text.find(part) != std::string::npos;
}

TEST(JsonTest, ParsesAValidDocument) {
    VellmarkPB::serviceAccounts account;
    EXPECT_EQ(Vellmark::Json::Parse(R"({"accountID": "a-1", "disabled": true})", account), "");
    EXPECT_EQ(account.accountid(), "a-1");
    EXPECT_TRUE(account.disabled());
}

TEST(JsonTest, ReportsASyntaxError) {
    VellmarkPB::serviceAccounts account;
    EXPECT_NE(Vellmark::Json::Parse(R"({"accountID": "a-1",)", account), "");
    EXPECT_NE(Vellmark::Json::Parse("not json", account), "");
}

TEST(JsonTest, ReportsAnUnknownFieldByName) {
    VellmarkPB::serviceAccounts account;
    std::string const error =
        Vellmark::Json::Parse(R"({"accountID": "a-1", "favouriteColour": "blue"})", account);
    EXPECT_TRUE(Contains(error, "favouriteColour")) << error;
}

TEST(JsonTest, ReportsAValueOfTheWrongType) {
    VellmarkPB::serviceAccounts account;
    EXPECT_NE(Vellmark::Json::Parse(R"({"disabled": "maybe"})", account), "");
    EXPECT_NE(Vellmark::Json::Parse(R"({"accountID": {"nested": 1}})", account), "");
    VellmarkPB::sources list;
    EXPECT_NE(Vellmark::Json::Parse(R"({"source": 5})", list), "");
}

TEST(JsonTest, NamesARequiredFieldLeftOut) {
    VellmarkPB::sources list;
    std::string const error =
        Vellmark::Json::Parse(R"({"source": [{"id": "s-1", "name": {"text": "Kitchen"}}]})", list);
    EXPECT_TRUE(Contains(error, "sourceproviderid")) << error;
}

TEST(JsonTest, AcceptsARequiredFieldThatIsThere) {
    VellmarkPB::sources list;
    EXPECT_EQ(Vellmark::Json::Parse(
                  R"({"source": [{"id": "s-1", "sourceproviderid": {"text": "X"}}]})", list),
              "");
    ASSERT_EQ(list.source_size(), 1);
    EXPECT_EQ(list.source(0).sourceproviderid().text(), "X");
}

TEST(JsonTest, AcceptsSchemaNamesAndLowerCamelCaseNames) {
    VellmarkPB::sourceSettings schemaNamed;
    ASSERT_EQ(Vellmark::Json::Parse(
                  R"({"source_setting": [{"keyName": {"text": "k"}, "value": {"text": "v"}}]})",
                  schemaNamed),
              "");
    VellmarkPB::sourceSettings camelNamed;
    ASSERT_EQ(Vellmark::Json::Parse(
                  R"({"sourceSetting": [{"keyName": {"text": "k"}, "value": {"text": "v"}}]})",
                  camelNamed),
              "");
    ASSERT_EQ(schemaNamed.source_setting_size(), 1);
    EXPECT_EQ(schemaNamed.source_setting(0).keyname().text(), "k");
    EXPECT_TRUE(MessageDifferencer::Equals(schemaNamed, camelNamed));
}

TEST(JsonTest, PrintThenParseGivesTheSameMessage) {
    Vellmark::Admin::StoreDocument document;
    auto* source = document.mutable_sources()->add_source();
    source->set_id("s-1");
    source->mutable_sourceproviderid()->set_text("SPOTIFY");
    source->mutable_accountid()->set_text("a-1");
    auto* setting = source->mutable_sourcesettings()->add_source_setting();
    setting->mutable_keyname()->set_text("quality");
    setting->mutable_value()->set_text("high");
    document.mutable_productsettings()->set_name("Den");
    document.mutable_productsettings()->set_timeformat(VellmarkPB::TIME_FORMAT_24HOUR_ID);
    document.mutable_productsettings()->set_ttspromptenabled(false);
    auto* preset = document.mutable_presets()->add_presets();
    preset->set_key("3");
    preset->mutable_value()->add_actions()->mutable_metadata()->set_accountid("a-1");
    auto* account = document.add_serviceaccounts();
    account->set_accountid("a-1");
    account->set_tarvpersonid("p-1");
    account->mutable_attributes()->set_assistantdeviceid("device");
    document.mutable_association()->set_status(VellmarkPB::ASSOCIATED);

    for (bool const pretty : {false, true}) {
        std::string const json = Vellmark::Json::Print(document, pretty);
        Vellmark::Admin::StoreDocument parsed;
        ASSERT_EQ(Vellmark::Json::Parse(json, parsed), "") << json;
        EXPECT_TRUE(MessageDifferencer::Equals(document, parsed)) << json;
    }
}

TEST(JsonTest, ParsingAnEmptyObjectClearsTheMessage) {
    VellmarkPB::serviceAccounts account;
    account.set_accountid("a-1");
    account.set_name("old");
    account.mutable_tokens()->set_uid("u");
    EXPECT_EQ(Vellmark::Json::Parse("{}", account), "");
    EXPECT_TRUE(MessageDifferencer::Equals(account, VellmarkPB::serviceAccounts()));
    EXPECT_EQ(account.ByteSizeLong(), 0u);
}

}  // namespace

TEST(JsonTest, KeepsSnakeAndCamelCaseTokenFieldsApart) {
    VellmarkPB::serviceAccounts account;
    ASSERT_EQ(
        Vellmark::Json::Parse(R"({"tokens": {"refreshToken": "camel", "refresh_token": "snake",
                                                  "accessToken": "A", "access_token": "a"}})",
                              account),
        "");
    EXPECT_EQ(account.tokens().refreshtoken(), "camel");
    EXPECT_EQ(account.tokens().refresh_token(), "snake");
    EXPECT_EQ(account.tokens().accesstoken(), "A");
    EXPECT_EQ(account.tokens().access_token(), "a");
}
