// The Catalog's GVA-account writes: each answers with the account or the deletion's result, or is
// refused with nothing written.
#include "tests/unit/service/CatalogTestSupport.h"

using namespace Vellmark::ServiceTest;

namespace {

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

}  // namespace
