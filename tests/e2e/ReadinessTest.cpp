// vellmarkd tells the service manager (NOTIFY_SOCKET) when both endpoints listen and the
// store is open, what it serves, and when it stops.
#include "tests/e2e/SystemdSupport.h"

namespace Vellmark::EndToEnd {
namespace {

class Readiness : public ServiceTest {};

TEST_F(Readiness, ReadyComesOnceBothEndpointsListenWithWhatIsServed) {
    NotifySocket manager(Folder() + "/notify.sock");
    ChildLaunch launch;
    launch.environment = {"NOTIFY_SOCKET=" + manager.Path()};
    ChildProcess service(VELLMARKD_PATH,
                         {"--db", StorePath(), "--runtime-dir", Folder(), "--log-level", "1",
                          "--seed", VELLMARK_SEED_PATH},
                         launch);

    auto const ready = manager.WaitForLine("READY=1", 3 * kBound);
    ASSERT_TRUE(ready.has_value()) << service.Errors();
    std::string const servicePath = Folder() + "/Vellmark.sock";
    std::string const adminPath = Folder() + "/VellmarkAdmin.sock";
    EXPECT_TRUE(Connects(servicePath));
    EXPECT_TRUE(Connects(adminPath));
    EXPECT_EQ(NotifySocket::Value(*ready, "STATUS"), "serving Vellmark at " + servicePath +
                                                         " and VellmarkAdmin at " + adminPath +
                                                         ", store " + StorePath());

    service.Signal(SIGTERM);
    auto const stopping = manager.WaitForLine("STOPPING=1", kBound);
    ASSERT_TRUE(stopping.has_value()) << service.Errors();
    EXPECT_EQ(NotifySocket::Value(*stopping, "STATUS"), "stopping on SIGTERM");
    EXPECT_EQ(service.ExitCode(), 0) << service.Errors();
}

}  // namespace
}  // namespace Vellmark::EndToEnd
