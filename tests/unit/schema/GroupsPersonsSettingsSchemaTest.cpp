// Groups, persons, product settings, account association and local products.
#include <google/protobuf/unknown_field_set.h>
#include <gtest/gtest.h>

#include <string>

#include "LocalProducts.pb.h"
#include "VellmarkGroups.pb.h"
#include "VellmarkPersons.pb.h"
#include "VellmarkProductSettings.pb.h"
#include "VellmarkSystemAssoicated.pb.h"
#include "tests/unit/schema/SchemaTestSupport.h"

namespace {

using namespace Vellmark::SchemaTest;

VellmarkPB::VellmarkGroupMember MakeMember(const std::string& tag) {
    VellmarkPB::VellmarkGroupMember member;
    member.set_memberid("member-" + tag);
    member.set_productid("product-" + tag);
    member.set_subgroupid("sub-" + tag);
    member.set_role(tag == "1" ? "MASTER" : "SLAVE");
    member.set_createdon("2024-01-01");
    member.set_updatedon("2024-02-02");
    member.mutable_attributes()->set_name("attr-" + tag);
    return member;
}

VellmarkPB::VellmarkGroup MakeGroup(const std::string& id) {
    VellmarkPB::VellmarkGroup group;
    group.mutable_settings()->set_name("Living " + id);
    group.set_groupid(id);
    group.set_grouptype("STEREO");
    group.set_createdon("2024-01-01");
    group.set_updatedon("2024-02-02");
    *group.add_members() = MakeMember("1");
    *group.add_members() = MakeMember("2");
    *group.add_members() = MakeMember("3");
    group.mutable_attributes()->set_name("group-attr-" + id);
    return group;
}

VellmarkPB::Person MakePerson(const std::string& role, const std::string& id) {
    VellmarkPB::Person person;
    person.set_value(role);
    person.set_key(id);
    return person;
}

VellmarkPB::ProductSettings MakeProductSettings() {
    VellmarkPB::ProductSettings settings;
    settings.set_language("fr");
    settings.set_productname("Bar 900");
    settings.set_name("Salon");
    settings.set_timeformat(VellmarkPB::TIME_FORMAT_24HOUR_ID);
    settings.set_timezone("Europe/Paris");
    settings.set_updatedon("2024-02-02");
    settings.set_createdon("2024-01-01");
    settings.set_producttype("soundbar");
    settings.set_productid("product-1");
    settings.set_ttspromptlanguage("fr-FR");
    settings.set_ttspromptenabled(true);
    settings.set_cableproviderid("cable-3");
    return settings;
}

VellmarkPB::LocalProduct MakeLocalProduct(const std::string& guid) {
    VellmarkPB::LocalProduct product;
    product.set_productguid(guid);
    product.set_producttype("speaker");
    product.set_productname("Speaker " + guid);
    product.set_productvariantcolor("black");
    return product;
}

TEST(GroupsSchema, GroupListAndGroupFieldsAreDeclaredAsListed) {
    ExpectFields(VellmarkPB::VellmarkGroups::descriptor(),
                 {{1, "groups", kRepeated, kMessage, "VellmarkPB.VellmarkGroup"}});
    ExpectFields(VellmarkPB::VellmarkGroup::descriptor(),
                 {{1, "settings", kOptional, kMessage, "VellmarkPB.VellmarkGroupSettings"},
                  {2, "groupID", kOptional, kString, ""},
                  {3, "groupType", kOptional, kString, ""},
                  {4, "createdOn", kOptional, kString, ""},
                  {5, "updatedOn", kOptional, kString, ""},
                  {6, "members", kRepeated, kMessage, "VellmarkPB.VellmarkGroupMember"},
                  {7, "attributes", kOptional, kMessage, "VellmarkPB.VellmarkGroupAttributes"}});
}

TEST(GroupsSchema, MemberSettingsAndAttributeFieldsAreDeclaredAsListed) {
    ExpectFields(VellmarkPB::VellmarkGroupMember::descriptor(),
                 {{1, "memberID", kOptional, kString, ""},
                  {2, "productID", kOptional, kString, ""},
                  {3, "subGroupID", kOptional, kString, ""},
                  {4, "role", kOptional, kString, ""},
                  {5, "createdOn", kOptional, kString, ""},
                  {6, "updatedOn", kOptional, kString, ""},
                  {7, "attributes", kOptional, kMessage, "VellmarkPB.VellmarkGroupAttributes"}});
    ExpectFields(VellmarkPB::VellmarkGroupSettings::descriptor(),
                 {{1, "name", kOptional, kString, ""}});
    ExpectFields(VellmarkPB::VellmarkGroupAttributes::descriptor(),
                 {{1, "name", kOptional, kString, ""}});
    ExpectFields(VellmarkPB::Void::descriptor(), {});
}

TEST(GroupsSchema, GroupsAndMembersKeepOrderThroughRoundTrip) {
    VellmarkPB::VellmarkGroups groups;
    *groups.add_groups() = MakeGroup("g1");
    *groups.add_groups() = MakeGroup("g2");
    *groups.add_groups() = MakeGroup("g3");
    const VellmarkPB::VellmarkGroups parsed = ExpectSurvivesRoundTrip(groups);
    ASSERT_EQ(parsed.groups_size(), 3);
    EXPECT_EQ(parsed.groups(0).groupid(), "g1");
    EXPECT_EQ(parsed.groups(1).groupid(), "g2");
    EXPECT_EQ(parsed.groups(2).groupid(), "g3");
    const VellmarkPB::VellmarkGroup& group = parsed.groups(2);
    ASSERT_EQ(group.members_size(), 3);
    EXPECT_EQ(group.members(0).memberid(), "member-1");
    EXPECT_EQ(group.members(1).memberid(), "member-2");
    EXPECT_EQ(group.members(2).memberid(), "member-3");
    EXPECT_EQ(group.settings().name(), "Living g3");
}

TEST(GroupsSchema, GroupSurvivesRoundTrip) {
    const VellmarkPB::VellmarkGroup parsed = ExpectSurvivesRoundTrip(MakeGroup("g"));
    EXPECT_EQ(parsed.grouptype(), "STEREO");
    EXPECT_EQ(parsed.attributes().name(), "group-attr-g");
}

TEST(GroupsSchema, GroupMemberSurvivesRoundTrip) {
    const VellmarkPB::VellmarkGroupMember parsed = ExpectSurvivesRoundTrip(MakeMember("1"));
    EXPECT_EQ(parsed.role(), "MASTER");
    EXPECT_EQ(parsed.subgroupid(), "sub-1");
    EXPECT_EQ(parsed.attributes().name(), "attr-1");
}

TEST(GroupsSchema, GroupSettingsAndAttributesSurviveRoundTrip) {
    VellmarkPB::VellmarkGroupSettings settings;
    settings.set_name("Kitchen");
    EXPECT_EQ(ExpectSurvivesRoundTrip(settings).name(), "Kitchen");

    VellmarkPB::VellmarkGroupAttributes attributes;
    attributes.set_name("zone");
    EXPECT_EQ(ExpectSurvivesRoundTrip(attributes).name(), "zone");
}

TEST(GroupsSchema, VoidSurvivesRoundTripEmpty) {
    const VellmarkPB::Void nothing;
    EXPECT_EQ(nothing.ByteSizeLong(), 0u);
    ExpectSurvivesRoundTrip(nothing);
}

TEST(PersonsSchema, PersonFieldsPutValueBeforeKey) {
    ExpectFields(VellmarkPB::persons::descriptor(),
                 {{1, "person", kRepeated, kMessage, "VellmarkPB.Person"}});
    ExpectFields(VellmarkPB::Person::descriptor(),
                 {{1, "value", kOptional, kString, ""}, {2, "key", kOptional, kString, ""}});
}

TEST(PersonsSchema, PersonsKeepOrderThroughRoundTrip) {
    VellmarkPB::persons list;
    *list.add_person() = MakePerson("owner", "p-1");
    *list.add_person() = MakePerson("guest", "p-2");
    *list.add_person() = MakePerson("member", "p-3");
    const VellmarkPB::persons parsed = ExpectSurvivesRoundTrip(list);
    ASSERT_EQ(parsed.person_size(), 3);
    EXPECT_EQ(parsed.person(0).key(), "p-1");
    EXPECT_EQ(parsed.person(0).value(), "owner");
    EXPECT_EQ(parsed.person(1).key(), "p-2");
    EXPECT_EQ(parsed.person(2).key(), "p-3");
    EXPECT_EQ(parsed.person(2).value(), "member");
}

TEST(PersonsSchema, PersonSurvivesRoundTrip) {
    const VellmarkPB::Person parsed = ExpectSurvivesRoundTrip(MakePerson("owner", "p-9"));
    EXPECT_EQ(parsed.value(), "owner");
    EXPECT_EQ(parsed.key(), "p-9");
}

TEST(ProductSettingsSchema, ProductSettingsFieldsAreDeclaredAsListed) {
    ExpectFields(VellmarkPB::ProductSettings::descriptor(),
                 {{1, "language", kOptional, kString, ""},
                  {2, "productName", kOptional, kString, ""},
                  {3, "name", kOptional, kString, ""},
                  {4, "timeFormat", kOptional, kEnum, "VellmarkPB.TimeFormat"},
                  {5, "timeZone", kOptional, kString, ""},
                  {6, "updatedOn", kOptional, kString, ""},
                  {7, "createdOn", kOptional, kString, ""},
                  {8, "productType", kOptional, kString, ""},
                  {9, "productID", kOptional, kString, ""},
                  {10, "ttsPromptLanguage", kOptional, kString, ""},
                  {11, "ttsPromptEnabled", kOptional, kBool, ""},
                  {12, "cableProviderID", kOptional, kString, ""}});
}

TEST(ProductSettingsSchema, TimeFormatValuesAreTheHourCounts) {
    EXPECT_EQ(static_cast<int>(VellmarkPB::TIME_FORMAT_12HOUR_ID), 12);
    EXPECT_EQ(static_cast<int>(VellmarkPB::TIME_FORMAT_24HOUR_ID), 24);
    const auto* descriptor = VellmarkPB::TimeFormat_descriptor();
    ASSERT_EQ(descriptor->value_count(), 2);
    EXPECT_EQ(descriptor->value(0)->name(), "TIME_FORMAT_12HOUR_ID");
    EXPECT_EQ(descriptor->value(0)->number(), 12);
    EXPECT_EQ(descriptor->value(1)->name(), "TIME_FORMAT_24HOUR_ID");
    EXPECT_EQ(descriptor->value(1)->number(), 24);
    EXPECT_EQ(descriptor->FindValueByNumber(0), nullptr);
    EXPECT_FALSE(VellmarkPB::TimeFormat_IsValid(0));
    EXPECT_FALSE(VellmarkPB::TimeFormat_IsValid(13));
    EXPECT_TRUE(VellmarkPB::TimeFormat_IsValid(24));
}

TEST(ProductSettingsSchema, UnsetTimeFormatReadsTwelveHour) {
    const VellmarkPB::ProductSettings parsed = RoundTrip(VellmarkPB::ProductSettings());
    EXPECT_FALSE(parsed.has_timeformat());
    EXPECT_EQ(parsed.timeformat(), VellmarkPB::TIME_FORMAT_12HOUR_ID);
    EXPECT_EQ(static_cast<int>(parsed.timeformat()), 12);
}

TEST(ProductSettingsSchema, UnknownTimeFormatThirteenIsKeptAsUnknownField) {
    // Field 4 as a varint (tag 0x20) holding 13.
    const std::string bytes("\x20\x0d", 2);
    VellmarkPB::ProductSettings parsed;
    ASSERT_TRUE(parsed.ParseFromString(bytes));
    EXPECT_FALSE(parsed.has_timeformat());
    EXPECT_EQ(parsed.timeformat(), VellmarkPB::TIME_FORMAT_12HOUR_ID);

    const google::protobuf::UnknownFieldSet& unknown =
        parsed.GetReflection()->GetUnknownFields(parsed);
    ASSERT_EQ(unknown.field_count(), 1);
    EXPECT_EQ(unknown.field(0).number(), 4);
    ASSERT_EQ(unknown.field(0).type(), google::protobuf::UnknownField::TYPE_VARINT);
    EXPECT_EQ(unknown.field(0).varint(), 13u);

    std::string again;
    ASSERT_TRUE(parsed.SerializeToString(&again));
    EXPECT_EQ(again, bytes);
}

TEST(ProductSettingsSchema, TwentyFourHourTimeFormatIsReadBack) {
    VellmarkPB::ProductSettings sent;
    sent.set_timeformat(VellmarkPB::TIME_FORMAT_24HOUR_ID);
    const VellmarkPB::ProductSettings parsed = RoundTrip(sent);
    EXPECT_TRUE(parsed.has_timeformat());
    EXPECT_EQ(static_cast<int>(parsed.timeformat()), 24);
}

TEST(ProductSettingsSchema, ProductSettingsSurviveRoundTrip) {
    const VellmarkPB::ProductSettings parsed = ExpectSurvivesRoundTrip(MakeProductSettings());
    EXPECT_EQ(parsed.timeformat(), VellmarkPB::TIME_FORMAT_24HOUR_ID);
    EXPECT_TRUE(parsed.ttspromptenabled());
    EXPECT_EQ(parsed.cableproviderid(), "cable-3");
}

TEST(AssociationSchema, AccountAssociatedHoldsAStatus) {
    ExpectFields(VellmarkPB::AccountAssociated::descriptor(),
                 {{1, "status", kOptional, kEnum, "VellmarkPB.AssociateStatus"}});
}

TEST(AssociationSchema, AssociateStatusValuesAreNumberedAsListed) {
    EXPECT_EQ(static_cast<int>(VellmarkPB::UNKNOWN), 0);
    EXPECT_EQ(static_cast<int>(VellmarkPB::OOB), 1);
    EXPECT_EQ(static_cast<int>(VellmarkPB::ASSOCIATED), 2);
    EXPECT_EQ(static_cast<int>(VellmarkPB::REMOVED), 3);
    const auto* descriptor = VellmarkPB::AssociateStatus_descriptor();
    ASSERT_EQ(descriptor->value_count(), 4);
    EXPECT_EQ(descriptor->FindValueByNumber(0)->name(), "UNKNOWN");
    EXPECT_EQ(descriptor->FindValueByNumber(1)->name(), "OOB");
    EXPECT_EQ(descriptor->FindValueByNumber(2)->name(), "ASSOCIATED");
    EXPECT_EQ(descriptor->FindValueByNumber(3)->name(), "REMOVED");
    EXPECT_FALSE(VellmarkPB::AssociateStatus_IsValid(4));
}

TEST(AssociationSchema, AccountAssociatedWithoutStatusReadsUnknown) {
    const VellmarkPB::AccountAssociated parsed = RoundTrip(VellmarkPB::AccountAssociated());
    EXPECT_FALSE(parsed.has_status());
    EXPECT_EQ(parsed.status(), VellmarkPB::UNKNOWN);
    EXPECT_EQ(static_cast<int>(parsed.status()), 0);
}

TEST(AssociationSchema, AccountAssociatedSurvivesRoundTrip) {
    VellmarkPB::AccountAssociated associated;
    associated.set_status(VellmarkPB::REMOVED);
    const VellmarkPB::AccountAssociated parsed = ExpectSurvivesRoundTrip(associated);
    EXPECT_EQ(parsed.status(), VellmarkPB::REMOVED);
}

TEST(AssociationSchema, UnknownStatusIsPresentAfterRoundTrip) {
    VellmarkPB::AccountAssociated associated;
    associated.set_status(VellmarkPB::UNKNOWN);
    const VellmarkPB::AccountAssociated parsed = RoundTrip(associated);
    EXPECT_TRUE(parsed.has_status());
    EXPECT_EQ(parsed.status(), VellmarkPB::UNKNOWN);
}

TEST(LocalProductsSchema, LocalProductFieldsAreDeclaredAsListed) {
    ExpectFields(VellmarkPB::LocalProducts::descriptor(),
                 {{1, "products", kRepeated, kMessage, "VellmarkPB.LocalProduct"}});
    ExpectFields(VellmarkPB::LocalProduct::descriptor(),
                 {{1, "productGuid", kOptional, kString, ""},
                  {2, "productType", kOptional, kString, ""},
                  {3, "productName", kOptional, kString, ""},
                  {4, "productVariantColor", kOptional, kString, ""}});
}

TEST(LocalProductsSchema, LocalProductsKeepOrderThroughRoundTrip) {
    VellmarkPB::LocalProducts list;
    *list.add_products() = MakeLocalProduct("guid-b");
    *list.add_products() = MakeLocalProduct("guid-a");
    *list.add_products() = MakeLocalProduct("guid-c");
    const VellmarkPB::LocalProducts parsed = ExpectSurvivesRoundTrip(list);
    ASSERT_EQ(parsed.products_size(), 3);
    EXPECT_EQ(parsed.products(0).productguid(), "guid-b");
    EXPECT_EQ(parsed.products(1).productguid(), "guid-a");
    EXPECT_EQ(parsed.products(2).productguid(), "guid-c");
}

TEST(LocalProductsSchema, LocalProductSurvivesRoundTrip) {
    const VellmarkPB::LocalProduct parsed = ExpectSurvivesRoundTrip(MakeLocalProduct("g"));
    EXPECT_EQ(parsed.productname(), "Speaker g");
    EXPECT_EQ(parsed.productvariantcolor(), "black");
}

}  // namespace
