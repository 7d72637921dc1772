#include "platform/task/BreakThread.h"

#include <gtest/gtest.h>

#include "platform/testing/ManualTask.h"

using namespace Tarv::Testing;

namespace {

TEST(BreakThread, RunsTheFunctionOnceLaterOnTheTask) {
    ManualTask task;
    int calls = 0;
    std::function<void()> fn = [&] { ++calls; };
    IL::BreakThread(fn, &task);  // the const& overload
    EXPECT_EQ(calls, 0) << "posting must not run the function";
    EXPECT_EQ(task.RunUntilIdle(), 1u);
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(task.RunUntilIdle(), 0u);
}

TEST(BreakThread, MovedFunctionKeepsItsCaptures) {
    ManualTask task;
    auto value = std::make_shared<int>(41);
    int seen = 0;
    IL::BreakThread([value, &seen] { seen = *value + 1; }, &task);  // the && overload
    value.reset();
    task.RunUntilIdle();
    EXPECT_EQ(seen, 42);
}

TEST(BreakThread, NullTaskDropsTheFunction) {
    auto owned = std::make_shared<int>(1);
    IL::BreakThread([owned] { FAIL(); }, nullptr);
    EXPECT_EQ(owned.use_count(), 1);
}

TEST(BreakThread, EmptyFunctionRunsAsNothing) {
    ManualTask task;
    IL::BreakThread(std::function<void()>(), &task);
    EXPECT_EQ(task.RunUntilIdle(), 1u);
}

}  // namespace
