// LifetimeGuard: bodies run only while open, and closing waits for a running body.
#include <gtest/gtest.h>

#include <mutex>
#include <thread>
#include <vector>

#include "platform/task/LifetimeGuard.h"
#include "platform/testing/Latch.h"

using namespace Tarv::Testing;

using namespace Tarv;

namespace {

TEST(LifetimeGuard, RunsBodiesWhileOpen) {
    auto guard = LifetimeGuard::Create();
    int runs = 0;
    EXPECT_TRUE(guard->Run([&] { ++runs; }));
    EXPECT_TRUE(guard->Run([&] { ++runs; }));
    EXPECT_EQ(runs, 2);
    EXPECT_FALSE(guard->IsClosed());
}

TEST(LifetimeGuard, RunsNothingOnceClosed) {
    auto guard = LifetimeGuard::Create();
    guard->Close();
    int runs = 0;
    EXPECT_FALSE(guard->Run([&] { ++runs; }));
    EXPECT_EQ(runs, 0);
    EXPECT_TRUE(guard->IsClosed());
    guard->Close();  // harmless again
}

TEST(LifetimeGuard, CloseWaitsForABodyRunningOnAnotherThread) {
    auto guard = LifetimeGuard::Create();
    Latch entered, release;
    std::mutex mutex;
    std::vector<std::string> events;
    auto note = [&](std::string e) {
        std::lock_guard<std::mutex> lock(mutex);
        events.push_back(std::move(e));
    };
    std::thread body([&] {
        guard->Run([&] {
            entered.CountDown();
            release.Wait();
            note("body ends");
        });
    });
    ASSERT_TRUE(entered.Wait());
    std::thread closer([&] {
        guard->Close();
        note("closed");
    });
    release.CountDown();
    body.join();
    closer.join();
    EXPECT_EQ(events, (std::vector<std::string>{"body ends", "closed"}));
}

}  // namespace
