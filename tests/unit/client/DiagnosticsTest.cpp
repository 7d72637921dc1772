// The client's field-by-field dumps of received messages, its delete-reply dumps and its
// error helpers: which lines they write, at which level, under which function name.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "platform/log/ProtoToMarkup.h"
#include "platform/log/Redact.h"
#include "tests/unit/client/ClientTestSupport.h"

namespace {

using LineList = std::vector<LogCapture::Line>;

// Makes the lines of one dump, each under the dump's own function name.
struct Dump {
    char const* function;
    LogCapture::Line operator()(DPrint::Level level, std::string text) const {
        return ClientLine(level, function, std::move(text));
    }
};

constexpr Dump kSources{"PrintSourcesProtobuf"};
constexpr Dump kGroups{"PrintGroupsProtobuf"};
constexpr Dump kSettings{"PrintProductSettingsProtobuff"};
constexpr Dump kAccount{"PrintServiceAccountResponse"};
constexpr Dump kPersons{"PrintPersonsInfoProtobuff"};
constexpr Dump kPresets{"PrintPresets"};
constexpr Dump kDelete{"PrintDeleteResponse"};
constexpr Dump kError{"PrintErrorMessage"};

constexpr DPrint::Level kFlow = DPrint::Flow;
constexpr DPrint::Level kInfo = DPrint::Info;
constexpr DPrint::Level kDetail = DPrint::Detail;

LineList operator+(LineList a, LineList const& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

// The lines of `lines` that a logger with `threshold` writes.
LineList UpTo(DPrint::Level threshold, LineList lines) {
    lines.erase(std::remove_if(lines.begin(), lines.end(),
                               [threshold](auto const& line) { return line.level > threshold; }),
                lines.end());
    return lines;
}

bool AnyLineContains(LineList const& lines, std::string const& value) {
    return std::any_of(lines.begin(), lines.end(), [&value](auto const& line) {
        return line.text.find(value) != std::string::npos;
    });
}

// --- Sources -------------------------------------------------------------------------------

// Clear identifiers long enough for the masked form to hide most of them.
std::string AccountIdOf(std::string const& n) {
    return "account-0123456789-" + n;
}
std::string PersonIdOf(std::string const& n) {
    return "person-9876543210-" + n;
}

// A source with every field set; each value names its field and ends with `n`.
VellmarkPB::VellmarkSource_source FullSource(std::string const& n) {
    VellmarkPB::VellmarkSource_source source;
    source.set_id("id-" + n);
    source.set_type("type-" + n);
    source.mutable_credential()->set_type("credtype-" + n);
    source.mutable_credential()->set_text("refresh-token-secret-" + n);
    source.mutable_name()->set_text("name-" + n);
    source.mutable_username()->set_text("user-" + n);
    source.mutable_sourceproviderid()->set_text("provider-" + n);
    source.mutable_sourcename()->set_text("sourcename-" + n);
    for (std::string const k : {"1", "2"}) {
        auto* setting = source.mutable_sourcesettings()->add_source_setting();
        setting->mutable_keyname()->set_text("key" + k + "-" + n);
        setting->mutable_value()->set_text("value" + k + "-" + n);
    }
    source.mutable_accountid()->set_text(AccountIdOf(n));
    source.mutable_updatedon()->set_text("updated-" + n);
    source.mutable_createdon()->set_text("created-" + n);
    source.set_tarvpersonid(PersonIdOf(n));
    return source;
}

VellmarkPB::sources SourcesOf(std::vector<std::string> const& names) {
    VellmarkPB::sources sources;
    for (auto const& n : names) *sources.add_source() = FullSource(n);
    return sources;
}

LineList SourcesHeading(int count) {
    return {kSources(kFlow, "PrintSourcesProtobuf"),
            kSources(kFlow, " Number of sources: " + std::to_string(count))};
}

LineList ClearIdentifiers(std::string const& n) {
    return {kSources(kDetail, " source accountid: " + AccountIdOf(n)),
            kSources(kDetail, " tarv personid: " + PersonIdOf(n))};
}

LineList MaskedIdentifiers(std::string const& n) {
    return {kSources(kInfo, " source accountid: " + Redact::RedactID(AccountIdOf(n), '-')),
            kSources(kInfo, " tarv personid: " + Redact::RedactID(PersonIdOf(n), '-'))};
}

// The lines of FullSource(n), with `identifiers` in the place of the identifier lines.
LineList SourceLines(std::string const& n, LineList const& identifiers) {
    LineList const before{kSources(kDetail, " source id: id-" + n),
                          kSources(kDetail, " source type: type-" + n),
                          kSources(kDetail, " source name: name-" + n),
                          kSources(kDetail, " source username: user-" + n),
                          kSources(kDetail, " source sourceproviderid: provider-" + n)};
    LineList const after{kSources(kDetail, " source credential type: credtype-" + n),
                         kSources(kDetail, " source text: refresh-token-secret-" + n),
                         kSources(kDetail, " source settings value: value1-" + n),
                         kSources(kDetail, " source settings keyname: key1-" + n),
                         kSources(kDetail, " source settings value: value2-" + n),
                         kSources(kDetail, " source settings keyname: key2-" + n)};
    return before + identifiers + after;
}

// --- Groups --------------------------------------------------------------------------------

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

// --- Product settings ----------------------------------------------------------------------

VellmarkPB::ProductSettings FullSettings() {
    VellmarkPB::ProductSettings settings;
    settings.set_language("de-DE");
    settings.set_productname("Kitchen speaker");
    settings.set_name("Anna's speaker");
    settings.set_timeformat(VellmarkPB::TIME_FORMAT_24HOUR_ID);
    settings.set_timezone("Europe/Berlin");
    settings.set_updatedon("settings-updated");
    settings.set_createdon("settings-created");
    settings.set_producttype("speaker-type");
    settings.set_productid("product-42");
    settings.set_ttspromptlanguage("fr-FR");
    settings.set_ttspromptenabled(true);
    settings.set_cableproviderid("cable-provider-7");
    return settings;
}

// The heading and the seven fields that are always printed, for FullSettings().
LineList SettingsLinesWithoutTts() {
    return {kSettings(kFlow, "PrintProductSettingsProtobuff"),
            kSettings(kDetail, "product name: Kitchen speaker"),
            kSettings(kDetail, "language: de-DE"),
            kSettings(kDetail, "name: Anna's speaker"),
            kSettings(kDetail, "productType: speaker-type"),
            kSettings(kDetail, "productID: product-42"),
            kSettings(kDetail, "timeFormat: 24"),
            kSettings(kDetail, "timeZone: Europe/Berlin")};
}

LineList FullSettingsLines() {
    return SettingsLinesWithoutTts() + LineList{kSettings(kInfo, "ttsPromptLanguage: fr-FR"),
                                                kSettings(kInfo, "ttspromptenabled: true")};
}

// --- Service account -----------------------------------------------------------------------

VellmarkPB::serviceAccounts FullAccount() {
    VellmarkPB::serviceAccounts account;
    account.set_tarvpersonid("person-1234567890");
    account.set_accountid("account-1234567890");
    account.set_accounttype("VPA");
    account.set_provider("GVA");
    account.set_provideraccountid("provider-account-1234567890");
    account.set_name("account-display-name");
    account.mutable_tokens()->set_access_token("access-token-value");
    account.mutable_tokens()->set_refreshtoken("refresh-token-value");
    account.mutable_attributes()->set_email("anna@example.com");
    account.set_updatedon("account-updated");
    account.set_createdon("account-created");
    account.set_disabled(true);
    account.set_productid("product-42");
    return account;
}

LineList FullAccountLines() {
    return {kAccount(kDetail, "accountType: VPA"),
            kAccount(kDetail, "tarvPersonID: person-1234567890"),
            kAccount(kDetail, "disabled: 1"),
            kAccount(kDetail, "provider: GVA"),
            kAccount(kDetail, "providerACcountID: provider-account-1234567890"),
            kAccount(kDetail, "accounID: account-1234567890"),
            kAccount(kDetail, "createdOn: account-created"),
            kAccount(kDetail, "updatedOn: account-updated"),
            kAccount(kDetail, "productID: product-42")};
}

// --- Persons -------------------------------------------------------------------------------

VellmarkPB::persons TwoPersons() {
    VellmarkPB::persons persons;
    auto* first = persons.add_person();
    first->set_key("person-a");
    first->set_value("owner");
    auto* second = persons.add_person();
    second->set_key("person-b");
    second->set_value("member");
    return persons;
}

LineList TwoPersonsLines() {
    return {kPersons(kInfo, "PrintPersonsInfoProtobuff"), kPersons(kDetail, "Role: owner"),
            kPersons(kDetail, "tarvPersonID: person-a"), kPersons(kDetail, "Role: member"),
            kPersons(kDetail, "tarvPersonID: person-b")};
}

// --- Presets -------------------------------------------------------------------------------

// An action with every field set; each value ends with `n`.
VellmarkPB::Actions FullAction(std::string const& n, bool presetable) {
    VellmarkPB::Actions action;
    action.set_actiontype("actiontype-" + n);
    auto* metadata = action.mutable_metadata();
    metadata->set_subtype("subtype-" + n);
    metadata->set_name("metaname-" + n);
    metadata->set_image("image-" + n);
    metadata->set_accountid("metaaccount-" + n);
    auto* item = action.mutable_payload()->mutable_contentitem();
    item->set_containerart("art-" + n);
    item->set_location("location-" + n);
    item->set_name("itemname-" + n);
    item->set_presetable(presetable);
    item->set_source("source-" + n);
    item->set_sourceaccount("sourceaccount-" + n);
    item->set_type("itemtype-" + n);
    return action;
}

LineList ActionLines(std::string const& n, char const* presetable) {
    return {kPresets(kDetail, "actionType: actiontype-" + n),
            kPresets(kDetail, "metaData - subtype(): subtype-" + n),
            kPresets(kDetail, "metaData - name(): metaname-" + n),
            kPresets(kDetail, "metaData - image(): image-" + n),
            kPresets(kDetail, "metaData - accountid(): metaaccount-" + n),
            kPresets(kDetail, "containerart(): art-" + n),
            kPresets(kDetail, "location(): location-" + n),
            kPresets(kDetail, "name(): itemname-" + n),
            kPresets(kDetail, std::string("presetable: ") + presetable),
            kPresets(kDetail, "source: source-" + n),
            kPresets(kDetail, "sourceaccount: sourceaccount-" + n),
            kPresets(kDetail, "type: itemtype-" + n)};
}

// Preset "1" with two actions, preset "2" with one.
VellmarkPB::VellmarkPresets TwoPresets() {
    VellmarkPB::VellmarkPresets presets;
    auto* first = presets.add_presets();
    first->set_key("1");
    first->mutable_value()->set_createdon("created-1");
    first->mutable_value()->set_updatedon("updated-1");
    *first->mutable_value()->add_actions() = FullAction("1a", true);
    *first->mutable_value()->add_actions() = FullAction("1b", false);
    auto* second = presets.add_presets();
    second->set_key("2");
    second->mutable_value()->set_createdon("created-2");
    second->mutable_value()->set_updatedon("updated-2");
    *second->mutable_value()->add_actions() = FullAction("2a", true);
    return presets;
}

LineList TwoPresetsLines() {
    return LineList{kPresets(kFlow, "preset_size: 2"),
                    kPresets(kDetail, "Vellmark preset_size index: 0"),
                    kPresets(kDetail, "Preset number (key): 1"),
                    kPresets(kDetail, "createdon: created-1"),
                    kPresets(kDetail, "updatedon: updated-1")} +
           ActionLines("1a", "1") + ActionLines("1b", "0") +
           LineList{kPresets(kDetail, "Vellmark preset_size index: 1"),
                    kPresets(kDetail, "Preset number (key): 2"),
                    kPresets(kDetail, "createdon: created-2"),
                    kPresets(kDetail, "updatedon: updated-2")} +
           ActionLines("2a", "1");
}

// --- Delete replies ------------------------------------------------------------------------

template <class Reply>
Reply FullDeleteReply() {
    Reply reply;
    reply.set_accountid("account-1234567890");
    reply.set_code(200);
    reply.set_subcode(-7);
    reply.set_status(3);
    reply.set_message("deleted");
    return reply;
}

LineList FullDeleteReplyLines() {
    return {kDelete(kDetail, "accountID: account-1234567890"), kDelete(kDetail, "Code: 200"),
            kDelete(kDetail, "Subcode: -7"), kDelete(kDetail, "status: 3"),
            kDelete(kDetail, "message: deleted")};
}

}  // namespace

class DiagnosticsTest : public ClientTest {
protected:
    // Drops the lines the client wrote while being constructed.
    void SetUp() override { log.Clear(); }

    // Runs `dump` once for each threshold below Detail and expects, each time, exactly the
    // lines of `all` that the threshold allows.
    void ExpectOnlyLinesTheThresholdAllows(std::function<void()> const& dump, LineList const& all) {
        for (auto threshold : {DPrint::Error, DPrint::Warning, DPrint::Flow, DPrint::Info}) {
            SCOPED_TRACE("threshold " + std::to_string(threshold));
            log.Clear();
            VellmarkClientLog().SetThreshold(threshold);
            dump();
            EXPECT_EQ(Lines(), UpTo(threshold, all));
        }
    }
};

class ErrorMessagesTest : public DiagnosticsTest {};

// --- PrintSourcesProtobuf ------------------------------------------------------------------

TEST_F(DiagnosticsTest, SourcesDumpWritesEveryPrintedFieldOfEverySourceInOrder) {
    client->PrintSourcesProtobuf(SourcesOf({"a", "b"}), DPrint::Detail);

    EXPECT_EQ(Lines(), SourcesHeading(2) + SourceLines("a", ClearIdentifiers("a")) +
                           SourceLines("b", ClearIdentifiers("b")));
}

TEST_F(DiagnosticsTest, SourcesDumpLeavesOutSourcenameUpdatedOnAndCreatedOn) {
    client->PrintSourcesProtobuf(SourcesOf({"a"}), DPrint::Detail);

    ASSERT_FALSE(Lines().empty());
    EXPECT_FALSE(AnyLineContains(Lines(), "sourcename-a"));
    EXPECT_FALSE(AnyLineContains(Lines(), "updated-a"));
    EXPECT_FALSE(AnyLineContains(Lines(), "created-a"));
}

TEST_F(DiagnosticsTest, SourcesWithNoSourceWritesExactlyTheTwoFlowLines) {
    client->PrintSourcesProtobuf(VellmarkPB::sources(), DPrint::Detail);

    EXPECT_EQ(Lines(), SourcesHeading(0));
}

TEST_F(DiagnosticsTest, SourcesDumpAskedAtLevelThreeMasksBothIdentifiersAtLevelThree) {
    client->PrintSourcesProtobuf(SourcesOf({"a", "b"}), DPrint::Info);

    EXPECT_EQ(Lines(), SourcesHeading(2) + SourceLines("a", MaskedIdentifiers("a")) +
                           SourceLines("b", MaskedIdentifiers("b")));
    for (auto const& n : {"a", "b"}) {
        EXPECT_FALSE(AnyLineContains(Lines(), AccountIdOf(n)));
        EXPECT_FALSE(AnyLineContains(Lines(), PersonIdOf(n)));
    }
}

TEST_F(DiagnosticsTest, SourcesDumpAskedAtLevelFourPrintsBothIdentifiersInClearAtLevelFour) {
    client->PrintSourcesProtobuf(SourcesOf({"a"}), DPrint::Detail);

    auto const lines = Lines();
    EXPECT_EQ(lines, SourcesHeading(1) + SourceLines("a", ClearIdentifiers("a")));
    EXPECT_EQ(Count(kSources(kDetail, " source accountid: " + AccountIdOf("a"))), 1);
    EXPECT_EQ(Count(kSources(kDetail, " tarv personid: " + PersonIdOf("a"))), 1);
}

TEST_F(DiagnosticsTest, SourcesDumpAskedAtAnyOtherLevelWritesNeitherIdentifierLine) {
    for (auto level : {DPrint::Error, DPrint::Warning, DPrint::Flow}) {
        SCOPED_TRACE("asked at level " + std::to_string(level));
        log.Clear();
        client->PrintSourcesProtobuf(SourcesOf({"a"}), level);

        EXPECT_EQ(Lines(), SourcesHeading(1) + SourceLines("a", {}));
        EXPECT_FALSE(AnyLineContains(Lines(), " source accountid: "));
        EXPECT_FALSE(AnyLineContains(Lines(), " tarv personid: "));
    }
}

TEST_F(DiagnosticsTest, SourcesDumpAskedAtLevelThreeShowsNoClearSecretAtLevelThreeOrLower) {
    VellmarkClientLog().SetThreshold(DPrint::Info);

    client->PrintSourcesProtobuf(SourcesOf({"a", "b"}), DPrint::Info);

    auto const lines = Lines();
    // What is written: the heading, the count and the masked identifiers.
    EXPECT_EQ(lines, SourcesHeading(2) + MaskedIdentifiers("a") + MaskedIdentifiers("b"));
    for (auto const& line : lines) {
        EXPECT_LE(line.level, DPrint::Info);
        for (auto const& n : {"a", "b"}) {
            auto const source = FullSource(n);
            EXPECT_EQ(line.text.find(source.accountid().text()), std::string::npos) << line;
            EXPECT_EQ(line.text.find(source.tarvpersonid()), std::string::npos) << line;
            EXPECT_EQ(line.text.find(source.credential().text()), std::string::npos) << line;
        }
    }
}

TEST_F(DiagnosticsTest, SourceWithThreeSettingsWritesSixSettingLinesValueAheadOfKeyName) {
    VellmarkPB::sources sources;
    auto* source = sources.add_source();
    source->mutable_sourceproviderid()->set_text("provider");
    for (std::string const k : {"1", "2", "3"}) {
        auto* setting = source->mutable_sourcesettings()->add_source_setting();
        setting->mutable_keyname()->set_text("key" + k);
        setting->mutable_value()->set_text("value" + k);
    }

    client->PrintSourcesProtobuf(sources, DPrint::Detail);

    LineList settingLines;
    for (auto const& line : Lines()) {
        if (line.text.rfind(" source settings ", 0) == 0) settingLines.push_back(line);
    }
    EXPECT_EQ(settingLines, (LineList{kSources(kDetail, " source settings value: value1"),
                                      kSources(kDetail, " source settings keyname: key1"),
                                      kSources(kDetail, " source settings value: value2"),
                                      kSources(kDetail, " source settings keyname: key2"),
                                      kSources(kDetail, " source settings value: value3"),
                                      kSources(kDetail, " source settings keyname: key3")}));
    // They are the last lines of the dump.
    auto const lines = Lines();
    ASSERT_GE(lines.size(), 6u);
    EXPECT_EQ(LineList(lines.end() - 6, lines.end()), settingLines);
}

TEST_F(DiagnosticsTest, SourceWithAbsentFieldsPrintsTheirDefaults) {
    VellmarkPB::sources sources;
    sources.add_source();

    client->PrintSourcesProtobuf(sources, DPrint::Detail);

    LineList const fields{kSources(kDetail, " source id: "),
                          kSources(kDetail, " source type: "),
                          kSources(kDetail, " source name: "),
                          kSources(kDetail, " source username: "),
                          kSources(kDetail, " source sourceproviderid: "),
                          kSources(kDetail, " source accountid: "),
                          kSources(kDetail, " tarv personid: "),
                          kSources(kDetail, " source credential type: "),
                          kSources(kDetail, " source text: ")};
    EXPECT_EQ(Lines(), SourcesHeading(1) + fields);
}

TEST_F(DiagnosticsTest, SourcesDumpWritesOnlyTheLinesTheThresholdAllows) {
    auto const sources = SourcesOf({"a", "b"});
    ExpectOnlyLinesTheThresholdAllows(
        [&] { client->PrintSourcesProtobuf(sources, DPrint::Detail); },
        SourcesHeading(2) + SourceLines("a", ClearIdentifiers("a")) +
            SourceLines("b", ClearIdentifiers("b")));
    ExpectOnlyLinesTheThresholdAllows([&] { client->PrintSourcesProtobuf(sources, DPrint::Info); },
                                      SourcesHeading(2) + SourceLines("a", MaskedIdentifiers("a")) +
                                          SourceLines("b", MaskedIdentifiers("b")));
}

// --- PrintGroupsProtobuf -------------------------------------------------------------------

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

// --- PrintProductSettingsProtobuff ---------------------------------------------------------

TEST_F(DiagnosticsTest, ProductSettingsDumpWritesHeadingAndEveryPrintedFieldInOrder) {
    peer.PrintProductSettingsProtobuff(FullSettings());

    EXPECT_EQ(Lines(), FullSettingsLines());
}

TEST_F(DiagnosticsTest, ProductSettingsDumpLeavesOutDatesAndCableProvider) {
    peer.PrintProductSettingsProtobuff(FullSettings());

    ASSERT_FALSE(Lines().empty());
    EXPECT_FALSE(AnyLineContains(Lines(), "settings-updated"));
    EXPECT_FALSE(AnyLineContains(Lines(), "settings-created"));
    EXPECT_FALSE(AnyLineContains(Lines(), "cable-provider-7"));
}

TEST_F(DiagnosticsTest, ProductSettingsWithoutTtsFieldsWritesHeadingAndSevenFields) {
    auto settings = FullSettings();
    settings.clear_ttspromptlanguage();
    settings.clear_ttspromptenabled();

    peer.PrintProductSettingsProtobuff(settings);

    EXPECT_EQ(Lines().size(), 8u);
    EXPECT_EQ(Lines(), SettingsLinesWithoutTts());
}

TEST_F(DiagnosticsTest, TtsPromptEnabledFalsePrintsTheWordWhileDisabledFalsePrintsTheDigit) {
    auto settings = FullSettings();
    settings.set_ttspromptenabled(false);
    auto account = FullAccount();
    account.set_disabled(false);

    peer.PrintProductSettingsProtobuff(settings);
    peer.PrintServiceAccountResponse(account);

    EXPECT_EQ(Count(kSettings(kInfo, "ttspromptenabled: false")), 1);
    EXPECT_EQ(Count(kAccount(kDetail, "disabled: 0")), 1);
}

TEST_F(DiagnosticsTest, PresentButEmptyTtsPromptLanguageIsPrinted) {
    VellmarkPB::ProductSettings settings;
    settings.set_ttspromptlanguage("");

    peer.PrintProductSettingsProtobuff(settings);

    EXPECT_EQ(Count(kSettings(kInfo, "ttsPromptLanguage: ")), 1);
    EXPECT_FALSE(AnyLineContains(Lines(), "ttspromptenabled: "));
}

TEST_F(DiagnosticsTest, EmptyProductSettingsPrintDefaultsWithTimeFormatTwelve) {
    peer.PrintProductSettingsProtobuff(VellmarkPB::ProductSettings());

    EXPECT_EQ(Lines(),
              (LineList{kSettings(kFlow, "PrintProductSettingsProtobuff"),
                        kSettings(kDetail, "product name: "), kSettings(kDetail, "language: "),
                        kSettings(kDetail, "name: "), kSettings(kDetail, "productType: "),
                        kSettings(kDetail, "productID: "), kSettings(kDetail, "timeFormat: 12"),
                        kSettings(kDetail, "timeZone: ")}));
}

TEST_F(DiagnosticsTest, ProductSettingsDumpWritesOnlyTheLinesTheThresholdAllows) {
    ExpectOnlyLinesTheThresholdAllows([&] { peer.PrintProductSettingsProtobuff(FullSettings()); },
                                      FullSettingsLines());
}

// --- PrintServiceAccountResponse -----------------------------------------------------------

TEST_F(DiagnosticsTest, ServiceAccountDumpWritesNineDetailLinesWithIdentifiersInClear) {
    peer.PrintServiceAccountResponse(FullAccount());

    EXPECT_EQ(Lines(), FullAccountLines());
}

TEST_F(DiagnosticsTest, ServiceAccountDumpLeavesOutNameTokensAndAttributes) {
    peer.PrintServiceAccountResponse(FullAccount());

    ASSERT_FALSE(Lines().empty());
    for (std::string const value : {"account-display-name", "access-token-value",
                                    "refresh-token-value", "anna@example.com"}) {
        EXPECT_FALSE(AnyLineContains(Lines(), value)) << value;
    }
}

TEST_F(DiagnosticsTest, EmptyServiceAccountStillWritesAllNineLines) {
    peer.PrintServiceAccountResponse(VellmarkPB::serviceAccounts());

    EXPECT_EQ(Lines(),
              (LineList{kAccount(kDetail, "accountType: "), kAccount(kDetail, "tarvPersonID: "),
                        kAccount(kDetail, "disabled: 0"), kAccount(kDetail, "provider: "),
                        kAccount(kDetail, "providerACcountID: "), kAccount(kDetail, "accounID: "),
                        kAccount(kDetail, "createdOn: "), kAccount(kDetail, "updatedOn: "),
                        kAccount(kDetail, "productID: ")}));
}

TEST_F(DiagnosticsTest, ServiceAccountDumpWritesOnlyTheLinesTheThresholdAllows) {
    ExpectOnlyLinesTheThresholdAllows([&] { peer.PrintServiceAccountResponse(FullAccount()); },
                                      FullAccountLines());
}

// --- PrintPersonsInfoProtobuff -------------------------------------------------------------

TEST_F(DiagnosticsTest, PersonsDumpWritesHeadingThenValueAsRoleAndKeyAsPersonId) {
    peer.PrintPersonsInfoProtobuff(TwoPersons());

    EXPECT_EQ(Lines(), TwoPersonsLines());
}

TEST_F(DiagnosticsTest, PersonsWithNoPersonWritesOnlyTheHeading) {
    peer.PrintPersonsInfoProtobuff(VellmarkPB::persons());

    EXPECT_EQ(Lines(), LineList{kPersons(kInfo, "PrintPersonsInfoProtobuff")});
}

TEST_F(DiagnosticsTest, PersonsDumpWritesOnlyTheLinesTheThresholdAllows) {
    auto const persons = TwoPersons();
    ExpectOnlyLinesTheThresholdAllows([&] { peer.PrintPersonsInfoProtobuff(persons); },
                                      TwoPersonsLines());
}

// --- PrintPresets --------------------------------------------------------------------------

TEST_F(DiagnosticsTest, PresetsDumpWritesCountThenEveryPresetAndActionInOrder) {
    peer.PrintPresets(TwoPresets());

    EXPECT_EQ(Lines(), TwoPresetsLines());
}

TEST_F(DiagnosticsTest, PresetWhoseValueHasNoActionsWritesExactlyFourLines) {
    VellmarkPB::VellmarkPresets presets;
    auto* preset = presets.add_presets();
    preset->set_key("5");
    preset->mutable_value()->set_createdon("created-5");
    preset->mutable_value()->set_updatedon("updated-5");

    peer.PrintPresets(presets);

    EXPECT_EQ(Lines(), (LineList{kPresets(kFlow, "preset_size: 1"),
                                 kPresets(kDetail, "Vellmark preset_size index: 0"),
                                 kPresets(kDetail, "Preset number (key): 5"),
                                 kPresets(kDetail, "createdon: created-5"),
                                 kPresets(kDetail, "updatedon: updated-5")}));
}

TEST_F(DiagnosticsTest, PresetWithoutValuePrintsEmptyDates) {
    VellmarkPB::VellmarkPresets presets;
    presets.add_presets()->set_key("3");

    peer.PrintPresets(presets);

    EXPECT_EQ(Lines(),
              (LineList{kPresets(kFlow, "preset_size: 1"),
                        kPresets(kDetail, "Vellmark preset_size index: 0"),
                        kPresets(kDetail, "Preset number (key): 3"),
                        kPresets(kDetail, "createdon: "), kPresets(kDetail, "updatedon: ")}));
}

TEST_F(DiagnosticsTest, ActionWithoutMetadataOrPayloadPrintsEmptyDefaults) {
    VellmarkPB::VellmarkPresets presets;
    auto* preset = presets.add_presets();
    preset->set_key("4");
    preset->mutable_value()->add_actions()->set_actiontype("play");
    preset->mutable_value()->add_actions()->mutable_payload();  // no contentItem

    peer.PrintPresets(presets);

    auto emptyAction = [](std::string const& actionType) {
        return LineList{kPresets(kDetail, "actionType: " + actionType),
                        kPresets(kDetail, "metaData - subtype(): "),
                        kPresets(kDetail, "metaData - name(): "),
                        kPresets(kDetail, "metaData - image(): "),
                        kPresets(kDetail, "metaData - accountid(): "),
                        kPresets(kDetail, "containerart(): "),
                        kPresets(kDetail, "location(): "),
                        kPresets(kDetail, "name(): "),
                        kPresets(kDetail, "presetable: 0"),
                        kPresets(kDetail, "source: "),
                        kPresets(kDetail, "sourceaccount: "),
                        kPresets(kDetail, "type: ")};
    };
    LineList const entry{kPresets(kFlow, "preset_size: 1"),
                         kPresets(kDetail, "Vellmark preset_size index: 0"),
                         kPresets(kDetail, "Preset number (key): 4"),
                         kPresets(kDetail, "createdon: "), kPresets(kDetail, "updatedon: ")};
    EXPECT_EQ(Lines(), entry + emptyAction("play") + emptyAction(""));
}

TEST_F(DiagnosticsTest, PresetsWithNoEntryWritesOnlyTheCount) {
    peer.PrintPresets(VellmarkPB::VellmarkPresets());

    EXPECT_EQ(Lines(), LineList{kPresets(kFlow, "preset_size: 0")});
}

TEST_F(DiagnosticsTest, PresetsDumpWritesOnlyTheLinesTheThresholdAllows) {
    auto const presets = TwoPresets();
    ExpectOnlyLinesTheThresholdAllows([&] { peer.PrintPresets(presets); }, TwoPresetsLines());
}

// --- All dumps -----------------------------------------------------------------------------

TEST_F(DiagnosticsTest, NoDumpWritesAnythingWhenTheThresholdIsBelowFlow) {
    VellmarkClientLog().SetThreshold(DPrint::Warning);

    client->PrintSourcesProtobuf(SourcesOf({"a"}), DPrint::Info);
    client->PrintSourcesProtobuf(SourcesOf({"a"}), DPrint::Detail);
    client->PrintGroupsProtobuf(TwoGroups(), DPrint::Detail);
    peer.PrintProductSettingsProtobuff(FullSettings());
    peer.PrintServiceAccountResponse(FullAccount());
    peer.PrintPersonsInfoProtobuff(TwoPersons());
    peer.PrintPresets(TwoPresets());
    peer.PrintDeleteResponse(FullDeleteReply<VellmarkPB::VellmarkDeleteGVA>());
    peer.PrintDeleteResponse(FullDeleteReply<VellmarkPB::VellmarkDeleteSrvcAccount>());

    EXPECT_EQ(Lines(), LineList{});
}

// --- PrintDeleteResponse -------------------------------------------------------------------

TEST_F(DiagnosticsTest, DeleteResponseDumpsWriteFiveDetailLinesForBothReplyKinds) {
    peer.PrintDeleteResponse(FullDeleteReply<VellmarkPB::VellmarkDeleteGVA>());
    EXPECT_EQ(Lines(), FullDeleteReplyLines());

    log.Clear();
    peer.PrintDeleteResponse(FullDeleteReply<VellmarkPB::VellmarkDeleteSrvcAccount>());
    EXPECT_EQ(Lines(), FullDeleteReplyLines());
}

TEST_F(DiagnosticsTest, DeleteReplyWithNoFieldsSetPrintsAllFiveLines) {
    LineList const expected{kDelete(kDetail, "accountID: "), kDelete(kDetail, "Code: 0"),
                            kDelete(kDetail, "Subcode: 0"), kDelete(kDetail, "status: 0"),
                            kDelete(kDetail, "message: ")};

    peer.PrintDeleteResponse(VellmarkPB::VellmarkDeleteGVA());
    EXPECT_EQ(Lines(), expected);

    log.Clear();
    peer.PrintDeleteResponse(VellmarkPB::VellmarkDeleteSrvcAccount());
    EXPECT_EQ(Lines(), expected);
}

TEST_F(DiagnosticsTest, DeleteResponseDumpWritesOnlyTheLinesTheThresholdAllows) {
    ExpectOnlyLinesTheThresholdAllows(
        [&] { peer.PrintDeleteResponse(FullDeleteReply<VellmarkPB::VellmarkDeleteGVA>()); },
        FullDeleteReplyLines());
}

// --- CreateErrorMsg and PrintErrorMessage --------------------------------------------------

TEST_F(ErrorMessagesTest, EmptyAccountIdCodeGivesCodeSixSubcodeAndInputDataErrorMessage) {
    VellmarkPB::Error error;

    peer.CreateErrorMsg(error, VellmarkPB::CODE_EMPTY_ACCOUNT_ID);

    EXPECT_EQ(error.code(), 6);
    EXPECT_EQ(error.subcode(), 1005);
    EXPECT_EQ(error.message().rfind("Input data error: ", 0), 0u) << error.message();
    EXPECT_EQ(error.message(), "Input data error: CODE_EMPTY_ACCOUNT_ID");
}

TEST_F(ErrorMessagesTest, EachRefusedInputCodeIsNamedInTheMessage) {
    struct Case {
        VellmarkPB::Code code;
        int number;
        char const* message;
    };
    for (auto const& c :
         {Case{VellmarkPB::CODE_EMPTY_PERSON_ID, 1004, "Input data error: CODE_EMPTY_PERSON_ID"},
          Case{VellmarkPB::CODE_EMPTY_ACCOUNT_ID, 1005, "Input data error: CODE_EMPTY_ACCOUNT_ID"},
          Case{VellmarkPB::CODE_EMPTY_ASSISTANT_DEVICE_ID, 1012,
               "Input data error: CODE_EMPTY_ASSISTANT_DEVICE_ID"}}) {
        SCOPED_TRACE(c.message);
        VellmarkPB::Error error;
        peer.CreateErrorMsg(error, c.code);
        EXPECT_EQ(error.code(), 6);
        EXPECT_EQ(error.subcode(), c.number);
        EXPECT_EQ(error.message(), c.message);
    }
}

TEST_F(ErrorMessagesTest, CodeWithoutNameGivesTheBareInputDataErrorMessage) {
    VellmarkPB::Error error;

    peer.CreateErrorMsg(error, static_cast<VellmarkPB::Code>(1010));

    EXPECT_EQ(error.code(), 6);
    EXPECT_EQ(error.subcode(), 1010);
    EXPECT_TRUE(error.has_message());
    EXPECT_EQ(error.message(), "Input data error: ");
}

TEST_F(ErrorMessagesTest, CreateErrorMsgSetsOnlyCodeSubcodeAndMessage) {
    VellmarkPB::Error error;

    peer.CreateErrorMsg(error, VellmarkPB::CODE_EMPTY_PERSON_ID);

    EXPECT_TRUE(error.has_code());
    EXPECT_TRUE(error.has_subcode());
    EXPECT_TRUE(error.has_message());
    EXPECT_FALSE(error.has_productguid());
    EXPECT_FALSE(error.has_messageid());
}

TEST_F(ErrorMessagesTest, CreateErrorMsgLogsItsNameAtLevelThree) {
    VellmarkPB::Error error;

    peer.CreateErrorMsg(error, VellmarkPB::CODE_EMPTY_ACCOUNT_ID);

    EXPECT_EQ(Lines(), LineList{ClientLine(DPrint::Info, "CreateErrorMsg", "CreateErrorMsg")});
}

TEST_F(ErrorMessagesTest, PrintErrorMessageWritesTheSetFieldsInOrderButNotTheMessageId) {
    VellmarkPB::Error error;
    error.set_message("account missing");
    error.set_productguid("guid-1234");
    error.set_messageid(VellmarkPB::VELLMARK_MESSAGE_GVA_DELETE);
    error.set_code(6);
    error.set_subcode(1005);

    peer.PrintErrorMessage(error);

    EXPECT_EQ(Lines(),
              (LineList{kError(kDetail, "Error code: 6"), kError(kDetail, "Error subcode: 1005"),
                        kError(kDetail, "Error message: account missing"),
                        kError(kDetail, "Product GUID: guid-1234")}));
}

TEST_F(ErrorMessagesTest, PrintErrorMessageOfAnEmptyErrorPrintsNothing) {
    peer.PrintErrorMessage(VellmarkPB::Error());

    EXPECT_EQ(Lines(), LineList{});
}

TEST_F(ErrorMessagesTest, PrintErrorMessageWithOnlySubcodeSetPrintsTheOneSubcodeLine) {
    VellmarkPB::Error error;
    error.set_subcode(1012);

    peer.PrintErrorMessage(error);

    EXPECT_EQ(Lines(), LineList{kError(kDetail, "Error subcode: 1012")});
}

TEST_F(ErrorMessagesTest, PrintErrorMessagePrintsPresentButEmptyOrZeroFields) {
    VellmarkPB::Error error;
    error.set_code(0);
    error.set_message("");

    peer.PrintErrorMessage(error);

    EXPECT_EQ(Lines(),
              (LineList{kError(kDetail, "Error code: 0"), kError(kDetail, "Error message: ")}));
}

TEST_F(ErrorMessagesTest, PrintErrorMessageWritesNothingBelowDetail) {
    VellmarkPB::Error error;
    error.set_code(6);
    error.set_subcode(1005);
    error.set_message("account missing");
    error.set_productguid("guid-1234");
    VellmarkClientLog().SetThreshold(DPrint::Info);

    peer.PrintErrorMessage(error);

    EXPECT_EQ(Lines(), LineList{});
}
