// Each signal that stops vellmarkd (SIGTERM, SIGINT, SIGHUP, SIGQUIT) stops it cleanly: exit
// 0, its socket files removed, its store closed with nothing left beside it.
#include <string.h>

#include "tests/e2e/SystemdSupport.h"

namespace Vellmark::EndToEnd {
namespace {

class StopSignals : public ServiceTest, public ::testing::WithParamInterface<int> {};

TEST_P(StopSignals, StopCleanly) {
    int const signal = GetParam();
    StartService();
    WaitUntilConnected();
    std::string const wal = StorePath() + "-wal";
    ASSERT_TRUE(Exists(wal)) << "the open store has its log beside it";

    Service().Signal(signal);
    EXPECT_EQ(Service().ExitCode(), 0) << Service().Errors();
    EXPECT_NE(Service().Errors().find(std::string("vellmarkd: SIG") + ::sigabbrev_np(signal) +
                                      ", stopping"),
              std::string::npos)
        << Service().Errors();
    EXPECT_NE(Service().Errors().find("vellmarkd: stopped"), std::string::npos);
    EXPECT_FALSE(Exists(Folder() + "/Vellmark.sock"));
    EXPECT_FALSE(Exists(Folder() + "/VellmarkAdmin.sock"));
    EXPECT_FALSE(Exists(wal));
    EXPECT_FALSE(Exists(StorePath() + "-shm"));
    EXPECT_TRUE(Exists(StorePath()));
}

INSTANTIATE_TEST_SUITE_P(EachSignal, StopSignals,
                         ::testing::Values(SIGTERM, SIGINT, SIGHUP, SIGQUIT),
                         [](auto const& info) { return std::string(::sigabbrev_np(info.param)); });

}  // namespace
}  // namespace Vellmark::EndToEnd
