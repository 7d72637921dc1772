// Who may use vellmarkd: its own user and root, and the users and groups its options name.
#include <sys/stat.h>
#include <unistd.h>

#include "tests/e2e/ProgramsForAnotherUser.h"
#include "tests/e2e/ServiceFixture.h"

namespace Vellmark::EndToEnd {
namespace {

class ServiceAccess : public ServiceTest {};

// Runs vellmarkctl as another user (see ProgramsForAnotherUser.h).
class ServiceAccessAsAnotherUser : public ServiceTest {
protected:
    // vellmarkctl as user 65534, a member of group 0 so that it may open the socket file.
    std::unique_ptr<ChildProcess> CtlAsNobody(std::vector<std::string> const& arguments) {
        AnotherUser nobody;
        nobody.groups = {0};
        std::vector<std::string> words{"--runtime-dir", Folder()};
        words.insert(words.end(), arguments.begin(), arguments.end());
        auto ctl = ProgramsForAnotherUser::Get().Start("vellmarkctl", words, nobody);
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

TEST_F(ServiceAccessAsAnotherUser, AnotherUserIsRefusedUnlessAllowedAndTheRefusalIsLoggedOnce) {
    if (!ProgramsForAnotherUser::Possible()) {
        GTEST_SKIP() << "cannot run a program as another user here";
    }
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

    StartService(false, {"--allow-user", "nobody", "--admin-allow-user", "65534"});
    auto allowed = CtlAsNobody({"get", "persons"});
    EXPECT_EQ(allowed->ExitCode(), 0) << allowed->Errors();
    auto acks = CtlAsNobody({"admin", "acks"});
    EXPECT_EQ(acks->ExitCode(), 0) << acks->Errors();
}

}  // namespace
}  // namespace Vellmark::EndToEnd
