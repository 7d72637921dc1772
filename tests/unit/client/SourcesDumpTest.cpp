// PrintSourcesProtobuf: every source field by field, its identifiers masked or in clear as the
// level it is asked for says.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/log/Redact.h"
#include "tests/unit/client/DumpTestSupport.h"

using namespace Vellmark::ClientTests;

namespace {

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

}  // namespace
