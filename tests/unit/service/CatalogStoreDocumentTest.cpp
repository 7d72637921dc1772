// The Catalog's admin writes: a resource replaced, the whole store exported and seeded, every
// service account replaced.
#include "tests/unit/service/CatalogTestSupport.h"

using namespace Vellmark::ServiceTest;

namespace {

using Vellmark::Service::Written;

// The text of the refusal in `outcome`, or "" when it went through.
std::string RefusalText(Vellmark::Service::Outcome<Written> const& outcome) {
    auto const* refusal = std::get_if<VellmarkPB::Error>(&outcome);
    return refusal ? refusal->message() : "";
}

TEST_F(CatalogTest, PutReplacesAResourceAndReportsIt) {
    VellmarkPB::ProductSettings settings;
    settings.set_name("Den");
    Changes changed;
    auto const& resource = *Vellmark::Admin::FindResource("product-settings");
    ASSERT_TRUE(std::holds_alternative<Written>(catalog.Put(resource, settings, changed)));
    EXPECT_EQ(changed, Changes{"product-settings"});
    ExpectSame(settings, *catalog.Read(resource));
}

// Seeding a fresh store with `exported` gives a store that exports the same document.
void ExpectSeedsAFreshStoreAlike(Vellmark::Admin::StoreDocument const& exported) {
    TempFolder otherFolder;
    Store otherStore(otherFolder.File("store.db"));
    Catalog other(otherStore);
    Changes otherChanged;
    other.Seed(exported, otherChanged);
    ExpectSame(exported, other.Export());
}

TEST_F(CatalogTest, ExportThenSeedOnAFreshStoreGivesTheSameExport) {
    Changes changed;
    catalog.Seed(FullDocument(), changed);
    auto const exported = catalog.Export();
    ExpectSame(FullDocument(), exported);
    ExpectSeedsAFreshStoreAlike(exported);
}

// An export seeds a fresh store into the same store, whatever was never stored.
TEST_F(CatalogTest, ExportOfAStoreBuiltByRequestsSurvivesSeedingAFreshStore) {
    Create(ServiceAccount("s-1", "Music"));
    CreateGVA("p-1");
    Changes changed;
    catalog.StorePresets(Presets({Preset("1", "A")}), changed);
    ExpectSeedsAFreshStoreAlike(catalog.Export());
}

TEST_F(CatalogTest, SeedEmptiesTheResourcesTheDocumentLeavesOut) {
    Changes changed;
    catalog.Seed(FullDocument(), changed);
    Vellmark::Admin::StoreDocument partial;
    partial.mutable_productsettings()->set_name("Kitchen");
    *partial.add_serviceaccounts() = ServiceAccount("only");
    Changes seeded;
    catalog.Seed(partial, seeded);

    EXPECT_TRUE(SourceIds("sources").empty());
    EXPECT_TRUE(SourceIds("voice-accounts").empty());
    EXPECT_TRUE(StoredPresets().presets().empty());
    VellmarkPB::ProductSettings settings;
    settings.CopyFrom(*catalog.Read(*Vellmark::Admin::FindResource("product-settings")));
    EXPECT_EQ(settings.name(), "Kitchen");
    EXPECT_EQ(AccountIds(), std::vector<std::string>{"only"});
    EXPECT_EQ(seeded.count("presets"), 1u);
    EXPECT_EQ(seeded.count("sources"), 1u);
    EXPECT_EQ(seeded.count("product-settings"), 1u);
}

TEST_F(CatalogTest, SeedRefusesAnAccountWithoutIdAndChangesNothing) {
    Changes changed;
    catalog.Seed(FullDocument(), changed);
    auto const before = catalog.Export();
    Vellmark::Admin::StoreDocument document;
    document.mutable_productsettings()->set_name("Other");
    *document.add_serviceaccounts() = ServiceAccount("fine");
    *document.add_serviceaccounts() = ServiceAccount("");
    Changes refused;
    EXPECT_EQ(RefusalText(catalog.Seed(document, refused)), "a service account without accountID");
    EXPECT_TRUE(refused.empty());
    ExpectSame(before, catalog.Export());
}

TEST_F(CatalogTest, SeedRefusesARepeatedAccountIdAndChangesNothing) {
    Changes changed;
    catalog.Seed(FullDocument(), changed);
    auto const before = catalog.Export();
    Vellmark::Admin::StoreDocument document;
    *document.add_serviceaccounts() = ServiceAccount("twice", "one");
    *document.add_serviceaccounts() = ServiceAccount("twice", "two");
    Changes refused;
    EXPECT_NE(RefusalText(catalog.Seed(document, refused)).find("appears twice"),
              std::string::npos);
    EXPECT_TRUE(refused.empty());
    ExpectSame(before, catalog.Export());
}

TEST_F(CatalogTest, PutAccountsReplacesEveryAccountInTheGivenOrder) {
    Create(ServiceAccount("old"));
    Vellmark::Admin::ServiceAccountList list;
    *list.add_serviceaccounts() = ServiceAccount("z");
    *list.add_serviceaccounts() = ServiceAccount("a");
    catalog.PutAccounts(list);
    EXPECT_EQ(AccountIds(), (std::vector<std::string>{"z", "a"}));
    ExpectSame(list, catalog.Accounts());
}

TEST_F(CatalogTest, PutAccountsRefusesAnAccountWithoutIdAndChangesNothing) {
    Create(ServiceAccount("kept"));
    Vellmark::Admin::ServiceAccountList list;
    *list.add_serviceaccounts() = ServiceAccount("new");
    *list.add_serviceaccounts() = ServiceAccount("");
    EXPECT_EQ(RefusalText(catalog.PutAccounts(list)), "a service account without accountID");
    EXPECT_EQ(AccountIds(), std::vector<std::string>{"kept"});
}

TEST_F(CatalogTest, PutAccountsRefusesARepeatedAccountIdAndChangesNothing) {
    Create(ServiceAccount("kept"));
    Vellmark::Admin::ServiceAccountList list;
    *list.add_serviceaccounts() = ServiceAccount("twice");
    *list.add_serviceaccounts() = ServiceAccount("twice");
    EXPECT_NE(RefusalText(catalog.PutAccounts(list)).find("appears twice"), std::string::npos);
    EXPECT_EQ(AccountIds(), std::vector<std::string>{"kept"});
}

}  // namespace
