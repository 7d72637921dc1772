// Connections coming and going: the listener's retries, the disconnect handler, Stop,
// the server's clean-up, who may connect, and the socket file.
#include <sys/stat.h>

#include <fstream>

#include "platform/ipc/IPCLog.h"
#include "platform/testing/LogCapture.h"
#include "tests/integration/transport/TransportTestSupport.h"

using namespace Tarv::Testing;

namespace Tarv::TransportTest {
namespace {

class ConnectionLifecycle : public ::testing::Test {
protected:
    RuntimeFolder folder;
    LogCapture log{IPCLog()};
};

TEST_F(ConnectionLifecycle, ListenerWaitsForALateServerAndSaysSoOnce) {
    ClientEnd client(1ms);
    ASSERT_TRUE(log.WaitForText("waiting for Test at " + folder.Path() + "/Test.sock"));
    auto service = std::make_unique<ScriptedServer>();
    ASSERT_TRUE(client.sockets.WaitFor(1));
    EXPECT_TRUE(client.sockets.At(0)->IsOpen());
    ASSERT_TRUE(service->connected.WaitFor(1));
    EXPECT_EQ(log.CountText("waiting for Test"), 1u);
    EXPECT_EQ(log.CountText("listener test-listener: connected to Test"), 1u);
    EXPECT_EQ(client.sockets.Size(), 1u) << "one report per established connection";
}

TEST_F(ConnectionLifecycle, ServerGoingAwayIsReportedOnceAndTheListenerReconnects) {
    auto service = std::make_unique<ScriptedServer>();
    ClientEnd client;
    auto router = client.Connect();
    ASSERT_NE(router, nullptr);
    Inbox<std::string> unanswered;
    router->SendEnvelopeRequest(1, Bytes("never answered"),
                                [&](auto const&) { unanswered.Put("answered"); });
    ASSERT_TRUE(service->requests.WaitFor(1));

    service.reset();
    ASSERT_TRUE(client.disconnects.WaitFor(1));
    EXPECT_FALSE(router->IsOpen());
    EXPECT_EQ(router->PendingRequests(), 0u) << "registrations end with the connection";
    EXPECT_FALSE(router->SendEnvelope(13, Bytes("lost")));

    service = std::make_unique<ScriptedServer>();
    auto second = client.Connect(2);
    ASSERT_NE(second, nullptr);
    ASSERT_TRUE(service->connected.WaitFor(1));
    // The second connection works, and the first loss was reported exactly once.
    Inbox<std::string> answered;
    second->SendEnvelopeRequest(1, Bytes("again"),
                                [&](auto const& e) { answered.Put(e.payload()); });
    ASSERT_TRUE(service->requests.WaitFor(1));
    Echo(service->requests.At(0));
    ASSERT_TRUE(answered.WaitFor(1));
    EXPECT_EQ(client.disconnects.Values(), std::vector<int>{1});
    EXPECT_EQ(unanswered.Size(), 0u);
}

TEST_F(ConnectionLifecycle, ListeningGoesOnWhenItsHandleIsDropped) {
    auto service = std::make_unique<ScriptedServer>();
    ClientEnd client;
    client.listening = CallbackConnection();  // dropped, not disconnected
    ASSERT_NE(client.Connect(), nullptr);
    service.reset();
    ASSERT_TRUE(client.disconnects.WaitFor(1));
    service = std::make_unique<ScriptedServer>();
    EXPECT_TRUE(client.sockets.WaitFor(2));
}

TEST_F(ConnectionLifecycle, StoppedRouterRunsNoHandlerAndTheServerCleansUp) {
    ScriptedServer service;
    ClientEnd client;
    auto router = client.Connect();
    ASSERT_NE(router, nullptr);
    Inbox<std::string> notified;
    router->AttachEnvelopeHandler(8, [&](auto const& e) { notified.Put(e.payload()); });
    ASSERT_TRUE(service.connected.WaitFor(1));
    EXPECT_EQ(service.server->Sessions().size(), 1u);

    router->Stop();
    router->Stop();  // idempotent
    EXPECT_FALSE(router->IsOpen());
    ASSERT_TRUE(service.disconnected.WaitFor(1));
    EXPECT_EQ(service.disconnected.At(0), service.connected.At(0)->Id());
    EXPECT_TRUE(service.server->Sessions().empty());
    EXPECT_FALSE(service.connected.At(0)->Notify(8, Bytes("too late")));
    EXPECT_FALSE(router->SendEnvelopeRequest(1, Bytes("x"), [](auto const&) {}).IsConnected());
    EXPECT_EQ(notified.Size(), 0u);
    EXPECT_EQ(client.disconnects.Size(), 0u) << "Stop is not a lost connection";
}

TEST_F(ConnectionLifecycle, ClientGoingAwayEndsItsSession) {
    ScriptedServer service;
    {
        ClientEnd client;
        ASSERT_NE(client.Connect(), nullptr);
        ASSERT_TRUE(service.connected.WaitFor(1));
    }
    ASSERT_TRUE(service.disconnected.WaitFor(1));
    EXPECT_TRUE(service.server->Sessions().empty());
    EXPECT_FALSE(service.connected.At(0)->IsOpen());
}

TEST_F(ConnectionLifecycle, HandlerSetAfterTheLossIsStillCalledOnce) {
    auto service = std::make_unique<ScriptedServer>();
    ClientEnd client;
    ASSERT_TRUE(client.sockets.WaitFor(1));
    auto socket = client.sockets.At(0);
    ASSERT_TRUE(service->connected.WaitFor(1));
    service.reset();  // lost before any router reads the socket
    auto router = IPCMessageRouterFactory::CreateRouter("late", nullptr, socket);
    ASSERT_NE(router, nullptr);
    Inbox<int> lost;
    router->SetDisconnectHandler(socket, [&] { lost.Put(1); });
    ASSERT_TRUE(lost.WaitFor(1));
    router->Stop();
    EXPECT_EQ(lost.Size(), 1u);
}

TEST_F(ConnectionLifecycle, OnlyOneRouterServesAConnection) {
    ScriptedServer service;
    ClientEnd client;
    ASSERT_NE(client.Connect(), nullptr);
    EXPECT_EQ(IPCMessageRouterFactory::CreateRouter("second", nullptr, client.sockets.At(0)),
              nullptr);
    EXPECT_EQ(IPCMessageRouterFactory::CreateRouter("none", nullptr, nullptr), nullptr);
}

TEST_F(ConnectionLifecycle, UsersOutsideTheAllowedSetAreRefused) {
    IPCServer::Options options;
    options.allowedUsers = {::getuid() + 4242};
    ScriptedServer service(options);
    ClientEnd client;
    auto router = client.Connect();
    ASSERT_NE(router, nullptr);
    ASSERT_TRUE(client.disconnects.WaitFor(1)) << "the server closes a refused connection";
    EXPECT_GE(
        log.CountText("server Test: refused a connection from uid " + std::to_string(::getuid()) +
                      " (pid " + std::to_string(::getpid()) + "): not an allowed user"),
        1u);
    EXPECT_EQ(service.connected.Size(), 0u);
}

TEST_F(ConnectionLifecycle, SocketFileIsForOwnerAndGroupOnlyAndGoesWithTheServer) {
    std::string path;
    {
        ScriptedServer service;
        path = service.server->Path();
        EXPECT_EQ(path, folder.Path() + "/Test.sock");
        struct stat status {};
        ASSERT_EQ(::stat(path.c_str(), &status), 0);
        EXPECT_TRUE(S_ISSOCK(status.st_mode));
        EXPECT_EQ(status.st_mode & 0777, 0660u);
    }
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(ConnectionLifecycle, StaleSocketFileIsReplacedAndALiveServerIsNot) {
    {
        // A socket file nobody answers at, as a crashed server leaves it.
        int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::string const path = folder.Path() + "/Test.sock";
        std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
        ASSERT_EQ(::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        ::close(fd);
    }
    ScriptedServer service;
    EXPECT_THROW(ScriptedServer(), std::system_error);
    ClientEnd client;
    EXPECT_NE(client.Connect(), nullptr) << "the first server still serves";
}

TEST_F(ConnectionLifecycle, AFileThatIsNotASocketIsLeftAlone) {
    std::string const path = folder.Path() + "/Test.sock";
    std::ofstream(path) << "keep me";
    EXPECT_THROW(ScriptedServer(), std::system_error);
    std::ifstream in(path);
    std::string content;
    std::getline(in, content);
    EXPECT_EQ(content, "keep me");
}

TEST_F(ConnectionLifecycle, ServerMakesAMissingRuntimeFolderPrivate) {
    IPCDirectory::Get().SetRuntimeFolder(folder.Path() + "/sub/run");
    ScriptedServer service;
    ClientEnd client;
    EXPECT_NE(client.Connect(), nullptr);
    for (auto const& made : {"/sub", "/sub/run"}) {
        struct stat status {};
        ASSERT_EQ(::stat((folder.Path() + made).c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 07777, 0700u) << made;
    }
}

TEST_F(ConnectionLifecycle, DirectoryUsesTheEnvironmentsFolderUnlessOneIsSet) {
    IPCDirectory::Get().SetRuntimeFolder("");
    ::setenv(IPCDirectory::kRuntimeFolderVariable, "/somewhere/else", 1);
    EXPECT_EQ(IPCDirectory::Get().Lookup("Vellmark")->Path(), "/somewhere/else/Vellmark.sock");
    ::unsetenv(IPCDirectory::kRuntimeFolderVariable);
    EXPECT_EQ(IPCDirectory::Get().Lookup("Vellmark")->Path(), "/run/tarv/Vellmark.sock");
    IPCDirectory::Get().SetRuntimeFolder("/mine");
    EXPECT_EQ(IPCDirectory::Get().Lookup("Vellmark")->Path(), "/mine/Vellmark.sock");
    EXPECT_EQ(IPCDirectory::Get().Lookup("Vellmark")->Name(), "Vellmark");
}

}  // namespace
}  // namespace Tarv::TransportTest
