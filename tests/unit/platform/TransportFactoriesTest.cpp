// The replaceable listener and router factories, and the driver that replaces them.
#include <gtest/gtest.h>

#include "platform/ipc/ClientListener.h"
#include "platform/ipc/IPCDirectory.h"
#include "platform/ipc/IPCMessageRouterFactory.h"
#include "platform/testing/ConnectionDriver.h"
#include "platform/testing/ManualTask.h"

using namespace Tarv::Testing;

namespace {

TEST(IPCDirectory, LooksUpAnEndpointByName) {
    auto endpoint = IPCDirectory::Get().Lookup("Vellmark");
    ASSERT_NE(endpoint, nullptr);
    EXPECT_EQ(endpoint->Name(), "Vellmark");
    EXPECT_EQ(endpoint->Path(), IPCDirectory::Get().RuntimeFolder() + "/Vellmark.sock");
    EXPECT_EQ(&IPCDirectory::Get(), &IPCDirectory::Get());
}

TEST(TransportFactories, BuiltInRouterServesOnlyTheBuiltInListenersSockets) {
    class Foreign : public Network::ConnectorSocket {
        bool IsOpen() const override { return true; }
        void Close() override {}
    };
    EXPECT_EQ(IPCMessageRouterFactory::CreateRouter("r", nullptr, std::make_shared<Foreign>()),
              nullptr);
    EXPECT_EQ(IPCMessageRouterFactory::CreateRouter("r", nullptr, nullptr), nullptr);
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
