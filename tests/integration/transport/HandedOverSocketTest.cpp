// A server serving a socket handed over (as systemd's socket activation does): it answers on
// it, checks who connects as on a socket of its own, leaves the socket's file to whoever
// made it, and refuses anything that is not a listening Unix stream socket.
#include <fcntl.h>
#include <netinet/in.h>

#include "platform/ipc/IPCLog.h"
#include "platform/testing/LogCapture.h"
#include "tests/integration/transport/TransportTestSupport.h"

using namespace Tarv::Testing;

namespace Tarv::TransportTest {
namespace {

class HandedOverSocket : public ::testing::Test {
protected:
    RuntimeFolder folder;
    LogCapture log{IPCLog()};

    std::string SocketPath() const { return IPCDirectory::Get().Lookup(kService)->Path(); }

    // A Unix socket of `type` bound at `path`, listening when asked.
    static int UnixSocket(int type, std::string const& path, bool listening) {
        int const fd = ::socket(AF_UNIX, type, 0);
        sockaddr_un const address = AddressOf(path);
        EXPECT_EQ(::bind(fd, reinterpret_cast<sockaddr const*>(&address), sizeof address), 0);
        if (listening) {
            EXPECT_EQ(::listen(fd, 16), 0);
        }
        return fd;
    }
    static bool IsOpen(int fd) { return ::fcntl(fd, F_GETFD) != -1; }
};

TEST_F(HandedOverSocket, IsServedAndItsFileLeftInPlace) {
    IPCServer::Options options;
    options.listeningFd = UnixSocket(SOCK_STREAM, SocketPath(), true);
    auto service = std::make_unique<ScriptedServer>(options, Echo);
    EXPECT_EQ(service->server->Path(), SocketPath());
    EXPECT_EQ(log.CountText("server Test: listening at " + SocketPath() + " (socket handed over)"),
              1u);

    ClientEnd client;
    auto router = client.Connect();
    ASSERT_NE(router, nullptr);
    EXPECT_EQ(Ask(*router, 5, "question"), "question");

    service->server->Stop();
    struct stat status {};
    ASSERT_EQ(::lstat(SocketPath().c_str(), &status), 0) << "the file is not the server's";
    EXPECT_TRUE(S_ISSOCK(status.st_mode));
}

TEST_F(HandedOverSocket, WhoConnectsIsCheckedAsOnASocketOfItsOwn) {
    IPCServer::Options options;
    options.allowedUsers = {::getuid() + 4242};
    options.listeningFd = UnixSocket(SOCK_STREAM, SocketPath(), true);
    ScriptedServer service(options);
    RawClient client;
    ASSERT_TRUE(client.connected);
    ASSERT_TRUE(client.SeesEnd());
    EXPECT_EQ(
        log.CountText("server Test: refused a connection from uid " + std::to_string(::getuid())),
        1u);
    EXPECT_EQ(service.connected.Size(), 0u);
}

TEST_F(HandedOverSocket, ASocketElsewhereIsServedWithAWarning) {
    std::string const elsewhere = folder.Path() + "/elsewhere.sock";
    IPCServer::Options options;
    options.listeningFd = UnixSocket(SOCK_STREAM, elsewhere, true);
    ScriptedServer service(options);
    EXPECT_EQ(service.server->Path(), elsewhere);
    EXPECT_EQ(log.CountText("server Test: the socket handed over is at " + elsewhere +
                            ", but clients look for it at " + SocketPath()),
              1u);
}

TEST_F(HandedOverSocket, AnythingButAListeningUnixStreamSocketIsRefusedAndClosed) {
    int pipeEnds[2];
    ASSERT_EQ(::pipe(pipeEnds), 0);
    ::close(pipeEnds[1]);
    int const closed = ::dup(pipeEnds[0]);
    ::close(closed);
    struct Case {
        int fd;
        std::string what;
    };
    std::vector<Case> const cases{
        {UnixSocket(SOCK_STREAM, folder.Path() + "/idle.sock", false),
         "a Unix stream socket that does not listen"},
        {UnixSocket(SOCK_DGRAM, folder.Path() + "/datagram.sock", false), "a Unix datagram socket"},
        {UnixSocket(SOCK_SEQPACKET, folder.Path() + "/packets.sock", true),
         "a Unix seqpacket socket"},
        {::socket(AF_INET, SOCK_STREAM, 0), "an IPv4 socket"},
        {pipeEnds[0], "not a socket"},
        {closed, "not an open file descriptor"},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.what);
        IPCServer::Options options;
        options.listeningFd = c.fd;
        try {
            IPCServer server(kService, {}, options);
            ADD_FAILURE() << "served";
        } catch (std::system_error const& error) {
            EXPECT_EQ(std::string(error.what())
                          .rfind("server Test: refusing the socket handed over (fd " +
                                     std::to_string(c.fd) + "), " + c.what +
                                     ": it must be a listening Unix stream socket",
                                 0),
                      0u)
                << error.what();
        }
        EXPECT_FALSE(IsOpen(c.fd)) << "the server owns what it was handed";
    }
    EXPECT_FALSE(std::filesystem::exists(SocketPath())) << "no socket made in its place";
}

}  // namespace
}  // namespace Tarv::TransportTest
