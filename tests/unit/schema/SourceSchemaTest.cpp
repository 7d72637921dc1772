// Sources, their nested wrappers and their settings.
#include <gtest/gtest.h>

#include <string>

#include "VellmarkSource.pb.h"
#include "VellmarkSourceSettings.pb.h"
#include "VellmarkSources.pb.h"
#include "tests/unit/schema/SchemaTestSupport.h"

namespace {

using namespace Vellmark::SchemaTest;
using Source = VellmarkPB::VellmarkSource_source;

VellmarkPB::sourceSetting MakeSetting(const std::string& key, const std::string& value) {
    VellmarkPB::sourceSetting setting;
    setting.mutable_keyname()->set_text(key);
    setting.mutable_value()->set_text(value);
    return setting;
}

VellmarkPB::sourceSettings MakeSettings(const std::string& prefix) {
    VellmarkPB::sourceSettings settings;
    *settings.add_source_setting() = MakeSetting(prefix + "-volume", "30");
    *settings.add_source_setting() = MakeSetting(prefix + "-eq", "flat");
    *settings.add_source_setting() = MakeSetting(prefix + "-mode", "shuffle");
    return settings;
}

Source MakeSource(const std::string& id) {
    Source source;
    source.set_id(id);
    source.set_type("MUSIC");
    source.mutable_credential()->set_type("token");
    source.mutable_credential()->set_text("secret-" + id);
    source.mutable_name()->set_text("name-" + id);
    source.mutable_username()->set_text("user-" + id);
    source.mutable_sourceproviderid()->set_text("provider-" + id);
    source.mutable_sourcename()->set_text("sourcename-" + id);
    *source.mutable_sourcesettings() = MakeSettings(id);
    source.mutable_accountid()->set_text("account-" + id);
    source.mutable_updatedon()->set_text("2024-02-02");
    source.mutable_createdon()->set_text("2024-01-01");
    source.set_tarvpersonid("person-" + id);
    return source;
}

TEST(SourceSchema, SourcesListHoldsRepeatedNestedSource) {
    ExpectFields(VellmarkPB::sources::descriptor(),
                 {{1, "source", kRepeated, kMessage, "VellmarkPB.VellmarkSource.source"}});
}

TEST(SourceSchema, VellmarkSourceOnlyScopesTheNestedSource) {
    const auto* scope = VellmarkPB::VellmarkSource::descriptor();
    EXPECT_EQ(scope->field_count(), 0);
    ASSERT_EQ(scope->nested_type_count(), 1);
    EXPECT_EQ(scope->nested_type(0), Source::descriptor());
    EXPECT_EQ(Source::descriptor()->full_name(), "VellmarkPB.VellmarkSource.source");
}

TEST(SourceSchema, SourceFieldsAreDeclaredAsListed) {
    const std::string nested = "VellmarkPB.VellmarkSource.source.";
    ExpectFields(Source::descriptor(),
                 {{1, "id", kOptional, kString, ""},
                  {2, "type", kOptional, kString, ""},
                  {3, "credential", kOptional, kMessage, nested + "Credential"},
                  {4, "name", kOptional, kMessage, nested + "Name"},
                  {5, "username", kOptional, kMessage, nested + "Name"},
                  {6, "sourceproviderid", kRequired, kMessage, nested + "SourceProviderId"},
                  {7, "sourcename", kOptional, kMessage, nested + "Name"},
                  {8, "sourceSettings", kOptional, kMessage, "VellmarkPB.sourceSettings"},
                  {9, "accountid", kOptional, kMessage, nested + "AccountId"},
                  {10, "updatedOn", kOptional, kMessage, nested + "UpdatedOn"},
                  {11, "createdOn", kOptional, kMessage, nested + "CreatedOn"},
                  {12, "tarvpersonid", kOptional, kString, ""}});
}

TEST(SourceSchema, SourceWrappersHoldTheirTextFields) {
    ExpectFields(Source::Credential::descriptor(),
                 {{1, "type", kOptional, kString, ""}, {2, "text", kOptional, kString, ""}});
    const std::vector<ExpectedField> textOnly = {{1, "text", kOptional, kString, ""}};
    ExpectFields(Source::Name::descriptor(), textOnly);
    ExpectFields(Source::SourceProviderId::descriptor(), textOnly);
    ExpectFields(Source::AccountId::descriptor(), textOnly);
    ExpectFields(Source::UpdatedOn::descriptor(), textOnly);
    ExpectFields(Source::CreatedOn::descriptor(), textOnly);
    EXPECT_EQ(Source::descriptor()->nested_type_count(), 6);
}

TEST(SourceSchema, SourceSettingsFieldsAreDeclaredAsListed) {
    ExpectFields(VellmarkPB::sourceSettings::descriptor(),
                 {{1, "source_setting", kRepeated, kMessage, "VellmarkPB.sourceSetting"}});
    ExpectFields(VellmarkPB::sourceSetting::descriptor(),
                 {{1, "keyName", kOptional, kMessage, "VellmarkPB.sourceSetting.KeyName"},
                  {2, "value", kOptional, kMessage, "VellmarkPB.sourceSetting.Value"}});
    const std::vector<ExpectedField> textOnly = {{1, "text", kOptional, kString, ""}};
    ExpectFields(VellmarkPB::sourceSetting_KeyName::descriptor(), textOnly);
    ExpectFields(VellmarkPB::sourceSetting_Value::descriptor(), textOnly);
}

TEST(SourceSchema, SourceWithoutProviderIdLeavesSourcesUninitialized) {
    VellmarkPB::sources list;
    Source* source = list.add_source();
    source->set_id("a");
    source->mutable_name()->set_text("Radio");
    EXPECT_FALSE(source->IsInitialized());
    EXPECT_FALSE(list.IsInitialized());
}

TEST(SourceSchema, ProviderIdWithEmptyTextMakesSourcesInitialized) {
    VellmarkPB::sources list;
    Source* source = list.add_source();
    source->set_id("a");
    source->mutable_sourceproviderid();
    EXPECT_TRUE(source->has_sourceproviderid());
    EXPECT_FALSE(source->sourceproviderid().has_text());
    EXPECT_TRUE(list.IsInitialized());

    source->mutable_sourceproviderid()->set_text("");
    EXPECT_TRUE(list.IsInitialized());
}

TEST(SourceSchema, SourcesMissingProviderIdIsRefusedByStrictParse) {
    VellmarkPB::sources list;
    list.add_source()->set_id("a");
    std::string bytes;
    ASSERT_TRUE(list.SerializePartialToString(&bytes));

    VellmarkPB::sources strict;
    EXPECT_FALSE(strict.ParseFromString(bytes));
    VellmarkPB::sources partial;
    EXPECT_TRUE(partial.ParsePartialFromString(bytes));
    ASSERT_EQ(partial.source_size(), 1);
    EXPECT_EQ(partial.source(0).id(), "a");
    EXPECT_FALSE(partial.IsInitialized());
}

TEST(SourceSchema, OneOfSeveralSourcesWithoutProviderIdLeavesSourcesUninitialized) {
    VellmarkPB::sources list;
    *list.add_source() = MakeSource("1");
    *list.add_source() = MakeSource("2");
    EXPECT_TRUE(list.IsInitialized());
    list.mutable_source(1)->clear_sourceproviderid();
    EXPECT_FALSE(list.IsInitialized());
}

TEST(SourceSchema, NameUsernameAndSourcenameAreSeparateFields) {
    Source onlyName;
    onlyName.mutable_name()->set_text("n");
    EXPECT_TRUE(onlyName.has_name());
    EXPECT_FALSE(onlyName.has_username());
    EXPECT_FALSE(onlyName.has_sourcename());

    Source onlyUsername;
    onlyUsername.mutable_username()->set_text("u");
    EXPECT_FALSE(onlyUsername.has_name());
    EXPECT_TRUE(onlyUsername.has_username());
    EXPECT_FALSE(onlyUsername.has_sourcename());

    Source onlySourcename;
    onlySourcename.mutable_sourcename()->set_text("s");
    onlySourcename.mutable_sourceproviderid();
    const Source parsed = RoundTrip(onlySourcename);
    EXPECT_FALSE(parsed.has_name());
    EXPECT_FALSE(parsed.has_username());
    EXPECT_TRUE(parsed.has_sourcename());
    EXPECT_EQ(parsed.sourcename().text(), "s");
    EXPECT_EQ(parsed.name().text(), "");
}

TEST(SourceSchema, SourceSettingOrderSurvivesRoundTrip) {
    const VellmarkPB::sourceSettings parsed = ExpectSurvivesRoundTrip(MakeSettings("x"));
    ASSERT_EQ(parsed.source_setting_size(), 3);
    EXPECT_EQ(parsed.source_setting(0).keyname().text(), "x-volume");
    EXPECT_EQ(parsed.source_setting(0).value().text(), "30");
    EXPECT_EQ(parsed.source_setting(1).keyname().text(), "x-eq");
    EXPECT_EQ(parsed.source_setting(1).value().text(), "flat");
    EXPECT_EQ(parsed.source_setting(2).keyname().text(), "x-mode");
    EXPECT_EQ(parsed.source_setting(2).value().text(), "shuffle");
}

TEST(SourceSchema, SourcesSurviveRoundTripInOrder) {
    VellmarkPB::sources list;
    *list.add_source() = MakeSource("1");
    *list.add_source() = MakeSource("2");
    *list.add_source() = MakeSource("3");
    const VellmarkPB::sources parsed = ExpectSurvivesRoundTrip(list);
    ASSERT_EQ(parsed.source_size(), 3);
    EXPECT_EQ(parsed.source(0).id(), "1");
    EXPECT_EQ(parsed.source(1).id(), "2");
    EXPECT_EQ(parsed.source(2).id(), "3");
    EXPECT_EQ(parsed.source(1).sourceproviderid().text(), "provider-2");
    EXPECT_EQ(parsed.source(2).sourcesettings().source_setting(1).keyname().text(), "3-eq");
}

TEST(SourceSchema, SourceSurvivesRoundTrip) {
    const Source parsed = ExpectSurvivesRoundTrip(MakeSource("7"));
    EXPECT_EQ(parsed.credential().text(), "secret-7");
    EXPECT_EQ(parsed.accountid().text(), "account-7");
    EXPECT_EQ(parsed.tarvpersonid(), "person-7");
}

TEST(SourceSchema, EmptyVellmarkSourceSurvivesRoundTrip) {
    const VellmarkPB::VellmarkSource scope;
    ExpectSurvivesRoundTrip(scope);
    EXPECT_EQ(scope.ByteSizeLong(), 0u);
}

TEST(SourceSchema, SourceWrappersSurviveRoundTrip) {
    Source::Credential credential;
    credential.set_type("oauth");
    credential.set_text("c");
    EXPECT_EQ(ExpectSurvivesRoundTrip(credential).type(), "oauth");

    Source::Name name;
    name.set_text("n");
    EXPECT_EQ(ExpectSurvivesRoundTrip(name).text(), "n");

    Source::SourceProviderId provider;
    provider.set_text("p");
    EXPECT_EQ(ExpectSurvivesRoundTrip(provider).text(), "p");

    Source::AccountId account;
    account.set_text("a");
    EXPECT_EQ(ExpectSurvivesRoundTrip(account).text(), "a");

    Source::UpdatedOn updated;
    updated.set_text("u");
    EXPECT_EQ(ExpectSurvivesRoundTrip(updated).text(), "u");

    Source::CreatedOn created;
    created.set_text("c");
    EXPECT_EQ(ExpectSurvivesRoundTrip(created).text(), "c");
}

TEST(SourceSchema, SourceSettingAndItsPartsSurviveRoundTrip) {
    const VellmarkPB::sourceSetting setting = ExpectSurvivesRoundTrip(MakeSetting("k", "v"));
    EXPECT_EQ(setting.keyname().text(), "k");
    EXPECT_EQ(setting.value().text(), "v");

    VellmarkPB::sourceSetting_KeyName key;
    key.set_text("key");
    EXPECT_EQ(ExpectSurvivesRoundTrip(key).text(), "key");

    VellmarkPB::sourceSetting_Value value;
    value.set_text("value");
    EXPECT_EQ(ExpectSurvivesRoundTrip(value).text(), "value");
}

TEST(SourceSchema, ListTypeNameIsSources) {
    EXPECT_EQ(VellmarkPB::sources::descriptor()->name(), "sources");
}

}  // namespace
