// PrintGroupsProtobuf: every group and member, the settings as JSON, at fixed levels.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/log/ProtoToMarkup.h"
#include "tests/unit/client/DumpTestSupport.h"

using namespace Vellmark::ClientTests;

namespace {

VellmarkPB::VellmarkGroupMember Member(std::string const& n) {
    VellmarkPB::VellmarkGroupMember member;
    member.set_memberid("memberid-" + n);
    member.set_productid("productid-" + n);
    member.set_subgroupid("subgroupid-" + n);
    member.set_role("role-" + n);
    member.set_createdon("membercreated-" + n);
    member.set_updatedon("memberupdated-" + n);
    member.mutable_attributes()->set_name("memberattribute-" + n);
    return member;
}

// Group 0 has settings and two members; group 1 has neither settings nor attributes and
// one member.
VellmarkPB::VellmarkGroups TwoGroups() {
    VellmarkPB::VellmarkGroups groups;
    auto* first = groups.add_groups();
    first->mutable_settings()->set_name("Living room");
    first->set_groupid("groupid-0");
    first->set_grouptype("grouptype-0");
    first->set_createdon("groupcreated-0");
    first->set_updatedon("groupupdated-0");
    first->mutable_attributes()->set_name("groupattribute-0");
    *first->add_members() = Member("0a");
    *first->add_members() = Member("0b");
    auto* second = groups.add_groups();
    second->set_groupid("groupid-1");
    *second->add_members() = Member("1a");
    return groups;
}

LineList TwoGroupsLines() {
    auto const groups = TwoGroups();
    std::string const settings0 =
        ProtoToMarkup::ToJson(groups.groups(0).settings(), false, false, false);
    std::string const settings1 =
        ProtoToMarkup::ToJson(VellmarkPB::VellmarkGroupSettings(), false, false, false);
    return {kGroups(kInfo, " Number of groups: 2"),
            kGroups(kDetail, " group 0 settings: " + settings0),
            kGroups(kDetail, " group 0 groupid: groupid-0"),
            kGroups(kDetail, " group 0 member 0 productid: productid-0a"),
            kGroups(kDetail, " group 0 member 0 subgroupid: subgroupid-0a"),
            kGroups(kDetail, " group 0 member 0 role: role-0a"),
            kGroups(kDetail, " group 0 member 1 productid: productid-0b"),
            kGroups(kDetail, " group 0 member 1 subgroupid: subgroupid-0b"),
            kGroups(kDetail, " group 0 member 1 role: role-0b"),
            kGroups(kDetail, " group 1 settings: " + settings1),
            kGroups(kDetail, " group 1 groupid: groupid-1"),
            kGroups(kDetail, " group 1 member 0 productid: productid-1a"),
            kGroups(kDetail, " group 1 member 0 subgroupid: subgroupid-1a"),
            kGroups(kDetail, " group 1 member 0 role: role-1a")};
}

TEST_F(DiagnosticsTest, GroupsDumpWritesEveryPrintedFieldOfEveryGroupAndMemberInOrder) {
    client->PrintGroupsProtobuf(TwoGroups(), DPrint::Detail);

    EXPECT_EQ(Lines(), TwoGroupsLines());
}

TEST_F(DiagnosticsTest, GroupsDumpPrintsTheSettingsAsTheirCompactJson) {
    auto const groups = TwoGroups();
    std::string const json =
        ProtoToMarkup::ToJson(groups.groups(0).settings(), false, false, false);
    ASSERT_NE(json.find("Living room"), std::string::npos) << json;

    client->PrintGroupsProtobuf(groups, DPrint::Detail);

    EXPECT_EQ(Count(kGroups(kDetail, " group 0 settings: " + json)), 1);
}

TEST_F(DiagnosticsTest, GroupWithoutSettingsPrintsTheJsonOfDefaultSettings) {
    VellmarkPB::VellmarkGroups groups;
    groups.add_groups()->set_groupid("g");

    client->PrintGroupsProtobuf(groups, DPrint::Detail);

    std::string const json =
        ProtoToMarkup::ToJson(VellmarkPB::VellmarkGroupSettings(), false, false, false);
    EXPECT_EQ(Lines(), (LineList{kGroups(kInfo, " Number of groups: 1"),
                                 kGroups(kDetail, " group 0 settings: " + json),
                                 kGroups(kDetail, " group 0 groupid: g")}));
}

TEST_F(DiagnosticsTest, GroupsDumpLeavesOutTypeDatesAttributesAndMemberIds) {
    client->PrintGroupsProtobuf(TwoGroups(), DPrint::Detail);

    ASSERT_FALSE(Lines().empty());
    for (std::string const value :
         {"grouptype-0", "groupcreated-0", "groupupdated-0", "groupattribute-0", "memberid-0a",
          "membercreated-0a", "memberupdated-0a", "memberattribute-0a", "memberid-1a"}) {
        EXPECT_FALSE(AnyLineContains(Lines(), value)) << value;
    }
}

TEST_F(DiagnosticsTest, GroupsWithNoGroupWritesOnlyTheCount) {
    client->PrintGroupsProtobuf(VellmarkPB::VellmarkGroups(), DPrint::Detail);

    EXPECT_EQ(Lines(), LineList{kGroups(kInfo, " Number of groups: 0")});
}

TEST_F(DiagnosticsTest, GroupsDumpWritesTheSameLinesWhateverLevelItIsGiven) {
    for (auto level :
         {DPrint::Error, DPrint::Warning, DPrint::Flow, DPrint::Info, DPrint::Detail}) {
        SCOPED_TRACE("asked at level " + std::to_string(level));
        log.Clear();
        client->PrintGroupsProtobuf(TwoGroups(), level);

        EXPECT_EQ(Lines(), TwoGroupsLines());
    }
}

TEST_F(DiagnosticsTest, GroupsDumpWritesOnlyTheLinesTheThresholdAllows) {
    auto const groups = TwoGroups();
    ExpectOnlyLinesTheThresholdAllows([&] { client->PrintGroupsProtobuf(groups, DPrint::Detail); },
                                      TwoGroupsLines());
}

}  // namespace
