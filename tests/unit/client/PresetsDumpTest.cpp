// PrintPresets: the count, then every preset and action field by field.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/unit/client/DumpTestSupport.h"

using namespace Vellmark::ClientTests;

namespace {

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

}  // namespace
