// The Catalog's preset storage: a merge by key, refused whole when a key is empty or repeated.
#include "tests/unit/service/CatalogTestSupport.h"

using namespace Vellmark::ServiceTest;

namespace {

TEST_F(CatalogTest, StorePresetsMergesByKeyKeepingTheOrder) {
    Changes first;
    catalog.StorePresets(Presets({Preset("1", "A"), Preset("2", "B"), Preset("3", "C")}), first);
    EXPECT_EQ(first, Changes{"presets"});
    Changes changed;
    auto const answer =
        catalog.StorePresets(Presets({Preset("4", "D"), Preset("2", "B2")}), changed);
    std::vector<std::string> const expected{"1=A", "2=B2", "3=C", "4=D"};
    ASSERT_TRUE(std::holds_alternative<VellmarkPB::VellmarkPresets>(answer));
    EXPECT_EQ(Summary(std::get<VellmarkPB::VellmarkPresets>(answer)), expected);
    EXPECT_EQ(Summary(StoredPresets()), expected);
    EXPECT_EQ(changed, Changes{"presets"});
}

TEST_F(CatalogTest, StorePresetsWithARepeatedKeyStoresNothing) {
    Changes first;
    catalog.StorePresets(Presets({Preset("1", "A"), Preset("2", "B")}), first);
    Changes changed;
    auto const answer = catalog.StorePresets(
        Presets({Preset("3", "C"), Preset("1", "X"), Preset("3", "D")}), changed);
    std::vector<std::string> const expected{"1=A", "2=B"};
    ASSERT_TRUE(std::holds_alternative<VellmarkPB::Error>(answer));
    EXPECT_EQ(std::get<VellmarkPB::Error>(answer).subcode(), VellmarkPB::CODE_DUPLICATE_PRESET_KEY);
    EXPECT_EQ(Summary(StoredPresets()), expected);
    EXPECT_TRUE(changed.empty());
}

TEST_F(CatalogTest, StorePresetsWithAnEmptyKeyStoresNothing) {
    Changes first;
    catalog.StorePresets(Presets({Preset("1", "A")}), first);
    Changes changed;
    auto const answer = catalog.StorePresets(Presets({Preset("1", "X"), Preset("", "E")}), changed);
    std::vector<std::string> const expected{"1=A"};
    ASSERT_TRUE(std::holds_alternative<VellmarkPB::Error>(answer));
    EXPECT_EQ(Summary(StoredPresets()), expected);
    EXPECT_TRUE(changed.empty());
}

}  // namespace
