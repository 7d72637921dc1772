// A connection that writes requests as fast as it can gets its frames handled a bounded
// number per turn of the server's loop: what else the loop has to do runs in between.
#include <atomic>

#include "platform/ipc/transport/FrameCodec.h"
#include "platform/ipc/transport/FramedConnection.h"
#include "platform/task/Task.h"
#include "tests/integration/transport/TransportTestSupport.h"

namespace Tarv::TransportTest {
namespace {

TEST(Fairness, WorkPostedWhileAFloodIsHandledRunsAfterAtMostOneTurnOfItsFrames) {
    RuntimeFolder folder;
    IL::Task task("server");
    std::atomic<int> handled{0};
    Inbox<int> handledWhenPostedWorkRan;
    IPCServer::Handlers handlers;
    handlers.onRequest = [&](IPCRequest const&) {
        if (handled.fetch_add(1) == 0) {
            task.Loop()->Post([&] { handledWhenPostedWorkRan.Put(handled.load()); });
        }
    };
    IPCServer::Options options;
    options.loop = task.Loop();
    IPCServer server(kService, handlers, options);

    // A thousand requests in one write: the server reads them in one go.
    std::string burst;
    for (std::uint64_t number = 1; number <= 1000; ++number) {
        AppendFrame(MakeFrame(IPCFrame::REQUEST, 1, Bytes("flood").Base(), number), burst);
    }
    RawClient flood;
    ASSERT_TRUE(flood.Write(burst));
    ASSERT_TRUE(handledWhenPostedWorkRan.WaitFor(1));
    EXPECT_LE(handledWhenPostedWorkRan.At(0), FramedConnection::kFramesPerTurn);
    server.Stop();
    task.Stop();
}

}  // namespace
}  // namespace Tarv::TransportTest
