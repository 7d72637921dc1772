// The Catalog's service-account writes: each answers with its VellmarkAcctOpEnvelope, or is
// refused with nothing written.
#include "tests/unit/service/CatalogTestSupport.h"

using namespace Vellmark::ServiceTest;

namespace {

using Vellmark::Service::Timestamp;
using Reply = VellmarkPB::VellmarkAcctOpEnvelope;

TEST_F(CatalogTest, CreateServiceAccountRefusesAnEmptyAccountId) {
    Changes changed;
    auto const outcome = catalog.CreateServiceAccount(ServiceAccount("", "Nameless"), changed);
    ASSERT_TRUE(std::holds_alternative<VellmarkPB::Error>(outcome));
    ExpectRefusal(std::get<VellmarkPB::Error>(outcome),
                  VellmarkPB::VELLMARK_MESSAGE_CREATE_SERVICE_ACCOUNT,
                  VellmarkPB::CODE_EMPTY_ACCOUNT_ID);
    EXPECT_TRUE(changed.empty());
    EXPECT_TRUE(store.Accounts().empty());
    EXPECT_FALSE(store.Resource("sources").has_value());
}

TEST_F(CatalogTest, CreateServiceAccountRefusesAnAccountIdInUse) {
    Create(ServiceAccount("a-1", "Original"));
    auto const before = catalog.Export();
    Changes changed;
    auto const outcome = catalog.CreateServiceAccount(ServiceAccount("a-1", "Intruder"), changed);
    ASSERT_TRUE(std::holds_alternative<VellmarkPB::Error>(outcome));
    ExpectRefusal(std::get<VellmarkPB::Error>(outcome),
                  VellmarkPB::VELLMARK_MESSAGE_CREATE_SERVICE_ACCOUNT,
                  VellmarkPB::CODE_DUPLICATE_ACCOUNT);
    EXPECT_TRUE(changed.empty());
    ExpectSame(before, catalog.Export());
    EXPECT_EQ(store.Account("a-1")->name(), "Original");
}

TEST_F(CatalogTest, CreateServiceAccountStampsItAndListsItAsASource) {
    std::string const before = Timestamp();
    Changes changed;
    auto const outcome = catalog.CreateServiceAccount(ServiceAccount("a-1", "Music"), changed);
    std::string const after = Timestamp();

    ASSERT_TRUE(std::holds_alternative<Reply>(outcome) && std::get<Reply>(outcome).success());
    auto const& created = std::get<Reply>(outcome).account();
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
    auto const outcome = catalog.UpdateServiceAccount(ServiceAccount("a-2", "Ghost"), changed);
    ASSERT_TRUE(std::holds_alternative<VellmarkPB::Error>(outcome));
    ExpectRefusal(std::get<VellmarkPB::Error>(outcome),
                  VellmarkPB::VELLMARK_MESSAGE_UPDATE_SERVICE_ACCOUNT,
                  VellmarkPB::CODE_UNKNOWN_ACCOUNT);
    EXPECT_TRUE(changed.empty());
    ExpectSame(before, catalog.Export());
    EXPECT_FALSE(store.Account("a-2").has_value());
}

TEST_F(CatalogTest, UpdateServiceAccountRefusesAnEmptyAccountId) {
    Changes changed;
    auto const outcome = catalog.UpdateServiceAccount(ServiceAccount("", "Ghost"), changed);
    ASSERT_TRUE(std::holds_alternative<VellmarkPB::Error>(outcome));
    ExpectRefusal(std::get<VellmarkPB::Error>(outcome),
                  VellmarkPB::VELLMARK_MESSAGE_UPDATE_SERVICE_ACCOUNT,
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
    auto const outcome = catalog.UpdateServiceAccount(update, changed);
    std::string const after = Timestamp();

    ASSERT_TRUE(std::holds_alternative<Reply>(outcome) && std::get<Reply>(outcome).success());
    auto const stored = store.Account("a-1");
    ASSERT_TRUE(stored.has_value());
    ExpectSame(std::get<Reply>(outcome).account(), *stored);
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
    ASSERT_TRUE(std::holds_alternative<Reply>(
        catalog.UpdateServiceAccount(ServiceAccount("a", "renamed"), changed)));
    EXPECT_EQ(AccountIds(), (std::vector<std::string>{"a", "b", "c"}));
    EXPECT_EQ(SourceIds("sources"), (std::vector<std::string>{"a", "b", "c"}));
}

TEST_F(CatalogTest, DeleteServiceAccountRefusesAnUnknownAccount) {
    Create(ServiceAccount("a-1"));
    auto const before = catalog.Export();
    VellmarkPB::VellmarkDeleteSrvcAccount request;
    request.set_accountid("a-2");
    Changes changed;
    auto const outcome = catalog.DeleteServiceAccount(request, changed);
    ASSERT_TRUE(std::holds_alternative<VellmarkPB::Error>(outcome));
    ExpectRefusal(std::get<VellmarkPB::Error>(outcome),
                  VellmarkPB::VELLMARK_MESSAGE_DELETE_SERVICE_ACCOUNT,
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
    auto const outcome = catalog.DeleteServiceAccount(request, changed);
    ASSERT_TRUE(std::holds_alternative<Reply>(outcome) && std::get<Reply>(outcome).success());
    EXPECT_EQ(std::get<Reply>(outcome).delaccount().accountid(), "a-1");
    EXPECT_FALSE(store.Account("a-1").has_value());
    EXPECT_EQ(AccountIds(), std::vector<std::string>{"a-2"});
    EXPECT_EQ(SourceIds("sources"), std::vector<std::string>{"a-2"});
    EXPECT_EQ(changed, Changes{"sources"});
}

// A change of provider moves the account between the lists, leaving nothing behind.
TEST_F(CatalogTest, AnAccountMadeGVAByAnUpdateLeavesNoSourceBehindWhenDeleted) {
    Create(ServiceAccount("s-1", "Music"));
    Changes changed;
    ASSERT_TRUE(std::holds_alternative<Reply>(
        catalog.UpdateServiceAccount(ServiceAccount("s-1", "", "GVA"), changed)));
    VellmarkPB::VellmarkDeleteSrvcAccount request;
    request.set_accountid("s-1");
    ASSERT_TRUE(std::holds_alternative<Reply>(catalog.DeleteServiceAccount(request, changed)));
    EXPECT_FALSE(store.Account("s-1").has_value());
    EXPECT_TRUE(SourceIds("voice-accounts").empty());
    EXPECT_TRUE(SourceIds("sources").empty());
}

}  // namespace
