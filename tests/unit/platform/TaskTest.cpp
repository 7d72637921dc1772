#include "platform/task/Task.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <vector>

#include "platform/task/BreakThread.h"
#include "platform/testing/Latch.h"
#include "platform/testing/LogCapture.h"
#include "platform/testing/TaskBlocker.h"

using namespace Tarv::Testing;

namespace {

// Posts a function and waits until the task has run it.
void RunOnTask(IL::Task& task, std::function<void()> fn) {
    Latch done;
    IL::BreakThread(
        [&] {
            fn();
            done.CountDown();
        },
        &task);
    ASSERT_TRUE(done.Wait());
}

TEST(Task, RunsEntriesInPostingOrderOnItsOwnThread) {
    IL::Task task("fifo");
    std::vector<int> order;
    std::vector<std::thread::id> threads;
    Latch done(100);
    for (int i = 0; i < 100; ++i) {
        IL::BreakThread(
            [&, i] {
                order.push_back(i);
                threads.push_back(std::this_thread::get_id());
                done.CountDown();
            },
            &task);
    }
    ASSERT_TRUE(done.Wait());
    task.Stop();
    ASSERT_EQ(order.size(), 100u);
    for (int i = 0; i < 100; ++i) EXPECT_EQ(order[i], i);
    for (auto id : threads) EXPECT_EQ(id, task.ThreadId());
    EXPECT_NE(task.ThreadId(), std::this_thread::get_id());
}

TEST(Task, ThreadCarriesTheTaskName) {
    IL::Task task("a-rather-long-task-name");
    char name[32] = {};
    RunOnTask(task, [&] { pthread_getname_np(pthread_self(), name, sizeof name); });
    EXPECT_STREQ(name, "a-rather-long-t");
    EXPECT_EQ(task.Name(), "a-rather-long-task-name");
}

TEST(Task, StopCallsEachStopNotificationOnceOnTheTaskThread) {
    IL::Task task("stop");
    std::atomic<int> first{0}, second{0};
    std::thread::id ranOn;
    auto c1 = task.RegisterStopNotification([&] {
        ++first;
        ranOn = std::this_thread::get_id();
    });
    auto c2 = task.RegisterStopNotification([&] { ++second; });
    auto taskThread = task.ThreadId();
    task.Stop();
    task.Stop();
    EXPECT_EQ(first, 1);
    EXPECT_EQ(second, 1);
    EXPECT_EQ(ranOn, taskThread);
}

TEST(Task, DisconnectedStopNotificationIsNotCalled) {
    IL::Task task("stop");
    int calls = 0;
    auto connection = task.RegisterStopNotification([&] { ++calls; });
    connection.Disconnect();
    task.Stop();
    EXPECT_EQ(calls, 0);
}

TEST(Task, StopNotificationRegisteredAfterStopRunsAtOnce) {
    IL::Task task("stop");
    task.Stop();
    std::thread::id ranOn;
    auto connection = task.RegisterStopNotification([&] { ranOn = std::this_thread::get_id(); });
    EXPECT_EQ(ranOn, std::this_thread::get_id());
    EXPECT_FALSE(connection.IsConnected());
}

TEST(Task, EntriesPostedAfterStopAreDroppedWithoutRunning) {
    IL::Task task("drop");
    task.Stop();
    auto owned = std::make_shared<int>(7);
    bool ran = false;
    IL::BreakThread([&ran, owned] { ran = true; }, &task);
    EXPECT_FALSE(ran);
    EXPECT_EQ(owned.use_count(), 1) << "a dropped entry must be released";
    EXPECT_TRUE(task.IsStopped());
}

TEST(Task, EntriesQueuedWhenStoppedAreDroppedWithoutRunning) {
    IL::Task task("drop");
    std::atomic<int> laterRuns{0};
    TaskBlocker blocker(task);
    ASSERT_TRUE(blocker.Entered());
    // The queued entries hold the running entry's release: Stop() drops them when it closes
    // the queue, which lets the running entry end and the thread be joined.
    std::shared_ptr<void> release(nullptr, [&blocker](void*) { blocker.Release(); });
    for (int i = 0; i < 5; ++i) IL::BreakThread([&laterRuns, release] { ++laterRuns; }, &task);
    release.reset();
    task.Stop();
    EXPECT_TRUE(task.IsStopped());
    EXPECT_EQ(laterRuns, 0);
}

TEST(Task, StopFromOwnEntryEndsTheTaskAfterThatEntry) {
    IL::Task task("self-stop");
    std::atomic<bool> notified{false}, later{false};
    auto connection = task.RegisterStopNotification([&] { notified = true; });
    Latch stopped;
    IL::BreakThread(
        [&] {
            task.Stop();
            stopped.CountDown();
        },
        &task);
    IL::BreakThread([&] { later = true; }, &task);
    ASSERT_TRUE(stopped.Wait());
    task.Stop();  // joins from outside
    EXPECT_TRUE(notified);
    EXPECT_FALSE(later);
}

TEST(Task, ThrowingEntryIsLoggedAndTheTaskGoesOn) {
    DPrint probe("probe");  // only to reach the shared sink; the task logs under "Task"
    std::vector<LogCapture::Line> lines;
    {
        LogCapture capture(probe);
        IL::Task task("throws");
        IL::BreakThread([] { throw std::runtime_error("boom"); }, &task);
        bool ranAfter = false;
        RunOnTask(task, [&] { ranAfter = true; });
        EXPECT_TRUE(ranAfter);
        task.Stop();
        lines = capture.Lines();
    }
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].logger, "Task");
    EXPECT_EQ(lines[0].level, DPrint::Error);
    EXPECT_EQ(lines[0].text, "task throws: entry threw: boom");
}

TEST(Task, DestructorStopsAndJoins) {
    std::atomic<int> notified{0};
    {
        IL::Task task("scoped");
        task.RegisterStopNotification([&] { ++notified; });
        RunOnTask(task, [] {});
    }
    EXPECT_EQ(notified, 1);
}

// The owner may destroy a task once an entry posted from another thread has run, although
// the posting call may not have returned yet on that thread. Repeated, so that the sanitizer
// builds see the post's last steps overlap the destruction.
TEST(Task, MayBeDestroyedOnceAnEntryPostedFromAnotherThreadHasRun) {
    for (int round = 0; round < 200; ++round) {
        auto task = std::make_unique<IL::Task>("brief");
        IL::Task* const target = task.get();
        Latch ran;
        std::thread poster(
            [&ran, target] { IL::BreakThread([&ran] { ran.CountDown(); }, target); });
        ASSERT_TRUE(ran.Wait());
        task.reset();
        poster.join();
    }
}

TEST(Task, PostingFromManyThreadsLosesNothing) {
    IL::Task task("many");
    constexpr int kThreads = 4, kEach = 1000;
    std::atomic<int> runs{0};
    Latch done(kThreads * kEach);
    std::vector<std::thread> posters;
    for (int t = 0; t < kThreads; ++t) {
        posters.emplace_back([&] {
            for (int i = 0; i < kEach; ++i) {
                IL::BreakThread(
                    [&] {
                        ++runs;
                        done.CountDown();
                    },
                    &task);
            }
        });
    }
    for (auto& p : posters) p.join();
    ASSERT_TRUE(done.Wait());
    EXPECT_EQ(runs, kThreads * kEach);
}

}  // namespace
