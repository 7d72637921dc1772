// Service-account and GVA operations against the real vellmarkd: success and refusal.
#include "tests/e2e/ServiceFixture.h"

namespace Vellmark::EndToEnd {
namespace {

class Accounts : public ServiceTest {
protected:
    void SetUp() override { StartService(); }

    // What one operation called back: the success (serialized) or the Error.
    struct Result {
        std::shared_ptr<Inbox<std::string>> success = std::make_shared<Inbox<std::string>>();
        std::shared_ptr<Inbox<VellmarkPB::Error>> error =
            std::make_shared<Inbox<VellmarkPB::Error>>();
        // Either callback, as it arrives.
        std::shared_ptr<Inbox<bool>> any = std::make_shared<Inbox<bool>>();
        template <class T>
        Callback<T> OnSuccess() {
            return [inbox = success, any = any](T const& value) {
                inbox->Put(value.SerializeAsString());
                any->Put(true);
            };
        }
        Callback<VellmarkPB::Error> OnError() {
            return [inbox = error, any = any](VellmarkPB::Error const& value) {
                inbox->Put(value);
                any->Put(false);
            };
        }
        // Waits for either callback; true when it was the success.
        bool Succeeded() {
            if (!any->WaitFor(1, kBound)) {
                ADD_FAILURE() << "no answer";
                return false;
            }
            return any->At(0);
        }
    };

    static VellmarkPB::serviceAccounts Account(std::string const& id) {
        VellmarkPB::serviceAccounts account;
        account.set_accountid(id);
        account.set_tarvpersonid("person-a41d07bb");
        account.set_provider("HARBOR_PODCASTS");
        account.set_name("Harbor");
        account.mutable_tokens()->set_refresh_token("rt-0123456789abcdef0123456789abcdef");
        return account;
    }

    static bool HasSource(VellmarkPB::sources const& list, std::string const& id) {
        for (auto const& source : list.source()) {
            if (source.id() == id) return true;
        }
        return false;
    }
};

TEST_F(Accounts, CreateUpdateAndDeleteAServiceAccount) {
    Result created;
    Client().CreateServiceAccount(
        Account("acct-new-1"), created.OnSuccess<VellmarkPB::serviceAccounts>(), created.OnError());
    ASSERT_TRUE(created.Succeeded());
    VellmarkPB::serviceAccounts account;
    ASSERT_TRUE(account.ParseFromString(created.success->At(0)));
    EXPECT_EQ(account.accountid(), "acct-new-1");
    EXPECT_FALSE(account.createdon().empty());
    EXPECT_TRUE(HasSource(AdminGet<VellmarkPB::sources>("sources"), "acct-new-1"));

    VellmarkPB::serviceAccounts change;
    change.set_accountid("acct-new-1");
    change.set_name("Harbor Plus");
    Result updated;
    Client().UpdateServiceAccount(change, updated.OnSuccess<VellmarkPB::serviceAccounts>(),
                                  updated.OnError());
    ASSERT_TRUE(updated.Succeeded());
    ASSERT_TRUE(account.ParseFromString(updated.success->At(0)));
    EXPECT_EQ(account.name(), "Harbor Plus");
    EXPECT_EQ(account.provider(), "HARBOR_PODCASTS");  // kept from the stored account

    Result deleted;
    Client().DeleteServiceAccount("acct-new-1",
                                  deleted.OnSuccess<VellmarkPB::VellmarkDeleteSrvcAccount>(),
                                  deleted.OnError());
    ASSERT_TRUE(deleted.Succeeded());
    VellmarkPB::VellmarkDeleteSrvcAccount result;
    ASSERT_TRUE(result.ParseFromString(deleted.success->At(0)));
    EXPECT_EQ(result.accountid(), "acct-new-1");
    EXPECT_FALSE(HasSource(AdminGet<VellmarkPB::sources>("sources"), "acct-new-1"));
    EXPECT_EQ(
        AdminGet<Vellmark::Admin::ServiceAccountList>("service-accounts").serviceaccounts_size(),
        SeedDocument().serviceaccounts_size());
}

TEST_F(Accounts, ServiceAccountRefusalsComeBackAsErrors) {
    struct Refusal {
        std::function<void(VellmarkClientAPI&, Result&)> call;
        int subcode;
        int messageId;
    };
    std::vector<Refusal> const refusals = {
        {[](VellmarkClientAPI& c, Result& r) {
             c.CreateServiceAccount(Account(""), r.OnSuccess<VellmarkPB::serviceAccounts>(),
                                    r.OnError());
         },
         VellmarkPB::CODE_EMPTY_ACCOUNT_ID, 23},
        {[](VellmarkClientAPI& c, Result& r) {
             c.CreateServiceAccount(Account("acct-aurora-55102938"),
                                    r.OnSuccess<VellmarkPB::serviceAccounts>(), r.OnError());
         },
         VellmarkPB::CODE_DUPLICATE_ACCOUNT, 23},
        {[](VellmarkClientAPI& c, Result& r) {
             c.UpdateServiceAccount(Account("acct-unknown"),
                                    r.OnSuccess<VellmarkPB::serviceAccounts>(), r.OnError());
         },
         VellmarkPB::CODE_UNKNOWN_ACCOUNT, 27},
        {[](VellmarkClientAPI& c, Result& r) {
             c.DeleteServiceAccount(
                 "acct-unknown", r.OnSuccess<VellmarkPB::VellmarkDeleteSrvcAccount>(), r.OnError());
         },
         VellmarkPB::CODE_UNKNOWN_ACCOUNT, 24},
    };
    auto const before = AdminGet<Vellmark::Admin::ServiceAccountList>("service-accounts");
    for (auto const& refusal : refusals) {
        Result result;
        refusal.call(Client(), result);
        ASSERT_FALSE(result.Succeeded());
        auto const error = result.error->At(0);
        EXPECT_EQ(error.code(), 6);
        EXPECT_EQ(error.subcode(), refusal.subcode);
        EXPECT_EQ(error.messageid(), refusal.messageId);
    }
    EXPECT_TRUE(Same(AdminGet<Vellmark::Admin::ServiceAccountList>("service-accounts"), before));
}

TEST_F(Accounts, CreateUpdateAndDeleteAGVAAccount) {
    Result created;
    Client().CreateGVAAccount("person-a41d07bb", "jonas@example.com", "device-77",
                              created.OnSuccess<VellmarkPB::serviceAccounts>(), created.OnError());
    ASSERT_TRUE(created.Succeeded());
    VellmarkPB::serviceAccounts account;
    ASSERT_TRUE(account.ParseFromString(created.success->At(0)));
    EXPECT_FALSE(account.accountid().empty());
    EXPECT_EQ(account.provider(), "GVA");
    EXPECT_EQ(account.attributes().assistantdeviceid(), "device-77");
    EXPECT_TRUE(HasSource(AdminGet<VellmarkPB::sources>("voice-accounts"), account.accountid()));

    Result updated;
    Client().UpdateGVAAssistantDeviceId(
        "device-78", updated.OnSuccess<VellmarkPB::serviceAccounts>(), updated.OnError());
    ASSERT_TRUE(updated.Succeeded());
    auto const accounts = AdminGet<Vellmark::Admin::ServiceAccountList>("service-accounts");
    for (auto const& stored : accounts.serviceaccounts()) {
        if (stored.provider() == "GVA") {
            EXPECT_EQ(stored.attributes().assistantdeviceid(), "device-78");
        }
    }

    Result deleted;
    Client().DeleteGVAAccount(
        account.accountid(), deleted.OnSuccess<VellmarkPB::VellmarkDeleteGVA>(), deleted.OnError());
    ASSERT_TRUE(deleted.Succeeded());
    VellmarkPB::VellmarkDeleteGVA result;
    ASSERT_TRUE(result.ParseFromString(deleted.success->At(0)));
    EXPECT_EQ(result.accountid(), account.accountid());
    EXPECT_FALSE(HasSource(AdminGet<VellmarkPB::sources>("voice-accounts"), account.accountid()));
}

TEST_F(Accounts, GVARefusalsArriveOnTheErrorNotifications) {
    WaitUntilConnected();
    Result second;
    // The seeded person already has a GVA account.
    Client().CreateGVAAccount("person-3c8e91f0", "lena@example.com", "device-1",
                              second.OnSuccess<VellmarkPB::serviceAccounts>(), second.OnError());
    ASSERT_FALSE(second.Succeeded());
    EXPECT_EQ(second.error->At(0).subcode(), VellmarkPB::CODE_GVA_ACCOUNT_EXISTS);
    EXPECT_EQ(second.error->At(0).messageid(), VellmarkPB::VELLMARK_MESSAGE_GVA_CREATE);

    Result unknown;
    Client().DeleteGVAAccount("gva-unknown", unknown.OnSuccess<VellmarkPB::VellmarkDeleteGVA>(),
                              unknown.OnError());
    ASSERT_FALSE(unknown.Succeeded());
    EXPECT_EQ(unknown.error->At(0).subcode(), VellmarkPB::CODE_UNKNOWN_ACCOUNT);
    EXPECT_EQ(unknown.error->At(0).messageid(), VellmarkPB::VELLMARK_MESSAGE_GVA_DELETE);

    // With no GVA account left, a device id has nowhere to go.
    Result removed;
    Client().DeleteGVAAccount("gva-seeded-1", removed.OnSuccess<VellmarkPB::VellmarkDeleteGVA>(),
                              removed.OnError());
    ASSERT_TRUE(removed.Succeeded());
    Result nowhere;
    Client().UpdateGVAAssistantDeviceId(
        "device-2", nowhere.OnSuccess<VellmarkPB::serviceAccounts>(), nowhere.OnError());
    ASSERT_FALSE(nowhere.Succeeded());
    EXPECT_EQ(nowhere.error->At(0).subcode(), VellmarkPB::CODE_UNKNOWN_ACCOUNT);
    EXPECT_EQ(nowhere.error->At(0).messageid(), VellmarkPB::VELLMARK_MESSAGE_GVA_UPDATE_DEVICE_ID);
}

TEST_F(Accounts, AnAccountChangeIsPushedToSubscribers) {
    WaitUntilConnected();
    auto updates = std::make_shared<Inbox<VellmarkPB::sources>>();
    Client().SubscribeSourcesRequest("",
                                     [updates](VellmarkPB::sources const& s) { updates->Put(s); });
    WaitUntilConnected();
    Result created;
    Client().CreateServiceAccount(Account("acct-pushed"),
                                  created.OnSuccess<VellmarkPB::serviceAccounts>(),
                                  created.OnError());
    ASSERT_TRUE(updates->WaitFor(1, kBound));
    EXPECT_TRUE(HasSource(updates->At(0), "acct-pushed"));
}

}  // namespace
}  // namespace Vellmark::EndToEnd
