#include "platform/task/EventLoop.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "platform/testing/Latch.h"

using namespace Tarv::Testing;

namespace {

// A loop served by a thread of its own until Finish(), which quits and ends it there.
class LoopThread {
public:
    LoopThread() : loop(Tarv::EventLoop::Create()) {
        thread = std::thread([this] {
            loop->Run();
            loop->End();
        });
    }
    ~LoopThread() { Finish(); }
    void Finish() {
        loop->Quit();
        if (thread.joinable()) thread.join();
    }

    std::shared_ptr<Tarv::EventLoop> loop;
    std::thread thread;
};

TEST(EventLoop, RunsPostedWorkInOrderOnItsThread) {
    LoopThread serving;
    std::vector<int> order;
    std::vector<std::thread::id> threads;
    Latch done(50);
    for (int i = 0; i < 50; ++i) {
        ASSERT_TRUE(serving.loop->Post([&, i] {
            order.push_back(i);
            threads.push_back(std::this_thread::get_id());
            done.CountDown();
        }));
    }
    ASSERT_TRUE(done.Wait());
    for (int i = 0; i < 50; ++i) EXPECT_EQ(order[i], i);
    for (auto id : threads) EXPECT_EQ(id, serving.thread.get_id());
    EXPECT_FALSE(serving.loop->RunsOnCurrentThread());
}

TEST(EventLoop, EndingCallsEachEndingFunctionOnceOnTheLoopThreadThenRefusesWork) {
    LoopThread serving;
    std::vector<std::thread::id> ended;
    auto kept = serving.loop->OnEnd([&] { ended.push_back(std::this_thread::get_id()); });
    auto dropped = serving.loop->OnEnd([&] { ended.push_back(std::thread::id()); });
    dropped.Disconnect();
    auto const loopThread = serving.thread.get_id();
    serving.Finish();
    ASSERT_EQ(ended.size(), 1u);
    EXPECT_EQ(ended[0], loopThread);
    EXPECT_TRUE(serving.loop->Ended());

    // Refused work is dropped on the caller's thread, not kept alive by the loop.
    auto owned = std::make_shared<int>(1);
    EXPECT_FALSE(serving.loop->Post([owned] {}));
    EXPECT_EQ(owned.use_count(), 1);
    // Late ending functions run at once, here.
    bool late = false;
    serving.loop->OnEnd([&] { late = true; });
    EXPECT_TRUE(late);
}

TEST(EventLoop, WorkPostedBeforeTheEndStillRunsAndLetsGoOfWhatItHolds) {
    auto loop = Tarv::EventLoop::Create();
    std::atomic<int> ran{0};
    auto owned = std::make_shared<int>(1);
    // Posted before the loop ever ran: Run is never reached, End runs it out.
    ASSERT_TRUE(loop->Post([&ran, owned] { ++ran; }));
    std::thread ending([&] {
        loop->Quit();
        loop->Run();
        loop->End();
    });
    ending.join();
    EXPECT_EQ(ran.load(), 1);
    EXPECT_EQ(owned.use_count(), 1);
}

TEST(EventLoop, AnEndingFunctionMayRegisterAnotherWhichAlsoRuns) {
    LoopThread serving;
    int calls = 0;
    serving.loop->OnEnd([&] {
        ++calls;
        serving.loop->OnEnd([&] { ++calls; });
    });
    serving.Finish();
    EXPECT_EQ(calls, 2);
}

TEST(EventLoop, AHandlerThatThrowsDoesNotStopTheLoop) {
    LoopThread serving;
    Latch after;
    serving.loop->Post([] { throw std::runtime_error("thrown by a handler"); });
    serving.loop->Post([&] { after.CountDown(); });
    EXPECT_TRUE(after.Wait());
}

TEST(EventLoop, WorkHandedOnInATurnRunsAtItsEndWithinTheTurnsShare) {
    LoopThread serving;
    std::vector<int> order;
    std::vector<bool> accepted;
    Latch done;
    auto record = [](void* list) { static_cast<std::vector<int>*>(list)->push_back(2); };
    serving.loop->Post([&] {
        accepted.push_back(serving.loop->ContinueInTurn(record, &order));  // no turn open
        {
            Tarv::EventLoop::Turn turn(*serving.loop);
            for (int i = 0; i < Tarv::EventLoop::kContinuationsPerTurn + 1; ++i) {
                accepted.push_back(serving.loop->ContinueInTurn(record, &order));
            }
            order.push_back(1);
        }
        order.push_back(3);
        done.CountDown();
    });
    ASSERT_TRUE(done.Wait());
    std::vector<bool> expectedAccepted(Tarv::EventLoop::kContinuationsPerTurn + 2, true);
    expectedAccepted.front() = false;
    expectedAccepted.back() = false;  // over the turn's share
    EXPECT_EQ(accepted, expectedAccepted);
    std::vector<int> expectedOrder(Tarv::EventLoop::kContinuationsPerTurn, 2);
    expectedOrder.insert(expectedOrder.begin(), 1);
    expectedOrder.push_back(3);
    EXPECT_EQ(order, expectedOrder);
}

}  // namespace
