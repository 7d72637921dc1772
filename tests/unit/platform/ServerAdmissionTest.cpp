// Who a server lets in and how much each may hold: the allowed users, the connections per
// user and in all (the reserved users aside), the per-connection limits reported, and one
// log line per user, reason and minute.
#include "platform/ipc/ServerAdmission.h"

#include <gtest/gtest.h>

#include "platform/ipc/IPCLog.h"
#include "platform/testing/LogCapture.h"

namespace {

using Tarv::PeerCredentials;
using Tarv::ServerAdmission;
using Tarv::Testing::LogCapture;
using namespace std::chrono_literals;

constexpr uid_t kAdmin = 0;
constexpr uid_t kUser = 1000;
constexpr uid_t kOther = 1001;
ServerAdmission::Clock::time_point const kStart{};

PeerCredentials Peer(uid_t uid, pid_t pid = 7) {
    PeerCredentials peer;
    peer.uid = uid;
    peer.gid = uid;
    peer.pid = pid;
    return peer;
}

ServerAdmission::Rules Rules() {
    ServerAdmission::Rules rules;
    rules.allowedUsers = {kAdmin, kUser, kOther};
    rules.reservedUsers = {kAdmin};
    rules.limits.connectionsPerUser = {2, "--per-user"};
    rules.limits.connections = {3, "--total"};
    return rules;
}

ServerAdmission::UserCount CountOf(ServerAdmission const& admission, uid_t uid) {
    for (auto const& user : admission.Users()) {
        if (user.uid == uid) return user;
    }
    return {uid, 0, 0};
}

TEST(ServerAdmission, AUserIsLetInUpToItsLimitAndAgainOnceAConnectionHasLeft) {
    LogCapture log(IPCLog());
    ServerAdmission admission("Test", Rules());
    EXPECT_TRUE(admission.Admit(Peer(kUser), -1, kStart));
    EXPECT_TRUE(admission.Admit(Peer(kUser), -1, kStart));
    EXPECT_FALSE(admission.Admit(Peer(kUser, 8), -1, kStart));
    EXPECT_FALSE(admission.Admit(Peer(kUser, 9), -1, kStart + 1s));
    ASSERT_EQ(log.Texts().size(), 1u) << "one line per user and minute";
    EXPECT_EQ(log.Texts()[0],
              "server Test: refused a connection from uid 1000 (pid 8): over the limit of 2 "
              "connections per user (--per-user)");
    EXPECT_EQ(CountOf(admission, kUser).connections, 2u);
    EXPECT_EQ(CountOf(admission, kUser).refused, 2u);
    admission.Left(kUser);
    EXPECT_TRUE(admission.Admit(Peer(kUser), -1, kStart + 2s));
}

TEST(ServerAdmission, OthersFillingTheServerLockOutEveryoneButTheReservedUsers) {
    LogCapture log(IPCLog());
    ServerAdmission admission("Test", Rules());
    EXPECT_TRUE(admission.Admit(Peer(kUser), -1, kStart));
    EXPECT_TRUE(admission.Admit(Peer(kUser), -1, kStart));
    EXPECT_TRUE(admission.Admit(Peer(kOther), -1, kStart));
    EXPECT_FALSE(admission.Admit(Peer(kOther), -1, kStart));
    EXPECT_EQ(log.CountText("over the limit of 3 connections in all (--total)"), 1u);
    // The admin comes in past the limit, up to its own per-user limit.
    EXPECT_TRUE(admission.Admit(Peer(kAdmin), -1, kStart));
    EXPECT_TRUE(admission.Admit(Peer(kAdmin), -1, kStart));
    EXPECT_FALSE(admission.Admit(Peer(kAdmin), -1, kStart));
    EXPECT_EQ(log.CountText("refused a connection from uid 0 (pid 7): over the limit of 2 "
                            "connections per user (--per-user)"),
              1u);
}

TEST(ServerAdmission, UsersNotAllowedAreRefusedAsBeforeAndUnknownPeersToo) {
    LogCapture log(IPCLog());
    ServerAdmission admission("Test", Rules());
    EXPECT_FALSE(admission.Admit(Peer(4242), -1, kStart));
    EXPECT_FALSE(admission.Admit(std::nullopt, -1, kStart));
    EXPECT_EQ(log.CountText("server Test: refused a connection from uid 4242 (pid 7): not an "
                            "allowed user"),
              1u);
    EXPECT_EQ(CountOf(admission, 4242).refused, 1u);
    EXPECT_EQ(CountOf(admission, 4242).connections, 0u);
}

TEST(ServerAdmission, AConnectionOverAPerConnectionLimitIsLoggedWithTheLimitsSetting) {
    LogCapture log(IPCLog());
    auto rules = Rules();
    rules.limits.pendingRequests = {4, "--pending"};
    rules.limits.incomingBytes = {1000, "--in"};
    rules.limits.outgoingBytes = {2000, "--out"};
    ServerAdmission admission("Test", rules);
    admission.Closing(Peer(kUser), ServerAdmission::Over::PendingRequests, 4, kStart);
    admission.Closing(Peer(kUser), ServerAdmission::Over::PendingRequests, 4, kStart + 1s);
    admission.Closing(Peer(kUser), ServerAdmission::Over::IncomingBytes, 1000, kStart);
    admission.Closing(Peer(kUser), ServerAdmission::Over::OutgoingBytes, 2000, kStart);
    EXPECT_EQ(log.Texts(),
              (std::vector<std::string>{
                  "server Test: closed a connection of uid 1000 (pid 7): over the limit of 4 "
                  "requests waiting for an answer (--pending)",
                  "server Test: closed a connection of uid 1000 (pid 7): over the limit of 1000 "
                  "bytes of requests waiting for an answer (--in)",
                  "server Test: closed a connection of uid 1000 (pid 7): over the limit of 2000 "
                  "bytes waiting to be sent (--out)"}));
    EXPECT_EQ(CountOf(admission, kUser).refused, 4u);
}

}  // namespace
