// --wait: the wait for a socket that takes connections ends on the folder's events, when
// the socket listens, also when its folder did not exist yet or came while it was looked for.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <future>

#include "tools/FolderWatch.h"
#include "tools/ServiceWait.h"

namespace Vellmark::Ctl {
namespace {

using namespace std::chrono_literals;

constexpr auto kBound = std::chrono::milliseconds(20s);

// A server's socket made as the transport makes it: bound, then listening, then its mode
// set again.
class ServerSocket {
public:
    explicit ServerSocket(std::string const& path) : m_path(path) {
        m_fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
        EXPECT_EQ(::bind(m_fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    }
    ~ServerSocket() { ::close(m_fd); }
    void Listen() {
        EXPECT_EQ(::listen(m_fd, 8), 0);
        EXPECT_EQ(::chmod(m_path.c_str(), 0660), 0);
    }

private:
    std::string m_path;
    int m_fd = -1;
};

class ServiceWait : public ::testing::Test {
protected:
    ServiceWait() {
        char pattern[] = "/tmp/vellmark-wait-XXXXXX";
        m_folder = ::mkdtemp(pattern);
    }
    ~ServiceWait() override { std::filesystem::remove_all(m_folder); }
    std::string m_folder;
};

TEST_F(ServiceWait, EndsOnceTheSocketListensNotWhenItIsMade) {
    std::string const path = m_folder + "/Vellmark.sock";
    auto waited = std::async(std::launch::async, [&] { return WaitForSocket(path, 0ms); });
    ServerSocket server(path);
    // Bound, not listening: a connection is refused, so the wait cannot have ended yet.
    EXPECT_FALSE(AcceptsConnections(path));
    server.Listen();
    ASSERT_EQ(waited.wait_for(kBound), std::future_status::ready);
    EXPECT_EQ(waited.get(), WaitResult::Accepting);
}

TEST_F(ServiceWait, WaitsForAFolderThatIsNotThereYet) {
    std::string const folder = m_folder + "/run/tarv";
    std::string const path = folder + "/Vellmark.sock";
    auto waited = std::async(std::launch::async, [&] { return WaitForSocket(path, 0ms); });
    std::filesystem::create_directories(folder);
    ServerSocket server(path);
    server.Listen();
    ASSERT_EQ(waited.wait_for(kBound), std::future_status::ready);
    EXPECT_EQ(waited.get(), WaitResult::Accepting);
}

// The folder on the way comes after it was found missing and before its parent is watched:
// the parent's watch never hears of what happens inside it, so the watch looks again at once.
TEST_F(ServiceWait, AFolderThatComesWhileItsParentIsBeingWatchedIsLookedAtAgain) {
    std::filesystem::create_directories(m_folder + "/run");
    std::string const folder = m_folder + "/run/tarv";
    int missing = 0;
    FolderWatch watch(std::filesystem::path(folder) / "Vellmark.sock",
                      [&](std::filesystem::path const& path) {
                          ++missing;
                          EXPECT_EQ(path, std::filesystem::path(folder));
                          std::filesystem::create_directory(folder);
                      });
    EXPECT_EQ(missing, 1);
    EXPECT_TRUE(watch.Wait(0));
    // Looked at again, nothing more has changed.
    FolderWatch again(std::filesystem::path(folder) / "Vellmark.sock");
    EXPECT_FALSE(again.Wait(0));
}

TEST_F(ServiceWait, EndsAtOnceForASocketThatListensAndAfterTheBoundForNone) {
    std::string const path = m_folder + "/Vellmark.sock";
    {
        ServerSocket server(path);
        server.Listen();
        EXPECT_EQ(WaitForSocket(path, 0ms), WaitResult::Accepting);
    }
    // The socket file stays, nobody listens.
    EXPECT_EQ(WaitForSocket(path, 50ms), WaitResult::TimedOut);
    EXPECT_EQ(WaitForSocket(m_folder + "/none/Vellmark.sock", 50ms), WaitResult::TimedOut);
}

}  // namespace
}  // namespace Vellmark::Ctl
