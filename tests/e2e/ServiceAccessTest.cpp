// Who may use vellmarkd: its own user and root, and the users and groups its options name.
#include <sys/stat.h>
#include <unistd.h>

#include "tests/e2e/ServiceFixture.h"

namespace Vellmark::EndToEnd {
namespace {

constexpr char kSetpriv[] = "/usr/bin/setpriv";
constexpr char kNobody[] = "65534";

class ServiceAccess : public ServiceTest {
protected:
    // True when this machine lets the test run vellmarkctl as another user: as root, with
    // util-linux's setpriv, on the build's own machine (not under an emulator).
    static bool CanRunAsAnotherUser() {
        return ::geteuid() == 0 && ::access(kSetpriv, X_OK) == 0 && kChildLauncher.empty();
    }

    // vellmarkctl as user 65534, a member of group 0 so that it may open the socket file.
    std::unique_ptr<ChildProcess> CtlAsNobody(std::vector<std::string> const& arguments) {
        std::vector<std::string> words{"--reuid",        kNobody,         "--regid",
                                       kNobody,          "--groups",      "0",
                                       VELLMARKCTL_PATH, "--runtime-dir", Folder()};
        words.insert(words.end(), arguments.begin(), arguments.end());
        auto ctl = std::make_unique<ChildProcess>(kSetpriv, words);
        EXPECT_TRUE(ctl->Wait(kBound).has_value());
        return ctl;
    }
};

TEST_F(ServiceAccess, AllowOptionsTakeNumbersAndNamesAndRefuseUnknownOnes) {
    StartService(true, {"--allow-user", "root", "--allow-user", "4242", "--allow-group", "root",
                        "--admin-allow-user", "0"});
    EXPECT_EQ(Ctl({"get", "persons"})->ExitCode(), 0);
    StopService();
    for (auto const& option : {"--allow-user", "--allow-group", "--admin-allow-user"}) {
        ChildProcess service(VELLMARKD_PATH, {"--db", StorePath(), "--runtime-dir", Folder(),
                                              option, "no-such-name-here"});
        EXPECT_EQ(service.ExitCode(), 2) << option;
        EXPECT_NE(service.Errors().find("no-such-name-here"), std::string::npos)
            << service.Errors();
    }
}

TEST_F(ServiceAccess, AnotherUserIsRefusedUnlessAllowedAndTheRefusalIsLoggedOnce) {
    if (!CanRunAsAnotherUser()) GTEST_SKIP() << "cannot run a program as another user here";
    ASSERT_EQ(::chmod(Folder().c_str(), 0711), 0);  // others may reach the socket files
    StartService();
    auto refused = CtlAsNobody({"--timeout", "1", "get", "persons"});
    EXPECT_EQ(refused->ExitCode(), 5) << refused->Errors();
    ASSERT_TRUE(Service().WaitForError("refused a connection from uid 65534", kBound));
    auto const log = Service().Errors();
    auto const first = log.find("refused a connection from uid 65534");
    EXPECT_EQ(log.find("refused a connection from uid 65534", first + 1), std::string::npos)
        << "one line per user and minute:\n"
        << log;
    auto admin = CtlAsNobody({"--timeout", "1", "admin", "acks"});
    EXPECT_EQ(admin->ExitCode(), 5) << admin->Errors();
    StopService();

    StartService(false, {"--allow-user", "nobody", "--admin-allow-user", kNobody});
    auto allowed = CtlAsNobody({"get", "persons"});
    EXPECT_EQ(allowed->ExitCode(), 0) << allowed->Errors();
    auto acks = CtlAsNobody({"admin", "acks"});
    EXPECT_EQ(acks->ExitCode(), 0) << acks->Errors();
}

}  // namespace
}  // namespace Vellmark::EndToEnd
