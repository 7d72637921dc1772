// A connection that floods vellmarkd with requests, or a push of one resource to many
// connections, does not keep another connection's request from being answered.
#include <atomic>
#include <thread>

#include "VellmarkMessageId.pb.h"
#include "tests/e2e/RawConnection.h"
#include "tests/e2e/ServiceFixture.h"

namespace Vellmark::EndToEnd {
namespace {

constexpr unsigned int kGetSources = VellmarkPB::VELLMARK_MESSAGE_GET_SOURCES;

class Fairness : public ServiceTest {
protected:
    std::string SocketPath() const { return Folder() + "/Vellmark.sock"; }

    // The bystander: the library's client asks for the sources once.
    void ExpectTheBystanderAnswered() {
        auto sources = std::make_shared<Inbox<VellmarkPB::sources>>();
        Client().GetSources([sources](VellmarkPB::sources const& s) { sources->Put(s); });
        ASSERT_TRUE(sources->WaitFor(1, kBound)) << "the bystander was not answered";
        EXPECT_TRUE(Same(sources->At(0), SeedDocument().sources()));
    }
};

TEST_F(Fairness, ABystanderIsAnsweredWhileAnotherConnectionFloodsTheServiceWithRequests) {
    StartService();
    RawConnection flood(SocketPath());
    ASSERT_TRUE(flood.Connected());
    std::atomic<bool> stop{false};
    std::atomic<std::uint64_t> sent{0};
    std::atomic<std::uint64_t> answered{0};
    // Keeps 512 requests unanswered at all times, as fast as the service answers: enough
    // for the service always to have the flood's frames to handle, few enough that their
    // answers never fill the connection's outgoing bound.
    constexpr std::uint64_t kBurst = 256;
    std::thread writer([&] {
        std::string burst;
        for (std::uint64_t number = 1; number <= kBurst; ++number) {
            burst += RawConnection::Request(kGetSources, number, "");
        }
        while (!stop) {
            if (sent - answered >= 2 * kBurst) {
                std::this_thread::sleep_for(100us);
                continue;
            }
            if (!flood.Write(burst)) return;
            sent += kBurst;
        }
    });
    std::thread reader([&] {
        Tarv::FrameDecoder decoder(IPCFrameLimit::kHardMaxFrameBytes);
        Tarv::IPCFrame frame;
        std::string bytes;
        while (!stop) {
            bytes.clear();
            if (flood.ReadSome(100ms, bytes) < 0) return;
            decoder.Feed(bytes.data(), bytes.size());
            while (decoder.Next(frame) == Tarv::FrameDecoder::Status::Frame) ++answered;
        }
    });
    auto const deadline = std::chrono::steady_clock::now() + kBound;
    while (answered < 4 * kBurst && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(1ms);
    }
    ASSERT_GE(answered, 4 * kBurst) << "the flood is not under way";
    ExpectTheBystanderAnswered();
    EXPECT_EQ(Service().Errors().find("closed a connection"), std::string::npos)
        << "the flood went on meanwhile, within the limits";
    stop = true;
    writer.join();
    reader.join();
}

TEST_F(Fairness, ABystanderIsAnsweredWhileAnUpdateIsPushedToManyConnections) {
    StartService();
    // Connections that take the updates and never acknowledge them: the push sends each
    // its window, then waits.
    std::vector<std::unique_ptr<RawConnection>> subscribers;
    for (int i = 0; i < 40; ++i) {
        subscribers.push_back(std::make_unique<RawConnection>(SocketPath()));
        ASSERT_TRUE(subscribers.back()->Connected());
    }
    ASSERT_TRUE(Service().WaitForError("client connected: session", kBound, 40));
    ChildProcess push(VELLMARKCTL_PATH, {"--runtime-dir", Folder(), "admin", "push", "sources",
                                         "--count", "100000", "--window", "256"});
    ASSERT_TRUE(Service().WaitForError("pushing sources to", kBound)) << Service().Errors();
    ExpectTheBystanderAnswered();
}

}  // namespace
}  // namespace Vellmark::EndToEnd
