// vellmarkd out of descriptors: it stops accepting instead of spinning, says so once a
// minute, keeps its admin endpoint answering, and serves again once descriptors free.
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cstring>
#include <thread>

#include "tests/e2e/ProcessStats.h"
#include "tests/e2e/ServiceFixture.h"

namespace Vellmark::EndToEnd {
namespace {

constexpr char kPaused[] = "server Vellmark: cannot accept a connection: Too many open files";

class DescriptorExhaustion : public ServiceTest {
protected:
    // Connects a plain socket to the service's endpoint; the listen backlog takes it even
    // when the service cannot accept it. -1 when it could not connect.
    int Connect() const {
        int const fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::string const path = Folder() + "/Vellmark.sock";
        std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
        if (::connect(fd, reinterpret_cast<sockaddr const*>(&address), sizeof address) != 0) {
            ::close(fd);
            return -1;
        }
        return fd;
    }
};

TEST_F(DescriptorExhaustion, TheServiceStaysIdleSaysSoOnceKeepsItsAdminAndServesOnceTheyClose) {
    StartService();
    pid_t const pid = Service().Pid();
    // The service may open 8 descriptors more than it holds now: fewer than the
    // connections held below.
    rlimit limit{};
    ASSERT_EQ(::prlimit(pid, RLIMIT_NOFILE, nullptr, &limit), 0);
    limit.rlim_cur = OpenDescriptors(pid) + 8;
    ASSERT_EQ(::prlimit(pid, RLIMIT_NOFILE, &limit, nullptr), 0);
    std::vector<int> held;
    for (int i = 0; i < 24; ++i) {
        int const fd = Connect();
        ASSERT_GE(fd, 0) << std::strerror(errno);
        held.push_back(fd);
    }
    ASSERT_TRUE(Service().WaitForError(kPaused, kBound)) << Service().Errors();

    // Idle while the connections wait: little CPU time over 2 s, and its threads found
    // sleeping nearly every time they are looked at (a spinning one is runnable, however
    // little CPU a busy machine gives it).
    double const cpuBefore = CpuSeconds(pid);
    int runnable = 0;
    constexpr int kLooks = 100;
    for (int look = 0; look < kLooks; ++look) {
        runnable += AnyThreadRunnable(pid) ? 1 : 0;
        std::this_thread::sleep_for(20ms);
    }
    double const cpu = CpuSeconds(pid) - cpuBefore;
    EXPECT_LT(cpu, 0.25) << "CPU seconds in 2 s while out of descriptors";
    EXPECT_LT(runnable, kLooks / 4) << "looks that found a thread running or runnable";

    // The admin endpoint answers, with the connections the service holds.
    auto clients = Ctl({"admin", "clients"});
    ASSERT_EQ(clients->ExitCode(), 0) << clients->Errors();
    Vellmark::Admin::ClientList list;
    ASSERT_EQ(Vellmark::Json::Parse(clients->Output(), list), "") << clients->Output();
    EXPECT_GT(list.clients_size(), 0);

    // Once the held connections close, a new client is served.
    for (int fd : held) ::close(fd);
    WaitUntilConnected();
    auto const log = Service().Errors();
    auto const first = log.find(kPaused);
    EXPECT_EQ(log.find(kPaused, first + 1), std::string::npos) << "one line a minute:\n" << log;
}

}  // namespace
}  // namespace Vellmark::EndToEnd
