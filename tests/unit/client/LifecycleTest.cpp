// Construction, connection, failed router creation, disconnection, reconnection and
// destruction of the client.
#include <chrono>

#include "tests/unit/client/ClientTestSupport.h"

using namespace Vellmark::ClientTests;

namespace {

using Ids = std::vector<unsigned int>;

std::vector<unsigned int> SentIds(FakeRouter const& router) {
    std::vector<unsigned int> ids;
    for (auto const& send : router.Sends()) ids.push_back(send.id);
    return ids;
}

class Lifecycle : public ClientTest {};

TEST_F(Lifecycle, ConstructionCreatesTheListenerWithItsNameAndA100msPeriod) {
    auto listeners = driver.Listeners();
    ASSERT_EQ(listeners.size(), 1u);
    EXPECT_EQ(listeners[0].name, "VellmarkClientAPIListener");
    EXPECT_EQ(listeners[0].period, std::chrono::milliseconds(100));
    EXPECT_EQ(driver.ListenedEndpoints(), std::vector<std::string>{"Vellmark"});
    EXPECT_TRUE(driver.ListenerAlive());
}

TEST_F(Lifecycle, ConstructionLogsTheVersionThenInitialize) {
    auto lines = Lines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0], ClientLine(DPrint::Info, "", "Version: v3.1.6-0-g14567ae-dirty"));
    EXPECT_EQ(lines[1], ClientLine(DPrint::Flow, "Initialize", "Initialize"));
}

TEST_F(Lifecycle, NotConnectedBeforeAnyConnection) {
    EXPECT_FALSE(client->IsConnected());
    EXPECT_TRUE(driver.RouterRequests().empty());
}

TEST_F(Lifecycle, ConnectionIsHandledOnTheTaskNotOnTheListenersThread) {
    driver.Connect();
    EXPECT_TRUE(driver.RouterRequests().empty());
    EXPECT_EQ(task.Pending(), 1u);
    task.RunUntilIdle();
    EXPECT_EQ(driver.RouterRequests().size(), 1u);
}

TEST_F(Lifecycle, ConnectedCreatesTheRouterForTheSocketOnTheTask) {
    auto socket = driver.Connect();
    task.RunUntilIdle();
    auto requests = driver.RouterRequests();
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].name, "VellmarkClientAPI");
    EXPECT_EQ(requests[0].task, &task);
    EXPECT_EQ(requests[0].socket, socket);
    EXPECT_TRUE(client->IsConnected());
    ASSERT_TRUE(driver.Router()->HasDisconnectHandler());
    EXPECT_EQ(driver.Router()->DisconnectSocket(), socket);
}

TEST_F(Lifecycle, FirstGoodConnectionLogsAndAttaches19_20_22InOrder) {
    log.Clear();
    auto router = Connect();
    EXPECT_EQ(router->AttachedIds(), (Ids{19, 20, 22}));
    auto lines = Lines();
    ASSERT_EQ(lines.size(), 5u);
    EXPECT_EQ(lines[0], ClientLine(DPrint::Flow, "Connected", "Connected callback - Connected"));
    EXPECT_EQ(lines[1], ClientLine(DPrint::Flow, "Connected", "Valid m_router Connected"));
    EXPECT_EQ(lines[2],
              ClientLine(DPrint::Info, "AttachToIPCServer", "Attaching to HandleGVACreateError"));
    EXPECT_EQ(lines[3],
              ClientLine(DPrint::Info, "AttachToIPCServer", "Attaching to HandleGVADeleteError"));
    EXPECT_EQ(lines[4],
              ClientLine(DPrint::Info, "AttachToIPCServer", "Attaching to HandleGVAUpdateError"));
}

TEST_F(Lifecycle, PendingAttachmentsAreEmptiedByAGoodConnection) {
    auto first = Connect();
    auto second = Connect();
    EXPECT_EQ(first->AttachedIds(), (Ids{19, 20, 22}));
    EXPECT_EQ(second->AttachedIds(), (Ids{19, 20, 22})) << "attached once each, not again";
}

TEST_F(Lifecycle, FailedRouterCreationLogsAndLeavesTheClientUnconnected) {
    driver.FailNextRouter();
    log.Clear();
    EXPECT_EQ(Connect(), nullptr);
    EXPECT_FALSE(client->IsConnected());
    EXPECT_EQ(Lines(),
              (std::vector<LogCapture::Line>{
                  ClientLine(DPrint::Flow, "Connected", "Connected callback - Connected"),
                  ClientLine(DPrint::Flow, "Connected", "failed to create valid m_router")}));
}

TEST_F(Lifecycle, TwoFailedConnectionsThenAGoodOneAttachTheErrorHandlersThreeTimes) {
    driver.FailNextRouter();
    Connect();
    driver.FailNextRouter();
    Connect();
    auto router = Connect();
    ASSERT_NE(router, nullptr);
    EXPECT_EQ(router->AttachedIds(), (Ids{19, 20, 22, 19, 20, 22, 19, 20, 22}));
    EXPECT_EQ(router->AttachedCount(20), 3u);
}

TEST_F(Lifecycle, OperationsRightAfterConstructionRunAfterConnectedInCallOrder) {
    client->GetPresets({});
    client->GetSources({});
    client->GetPersonsInfo({});
    task.RunUntilIdle();
    driver.Connect();
    ASSERT_TRUE(task.RunOne());  // Connected alone
    auto router = driver.Router();
    EXPECT_TRUE(router->Sends().empty()) << "replayed calls run after Connected returns";
    task.RunUntilIdle();
    EXPECT_EQ(SentIds(*router), (Ids{2, 1, 3}));
}

TEST_F(Lifecycle, HandleDisconnectStopsAndDropsTheRouterAndKeepsIsConnected) {
    auto router = Connect();
    log.Clear();
    ASSERT_TRUE(driver.Disconnect());
    task.RunUntilIdle();
    EXPECT_EQ(router->StopCount(), 1);
    EXPECT_EQ(
        Lines(),
        (std::vector<LogCapture::Line>{ClientLine(DPrint::Flow, "HandleDisconnect",
                                                  "Received disconnect event. Disconnecting...")}));
    EXPECT_TRUE(client->IsConnected());
}

TEST_F(Lifecycle, AfterHandleDisconnectIsConnectedStaysTrueAndGetSourcesIsQueued) {
    auto router = Connect();
    driver.Disconnect();
    task.RunUntilIdle();
    log.Clear();
    client->GetSources({});
    task.RunUntilIdle();
    EXPECT_TRUE(client->IsConnected());
    EXPECT_TRUE(router->Sends().empty());
    EXPECT_EQ(Count(ClientLine(DPrint::Flow, "operator()",
                               "Not connected, queuing Attach call to AcceptSourcesAPI")),
              1);
}

TEST_F(Lifecycle, HandleDisconnectWithNoRouterOnlyLogs) {
    auto first = Connect();
    driver.FailNextRouter();
    Connect();  // the failed attempt leaves the client without a router
    log.Clear();
    ASSERT_TRUE(first->FireDisconnect());
    task.RunUntilIdle();
    EXPECT_EQ(
        Lines(),
        (std::vector<LogCapture::Line>{ClientLine(DPrint::Flow, "HandleDisconnect",
                                                  "Received disconnect event. Disconnecting...")}));
    EXPECT_EQ(first->StopCount(), 0);
}

TEST_F(Lifecycle, ReconnectReplacesTheRouterWithoutStoppingTheOldOne) {
    auto first = Connect();
    auto second = Connect();
    EXPECT_NE(first, second);
    EXPECT_EQ(first->StopCount(), 0);
    client->GetSources({});
    task.RunUntilIdle();
    EXPECT_TRUE(first->Sends().empty());
    EXPECT_EQ(SentIds(*second), (Ids{1}));
}

TEST_F(Lifecycle, AfterAReconnectASubscriptionIsNotDeliveredUntilRenewed) {
    int calls = 0;
    Connect();
    client->SubscribeSourcesRequest("", [&](VellmarkPB::sources const&) { ++calls; });
    task.RunUntilIdle();
    driver.Disconnect();
    task.RunUntilIdle();
    auto second = Connect();
    EXPECT_EQ(second->AttachedCount(8), 0u);
    EXPECT_EQ(second->Push(8, OneSource("a")), 0u);
    task.RunUntilIdle();
    EXPECT_EQ(calls, 0);

    client->SubscribeSourcesRequest("", [&](VellmarkPB::sources const&) { ++calls; });
    task.RunUntilIdle();
    EXPECT_EQ(second->Push(8, OneSource("b")), 1u);
    task.RunUntilIdle();
    EXPECT_EQ(calls, 1);
}

TEST_F(Lifecycle, HostAccountSubscriptionBeforeTheFirstConnectionIsNeverAttached) {
    int calls = 0;
    client->SubscribeMspHostAccountsRequest([&](VellmarkPB::sources const&) { ++calls; });
    task.RunUntilIdle();
    log.Clear();
    auto router = Connect();
    EXPECT_EQ(router->AttachedIds(), (Ids{19, 20, 22}));
    EXPECT_EQ(router->Push(29, OneSource("a")), 0u);
    task.RunUntilIdle();
    EXPECT_EQ(calls, 0);
    for (auto const& line : Lines()) EXPECT_EQ(line.text.find("MspHost"), std::string::npos);
}

TEST_F(Lifecycle, DestroyingTheClientDropsQueuedCallsWithoutRunningThem) {
    auto token = std::make_shared<int>(0);
    std::weak_ptr<int> watch = token;
    int calls = 0;
    client->GetSources([&calls, token](VellmarkPB::sources const&) { ++calls; });
    client->CreateServiceAccount(
        {}, [&calls, token](VellmarkPB::serviceAccounts const&) { ++calls; },
        [&calls, token](VellmarkPB::Error const&) { ++calls; });
    token.reset();
    task.RunUntilIdle();
    ASSERT_FALSE(watch.expired()) << "the queued calls hold the callbacks";
    client.reset();
    EXPECT_TRUE(watch.expired());
    EXPECT_EQ(calls, 0);
    EXPECT_FALSE(driver.Connect()) << "the listener went with the client";
}

TEST_F(Lifecycle, DestructionReleasesListenerAndRouterWithoutStoppingAnything) {
    auto router = Connect();
    long const holders = router.use_count();
    client.reset();
    EXPECT_FALSE(driver.ListenerAlive());
    EXPECT_EQ(router.use_count(), holders - 1);
    EXPECT_EQ(router->StopCount(), 0);
}

TEST_F(Lifecycle, WorkPostedBeforeDestructionDoesNothingAfterIt) {
    int calls = 0;
    client->GetSources([&](VellmarkPB::sources const&) { ++calls; });
    driver.Connect();
    ASSERT_EQ(task.Pending(), 2u);
    client.reset();
    log.Clear();
    task.RunUntilIdle();
    EXPECT_EQ(calls, 0);
    EXPECT_TRUE(Lines().empty());
    EXPECT_TRUE(driver.RouterRequests().empty());
}

TEST_F(Lifecycle, ReplyDeliveredAfterDestructionDoesNothing) {
    int calls = 0;
    auto router = Connect();
    client->GetSources([&](VellmarkPB::sources const&) { ++calls; });
    task.RunUntilIdle();
    ASSERT_TRUE(router->Respond(0, OneSource("late")));
    ASSERT_EQ(task.Pending(), 1u);
    client.reset();
    log.Clear();
    task.RunUntilIdle();
    EXPECT_EQ(calls, 0);
    EXPECT_TRUE(Lines().empty());
}

}  // namespace
