// PrintProductSettingsProtobuff: the heading and the printed fields, two only when present.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/unit/client/DumpTestSupport.h"

using namespace Vellmark::ClientTests;

namespace {

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
    VellmarkPB::serviceAccounts account;
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

}  // namespace
