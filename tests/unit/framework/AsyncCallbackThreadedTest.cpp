// AsyncCallback on a real task: firings from several threads at once.
#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <thread>
#include <utility>
#include <vector>

#include "framework/AsyncCallback.h"
#include "framework/ipc/ConnectorSocket.h"
#include "platform/task/Task.h"
#include "platform/testing/Latch.h"
#include "platform/testing/TaskBlocker.h"

using namespace Tarv::Testing;

namespace {

TEST(AsyncCallbackOnTask, ConcurrentFiringsArriveInPerThreadOrderOnTheTaskThread) {
    constexpr int kThreads = 4, kEach = 2000;
    IL::Task task("callbacks");
    std::map<int, std::vector<int>> received;  // touched on the task thread only
    std::atomic<int> offTask{0};
    Latch done(kThreads * kEach);
    AsyncCallback<std::pair<int, int>> callback(
        [&](std::pair<int, int> const& v) {
            if (!task.RunsOnCurrentThread()) ++offTask;
            received[v.first].push_back(v.second);
            done.CountDown();
        },
        &task);

    std::vector<std::thread> firers;
    for (int t = 0; t < kThreads; ++t) {
        firers.emplace_back([callback, t] {  // each thread fires its own copy
            for (int i = 0; i < kEach; ++i) callback({t, i});
        });
    }
    for (auto& f : firers) f.join();
    ASSERT_TRUE(done.Wait());
    task.Stop();

    EXPECT_EQ(offTask, 0);
    ASSERT_EQ(received.size(), static_cast<size_t>(kThreads));
    for (auto const& [thread, values] : received) {
        ASSERT_EQ(values.size(), static_cast<size_t>(kEach)) << "thread " << thread;
        for (int i = 0; i < kEach; ++i) ASSERT_EQ(values[i], i) << "thread " << thread;
    }
}

TEST(AsyncCallbackOnTask, NothingIsDeliveredAfterTheTaskStopped) {
    IL::Task task("stopping");
    std::atomic<int> delivered{0};
    AsyncCallback<int> callback([&](int const&) { ++delivered; }, &task);
    std::atomic<bool> stopped{false};
    std::atomic<int> deliveredAtStop{-1};
    Latch firing(2);
    std::vector<std::thread> firers;
    for (int t = 0; t < 2; ++t) {
        firers.emplace_back([&] {
            firing.CountDown();
            for (int i = 0; i < 20000 && !stopped; ++i) callback(i);
        });
    }
    ASSERT_TRUE(firing.Wait());
    task.Stop();  // returns once the task thread has ended
    deliveredAtStop = delivered.load();
    stopped = true;
    for (auto& f : firers) f.join();
    for (int i = 0; i < 10; ++i) callback(i);
    EXPECT_EQ(callback.impl->target.load(), nullptr);
    EXPECT_EQ(delivered.load(), deliveredAtStop.load());
}

TEST(AsyncCallbackOnTask, EntryKeepsASharedSocketAliveUntilDispatched) {
    struct Socket final : Network::ConnectorSocket {
        bool IsOpen() const override { return true; }
        void Close() override {}
    };
    IL::Task task("socket");
    Latch dispatched;
    TaskBlocker blocker(task);
    ASSERT_TRUE(blocker.Entered());

    std::weak_ptr<Network::ConnectorSocket> watch;
    std::atomic<bool> aliveInFunction{false};
    AsyncCallback<std::shared_ptr<Network::ConnectorSocket>> callback(
        [&](std::shared_ptr<Network::ConnectorSocket> const& s) {
            aliveInFunction = s != nullptr && !watch.expired();
            dispatched.CountDown();
        },
        &task);
    {
        auto socket = std::make_shared<Socket>();
        watch = socket;
        callback(socket);
    }
    EXPECT_FALSE(watch.expired()) << "the queued entry owns the socket";
    blocker.Release();
    ASSERT_TRUE(dispatched.Wait());
    task.Stop();  // the entry has been dropped once the thread has ended
    EXPECT_TRUE(aliveInFunction);
    EXPECT_TRUE(watch.expired());
}

}  // namespace
