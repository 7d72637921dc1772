// A line a minute for whatever a peer can repeat at will; the rest counted.
#include "platform/log/LogWindow.h"

#include <gtest/gtest.h>

namespace {

using Tarv::LogWindow;
using namespace std::chrono_literals;

TEST(LogWindowTest, TheFirstLineIsWrittenAndTheRestOfItsMinuteCounted) {
    LogWindow window;
    LogWindow::Clock::time_point const start{};
    EXPECT_EQ(window.Admit(start), 0u);
    for (int i = 1; i < 600; ++i) EXPECT_FALSE(window.Admit(start + i * 100ms).has_value()) << i;
    EXPECT_EQ(window.Admit(start + 60s), 599u);
    EXPECT_FALSE(window.Admit(start + 61s).has_value());
    EXPECT_EQ(window.Admit(start + 10min), 1u);
    EXPECT_EQ(window.Admit(start + 20min), 0u);
}

TEST(LogWindowTest, AWindowIsIdleOnlyOnceItsMinuteHasPassedWithNothingHeldBack) {
    LogWindow window;
    LogWindow::Clock::time_point const start{};
    EXPECT_TRUE(window.Idle(start));
    ASSERT_TRUE(window.Admit(start).has_value());
    EXPECT_FALSE(window.Idle(start + 59s));
    EXPECT_TRUE(window.Idle(start + 60s));
    EXPECT_FALSE(window.Admit(start + 30s).has_value());
    // A count waits for the next line, however long that takes.
    EXPECT_FALSE(window.Idle(start + 1h));
}

TEST(LogWindowTest, TheCountIsSaidOnlyWhenSomethingWasHeldBack) {
    EXPECT_EQ(Tarv::HeldBackSuffix(0, "ignored"), "");
    EXPECT_EQ(Tarv::HeldBackSuffix(12, "ignored"), "; 12 more ignored since the last line");
}

}  // namespace
