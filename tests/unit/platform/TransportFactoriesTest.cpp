// The replaceable listener and router factories, and the driver that replaces them.
#include <gtest/gtest.h>

#include "ClientListener.h"
#include "ConnectionDriver.h"
#include "IPCDirectory.h"
#include "IPCMessageRouterFactory.h"
#include "ManualTask.h"

namespace {

TEST(IPCDirectory, LooksUpAnEndpointByName) {
    auto endpoint = IPCDirectory::Get().Lookup("Vellmark");
    ASSERT_NE(endpoint, nullptr);
    EXPECT_EQ(endpoint->Name(), "Vellmark");
    EXPECT_EQ(&IPCDirectory::Get(), &IPCDirectory::Get());
}

TEST(TransportFactories, BuiltInsMakeNoRouterAndAListenerThatNeverConnects) {
    EXPECT_EQ(IPCMessageRouterFactory::CreateRouter("r", nullptr, nullptr), nullptr);
    auto listener = IL::CreateClientListener("l", std::chrono::milliseconds(100));
    ASSERT_NE(listener, nullptr);
    int connections = 0;
    auto handle =
        listener->Listen(IPCDirectory::Get().Lookup("Vellmark"),
                         [&](std::shared_ptr<Network::ConnectorSocket> const&) { ++connections; });
    EXPECT_FALSE(handle.IsConnected());
    EXPECT_EQ(connections, 0);
}

TEST(TransportFactories, DriverReplacesBothFactoriesWhileItLives) {
    ManualTask task;
    {
        ConnectionDriver driver;
        auto listener = IL::CreateClientListener("mine", std::chrono::milliseconds(5));
        ASSERT_EQ(driver.Listeners().size(), 1u);
        EXPECT_EQ(driver.Listeners()[0].name, "mine");
        EXPECT_EQ(driver.Listeners()[0].period, std::chrono::milliseconds(5));
        EXPECT_EQ(driver.Connect(), nullptr) << "nothing listens yet";

        std::shared_ptr<Network::ConnectorSocket> reported;
        listener->Listen(IPCDirectory::Get().Lookup("svc"),
                         [&](std::shared_ptr<Network::ConnectorSocket> const& s) { reported = s; });
        EXPECT_EQ(driver.ListenedEndpoints(), std::vector<std::string>{"svc"});
        auto socket = driver.Connect();
        ASSERT_NE(socket, nullptr);
        EXPECT_EQ(reported, socket);
        EXPECT_TRUE(socket->IsOpen());

        auto router = IPCMessageRouterFactory::CreateRouter("r", &task, socket);
        ASSERT_NE(router, nullptr);
        EXPECT_EQ(router, driver.Router());
        EXPECT_EQ(driver.RouterRequests().at(0).task, &task);
        listener.reset();
        EXPECT_FALSE(driver.ListenerAlive());
    }
    EXPECT_EQ(IPCMessageRouterFactory::CreateRouter("r", &task, nullptr), nullptr);
}

TEST(TransportFactories, DriverFailsTheCreationAfterTheGivenNumberOfSuccesses) {
    ConnectionDriver driver;
    driver.FailNextRouter(2);
    std::vector<bool> made;
    for (int i = 0; i < 4; ++i) {
        made.push_back(IPCMessageRouterFactory::CreateRouter("r", nullptr, nullptr) != nullptr);
    }
    EXPECT_EQ(made, (std::vector<bool>{true, true, false, true}));
    EXPECT_EQ(driver.RouterRequests().size(), 4u);
    EXPECT_EQ(driver.Router(), driver.RouterRequests().back().router);
}

}  // namespace
