// How a connection writes: what a handler sends leaves at the end of its turn, in order and
// in one piece, even when the handler closes; and a queue that waited for room leaves the
// socket watched for reading alone once it drains.
#include <dirent.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

#include "platform/ipc/transport/FrameCodec.h"
#include "platform/ipc/transport/FramedConnection.h"
#include "tests/integration/transport/TransportTestSupport.h"

namespace Tarv::TransportTest {
namespace {

// A connection on the shared IO thread and the raw other end of its socket.
struct RawPeer {
    RawPeer() {
        int fds[2];
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) == 0) {
            connection = Tarv::FramedConnection::Adopt(fds[0], "tested");
            connectionFd = fds[0];
            peerFd = fds[1];
        }
    }
    ~RawPeer() {
        if (connection) connection->Close();
        if (peerFd >= 0) ::close(peerFd);
    }

    bool Write(Tarv::IPCFrame const& frame) const {
        std::string bytes;
        Tarv::AppendFrame(frame, bytes);
        return ::send(peerFd, bytes.data(), bytes.size(), MSG_NOSIGNAL) ==
               static_cast<ssize_t>(bytes.size());
    }

    // The payloads of the next `count` frames the peer receives, or fewer if the connection
    // ends or nothing comes for 30 s.
    std::vector<std::string> Read(std::size_t count) {
        std::vector<std::string> payloads;
        Tarv::IPCFrame frame;
        while (payloads.size() < count) {
            if (decoder.Next(frame) == Tarv::FrameDecoder::Status::Frame) {
                payloads.push_back(frame.envelope().payload());
                continue;
            }
            pollfd ready{peerFd, POLLIN, 0};
            if (::poll(&ready, 1, 30000) != 1) break;
            char* room = decoder.Prepare(64 * 1024);
            ssize_t const got = ::recv(peerFd, room, 64 * 1024, 0);
            if (got <= 0) break;
            decoder.Commit(static_cast<std::size_t>(got));
        }
        return payloads;
    }

    // Bytes the peer could read now.
    int Waiting() const {
        int bytes = -1;
        ::ioctl(peerFd, FIONREAD, &bytes);
        return bytes;
    }

    std::shared_ptr<Tarv::FramedConnection> connection;
    int connectionFd = -1;
    int peerFd = -1;
    Tarv::FrameDecoder decoder;
};

TEST(WritePath, FramesAHandlerSendsLeaveTogetherAtTheEndOfItsTurn) {
    RawPeer pair;
    ASSERT_TRUE(pair.connection);
    Inbox<int> seenByPeer;  // bytes the peer had after each send inside the handler
    ASSERT_TRUE(pair.connection->Start([&](Tarv::IPCFrame&) {
        for (char const* text : {"one", "two", "three"}) {
            pair.connection->Send(OneWay(text));
            seenByPeer.Put(pair.Waiting());
        }
    }));
    ASSERT_TRUE(pair.Write(OneWay("go")));
    ASSERT_TRUE(seenByPeer.WaitFor(3));
    EXPECT_EQ(pair.Read(3), (std::vector<std::string>{"one", "two", "three"}));
    EXPECT_EQ(seenByPeer.Values(), (std::vector<int>{0, 0, 0}))
        << "a frame left before the handler's turn ended";
}

TEST(WritePath, AHandlerHoldsBackAtMost64KiBAndSendsTheRestAtOnce) {
    RawPeer pair;
    ASSERT_TRUE(pair.connection);
    Inbox<int> seenByPeer;
    std::string const third(30 * 1024, 't');
    ASSERT_TRUE(pair.connection->Start([&](Tarv::IPCFrame&) {
        for (int i = 0; i < 3; ++i) {
            pair.connection->Send(OneWay(third));
            seenByPeer.Put(pair.Waiting());
        }
    }));
    ASSERT_TRUE(pair.Write(OneWay("go")));
    // Read once the handler has looked: reading earlier would take what it looks for.
    ASSERT_TRUE(seenByPeer.WaitFor(3));
    EXPECT_EQ(pair.Read(3), std::vector<std::string>(3, third));
    auto const seen = seenByPeer.Values();
    EXPECT_EQ(seen[0], 0);
    EXPECT_EQ(seen[1], 0);
    EXPECT_GT(seen[2], 90 * 1024) << "the three frames, over 64 KiB, left before the turn ended";
}

TEST(WritePath, AFrameSentJustBeforeAHandlerClosesStillLeaves) {
    RawPeer pair;
    ASSERT_TRUE(pair.connection);
    ASSERT_TRUE(pair.connection->Start([&](Tarv::IPCFrame&) {
        pair.connection->Send(OneWay("goodbye"));
        pair.connection->Close();
    }));
    ASSERT_TRUE(pair.Write(OneWay("go")));
    EXPECT_EQ(pair.Read(1), (std::vector<std::string>{"goodbye"}));
    char byte;
    pollfd ready{pair.peerFd, POLLIN, 0};
    ASSERT_EQ(::poll(&ready, 1, 30000), 1);
    EXPECT_EQ(::recv(pair.peerFd, &byte, 1, 0), 0) << "then the connection ends";
}

TEST(WritePath, FramesSentFromAnotherThreadLeaveAtOnce) {
    RawPeer pair;
    ASSERT_TRUE(pair.connection);
    ASSERT_EQ(pair.connection->Send(OneWay("now")), Tarv::FramedConnection::SendResult::Sent);
    EXPECT_GT(pair.Waiting(), 0);
    EXPECT_EQ(pair.Read(1), (std::vector<std::string>{"now"}));
}

// The events every epoll instance of this process watches `fd` for, as the kernel lists
// them; empty when none does.
std::vector<unsigned> WatchedEvents(int fd) {
    std::vector<unsigned> found;
    DIR* dir = ::opendir("/proc/self/fd");
    if (!dir) return found;
    while (dirent* entry = ::readdir(dir)) {
        std::string const name = entry->d_name;
        if (name == "." || name == "..") continue;
        char target[256] = {};
        std::string const link = "/proc/self/fd/" + name;
        if (::readlink(link.c_str(), target, sizeof target - 1) < 0 ||
            std::string(target) != "anon_inode:[eventpoll]") {
            continue;
        }
        std::ifstream info("/proc/self/fdinfo/" + name);
        std::string line;
        while (std::getline(info, line)) {
            std::istringstream words(line);
            std::string key;
            int watched = -1;
            std::string eventsKey;
            std::string events;
            if (words >> key >> watched >> eventsKey >> events && key == "tfd:" && watched == fd &&
                eventsKey == "events:") {
                found.push_back(static_cast<unsigned>(std::stoul(events, nullptr, 16)));
            }
        }
    }
    ::closedir(dir);
    return found;
}

TEST(WritePath, AQueueThatWaitedForRoomLeavesTheSocketWatchedForReadingAloneOnceDrained) {
    RawPeer pair;
    ASSERT_TRUE(pair.connection);
    ASSERT_TRUE(pair.connection->Start([](Tarv::IPCFrame&) {}));
    // Well over a socket buffer, so that most of it waits in the queue for the peer.
    constexpr int kFrames = 32;
    std::string const chunk(32 * 1024, 'q');
    for (int i = 0; i < kFrames; ++i) {
        ASSERT_EQ(pair.connection->Send(OneWay(chunk)), Tarv::FramedConnection::SendResult::Sent);
    }
    EXPECT_EQ(pair.Read(kFrames).size(), static_cast<std::size_t>(kFrames));
    // The loop wrote the last bytes in a handler that has ended once this posted work runs.
    Inbox<int> passed;
    ASSERT_TRUE(pair.connection->Post([&] { passed.Put(1); }));
    ASSERT_TRUE(passed.WaitFor(1));
    auto const events = WatchedEvents(pair.connectionFd);
    ASSERT_EQ(events.size(), 1u) << "the socket is watched by its loop";
    EXPECT_NE(events[0] & EPOLLIN, 0u);
    // Watched for room, the socket would wake the loop whenever the peer read from it.
    EXPECT_EQ(events[0] & EPOLLOUT, 0u) << std::hex << events[0];
}

}  // namespace
}  // namespace Tarv::TransportTest
