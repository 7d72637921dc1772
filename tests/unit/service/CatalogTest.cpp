#include "service/Catalog.h"

#include <google/protobuf/util/message_differencer.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "VellmarkGroups.pb.h"
#include "VellmarkPersons.pb.h"
#include "VellmarkProductSettings.pb.h"
#include "VellmarkSources.pb.h"
#include "VellmarkSystemAssoicated.pb.h"
#include "tests/unit/service/ServiceTestSupport.h"

using namespace Vellmark::Service;

namespace {

using google::protobuf::util::MessageDifferencer;
using Vellmark::ServiceTest::TempFolder;

constexpr int kRefused = 6;

VellmarkPB::serviceAccounts ServiceAccount(std::string const& id, std::string const& name = "",
                                           std::string const& provider = "SPOTIFY") {
    VellmarkPB::serviceAccounts account;
    account.set_accountid(id);
    if (!name.empty()) account.set_name(name);
    account.set_provider(provider);
    return account;
}

VellmarkPB::serviceAccounts GVARequest(std::string const& person, std::string const& provider) {
    VellmarkPB::serviceAccounts request;
    request.set_tarvpersonid(person);
    request.set_provideraccountid(provider);
    return request;
}

VellmarkPB::Presets Preset(std::string const& key, std::string const& name) {
    VellmarkPB::Presets preset;
    preset.set_key(key);
    preset.mutable_value()->add_actions()->mutable_metadata()->set_name(name);
    return preset;
}

VellmarkPB::VellmarkPresets Presets(std::vector<VellmarkPB::Presets> const& list) {
    VellmarkPB::VellmarkPresets presets;
    for (auto const& preset : list) *presets.add_presets() = preset;
    return presets;
}

// "key=name" for each preset, in order.
std::vector<std::string> Summary(VellmarkPB::VellmarkPresets const& presets) {
    std::vector<std::string> summary;
    for (auto const& preset : presets.presets()) {
        summary.push_back(preset.key() + "=" + preset.value().actions(0).metadata().name());
    }
    return summary;
}

VellmarkPB::VellmarkSource_source Source(std::string const& id) {
    VellmarkPB::VellmarkSource_source source;
    source.set_id(id);
    source.mutable_sourceproviderid()->set_text("PROVIDER");
    return source;
}

void ExpectRefusal(VellmarkPB::Error const& error, VellmarkPB::MessageId id,
                   VellmarkPB::Code code) {
    EXPECT_EQ(error.code(), kRefused);
    EXPECT_EQ(error.subcode(), code);
    EXPECT_EQ(error.messageid(), id);
    EXPECT_FALSE(error.message().empty());
}

void ExpectSame(google::protobuf::Message const& expected,
                google::protobuf::Message const& actual) {
    std::string differences;
    MessageDifferencer differencer;
    differencer.ReportDifferencesToString(&differences);
    EXPECT_TRUE(differencer.Compare(expected, actual)) << differences;
}

// A document with every resource and two accounts, all fields filled by hand.
Vellmark::Admin::StoreDocument FullDocument() {
    Vellmark::Admin::StoreDocument document;
    *document.mutable_sources()->add_source() = Source("s-1");
    *document.mutable_voiceaccounts()->add_source() = Source("gva-7");
    *document.mutable_msphostaccounts()->add_source() = Source("msp-1");
    document.mutable_productsettings()->set_name("Den");
    document.mutable_productsettings()->set_timeformat(VellmarkPB::TIME_FORMAT_24HOUR_ID);
    auto* person = document.mutable_persons()->add_person();
    person->set_key("p-1");
    person->set_value("owner");
    document.mutable_groups()->add_groups()->set_groupid("g-1");
    *document.mutable_presets()->add_presets() = Preset("1", "Radio");
    document.mutable_association()->set_status(VellmarkPB::ASSOCIATED);
    *document.add_serviceaccounts() = ServiceAccount("s-1", "Music");
    auto gva = GVARequest("p-1", "google-1");
    gva.set_accountid("gva-7");
    gva.set_provider("GVA");
    *document.add_serviceaccounts() = gva;
    return document;
}

class CatalogTest : public ::testing::Test {
protected:
    TempFolder folder;
    Store store{folder.File("store.db")};
    Catalog catalog{store};

    VellmarkPB::sources List(char const* name) {
        VellmarkPB::sources list;
        list.CopyFrom(*catalog.Read(*Vellmark::Admin::FindResource(name)));
        return list;
    }
    VellmarkPB::VellmarkPresets StoredPresets() {
        VellmarkPB::VellmarkPresets presets;
        presets.CopyFrom(*catalog.Read(*Vellmark::Admin::FindResource("presets")));
        return presets;
    }
    std::vector<std::string> SourceIds(char const* name) {
        std::vector<std::string> ids;
        auto const list = List(name);
        for (auto const& source : list.source()) ids.push_back(source.id());
        return ids;
    }
    std::vector<std::string> AccountIds() {
        std::vector<std::string> ids;
        for (auto const& account : store.Accounts()) ids.push_back(account.accountid());
        return ids;
    }
    VellmarkPB::serviceAccounts Create(VellmarkPB::serviceAccounts const& account) {
        Changes changed;
        auto const reply = catalog.CreateServiceAccount(account, changed);
        EXPECT_TRUE(reply.success()) << reply.error().message();
        return reply.account();
    }
    VellmarkPB::serviceAccounts CreateGVA(std::string const& person) {
        Changes changed;
        auto const outcome =
            catalog.CreateGVAAccount(GVARequest(person, "google-" + person), changed);
        auto const* account = std::get_if<VellmarkPB::serviceAccounts>(&outcome);
        if (!account) {
            ADD_FAILURE() << std::get<VellmarkPB::Error>(outcome).message();
            return {};
        }
        return *account;
    }
};

// Service accounts

TEST_F(CatalogTest, CreateServiceAccountRefusesAnEmptyAccountId) {
    Changes changed;
    auto const reply = catalog.CreateServiceAccount(ServiceAccount("", "Nameless"), changed);
    EXPECT_FALSE(reply.success());
    ExpectRefusal(reply.error(), VellmarkPB::VELLMARK_MESSAGE_CREATE_SERVICE_ACCOUNT,
                  VellmarkPB::CODE_EMPTY_ACCOUNT_ID);
    EXPECT_TRUE(changed.empty());
    EXPECT_TRUE(store.Accounts().empty());
    EXPECT_FALSE(store.Resource("sources").has_value());
}

TEST_F(CatalogTest, CreateServiceAccountRefusesAnAccountIdInUse) {
    Create(ServiceAccount("a-1", "Original"));
    auto const before = catalog.Export();
    Changes changed;
    auto const reply = catalog.CreateServiceAccount(ServiceAccount("a-1", "Intruder"), changed);
    EXPECT_FALSE(reply.success());
    ExpectRefusal(reply.error(), VellmarkPB::VELLMARK_MESSAGE_CREATE_SERVICE_ACCOUNT,
                  VellmarkPB::CODE_DUPLICATE_ACCOUNT);
    EXPECT_TRUE(changed.empty());
    ExpectSame(before, catalog.Export());
    EXPECT_EQ(store.Account("a-1")->name(), "Original");
}

TEST_F(CatalogTest, CreateServiceAccountStampsItAndListsItAsASource) {
    std::string const before = Timestamp();
    Changes changed;
    auto const reply = catalog.CreateServiceAccount(ServiceAccount("a-1", "Music"), changed);
    std::string const after = Timestamp();

    ASSERT_TRUE(reply.success());
    auto const& created = reply.account();
    EXPECT_EQ(created.accountid(), "a-1");
    EXPECT_EQ(created.name(), "Music");
    // ISO 8601 text in UTC sorts as time does.
    EXPECT_GE(created.createdon(), before);
    EXPECT_LE(created.createdon(), after);
    EXPECT_GE(created.updatedon(), before);
    EXPECT_LE(created.updatedon(), after);
    ASSERT_TRUE(store.Account("a-1").has_value());
    ExpectSame(created, *store.Account("a-1"));

    auto const sources = List("sources");
    ASSERT_EQ(sources.source_size(), 1);
    EXPECT_EQ(sources.source(0).id(), "a-1");
    EXPECT_EQ(sources.source(0).accountid().text(), "a-1");
    EXPECT_EQ(sources.source(0).sourceproviderid().text(), "SPOTIFY");
    EXPECT_EQ(sources.source(0).name().text(), "Music");
    EXPECT_EQ(changed, Changes{"sources"});
    EXPECT_TRUE(SourceIds("voice-accounts").empty());
}

TEST_F(CatalogTest, CreatedAccountsKeepTheirOrder) {
    Create(ServiceAccount("c"));
    Create(ServiceAccount("a"));
    Create(ServiceAccount("b"));
    EXPECT_EQ(AccountIds(), (std::vector<std::string>{"c", "a", "b"}));
    EXPECT_EQ(SourceIds("sources"), (std::vector<std::string>{"c", "a", "b"}));
}

TEST_F(CatalogTest, UpdateServiceAccountRefusesAnUnknownAccountAndWritesNothing) {
    Create(ServiceAccount("a-1"));
    auto const before = catalog.Export();
    Changes changed;
    auto const reply = catalog.UpdateServiceAccount(ServiceAccount("a-2", "Ghost"), changed);
    EXPECT_FALSE(reply.success());
    ExpectRefusal(reply.error(), VellmarkPB::VELLMARK_MESSAGE_UPDATE_SERVICE_ACCOUNT,
                  VellmarkPB::CODE_UNKNOWN_ACCOUNT);
    EXPECT_TRUE(changed.empty());
    ExpectSame(before, catalog.Export());
    EXPECT_FALSE(store.Account("a-2").has_value());
}

TEST_F(CatalogTest, UpdateServiceAccountRefusesAnEmptyAccountId) {
    Changes changed;
    auto const reply = catalog.UpdateServiceAccount(ServiceAccount("", "Ghost"), changed);
    EXPECT_FALSE(reply.success());
    ExpectRefusal(reply.error(), VellmarkPB::VELLMARK_MESSAGE_UPDATE_SERVICE_ACCOUNT,
                  VellmarkPB::CODE_EMPTY_ACCOUNT_ID);
    EXPECT_TRUE(changed.empty());
    EXPECT_TRUE(store.Accounts().empty());
}

TEST_F(CatalogTest, UpdateServiceAccountKeepsWhatItLeavesOut) {
    auto original = ServiceAccount("a-1", "Old name");
    original.mutable_attributes()->set_email("someone@example.com");
    original.set_tarvpersonid("p-1");
    auto const created = Create(original);

    VellmarkPB::serviceAccounts update;
    update.set_accountid("a-1");
    update.set_name("New name");
    update.mutable_tokens()->set_refreshtoken("refresh");
    update.set_createdon("1999-01-01T00:00:00Z");
    std::string const before = Timestamp();
    Changes changed;
    auto const reply = catalog.UpdateServiceAccount(update, changed);
    std::string const after = Timestamp();

    ASSERT_TRUE(reply.success());
    auto const stored = store.Account("a-1");
    ASSERT_TRUE(stored.has_value());
    ExpectSame(reply.account(), *stored);
    EXPECT_EQ(stored->name(), "New name");
    EXPECT_EQ(stored->tokens().refreshtoken(), "refresh");
    EXPECT_EQ(stored->provider(), "SPOTIFY");
    EXPECT_EQ(stored->tarvpersonid(), "p-1");
    EXPECT_EQ(stored->attributes().email(), "someone@example.com");
    EXPECT_EQ(stored->createdon(), created.createdon());
    EXPECT_GE(stored->updatedon(), before);
    EXPECT_LE(stored->updatedon(), after);

    auto const sources = List("sources");
    ASSERT_EQ(sources.source_size(), 1);
    EXPECT_EQ(sources.source(0).name().text(), "New name");
    EXPECT_EQ(changed, Changes{"sources"});
}

TEST_F(CatalogTest, UpdateServiceAccountKeepsTheAccountsPlace) {
    Create(ServiceAccount("a"));
    Create(ServiceAccount("b"));
    Create(ServiceAccount("c"));
    Changes changed;
    ASSERT_TRUE(catalog.UpdateServiceAccount(ServiceAccount("a", "renamed"), changed).success());
    EXPECT_EQ(AccountIds(), (std::vector<std::string>{"a", "b", "c"}));
    EXPECT_EQ(SourceIds("sources"), (std::vector<std::string>{"a", "b", "c"}));
}

TEST_F(CatalogTest, DeleteServiceAccountRefusesAnUnknownAccount) {
    Create(ServiceAccount("a-1"));
    auto const before = catalog.Export();
    VellmarkPB::VellmarkDeleteSrvcAccount request;
    request.set_accountid("a-2");
    Changes changed;
    auto const reply = catalog.DeleteServiceAccount(request, changed);
    EXPECT_FALSE(reply.success());
    ExpectRefusal(reply.error(), VellmarkPB::VELLMARK_MESSAGE_DELETE_SERVICE_ACCOUNT,
                  VellmarkPB::CODE_UNKNOWN_ACCOUNT);
    EXPECT_TRUE(changed.empty());
    ExpectSame(before, catalog.Export());
}

TEST_F(CatalogTest, DeleteServiceAccountRemovesTheAccountAndItsSource) {
    Create(ServiceAccount("a-1"));
    Create(ServiceAccount("a-2"));
    VellmarkPB::VellmarkDeleteSrvcAccount request;
    request.set_accountid("a-1");
    Changes changed;
    auto const reply = catalog.DeleteServiceAccount(request, changed);
    ASSERT_TRUE(reply.success());
    EXPECT_EQ(reply.delaccount().accountid(), "a-1");
    EXPECT_FALSE(store.Account("a-1").has_value());
    EXPECT_EQ(AccountIds(), std::vector<std::string>{"a-2"});
    EXPECT_EQ(SourceIds("sources"), std::vector<std::string>{"a-2"});
    EXPECT_EQ(changed, Changes{"sources"});
}

// A change of provider moves the account between the lists, leaving nothing behind.
TEST_F(CatalogTest, AnAccountMadeGVAByAnUpdateLeavesNoSourceBehindWhenDeleted) {
    Create(ServiceAccount("s-1", "Music"));
    Changes changed;
    ASSERT_TRUE(catalog.UpdateServiceAccount(ServiceAccount("s-1", "", "GVA"), changed).success());
    VellmarkPB::VellmarkDeleteSrvcAccount request;
    request.set_accountid("s-1");
    ASSERT_TRUE(catalog.DeleteServiceAccount(request, changed).success());
    EXPECT_FALSE(store.Account("s-1").has_value());
    EXPECT_TRUE(SourceIds("voice-accounts").empty());
    EXPECT_TRUE(SourceIds("sources").empty());
}

// GVA accounts

TEST_F(CatalogTest, CreateGVAAccountRefusesAnEmptyPersonId) {
    Changes changed;
    auto const outcome = catalog.CreateGVAAccount(GVARequest("", "google-1"), changed);
    ASSERT_TRUE(std::holds_alternative<VellmarkPB::Error>(outcome));
    ExpectRefusal(std::get<VellmarkPB::Error>(outcome), VellmarkPB::VELLMARK_MESSAGE_GVA_CREATE,
                  VellmarkPB::CODE_EMPTY_PERSON_ID);
    EXPECT_TRUE(changed.empty());
    EXPECT_TRUE(store.Accounts().empty());
    EXPECT_FALSE(store.Resource("voice-accounts").has_value());
}

TEST_F(CatalogTest, CreateGVAAccountRefusesAnEmptyProviderAccountId) {
    Changes changed;
    auto const outcome = catalog.CreateGVAAccount(GVARequest("p-1", ""), changed);
    ASSERT_TRUE(std::holds_alternative<VellmarkPB::Error>(outcome));
    ExpectRefusal(std::get<VellmarkPB::Error>(outcome), VellmarkPB::VELLMARK_MESSAGE_GVA_CREATE,
                  VellmarkPB::CODE_EMPTY_ACCOUNT_ID);
    EXPECT_TRUE(changed.empty());
    EXPECT_TRUE(store.Accounts().empty());
}

TEST_F(CatalogTest, CreateGVAAccountRefusesASecondAccountForTheSamePerson) {
    auto const first = CreateGVA("p-1");
    auto const before = catalog.Export();
    Changes changed;
    auto const outcome = catalog.CreateGVAAccount(GVARequest("p-1", "google-other"), changed);
    ASSERT_TRUE(std::holds_alternative<VellmarkPB::Error>(outcome));
    ExpectRefusal(std::get<VellmarkPB::Error>(outcome), VellmarkPB::VELLMARK_MESSAGE_GVA_CREATE,
                  VellmarkPB::CODE_GVA_ACCOUNT_EXISTS);
    EXPECT_TRUE(changed.empty());
    ExpectSame(before, catalog.Export());
    EXPECT_EQ(AccountIds(), std::vector<std::string>{first.accountid()});
}

TEST_F(CatalogTest, CreateGVAAccountIsNotStoppedByAnotherPersonsOrANonGVAAccount) {
    auto other = ServiceAccount("s-1");
    other.set_tarvpersonid("p-2");
    Create(other);
    CreateGVA("p-1");
    Changes changed;
    auto const outcome = catalog.CreateGVAAccount(GVARequest("p-2", "google-2"), changed);
    EXPECT_TRUE(std::holds_alternative<VellmarkPB::serviceAccounts>(outcome));
}

TEST_F(CatalogTest, CreateGVAAccountMakesDistinctGVAAccountsListedAsVoiceAccounts) {
    Changes changed;
    auto const outcome = catalog.CreateGVAAccount(GVARequest("p-1", "google-1"), changed);
    ASSERT_TRUE(std::holds_alternative<VellmarkPB::serviceAccounts>(outcome));
    auto const first = std::get<VellmarkPB::serviceAccounts>(outcome);
    EXPECT_EQ(changed, Changes{"voice-accounts"});
    auto const second = CreateGVA("p-2");

    EXPECT_FALSE(first.accountid().empty());
    EXPECT_FALSE(second.accountid().empty());
    EXPECT_NE(first.accountid(), second.accountid());
    EXPECT_EQ(first.provider(), "GVA");
    EXPECT_EQ(second.provider(), "GVA");
    EXPECT_EQ(first.tarvpersonid(), "p-1");
    EXPECT_EQ(first.provideraccountid(), "google-1");
    EXPECT_FALSE(first.createdon().empty());
    ASSERT_TRUE(store.Account(first.accountid()).has_value());
    ExpectSame(first, *store.Account(first.accountid()));

    EXPECT_EQ(SourceIds("voice-accounts"),
              (std::vector<std::string>{first.accountid(), second.accountid()}));
    auto const voice = List("voice-accounts");
    ASSERT_GE(voice.source_size(), 1);
    EXPECT_EQ(voice.source(0).tarvpersonid(), "p-1");
    EXPECT_TRUE(SourceIds("sources").empty());
}

TEST_F(CatalogTest, CreateGVAAccountNeverReusesTheIdOfADeletedAccount) {
    auto const first = CreateGVA("p-1");
    VellmarkPB::VellmarkDeleteGVA request;
    request.set_accountid(first.accountid());
    Changes changed;
    ASSERT_TRUE(std::holds_alternative<VellmarkPB::VellmarkDeleteGVA>(
        catalog.DeleteGVAAccount(request, changed)));
    auto const second = CreateGVA("p-1");
    EXPECT_NE(second.accountid(), first.accountid());
}

// Deleting `accountID` as a GVA account is refused as unknown and changes nothing.
void ExpectGVADeleteRefused(Catalog& catalog, std::string const& accountID) {
    auto const before = catalog.Export();
    VellmarkPB::VellmarkDeleteGVA request;
    request.set_accountid(accountID);
    Changes changed;
    auto const outcome = catalog.DeleteGVAAccount(request, changed);
    ASSERT_TRUE(std::holds_alternative<VellmarkPB::Error>(outcome));
    ExpectRefusal(std::get<VellmarkPB::Error>(outcome), VellmarkPB::VELLMARK_MESSAGE_GVA_DELETE,
                  VellmarkPB::CODE_UNKNOWN_ACCOUNT);
    EXPECT_TRUE(changed.empty());
    ExpectSame(before, catalog.Export());
}

TEST_F(CatalogTest, DeleteGVAAccountRefusesAnUnknownAccount) {
    CreateGVA("p-1");
    ExpectGVADeleteRefused(catalog, "gva-unknown");
}

TEST_F(CatalogTest, DeleteGVAAccountRefusesAnAccountThatIsNotGVA) {
    Create(ServiceAccount("s-1"));
    ExpectGVADeleteRefused(catalog, "s-1");
    EXPECT_TRUE(store.Account("s-1").has_value());
}

TEST_F(CatalogTest, DeleteGVAAccountRemovesTheAccountAndItsVoiceAccount) {
    auto const first = CreateGVA("p-1");
    auto const second = CreateGVA("p-2");
    VellmarkPB::VellmarkDeleteGVA request;
    request.set_accountid(first.accountid());
    Changes changed;
    auto const outcome = catalog.DeleteGVAAccount(request, changed);
    ASSERT_TRUE(std::holds_alternative<VellmarkPB::VellmarkDeleteGVA>(outcome));
    EXPECT_EQ(std::get<VellmarkPB::VellmarkDeleteGVA>(outcome).accountid(), first.accountid());
    EXPECT_FALSE(store.Account(first.accountid()).has_value());
    EXPECT_EQ(SourceIds("voice-accounts"), std::vector<std::string>{second.accountid()});
    EXPECT_EQ(changed, Changes{"voice-accounts"});
}

TEST_F(CatalogTest, UpdateDeviceIdRefusesAnEmptyDeviceId) {
    CreateGVA("p-1");
    auto const before = catalog.Export();
    Changes changed;
    auto const outcome = catalog.UpdateGVAAssistantDeviceId(VellmarkPB::serviceAccounts(), changed);
    ASSERT_TRUE(std::holds_alternative<VellmarkPB::Error>(outcome));
    ExpectRefusal(std::get<VellmarkPB::Error>(outcome),
                  VellmarkPB::VELLMARK_MESSAGE_GVA_UPDATE_DEVICE_ID,
                  VellmarkPB::CODE_EMPTY_ASSISTANT_DEVICE_ID);
    EXPECT_TRUE(changed.empty());
    ExpectSame(before, catalog.Export());
}

TEST_F(CatalogTest, UpdateDeviceIdRefusesWhenThereIsNoGVAAccount) {
    Create(ServiceAccount("s-1"));
    auto const before = catalog.Export();
    VellmarkPB::serviceAccounts request;
    request.mutable_attributes()->set_assistantdeviceid("device-1");
    Changes changed;
    auto const outcome = catalog.UpdateGVAAssistantDeviceId(request, changed);
    ASSERT_TRUE(std::holds_alternative<VellmarkPB::Error>(outcome));
    ExpectRefusal(std::get<VellmarkPB::Error>(outcome),
                  VellmarkPB::VELLMARK_MESSAGE_GVA_UPDATE_DEVICE_ID,
                  VellmarkPB::CODE_UNKNOWN_ACCOUNT);
    EXPECT_TRUE(changed.empty());
    ExpectSame(before, catalog.Export());
    EXPECT_FALSE(store.Account("s-1")->attributes().has_assistantdeviceid());
}

TEST_F(CatalogTest, UpdateDeviceIdSetsItOnEveryGVAAccountAndAnswersTheOldest) {
    auto const oldest = CreateGVA("p-1");
    Create(ServiceAccount("s-1"));
    auto const newest = CreateGVA("p-2");
    VellmarkPB::serviceAccounts request;
    request.mutable_attributes()->set_assistantdeviceid("device-1");
    Changes changed;
    auto const outcome = catalog.UpdateGVAAssistantDeviceId(request, changed);
    ASSERT_TRUE(std::holds_alternative<VellmarkPB::serviceAccounts>(outcome));
    auto const& answer = std::get<VellmarkPB::serviceAccounts>(outcome);
    EXPECT_EQ(answer.accountid(), oldest.accountid());
    EXPECT_EQ(answer.attributes().assistantdeviceid(), "device-1");
    EXPECT_EQ(store.Account(oldest.accountid())->attributes().assistantdeviceid(), "device-1");
    EXPECT_EQ(store.Account(newest.accountid())->attributes().assistantdeviceid(), "device-1");
    EXPECT_FALSE(store.Account("s-1")->attributes().has_assistantdeviceid());
    EXPECT_EQ(store.Account(oldest.accountid())->createdon(), oldest.createdon());
    EXPECT_EQ(changed, Changes{"voice-accounts"});
}

// Presets

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

// Whole store

TEST_F(CatalogTest, WriteReplacesAResourceAndReportsIt) {
    VellmarkPB::ProductSettings settings;
    settings.set_name("Den");
    Changes changed;
    auto const& resource = *Vellmark::Admin::FindResource("product-settings");
    catalog.Write(resource, settings, changed);
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
    EXPECT_THROW(catalog.Seed(document, refused), std::invalid_argument);
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
    EXPECT_THROW(catalog.Seed(document, refused), std::invalid_argument);
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
    EXPECT_THROW(catalog.PutAccounts(list), std::invalid_argument);
    EXPECT_EQ(AccountIds(), std::vector<std::string>{"kept"});
}

TEST_F(CatalogTest, PutAccountsRefusesARepeatedAccountIdAndChangesNothing) {
    Create(ServiceAccount("kept"));
    Vellmark::Admin::ServiceAccountList list;
    *list.add_serviceaccounts() = ServiceAccount("twice");
    *list.add_serviceaccounts() = ServiceAccount("twice");
    EXPECT_THROW(catalog.PutAccounts(list), std::invalid_argument);
    EXPECT_EQ(AccountIds(), std::vector<std::string>{"kept"});
}

}  // namespace
