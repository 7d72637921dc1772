// What one client may hold of a server: connections per user and in all (the reserved users
// aside), requests waiting for an answer and their bytes, bytes waiting to be sent. Over a
// limit the connection is refused or closed, with one log line per user, limit and minute
// that names the limit and its setting.
#include <sys/stat.h>
#include <unistd.h>

#include "platform/ipc/IPCLog.h"
#include "platform/ipc/transport/FrameCodec.h"
#include "platform/testing/LogCapture.h"
#include "tests/integration/transport/TransportTestSupport.h"

using namespace Tarv::Testing;

namespace Tarv::TransportTest {
namespace {

// A request frame numbered `number` with `payload`, as a client writes it.
std::string Request(std::uint64_t number, std::string payload = "?") {
    std::string bytes;
    AppendFrame(MakeFrame(IPCFrame::REQUEST, 1, Bytes(std::move(payload)).Base(), number), bytes,
                IPCFrameLimit::kHardMaxFrameBytes);
    return bytes;
}

bool RunningAsRoot() {
    return ::geteuid() == 0;
}

class ClientLimits : public ::testing::Test {
protected:
    RuntimeFolder folder;
    LogCapture log{IPCLog()};

    static std::string Me() {
        return "uid " + std::to_string(::getuid()) + " (pid " + std::to_string(::getpid()) + ")";
    }
    // The server's count of `uid`'s connections and refusals.
    static ServerUserCount CountOf(IPCServer const& server, uid_t uid) {
        for (auto const& user : server.Users()) {
            if (user.uid == uid) return user;
        }
        return ServerUserCount{uid, 0, 0};
    }
};

TEST_F(ClientLimits, AUserOverItsConnectionLimitIsRefusedLoggedOnceAndLetInWhenOneCloses) {
    IPCServer::Options options;
    options.clientLimits.connectionsPerUser = {3, "--per-user"};
    ScriptedServer service(options);
    std::vector<std::unique_ptr<RawClient>> held;
    for (int i = 0; i < 3; ++i) held.push_back(std::make_unique<RawClient>());
    ASSERT_TRUE(service.connected.WaitFor(3));
    for (int i = 0; i < 2; ++i) {
        RawClient extra;
        ASSERT_TRUE(extra.connected);
        EXPECT_TRUE(extra.SeesEnd()) << "the connection over the limit is closed at once";
    }
    EXPECT_EQ(log.CountText("server Test: refused a connection from " + Me() +
                            ": over the limit of 3 connections per user (--per-user)"),
              1u);
    EXPECT_EQ(log.CountText("over the limit"), 1u) << "one line per user and minute";
    EXPECT_EQ(service.connected.Size(), 3u);
    auto const count = CountOf(*service.server, ::getuid());
    EXPECT_EQ(count.connections, 3u);
    EXPECT_EQ(count.refused, 2u);

    // A connection that ends gives its place back.
    held[0].reset();
    ASSERT_TRUE(service.disconnected.WaitFor(1));
    RawClient next;
    ASSERT_TRUE(service.connected.WaitFor(4));
}

TEST_F(ClientLimits, AnotherAllowedUserGetsInWhileOneUserIsAtItsLimit) {
    if (!RunningAsRoot()) GTEST_SKIP() << "needs root to run a process as another user";
    ASSERT_EQ(::chmod(folder.Path().c_str(), 0711), 0);  // others may reach the socket file
    IPCServer::Options options;
    options.allowedUsers = {::getuid(), OtherUser::kNobody};
    options.clientLimits.connectionsPerUser = {2, "--per-user"};
    ScriptedServer service(options);
    RawClient first;
    RawClient second;
    ASSERT_TRUE(service.connected.WaitFor(2));
    RawClient over;
    EXPECT_TRUE(over.SeesEnd());
    sockaddr_un const address = AddressOf(IPCDirectory::Get().Lookup(kService)->Path());
    // A member of group 0, which may open the socket file.
    OtherUser other(OtherUser::kNobody, OtherUser::kNobody, {0}, [&address] {
        int const fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
        ::connect(fd, reinterpret_cast<sockaddr const*>(&address), sizeof address);
    });
    ASSERT_TRUE(service.connected.WaitFor(3));
    EXPECT_EQ(service.connected.At(2)->Peer().uid, OtherUser::kNobody);
    EXPECT_EQ(log.CountText("over the limit"), 1u);
}

TEST_F(ClientLimits, TheConnectionsInAllLimitRefusesOthersButNeverAReservedUser) {
    IPCServer::Options options;
    options.clientLimits.connections = {2, "--total"};
    {
        ScriptedServer service(options);
        RawClient first;
        RawClient second;
        ASSERT_TRUE(service.connected.WaitFor(2));
        RawClient over;
        EXPECT_TRUE(over.SeesEnd());
        ASSERT_TRUE(log.WaitForText("server Test: refused a connection from " + Me() +
                                    ": over the limit of 2 connections in all (--total)"));
    }
    // The same user reserved (an admin): others filling the server do not lock it out.
    options.reservedUsers = {::getuid()};
    ScriptedServer service(options);
    RawClient first;
    RawClient second;
    RawClient third;
    ASSERT_TRUE(service.connected.WaitFor(3));
    EXPECT_EQ(log.CountText("over the limit"), 1u);
}

TEST_F(ClientLimits, AnotherUserFillingTheServerDoesNotLockOutAReservedUser) {
    if (!RunningAsRoot()) GTEST_SKIP() << "needs root to run a process as another user";
    ASSERT_EQ(::chmod(folder.Path().c_str(), 0711), 0);
    IPCServer::Options options;
    options.allowedUsers = {::getuid(), OtherUser::kNobody};
    options.reservedUsers = {::getuid()};
    options.clientLimits.connections = {2, "--total"};
    ScriptedServer service(options);
    sockaddr_un const address = AddressOf(IPCDirectory::Get().Lookup(kService)->Path());
    OtherUser other(OtherUser::kNobody, OtherUser::kNobody, {0}, [&address] {
        for (int i = 0; i < 3; ++i) {
            int const fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
            ::connect(fd, reinterpret_cast<sockaddr const*>(&address), sizeof address);
        }
    });
    ASSERT_TRUE(service.connected.WaitFor(2));
    ASSERT_TRUE(
        log.WaitForText("refused a connection from uid " + std::to_string(OtherUser::kNobody)));
    EXPECT_EQ(log.CountText("over the limit of 2 connections in all (--total)"), 1u);
    // The reserved user gets in past the limit.
    RawClient admin;
    ASSERT_TRUE(service.connected.WaitFor(3));
    EXPECT_EQ(service.connected.At(2)->Peer().uid, ::getuid());
}

TEST_F(ClientLimits, ARequestOverThePendingLimitClosesItsConnectionAndAnAnswerMakesRoom) {
    IPCServer::Options options;
    options.clientLimits.pendingRequests = {2, "--pending"};
    ScriptedServer service(options);  // keeps every request, unanswered until told
    RawClient raw;
    ASSERT_TRUE(raw.Write(Request(1) + Request(2)));
    ASSERT_TRUE(service.requests.WaitFor(2));
    // An answer gives a place back: a third request is taken.
    EXPECT_TRUE(service.requests.At(0).Respond(Bytes("answer")));
    ASSERT_TRUE(raw.Write(Request(3)));
    ASSERT_TRUE(service.requests.WaitFor(3));
    // Two wait again: one more closes the connection, said in one line naming the limit.
    ASSERT_TRUE(raw.Write(Request(4)));
    EXPECT_TRUE(raw.SeesEnd());
    ASSERT_TRUE(
        log.WaitForText("server Test: closed a connection of " + Me() +
                        ": over the limit of 2 requests waiting for an answer (--pending)"));
    EXPECT_EQ(service.requests.Size(), 3u);
    EXPECT_EQ(CountOf(*service.server, ::getuid()).refused, 1u);
}

TEST_F(ClientLimits, ARequestDroppedUnansweredGivesItsPlaceBack) {
    Inbox<std::uint64_t> numbers;
    IPCServer::Handlers handlers;
    handlers.onRequest = [&numbers](IPCRequest const& request) { numbers.Put(request.number); };
    IPCServer::Options options;
    options.clientLimits.pendingRequests = {1, "--pending"};
    IPCServer server(kService, handlers, options);
    RawClient raw;
    ASSERT_TRUE(raw.Write(Request(1) + Request(2) + Request(3) + Request(4)));
    ASSERT_TRUE(numbers.WaitFor(4));
    EXPECT_EQ(log.CountText("over the limit"), 0u);
    server.Stop();
}

TEST_F(ClientLimits, RequestsOverTheIncomingBytesLimitCloseTheirConnection) {
    IPCServer::Options options;
    options.clientLimits.incomingBytes = {100000, "--incoming"};
    ScriptedServer service(options);
    RawClient raw;
    std::string const payload(40000, 'p');
    ASSERT_TRUE(raw.Write(Request(1, payload) + Request(2, payload)));
    ASSERT_TRUE(service.requests.WaitFor(2));
    ASSERT_TRUE(raw.Write(Request(3, payload)));
    EXPECT_TRUE(raw.SeesEnd());
    ASSERT_TRUE(log.WaitForText("server Test: closed a connection of " + Me() +
                                ": over the limit of 100000 bytes of requests waiting for an "
                                "answer (--incoming)"));
    EXPECT_EQ(service.requests.Size(), 2u);
}

TEST_F(ClientLimits, APeerThatDoesNotReadIsClosedOverTheOutgoingBytesLimitWithOneLine) {
    IPCServer::Options options;
    options.clientLimits.outgoingBytes = {256 * 1024, "--outgoing"};
    ScriptedServer service(options);
    RawClient raw;  // never reads
    ASSERT_TRUE(service.connected.WaitFor(1));
    auto const session = service.connected.At(0);
    std::string const chunk(64 * 1024, 'n');
    int sent = 0;
    while (session->Notify(5, Bytes(chunk)) && sent < 1000) ++sent;
    EXPECT_FALSE(session->IsOpen());
    ASSERT_TRUE(
        log.WaitForText("server Test: closed a connection of " + Me() +
                        ": over the limit of 262144 bytes waiting to be sent (--outgoing)"));
    EXPECT_EQ(log.CountText("the peer is not reading"), 0u) << "the server's line, not two";
}

}  // namespace
}  // namespace Tarv::TransportTest
