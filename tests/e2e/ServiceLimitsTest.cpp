// vellmarkd's limits on what one client may hold, each an option: over one, the connection
// is refused or closed, one line per user, limit and minute names the limit and its option,
// other users and the admin still get in, and `admin clients` shows each user's count.
#include <grp.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <iterator>

#include "VellmarkMessageId.pb.h"
#include "tests/e2e/RawConnection.h"
#include "tests/e2e/ServiceFixture.h"

namespace Vellmark::EndToEnd {
namespace {

constexpr uid_t kNobody = 65534;
constexpr unsigned int kGetSources = VellmarkPB::VELLMARK_MESSAGE_GET_SOURCES;

class ServiceLimits : public ServiceTest {
protected:
    std::string SocketPath() const { return Folder() + "/Vellmark.sock"; }
    static std::string Me() {
        return "uid " + std::to_string(::getuid()) + " (pid " + std::to_string(::getpid()) + ")";
    }

    // The admin's list of clients.
    Vellmark::Admin::ClientList Clients() {
        auto ctl = Ctl({"admin", "clients"});
        EXPECT_EQ(ctl->ExitCode(), 0) << ctl->Errors();
        Vellmark::Admin::ClientList list;
        EXPECT_EQ(Vellmark::Json::Parse(ctl->Output(), list), "") << ctl->Output();
        return list;
    }
    static Vellmark::Admin::UserConnections UserIn(Vellmark::Admin::ClientList const& list,
                                                   uid_t uid) {
        for (auto const& user : list.users()) {
            if (user.uid() == uid) return user;
        }
        return {};
    }
};

// A process of user 65534 (in group 0, which may open the socket file) holding one
// connection to `path` until the object goes. Needs root.
class NobodyConnected {
public:
    explicit NobodyConnected(std::string const& path) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
        gid_t const groups[] = {0};
        m_pid = ::fork();
        if (m_pid != 0) return;
        // A child of a threaded process: system calls only.
        if (::setgroups(1, groups) != 0 || ::setgid(kNobody) != 0 || ::setuid(kNobody) != 0) {
            ::_exit(3);
        }
        int const fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
        ::connect(fd, reinterpret_cast<sockaddr const*>(&address), sizeof address);
        for (;;) ::pause();
    }
    ~NobodyConnected() {
        ::kill(m_pid, SIGKILL);
        ::waitpid(m_pid, nullptr, 0);
    }

private:
    pid_t m_pid = -1;
};

TEST_F(ServiceLimits, OneConnectionOverTheUsersLimitIsRefusedWhileOthersAndTheAdminGetIn) {
    ASSERT_EQ(::chmod(Folder().c_str(), 0711), 0);  // another user may reach the socket
    StartService(true,
                 {"--max-connections-per-user", "3", "--allow-user", std::to_string(kNobody)});
    std::vector<std::unique_ptr<RawConnection>> held;
    for (int i = 0; i < 3; ++i) {
        held.push_back(std::make_unique<RawConnection>(SocketPath()));
        ASSERT_TRUE(held.back()->Connected());
    }
    ASSERT_TRUE(Service().WaitForError("client connected: session", kBound, 3))
        << Service().Errors();
    RawConnection over(SocketPath());
    ASSERT_TRUE(over.Connected());
    EXPECT_TRUE(over.SeesEnd(kBound)) << "the connection over the limit is closed";
    std::string const line = "server Vellmark: refused a connection from " + Me() +
                             ": over the limit of 3 connections per user "
                             "(--max-connections-per-user)";
    ASSERT_TRUE(Service().WaitForError(line, kBound)) << Service().Errors();

    std::optional<NobodyConnected> nobody;
    if (::geteuid() == 0) {
        nobody.emplace(SocketPath());
        ASSERT_TRUE(Service().WaitForError("client connected: session", kBound, 4))
            << Service().Errors();
    }
    // The admin gets in, and sees every user's connections and refusals.
    auto const list = Clients();
    EXPECT_EQ(UserIn(list, ::getuid()).connections(), 3u);
    EXPECT_EQ(UserIn(list, ::getuid()).refused(), 1u);
    if (nobody) {
        EXPECT_EQ(UserIn(list, kNobody).connections(), 1u);
    }
    EXPECT_EQ(list.limits().connectionsperuser(), 3u);
    EXPECT_EQ(list.limits().connections(), 512u);

    auto const log = Service().Errors();
    EXPECT_EQ(log.find("over the limit", log.find(line) + line.size()), std::string::npos)
        << "one line:\n"
        << log;
}

TEST_F(ServiceLimits, ARequestOverThePendingLimitClosesItsConnection) {
    StartService(true, {"--max-pending-requests", "2"});
    // Answers to GetSources held back: the requests wait.
    ASSERT_EQ(Ctl({"admin", "delay", "600000", "--id", std::to_string(kGetSources)})->ExitCode(),
              0);
    RawConnection raw(SocketPath());
    ASSERT_TRUE(raw.Connected());
    ASSERT_TRUE(raw.Write(RawConnection::Request(kGetSources, 1, "") +
                          RawConnection::Request(kGetSources, 2, "") +
                          RawConnection::Request(kGetSources, 3, "")));
    EXPECT_TRUE(raw.SeesEnd(kBound));
    ASSERT_TRUE(Service().WaitForError(
        "server Vellmark: closed a connection of " + Me() +
            ": over the limit of 2 requests waiting for an answer (--max-pending-requests)",
        kBound))
        << Service().Errors();
    // Others are served as ever.
    ASSERT_EQ(Ctl({"admin", "delay", "0"})->ExitCode(), 0);
    WaitUntilConnected();
}

TEST_F(ServiceLimits, RequestsOverTheIncomingBytesLimitCloseTheirConnection) {
    StartService(true, {"--max-frame-bytes", "16K", "--max-incoming-bytes", "40K"});
    ASSERT_EQ(Ctl({"admin", "delay", "600000", "--id", std::to_string(kGetSources)})->ExitCode(),
              0);
    RawConnection raw(SocketPath());
    ASSERT_TRUE(raw.Connected());
    // The service reads a query's identifier, not its bytes: 15,000 of them each.
    std::string const padding(15000, 'p');
    ASSERT_TRUE(raw.Write(RawConnection::Request(kGetSources, 1, padding) +
                          RawConnection::Request(kGetSources, 2, padding)));
    ASSERT_TRUE(raw.Write(RawConnection::Request(kGetSources, 3, padding)));
    EXPECT_TRUE(raw.SeesEnd(kBound));
    ASSERT_TRUE(Service().WaitForError("server Vellmark: closed a connection of " + Me() +
                                           ": over the limit of 40960 bytes of requests waiting "
                                           "for an answer (--max-incoming-bytes)",
                                       kBound))
        << Service().Errors();
}

TEST_F(ServiceLimits, EachLimitIsAnOptionInTheHelpAndTheManualPage) {
    ChildProcess help(VELLMARKD_PATH, {"--help"});
    ASSERT_EQ(help.ExitCode(), 0);
    std::string const folder = VELLMARK_MAN_DIR;
    std::string page;
    if (!folder.empty()) {
        std::ifstream in(folder + "/vellmarkd.8");
        page.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
        ASSERT_FALSE(page.empty());
    }
    for (std::string const option : {"connections-per-user", "connections", "pending-requests",
                                     "incoming-bytes", "outgoing-bytes"}) {
        EXPECT_NE(help.Output().find("--max-" + option + " "), std::string::npos) << option;
        // help2man writes each dash of an option as "\-".
        std::string escaped = "\\-\\-max";
        for (char c : "-" + option) escaped += c == '-' ? std::string("\\-") : std::string(1, c);
        if (!page.empty()) {
            EXPECT_NE(page.find(escaped), std::string::npos) << escaped;
        }
    }
}

}  // namespace
}  // namespace Vellmark::EndToEnd
