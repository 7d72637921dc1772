// The connection observers: an application hears of every new connection on the client's
// task, once the connection is ready, and of every end of one, and nothing the client
// otherwise does changes.
#include "tests/unit/client/ClientTestSupport.h"

using namespace Vellmark::ClientTests;

namespace {

class ConnectionObserver : public ClientTest {
protected:
    int heard = 0;
    CallbackConnection Observe() {
        return client->AddConnectionObserver([this] { ++heard; });
    }
};

TEST_F(ConnectionObserver, HearsOfEachConnectionOnTheTaskAfterTheQueuedCallsAreSent) {
    auto handle = Observe();
    int answered = 0;
    client->GetSources(Counting<VellmarkPB::sources>(answered));
    task.RunUntilIdle();
    EXPECT_EQ(heard, 0);

    driver.Connect();
    EXPECT_EQ(heard, 0) << "only the task runs it";
    // Connected, then the replayed query, then the observer.
    task.RunOne();
    EXPECT_EQ(heard, 0);
    task.RunUntilIdle();
    EXPECT_EQ(heard, 1);
    ASSERT_EQ(driver.Router()->Sends().size(), 1u);
    EXPECT_EQ(driver.Router()->Sends()[0].id, 1u);

    driver.Router()->FireDisconnect();
    task.RunUntilIdle();
    EXPECT_EQ(heard, 1);
    Connect();
    EXPECT_EQ(heard, 2);
    Connect();
    EXPECT_EQ(heard, 3);
}

TEST_F(ConnectionObserver, OneRegisteredWhileConnectedHearsOfThatConnectionAtOnce) {
    Connect();
    Observe();
    task.RunUntilIdle();
    EXPECT_EQ(heard, 1);
    Connect();
    EXPECT_EQ(heard, 2);
}

TEST_F(ConnectionObserver, AFailedRouterCreationIsNoConnection) {
    Observe();
    driver.FailNextRouter();
    Connect();
    EXPECT_EQ(heard, 0);
    Connect();
    EXPECT_EQ(heard, 1);
}

TEST_F(ConnectionObserver, DisconnectingTheHandleEndsItEvenForACallOnItsWay) {
    auto handle = Observe();
    Connect();
    EXPECT_EQ(heard, 1);
    driver.Connect();
    task.RunOne();  // Connected: the observer's call is posted
    handle.Disconnect();
    task.RunUntilIdle();
    EXPECT_EQ(heard, 1);
    Connect();
    EXPECT_EQ(heard, 1);
}

TEST_F(ConnectionObserver, SubscribingAgainFromTheObserverRenewsASubscriptionAfterAReconnection) {
    int updates = 0;
    Callback<VellmarkPB::sources> const onUpdate = Counting<VellmarkPB::sources>(updates);
    client->AddConnectionObserver(
        [this, onUpdate] { client->SubscribeSourcesRequest("", onUpdate); });
    for (int connection = 1; connection <= 3; ++connection) {
        auto router = Connect();
        router->Push(8, OneSource("s"));
        task.RunUntilIdle();
        EXPECT_EQ(updates, connection);
        router->FireDisconnect();
        task.RunUntilIdle();
    }
}

TEST_F(ConnectionObserver, ChangesNoLogLineOfTheClient) {
    Connect();
    auto const without = Texts();
    // The same steps on a client with an observer give the same lines.
    log.Clear();
    client.reset();
    client = std::make_unique<VellmarkClientAPI>(&task);
    Observe();
    Connect();
    EXPECT_EQ(Texts(), without);
    EXPECT_EQ(heard, 1);
}

TEST_F(ConnectionObserver, NothingIsHeardOnceTheClientIsGone) {
    Observe();
    driver.Connect();
    task.RunOne();
    client.reset();
    task.RunUntilIdle();
    EXPECT_EQ(heard, 0);
}

class DisconnectionObserver : public ClientTest {
protected:
    int ended = 0;
    CallbackConnection Observe() {
        return client->AddDisconnectionObserver([this] { ++ended; });
    }
};

TEST_F(DisconnectionObserver, HearsOfEachEndOfAConnectionOnTheTask) {
    Observe();
    auto router = Connect();
    EXPECT_EQ(ended, 0);
    router->FireDisconnect();
    EXPECT_EQ(ended, 0) << "only the task runs it";
    task.RunUntilIdle();
    EXPECT_EQ(ended, 1);
    Connect()->FireDisconnect();
    task.RunUntilIdle();
    EXPECT_EQ(ended, 2);
}

TEST_F(DisconnectionObserver, AQueryInFlightWhenItIsHeardIsNeverAnswered) {
    int answered = 0;
    client->AddDisconnectionObserver([&] {
        EXPECT_EQ(answered, 0);
        ++ended;
    });
    auto router = Connect();
    client->GetSources(Counting<VellmarkPB::sources>(answered));
    task.RunUntilIdle();
    ASSERT_EQ(router->Sends().size(), 1u);
    router->FireDisconnect();
    task.RunUntilIdle();
    EXPECT_EQ(ended, 1);
    // The next connection does not send it again: the caller hears of the end instead.
    auto next = Connect();
    EXPECT_TRUE(next->Sends().empty());
    EXPECT_EQ(answered, 0);
}

TEST_F(DisconnectionObserver, DisconnectingTheHandleEndsItEvenForACallOnItsWay) {
    auto handle = Observe();
    auto router = Connect();
    router->FireDisconnect();
    task.RunOne();  // HandleDisconnect: the observer's call is posted
    handle.Disconnect();
    task.RunUntilIdle();
    EXPECT_EQ(ended, 0);
    Connect()->FireDisconnect();
    task.RunUntilIdle();
    EXPECT_EQ(ended, 0);
}

TEST_F(DisconnectionObserver, ChangesNoLogLineOfTheClient) {
    Connect()->FireDisconnect();
    task.RunUntilIdle();
    auto const without = Texts();
    log.Clear();
    client.reset();
    client = std::make_unique<VellmarkClientAPI>(&task);
    Observe();
    Connect()->FireDisconnect();
    task.RunUntilIdle();
    EXPECT_EQ(Texts(), without);
    EXPECT_EQ(ended, 1);
}

}  // namespace
