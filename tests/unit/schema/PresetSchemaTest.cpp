// Presets: the list, one preset, its value, actions, metadata and content.
#include <gtest/gtest.h>

#include <string>

#include "VellmarkPreset.pb.h"
#include "VellmarkPresets.pb.h"
#include "tests/unit/schema/SchemaTestSupport.h"

namespace {

using namespace Vellmark::SchemaTest;

VellmarkPB::contentItem MakeContentItem(const std::string& tag) {
    VellmarkPB::contentItem item;
    item.set_containerart("art-" + tag);
    item.set_location("/stations/" + tag);
    item.set_name("Station " + tag);
    item.set_presetable(true);
    item.set_source("INTERNET_RADIO");
    item.set_sourceaccount("account-" + tag);
    item.set_type("stationurl");
    return item;
}

VellmarkPB::metaData MakeMetaData(const std::string& tag) {
    VellmarkPB::metaData metadata;
    metadata.set_subtype("station");
    metadata.set_name("meta-" + tag);
    metadata.set_image("image-" + tag);
    metadata.set_accountid("account-" + tag);
    return metadata;
}

VellmarkPB::Actions MakeAction(const std::string& tag) {
    VellmarkPB::Actions action;
    action.set_actiontype("play-" + tag);
    *action.mutable_metadata() = MakeMetaData(tag);
    *action.mutable_payload()->mutable_contentitem() = MakeContentItem(tag);
    return action;
}

VellmarkPB::Presets MakePreset(const std::string& key) {
    VellmarkPB::Presets preset;
    preset.set_key(key);
    VellmarkPB::Value* value = preset.mutable_value();
    *value->add_actions() = MakeAction(key + "a");
    *value->add_actions() = MakeAction(key + "b");
    *value->add_actions() = MakeAction(key + "c");
    value->set_createdon("2024-01-0" + key);
    value->set_updatedon("2024-02-0" + key);
    return preset;
}

TEST(PresetSchema, PresetListFieldsAreDeclaredAsListed) {
    ExpectFields(VellmarkPB::VellmarkPresets::descriptor(),
                 {{1, "presets", kRepeated, kMessage, "VellmarkPB.Presets"}});
    EXPECT_EQ(VellmarkPB::VellmarkPresets::descriptor()->name(), "VellmarkPresets");
}

TEST(PresetSchema, PresetFieldsAreDeclaredAsListed) {
    ExpectFields(VellmarkPB::Presets::descriptor(),
                 {{1, "value", kOptional, kMessage, "VellmarkPB.Value"},
                  {2, "key", kOptional, kString, ""}});
    ExpectFields(VellmarkPB::Value::descriptor(),
                 {{1, "actions", kRepeated, kMessage, "VellmarkPB.Actions"},
                  {2, "createdOn", kOptional, kString, ""},
                  {3, "updatedOn", kOptional, kString, ""}});
}

TEST(PresetSchema, ActionFieldsAreDeclaredAsListed) {
    ExpectFields(VellmarkPB::Actions::descriptor(),
                 {{1, "actionType", kOptional, kString, ""},
                  {2, "metadata", kOptional, kMessage, "VellmarkPB.metaData"},
                  {3, "payload", kOptional, kMessage, "VellmarkPB.payLoad"}});
    ExpectFields(VellmarkPB::metaData::descriptor(), {{1, "subType", kOptional, kString, ""},
                                                      {2, "name", kOptional, kString, ""},
                                                      {3, "image", kOptional, kString, ""},
                                                      {4, "accountID", kOptional, kString, ""}});
    ExpectFields(VellmarkPB::payLoad::descriptor(),
                 {{1, "contentItem", kOptional, kMessage, "VellmarkPB.contentItem"}});
}

TEST(PresetSchema, ContentItemFieldsAreDeclaredAsListed) {
    ExpectFields(VellmarkPB::contentItem::descriptor(),
                 {{1, "containerArt", kOptional, kString, ""},
                  {2, "location", kOptional, kString, ""},
                  {3, "name", kOptional, kString, ""},
                  {4, "presetable", kOptional, kBool, ""},
                  {5, "source", kOptional, kString, ""},
                  {6, "sourceAccount", kOptional, kString, ""},
                  {7, "type", kOptional, kString, ""}});
}

TEST(PresetSchema, PresetWithoutValueReadsEmptyDefaultValue) {
    VellmarkPB::VellmarkPresets sent;
    sent.add_presets()->set_key("4");
    const VellmarkPB::VellmarkPresets parsed = RoundTrip(sent);
    ASSERT_EQ(parsed.presets_size(), 1);
    const VellmarkPB::Presets& preset = parsed.presets(0);
    EXPECT_EQ(preset.key(), "4");
    EXPECT_FALSE(preset.has_value());
    EXPECT_EQ(preset.value().actions_size(), 0);
    EXPECT_FALSE(preset.value().has_createdon());
    EXPECT_FALSE(preset.value().has_updatedon());
    EXPECT_EQ(preset.value().createdon(), "");
}

TEST(PresetSchema, PresetsAndActionsKeepOrderThroughRoundTrip) {
    VellmarkPB::VellmarkPresets list;
    *list.add_presets() = MakePreset("3");
    *list.add_presets() = MakePreset("1");
    *list.add_presets() = MakePreset("2");
    const VellmarkPB::VellmarkPresets parsed = ExpectSurvivesRoundTrip(list);
    ASSERT_EQ(parsed.presets_size(), 3);
    EXPECT_EQ(parsed.presets(0).key(), "3");
    EXPECT_EQ(parsed.presets(1).key(), "1");
    EXPECT_EQ(parsed.presets(2).key(), "2");
    const VellmarkPB::Value& value = parsed.presets(1).value();
    ASSERT_EQ(value.actions_size(), 3);
    EXPECT_EQ(value.actions(0).actiontype(), "play-1a");
    EXPECT_EQ(value.actions(1).actiontype(), "play-1b");
    EXPECT_EQ(value.actions(2).actiontype(), "play-1c");
    EXPECT_EQ(value.actions(2).payload().contentitem().location(), "/stations/1c");
}

TEST(PresetSchema, PresetSurvivesRoundTrip) {
    const VellmarkPB::Presets parsed = ExpectSurvivesRoundTrip(MakePreset("5"));
    EXPECT_EQ(parsed.key(), "5");
    EXPECT_EQ(parsed.value().createdon(), "2024-01-05");
}

TEST(PresetSchema, ValueSurvivesRoundTrip) {
    const VellmarkPB::Value parsed = ExpectSurvivesRoundTrip(MakePreset("6").value());
    ASSERT_EQ(parsed.actions_size(), 3);
    EXPECT_EQ(parsed.actions(0).metadata().name(), "meta-6a");
    EXPECT_EQ(parsed.actions(1).metadata().name(), "meta-6b");
    EXPECT_EQ(parsed.actions(2).metadata().name(), "meta-6c");
}

TEST(PresetSchema, ActionSurvivesRoundTrip) {
    const VellmarkPB::Actions parsed = ExpectSurvivesRoundTrip(MakeAction("x"));
    EXPECT_EQ(parsed.actiontype(), "play-x");
    EXPECT_EQ(parsed.metadata().accountid(), "account-x");
    EXPECT_TRUE(parsed.payload().contentitem().presetable());
}

TEST(PresetSchema, MetaDataSurvivesRoundTrip) {
    const VellmarkPB::metaData parsed = ExpectSurvivesRoundTrip(MakeMetaData("m"));
    EXPECT_EQ(parsed.subtype(), "station");
    EXPECT_EQ(parsed.image(), "image-m");
}

TEST(PresetSchema, PayLoadSurvivesRoundTrip) {
    VellmarkPB::payLoad payload;
    *payload.mutable_contentitem() = MakeContentItem("p");
    const VellmarkPB::payLoad parsed = ExpectSurvivesRoundTrip(payload);
    EXPECT_EQ(parsed.contentitem().name(), "Station p");
}

TEST(PresetSchema, ContentItemSurvivesRoundTrip) {
    const VellmarkPB::contentItem parsed = ExpectSurvivesRoundTrip(MakeContentItem("c"));
    EXPECT_EQ(parsed.containerart(), "art-c");
    EXPECT_EQ(parsed.sourceaccount(), "account-c");
    EXPECT_EQ(parsed.type(), "stationurl");
}

TEST(PresetSchema, PresetableFalseIsPresentAfterRoundTrip) {
    VellmarkPB::contentItem item;
    item.set_presetable(false);
    const VellmarkPB::contentItem parsed = RoundTrip(item);
    EXPECT_TRUE(parsed.has_presetable());
    EXPECT_FALSE(parsed.presetable());
}

}  // namespace
