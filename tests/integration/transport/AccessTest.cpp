// Who talks to whom: a client connects only to a server of a trusted user, a server lets in
// only its allowed users and groups and logs refusals without flooding, and neither a
// folder others may write to nor a foreign file at the socket path is taken over.
#include <sys/stat.h>

#include <fstream>

#include "platform/ipc/IPCLog.h"
#include "platform/testing/LogCapture.h"
#include "tests/integration/transport/TransportTestSupport.h"

using namespace Tarv::Testing;

namespace Tarv::TransportTest {
namespace {

class Access : public ::testing::Test {
protected:
    RuntimeFolder folder;
    LogCapture log{IPCLog()};

    std::string SocketPath() const { return IPCDirectory::Get().Lookup(kService)->Path(); }
};

bool RunningAsRoot() {
    return ::geteuid() == 0;
}

TEST_F(Access, TheClientRefusesAServerOfAnUntrustedUserAndKeepsTrying) {
    ScriptedServer service;
    std::optional<TrustedServers> trust(std::in_place, std::vector<uid_t>{::getuid() + 4242});
    ClientEnd client(1ms);
    // The server sees every try; the client reports none of them, and says so once.
    ASSERT_TRUE(service.connected.WaitFor(5));
    EXPECT_EQ(client.sockets.Size(), 0u);
    EXPECT_EQ(log.CountText("listener test-listener: refused the server at " + SocketPath() +
                            ": it runs as uid " + std::to_string(::getuid())),
              1u);
    // Trusted again (root and the folder's owner): the next try connects.
    trust.reset();
    ASSERT_NE(client.Connect(), nullptr);
}

TEST_F(Access, TheClientRefusesAnImpostorOfAnotherUserInASharedFolder) {
    if (!RunningAsRoot()) GTEST_SKIP() << "needs root to run a process as another user";
    // A folder every user may write to, as /tmp is: another user puts a socket there.
    ASSERT_EQ(::chmod(folder.Path().c_str(), 0777), 0);
    sockaddr_un const address = AddressOf(SocketPath());
    std::optional<OtherUser> impostor(
        std::in_place, OtherUser::kNobody, OtherUser::kNobody, std::vector<gid_t>{}, [&address] {
            int const fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
            ::bind(fd, reinterpret_cast<sockaddr const*>(&address), sizeof address);
            ::listen(fd, 16);
        });
    ClientEnd client(1ms);
    ASSERT_TRUE(log.WaitForText("refused the server at " + SocketPath() + ": it runs as uid " +
                                std::to_string(OtherUser::kNobody)));
    EXPECT_EQ(client.sockets.Size(), 0u);

    // Once the impostor is gone and the folder is private again, the real service is found.
    impostor.reset();
    ::unlink(SocketPath().c_str());
    ASSERT_EQ(::chmod(folder.Path().c_str(), 0700), 0);
    ScriptedServer service;
    ASSERT_NE(client.Connect(), nullptr);
    EXPECT_EQ(log.CountText("refused the server at"), 1u);
}

TEST_F(Access, ARefusedUserIsLoggedOncePerMinuteHoweverOftenItTries) {
    IPCServer::Options options;
    options.allowedUsers = {::getuid() + 4242};
    ScriptedServer service(options);
    // A client trying again and again: each try is closed by the server.
    for (int i = 0; i < 20; ++i) {
        RawClient client;
        ASSERT_TRUE(client.connected);
        ASSERT_TRUE(client.SeesEnd());
    }
    EXPECT_EQ(
        log.CountText("server Test: refused a connection from uid " + std::to_string(::getuid())),
        1u);
    EXPECT_EQ(service.connected.Size(), 0u);
}

TEST_F(Access, MembersOfAnAllowedGroupAreLetIn) {
    IPCServer::Options options;
    options.allowedUsers = {::getuid() + 4242};
    options.allowedGroups = {::getgid()};
    ScriptedServer service(options);
    ClientEnd client;
    ASSERT_NE(client.Connect(), nullptr);
    ASSERT_TRUE(service.connected.WaitFor(1));
    EXPECT_EQ(log.CountText("refused"), 0u);
}

TEST_F(Access, AnotherUserGetsInWhenAllowedByNameOrByAGroupAndIsRefusedOtherwise) {
    if (!RunningAsRoot()) GTEST_SKIP() << "needs root to run a process as another user";
    constexpr gid_t kGroup = 4343;
    // Others may pass through the folder to the socket, whose own mode and the server decide.
    ASSERT_EQ(::chmod(folder.Path().c_str(), 0711), 0);
    sockaddr_un const address = AddressOf(SocketPath());
    auto const connect = [&address] {
        int const fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
        ::connect(fd, reinterpret_cast<sockaddr const*>(&address), sizeof address);
    };
    struct Case {
        std::vector<uid_t> users;
        std::vector<gid_t> groups;
        // The other user's supplementary groups: one that may open the socket file.
        std::vector<gid_t> memberOf;
        bool allowed;
    };
    for (auto const& c : {Case{{0, OtherUser::kNobody}, {}, {0}, true},
                          Case{{0}, {kGroup}, {kGroup}, true}, Case{{0}, {}, {0}, false}}) {
        SCOPED_TRACE(c.allowed ? "allowed" : "refused");
        IPCServer::Options options;
        options.allowedUsers = c.users;
        options.allowedGroups = c.groups;
        ScriptedServer service(options);
        if (!c.groups.empty()) {
            struct stat status {};
            ASSERT_EQ(::stat(SocketPath().c_str(), &status), 0);
            EXPECT_EQ(status.st_gid, c.groups.front()) << "the socket file is the group's";
        }
        OtherUser other(OtherUser::kNobody, OtherUser::kNobody, c.memberOf, connect);
        if (c.allowed) {
            ASSERT_TRUE(service.connected.WaitFor(1));
            EXPECT_EQ(service.connected.At(0)->Peer().uid, OtherUser::kNobody);
        } else {
            ASSERT_TRUE(log.WaitForText("refused a connection from uid " +
                                        std::to_string(OtherUser::kNobody)));
            EXPECT_EQ(service.connected.Size(), 0u);
        }
    }
}

TEST_F(Access, AServerRefusesARuntimeFolderEveryUserMayWriteTo) {
    for (mode_t mode : {0777, 01777, 0773}) {
        ASSERT_EQ(::chmod(folder.Path().c_str(), mode), 0);
        try {
            ScriptedServer service;
            ADD_FAILURE() << "served from a folder of mode " << std::oct << mode;
        } catch (std::system_error const& error) {
            EXPECT_NE(std::string(error.what()).find("every user may write to"), std::string::npos)
                << error.what();
            EXPECT_NE(std::string(error.what()).find(folder.Path()), std::string::npos);
        }
    }
    // Its group may write to it: the group is trusted.
    ASSERT_EQ(::chmod(folder.Path().c_str(), 0770), 0);
    ScriptedServer service;
}

TEST_F(Access, ALinkAtTheSocketPathIsReplacedAndAFileIsLeftAlone) {
    std::string const elsewhere = folder.Path() + "/elsewhere";
    ASSERT_EQ(::symlink(elsewhere.c_str(), SocketPath().c_str()), 0);
    {
        ScriptedServer service;
        struct stat status {};
        ASSERT_EQ(::lstat(SocketPath().c_str(), &status), 0);
        EXPECT_TRUE(S_ISSOCK(status.st_mode));
        EXPECT_FALSE(std::filesystem::exists(elsewhere)) << "the socket went where the link led";
    }
    std::ofstream(SocketPath()) << "someone's data";
    EXPECT_THROW(ScriptedServer service, std::system_error);
    std::string kept;
    std::getline(std::ifstream(SocketPath()), kept);
    EXPECT_EQ(kept, "someone's data");
}

}  // namespace
}  // namespace Tarv::TransportTest
