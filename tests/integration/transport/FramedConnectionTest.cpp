// Writes from several threads, and a peer that stops reading.
#include <sys/socket.h>

#include <thread>

#include "platform/ipc/IPCLog.h"
#include "platform/ipc/transport/FramedConnection.h"
#include "platform/testing/LogCapture.h"
#include "tests/integration/transport/TransportTestSupport.h"

using namespace Tarv::Testing;

namespace Tarv::TransportTest {
namespace {

struct Pair {
    Pair() {
        int fds[2];
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) == 0) {
            writer = Tarv::FramedConnection::Adopt(fds[0], "writer");
            peerFd = fds[1];
        }
    }
    ~Pair() {
        if (writer) writer->Close();
        if (reader) reader->Close();
        if (peerFd >= 0 && !reader) ::close(peerFd);
    }
    std::shared_ptr<Tarv::FramedConnection> writer;
    std::shared_ptr<Tarv::FramedConnection> reader;
    int peerFd = -1;
};

TEST(FramedConnection, FramesFromSeveralThreadsArriveWholeAndInEachThreadsOrder) {
    constexpr int kThreads = 4;
    // 4 x 250 frames of about 3 KB: well over a socket buffer, so that writes queue, and
    // under the 4 MiB queue bound even if the reader takes nothing until the end, so the
    // outcome does not depend on how fast the IO thread reads.
    constexpr int kEach = 250;
    static_assert(kThreads * kEach * 3100 < Tarv::ConnectionLimits::kMaxQueuedBytes);
    Pair pair;
    ASSERT_TRUE(pair.writer);
    pair.reader = Tarv::FramedConnection::Adopt(pair.peerFd, "reader");
    Inbox<std::string> received;
    ASSERT_TRUE(pair.reader->Start(
        [&](Tarv::IPCFrame& frame) { received.Put(frame.envelope().payload()); }));

    std::vector<std::thread> writers;
    for (int t = 0; t < kThreads; ++t) {
        writers.emplace_back([&, t] {
            std::string const padding(3000, static_cast<char>('a' + t));
            for (int i = 0; i < kEach; ++i) {
                pair.writer->Send(
                    OneWay(std::to_string(t) + ":" + std::to_string(i) + ":" + padding));
            }
        });
    }
    for (auto& writer : writers) writer.join();
    ASSERT_TRUE(received.WaitFor(kThreads * kEach));
    std::vector<int> next(kThreads, 0);
    for (std::string const& payload : received.Values()) {
        int const t = payload[0] - '0';
        auto const second = payload.find(':', 2);
        ASSERT_EQ(std::stoi(payload.substr(2, second - 2)), next[t]) << "thread " << t;
        ASSERT_EQ(payload.substr(second + 1), std::string(3000, static_cast<char>('a' + t)));
        ++next[t];
    }
}

TEST(FramedConnection, PeerThatStopsReadingIsDroppedInsteadOfBlockingTheSender) {
    LogCapture log(IPCLog());
    Pair pair;  // nobody reads peerFd
    ASSERT_TRUE(pair.writer);
    Inbox<int> closed;
    pair.writer->OnClosed([&] { closed.Put(1); });
    std::string const chunk(64 * 1024, 'z');
    auto result = Tarv::FramedConnection::SendResult::Sent;
    int sent = 0;
    // The socket buffer and the 4 MiB queue fill; no call may block.
    while (result == Tarv::FramedConnection::SendResult::Sent && sent < 1000) {
        result = pair.writer->Send(OneWay(chunk));
        ++sent;
    }
    EXPECT_EQ(result, Tarv::FramedConnection::SendResult::QueueFull);
    EXPECT_GT(sent, 4 * 1024 / 64) << "the queue takes 4 MiB before giving up";
    EXPECT_FALSE(pair.writer->IsOpen());
    EXPECT_EQ(pair.writer->Send(OneWay("after")), Tarv::FramedConnection::SendResult::Closed);
    ASSERT_TRUE(closed.WaitFor(1));
    EXPECT_EQ(log.CountText("the peer is not reading"), 1u);
}

TEST(FramedConnection, ClosedHandlersRunOnceAndLateOnesStillRun) {
    Pair pair;
    ASSERT_TRUE(pair.writer);
    Inbox<int> closed;
    pair.writer->OnClosed([&] { closed.Put(1); });
    auto ended = pair.writer->OnClosed([&] { closed.Put(2); });
    ended.Disconnect();
    pair.writer->Close();
    pair.writer->Close();
    ASSERT_TRUE(closed.WaitFor(1));
    pair.writer->OnClosed([&] { closed.Put(3); });
    ASSERT_TRUE(closed.WaitFor(2));
    EXPECT_EQ(closed.Values(), (std::vector<int>{1, 3}));
}

}  // namespace
}  // namespace Tarv::TransportTest
