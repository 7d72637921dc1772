// vellmarkd socket-activated by systemd-socket-activate: it serves the sockets handed over
// by their names, answers what was sent while it started, leaves their files in place, and
// refuses a socket it cannot serve.
#include "tests/e2e/SystemdSupport.h"

namespace Vellmark::EndToEnd {
namespace {

// Starting under sanitizers or an emulator takes longer than answering.
constexpr auto kStartBound = 3 * kBound;

class SocketActivation : public ServiceTest {
protected:
    void SetUp() override {
        if (!HasSocketActivate()) GTEST_SKIP() << "systemd-socket-activate is not installed";
    }

    std::string PathOf(std::string const& name) const { return Folder() + "/" + name + ".sock"; }
    std::vector<std::string> Arguments() const {
        return {"--db",        StorePath(), "--runtime-dir", Folder(),
                "--log-level", "2",         "--seed",        VELLMARK_SEED_PATH};
    }
    // Waits until systemd-socket-activate listens on `path`.
    void WaitForListening(ChildProcess& activation, std::string const& path) {
        ASSERT_TRUE(activation.WaitForError("Listening on " + path, kStartBound))
            << activation.Errors();
    }
};

TEST_F(SocketActivation, TheFirstConnectionStartsTheServiceAndWhatItSentIsAnswered) {
    std::string const service = PathOf(Admin::kServiceEndpoint);
    std::string const admin = PathOf(Admin::kAdminEndpoint);
    auto activation =
        Activate({{service, Admin::kServiceEndpoint}, {admin, Admin::kAdminEndpoint}}, Arguments());
    WaitForListening(*activation, service);
    WaitForListening(*activation, admin);
    EXPECT_FALSE(Exists(StorePath())) << "vellmarkd started before anyone connected";

    // Sent as soon as the client connects, while vellmarkd is still starting.
    auto sources = std::make_shared<Inbox<VellmarkPB::sources>>();
    Client().GetSources([sources](VellmarkPB::sources const& s) { sources->Put(s); });
    ASSERT_TRUE(sources->WaitFor(1, kStartBound)) << activation->Errors();
    EXPECT_TRUE(Same(sources->At(0), SeedDocument().sources()));
    EXPECT_TRUE(
        activation->WaitForError("vellmarkd: serving " + service + " (admin " + admin, kBound))
        << activation->Errors();

    // Another client, and the admin endpoint.
    auto ctl = Ctl({"get", "sources"});
    EXPECT_EQ(ctl->ExitCode(), 0) << ctl->Errors();
    EXPECT_NE(ctl->Output().find("\"source\""), std::string::npos) << ctl->Output();
    auto adminCtl = Ctl({"admin", "clients"});
    EXPECT_EQ(adminCtl->ExitCode(), 0) << adminCtl->Errors();

    activation->Signal(SIGTERM);
    EXPECT_EQ(activation->ExitCode(), 0) << activation->Errors();
    // The socket files are systemd's: still there. The store is closed cleanly.
    EXPECT_TRUE(Exists(service));
    EXPECT_TRUE(Exists(admin));
    EXPECT_FALSE(Exists(StorePath() + "-wal"));
    EXPECT_FALSE(Exists(StorePath() + "-shm"));
}

TEST_F(SocketActivation, SocketsUnderOtherNamesAreClosedWithOneLogLine) {
    std::string const service = PathOf(Admin::kServiceEndpoint);
    std::string const stray = Folder() + "/stray.sock";
    auto activation = Activate({{service, Admin::kServiceEndpoint}, {stray, "Stray"}}, Arguments());
    WaitForListening(*activation, stray);
    ASSERT_TRUE(Connects(service));
    ASSERT_TRUE(activation->WaitForError("vellmarkd: serving", kStartBound))
        << activation->Errors();
    EXPECT_NE(activation->Errors().find("closed the sockets passed under names it does not "
                                        "serve (it serves Vellmark and VellmarkAdmin, one socket "
                                        "each): Stray (fd 4)"),
              std::string::npos)
        << activation->Errors();
    // The admin endpoint, not passed, is made as without systemd.
    EXPECT_TRUE(Connects(PathOf(Admin::kAdminEndpoint)));
    WaitUntilConnected();

    activation->Signal(SIGTERM);
    EXPECT_EQ(activation->ExitCode(), 0) << activation->Errors();
    EXPECT_TRUE(Exists(service)) << "the socket handed over is not vellmarkd's to remove";
    EXPECT_FALSE(Exists(PathOf(Admin::kAdminEndpoint))) << "the socket it made is";
}

TEST_F(SocketActivation, ASocketThatDoesNotListenIsRefused) {
    std::string const service = PathOf(Admin::kServiceEndpoint);
    auto activation = Activate({{service, Admin::kServiceEndpoint}}, Arguments(), true);
    WaitForListening(*activation, service);
    // A datagram wakes the activation up.
    int const fd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un const address = UnixAddress(service);
    ASSERT_EQ(::sendto(fd, "x", 1, 0, reinterpret_cast<sockaddr const*>(&address), sizeof address),
              1);
    ::close(fd);

    EXPECT_EQ(activation->ExitCode(kStartBound), 1) << activation->Errors();
    EXPECT_NE(activation->Errors().find("vellmarkd: server Vellmark: refusing the socket handed "
                                        "over (fd 3), a Unix datagram socket: it must be a "
                                        "listening Unix stream socket"),
              std::string::npos)
        << activation->Errors();
    EXPECT_EQ(activation->Errors().find("vellmarkd: serving"), std::string::npos);
}

}  // namespace
}  // namespace Vellmark::EndToEnd
