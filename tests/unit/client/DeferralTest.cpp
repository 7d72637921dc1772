// Every operation on both paths: carried out at once with a router, or queued without one
// (before the first connection, after a disconnect) and replayed by the next good
// connection. Also the order of replay and the queue's edge cases.
#include <functional>

#include "tests/unit/client/ClientTestSupport.h"

using namespace Vellmark::ClientTests;

namespace {

using Ids = std::vector<unsigned int>;

struct Operation {
    std::string name;
    std::function<void(VellmarkClientAPI&)> call;
    bool subscription;  // attaches a handler instead of sending a request
    unsigned int id;    // the identifier sent or attached
    DPrint::Level queueLevel;
    std::string queueLine;
};

void PrintTo(Operation const& operation, std::ostream* out) {
    *out << operation.name;
}

template <class T>
Callback<T> None() {
    return {};
}

VellmarkPB::serviceAccounts Account() {
    VellmarkPB::serviceAccounts account;
    account.set_accountid("acct-1");
    return account;
}

std::vector<Operation> Operations() {
    using C = VellmarkClientAPI;
    using namespace VellmarkPB;
    char const* const toServer = "Not connected, queuing Attach call to Server: ";
    return {
        {"GetSources", [](C& c) { c.GetSources(None<sources>()); }, false, 1, DPrint::Flow,
         "Not connected, queuing Attach call to AcceptSourcesAPI"},
        {"GetProductSettings", [](C& c) { c.GetProductSettings(None<ProductSettings>()); }, false,
         5, DPrint::Flow, "Not connected, queuing Attach call to AcceptProductSettingsAPI"},
        {"GetPersonsInfo", [](C& c) { c.GetPersonsInfo(None<persons>()); }, false, 3, DPrint::Flow,
         "Not connected, queuing Attach call to AcceptPersonsInfoAPI"},
        {"GetVoiceAccounts", [](C& c) { c.GetVoiceAccounts(None<sources>()); }, false, 6,
         DPrint::Flow, "Not connected, queuing Attach call to AcceptVoiceAccountsAPI"},
        {"GetMspHostAccounts", [](C& c) { c.GetMspHostAccounts(None<sources>()); }, false, 30,
         DPrint::Flow, "Not connected, queuing Attach call to GetMspHostAccounts"},
        {"GetGroups", [](C& c) { c.GetGroups(None<VellmarkGroups>()); }, false, 31, DPrint::Flow,
         "Not connected, queuing Attach call to GetGroups"},
        {"GetPresets", [](C& c) { c.GetPresets(None<VellmarkPresets>()); }, false, 2, DPrint::Flow,
         "Not connected, queuing Attach call to AcceptPresetsAPI"},
        {"StorePresets", [](C& c) { c.StorePresets(VellmarkPresets(), None<VellmarkPresets>()); },
         false, 4, DPrint::Flow, "Not connected, queuing call to StorePresets"},
        {"CreateGVAAccount",
         [](C& c) { c.CreateGVAAccount("p", "a", "d", None<serviceAccounts>(), None<Error>()); },
         false, 15, DPrint::Flow, "Not connected, queuing call to CreateGVAACcount"},
        {"DeleteGVAAccount",
         [](C& c) { c.DeleteGVAAccount("g", None<VellmarkDeleteGVA>(), None<Error>()); }, false, 17,
         DPrint::Flow, "Not connected, queuing call to DeleteGVAAccount"},
        {"UpdateGVAAssistantDeviceId",
         [](C& c) { c.UpdateGVAAssistantDeviceId("d", None<serviceAccounts>(), None<Error>()); },
         false, 21, DPrint::Info, "Not connected, queuing call to UpdateGVAAssistantDeviceId"},
        {"CreateServiceAccount",
         [](C& c) { c.CreateServiceAccount(Account(), None<serviceAccounts>(), None<Error>()); },
         false, 23, DPrint::Flow, "Not connected, queuing call to CreateServiceAccountACcount"},
        {"UpdateServiceAccount",
         [](C& c) { c.UpdateServiceAccount(Account(), None<serviceAccounts>(), None<Error>()); },
         false, 27, DPrint::Info, "Not connected, queuing call to UpdateServiceAccountDeviceId"},
        {"DeleteServiceAccount",
         [](C& c) {
             c.DeleteServiceAccount("acct-1", None<VellmarkDeleteSrvcAccount>(), None<Error>());
         },
         false, 24, DPrint::Flow, "Not connected, queuing call to DeleteServiceAccountAccount"},
        {"SubscribePresetsRequest",
         [](C& c) { c.SubscribePresetsRequest("", None<VellmarkPresets>()); }, true, 7,
         DPrint::Flow, "Not connected, queuing Attach call to AcceptPresetsSubscribe"},
        {"SubscribeSourcesRequest", [](C& c) { c.SubscribeSourcesRequest("", None<sources>()); },
         true, 8, DPrint::Flow, toServer},
        {"SubscribePersonsInfoRequest",
         [](C& c) { c.SubscribePersonsInfoRequest("", None<persons>()); }, true, 9, DPrint::Flow,
         "Not connected, queuing Attach call to AcceptPersonsInfoSubscribe"},
        {"SubscribeVoiceAccountsRequest",
         [](C& c) { c.SubscribeVoiceAccountsRequest(None<sources>()); }, true, 10, DPrint::Flow,
         "Not connected, queuing Attach call to AcceptVoiceAccountsSubscribe"},
        {"SubscribeProductSettingsRequest",
         [](C& c) { c.SubscribeProductSettingsRequest("", None<ProductSettings>()); }, true, 11,
         DPrint::Flow, std::string(toServer) + " lambda in SubscribeProductSettingsRequest"},
        {"SubscribeIsAssociatedWithAccountRequest",
         [](C& c) { c.SubscribeIsAssociatedWithAccountRequest(None<AccountAssociated>()); }, true,
         12, DPrint::Info,
         std::string(toServer) + " lambda in SubscribeIsAssociatedWithAccountRequest"},
        {"SubscribeMspHostAccountsRequest",
         [](C& c) { c.SubscribeMspHostAccountsRequest(None<sources>()); }, true, 29, DPrint::Flow,
         "Not connected, queuing Attach call to AcceptMspHostAccountsSubscribe"},
        {"SubscribeGroupsRequest", [](C& c) { c.SubscribeGroupsRequest(None<VellmarkGroups>()); },
         true, 32, DPrint::Flow, "Not connected, queuing Attach call to AcceptGroupsSubscribe"},
    };
}

class EveryOperation : public ClientTest, public ::testing::WithParamInterface<Operation> {
protected:
    // What the operation did on `router` beyond the standing error attachments.
    Ids Effect(FakeRouter const& router) const {
        Ids ids;
        if (GetParam().subscription) {
            for (unsigned int id : router.AttachedIds()) {
                if (id != 19 && id != 20 && id != 22) ids.push_back(id);
            }
        } else {
            for (auto const& send : router.Sends()) ids.push_back(send.id);
        }
        return ids;
    }
    // The identifiers a replay on a new connection makes: a queued host-account
    // subscription is dropped, and a queued groups subscription also asks for the groups.
    Ids Replayed() const {
        unsigned int id = GetParam().id;
        if (id == 29) return {};
        return {id};
    }
    int QueueLines() const {
        return Count(ClientLine(GetParam().queueLevel, "operator()", GetParam().queueLine));
    }
};

TEST_P(EveryOperation, IsCarriedOutAtOnceWhenConnected) {
    auto router = Connect();
    GetParam().call(*client);
    task.RunUntilIdle();
    EXPECT_EQ(Effect(*router), Ids{GetParam().id});
    EXPECT_EQ(QueueLines(), 0);
}

TEST_P(EveryOperation, IsQueuedWhileDisconnectedThenReplayed) {
    GetParam().call(*client);
    task.RunUntilIdle();
    EXPECT_EQ(QueueLines(), 1);
    auto router = Connect();
    EXPECT_EQ(Effect(*router), Replayed());
    if (GetParam().id == 32) {
        ASSERT_EQ(router->Sends().size(), 1u);
        EXPECT_EQ(router->Sends()[0].id, 31u) << "the groups subscriber gets the current groups";
    }
}

TEST_P(EveryOperation, IsQueuedAfterADisconnectAndSentOnTheNextConnection) {
    auto first = Connect();
    driver.Disconnect();
    task.RunUntilIdle();
    GetParam().call(*client);
    task.RunUntilIdle();
    EXPECT_EQ(QueueLines(), 1);
    EXPECT_TRUE(Effect(*first).empty());
    auto second = Connect();
    EXPECT_EQ(Effect(*second), Replayed());
}

INSTANTIATE_TEST_SUITE_P(Deferral, EveryOperation, ::testing::ValuesIn(Operations()),
                         [](auto const& info) { return info.param.name; });

class Deferral : public ClientTest {};

TEST_F(Deferral, ThreeGetSourcesBeforeConnectingGiveThreeRequestsAnsweringTheThirdCallback) {
    std::vector<std::string> calls;
    for (std::string name : {"first", "second", "third"}) {
        client->GetSources([&calls, name](VellmarkPB::sources const&) { calls.push_back(name); });
    }
    task.RunUntilIdle();
    auto router = Connect();
    auto sends = router->Sends();
    ASSERT_EQ(sends.size(), 3u);
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(sends[i].id, 1u);
        ASSERT_TRUE(router->Respond(i, VellmarkPB::sources()));
    }
    task.RunUntilIdle();
    EXPECT_EQ(calls, (std::vector<std::string>{"third", "third", "third"}));
}

TEST_F(Deferral, QueuedSubscriptionIsAttachedInsideConnectedAndQueuedQueryIsSentAfterIt) {
    client->GetSources({});
    client->SubscribeSourcesRequest("", {});
    task.RunUntilIdle();
    driver.Connect();
    ASSERT_TRUE(task.RunOne());  // Connected
    auto router = driver.Router();
    EXPECT_EQ(router->AttachedIds(), (Ids{8, 19, 20, 22}));
    EXPECT_TRUE(router->Sends().empty());
    task.RunUntilIdle();
    ASSERT_EQ(router->Sends().size(), 1u);
    EXPECT_EQ(router->Sends()[0].id, 1u);
}

TEST_F(Deferral, SubscribeSourcesTwiceBeforeConnectingAttachesTwice) {
    client->SubscribeSourcesRequest("", {});
    client->SubscribeSourcesRequest("", {});
    task.RunUntilIdle();
    auto router = Connect();
    EXPECT_EQ(router->AttachedIds(), (Ids{8, 8, 19, 20, 22}));
    EXPECT_EQ(
        Count(ClientLine(DPrint::Flow, "AttachToIPCServer", "Attaching to AcceptSourcesSubscribe")),
        2);
}

TEST_F(Deferral, HostAccountSubscriptionBeforeConnectingIsLoggedQueuedAndNeverAttached) {
    client->SubscribeMspHostAccountsRequest({});
    task.RunUntilIdle();
    EXPECT_EQ(Count(ClientLine(DPrint::Flow, "operator()",
                               "Not connected, queuing Attach call to "
                               "AcceptMspHostAccountsSubscribe")),
              1);
    auto router = Connect();
    EXPECT_EQ(router->AttachedCount(29), 0u);
    auto second = Connect();
    EXPECT_EQ(second->AttachedCount(29), 0u) << "dropped for good, not kept for later";
}

TEST_F(Deferral, CallAfterHandleDisconnectIsQueuedDespiteIsConnectedAndSentAfterReconnect) {
    auto first = Connect();
    driver.Disconnect();
    task.RunUntilIdle();
    ASSERT_TRUE(client->IsConnected());
    client->GetPresets({});
    task.RunUntilIdle();
    EXPECT_TRUE(first->Sends().empty());
    auto second = Connect();
    ASSERT_EQ(second->Sends().size(), 1u);
    EXPECT_EQ(second->Sends()[0].id, 2u);
}

TEST_F(Deferral, FailedConnectionLeavesQueuedCallsForTheNextGoodOne) {
    client->GetSources({});
    client->GetPresets({});
    task.RunUntilIdle();
    driver.FailNextRouter();
    Connect();
    auto router = Connect();
    ASSERT_EQ(router->Sends().size(), 2u);
    EXPECT_EQ(router->Sends()[0].id, 1u);
    EXPECT_EQ(router->Sends()[1].id, 2u);
}

TEST_F(Deferral, ReplayedCallThatFindsNoRouterIsQueuedAgainInOrder) {
    client->GetSources({});
    client->GetPresets({});
    task.RunUntilIdle();
    driver.FailNextRouter(1);  // the second of two connections reported together fails
    driver.Connect();
    driver.Connect();
    log.Clear();
    task.RunUntilIdle();
    auto first = driver.RouterRequests().front().router;
    EXPECT_TRUE(first->Sends().empty());
    EXPECT_EQ(Count(ClientLine(DPrint::Flow, "operator()",
                               "No router for a replayed call, queuing it again")),
              2);
    auto third = Connect();
    ASSERT_EQ(third->Sends().size(), 2u);
    EXPECT_EQ(third->Sends()[0].id, 1u);
    EXPECT_EQ(third->Sends()[1].id, 2u);
}

TEST_F(Deferral, ReplayedCallsRunAfterTheDeferredAttachments) {
    client->GetSources({});
    client->SubscribePresetsRequest("", {});
    task.RunUntilIdle();
    log.Clear();
    Connect();
    int const attached = IndexOf(
        ClientLine(DPrint::Flow, "AttachToIPCServer", "Attaching to AcceptPresetsSubscribe"));
    int const sent = IndexOf(
        ClientLine(DPrint::Flow, "operator()", "connected, Attaching request to AcceptSourcesAPI"));
    ASSERT_GE(attached, 0);
    EXPECT_GT(sent, attached);
}

}  // namespace
