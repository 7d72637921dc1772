// Which refusals of connecting peers a server writes to its log.
#include "platform/ipc/transport/RefusalLog.h"

#include <gtest/gtest.h>

namespace {

using Tarv::RefusalLog;
using namespace std::chrono_literals;

TEST(RefusalLogTest, TheFirstRefusalOfAUserIsWrittenAndTheRestOfTheMinuteCounted) {
    RefusalLog log;
    RefusalLog::Clock::time_point const start{};
    auto const first = log.Refused(1000, 42, start);
    ASSERT_TRUE(first.has_value());
    EXPECT_EQ(*first, "refused a connection from uid 1000 (pid 42): not an allowed user");
    for (int i = 1; i < 600; ++i) {
        EXPECT_FALSE(log.Refused(1000, 42, start + i * 100ms).has_value()) << i;
    }
    // A minute after the last line: one line with the count.
    auto const next = log.Refused(1000, 43, start + 60s);
    ASSERT_TRUE(next.has_value());
    EXPECT_EQ(*next,
              "refused a connection from uid 1000 (pid 43): not an allowed user; 599 more "
              "refused from this user since the last line");
    EXPECT_FALSE(log.Refused(1000, 43, start + 61s).has_value());
}

TEST(RefusalLogTest, EachUserHasAMinuteOfItsOwn) {
    RefusalLog log;
    RefusalLog::Clock::time_point const start{};
    EXPECT_TRUE(log.Refused(1000, 1, start).has_value());
    EXPECT_TRUE(log.Refused(1001, 2, start + 1s).has_value());
    EXPECT_FALSE(log.Refused(1000, 1, start + 2s).has_value());
    EXPECT_FALSE(log.Refused(1001, 2, start + 2s).has_value());
}

TEST(RefusalLogTest, ACountWaitsForItsUsersNextRefusalWhileQuietUsersAreForgotten) {
    RefusalLog log;
    RefusalLog::Clock::time_point const start{};
    ASSERT_TRUE(log.Refused(1000, 1, start).has_value());
    ASSERT_FALSE(log.Refused(1000, 1, start + 1s).has_value());  // counted
    ASSERT_TRUE(log.Refused(1001, 2, start).has_value());        // nothing counted
    // Much later another user is refused: 1001 is forgotten, 1000's count is kept.
    ASSERT_TRUE(log.Refused(1002, 3, start + 10min).has_value());
    auto const line = log.Refused(1000, 1, start + 11min);
    ASSERT_TRUE(line.has_value());
    EXPECT_NE(line->find("; 1 more refused"), std::string::npos) << *line;
    auto const again = log.Refused(1001, 2, start + 11min);
    ASSERT_TRUE(again.has_value());
    EXPECT_EQ(again->find("more refused"), std::string::npos) << *again;
}

TEST(RefusalLogTest, EachReasonHasAMinuteOfItsOwnAndItsLineNamesIt) {
    RefusalLog log;
    RefusalLog::Clock::time_point const start{};
    std::string const perUser = "over the limit of 3 connections per user (--per-user)";
    auto const first = log.Refused(1000, 42, perUser, start);
    ASSERT_TRUE(first.has_value());
    EXPECT_EQ(*first,
              "refused a connection from uid 1000 (pid 42): over the limit of 3 connections per "
              "user (--per-user)");
    EXPECT_FALSE(log.Refused(1000, 42, perUser, start + 1s).has_value());
    // Another reason of the same user is written at once.
    auto const closed = log.Closed(1000, 43, "over the limit of 2 requests", start + 2s);
    ASSERT_TRUE(closed.has_value());
    EXPECT_EQ(*closed, "closed a connection of uid 1000 (pid 43): over the limit of 2 requests");
    EXPECT_FALSE(log.Closed(1000, 43, "over the limit of 2 requests", start + 3s).has_value());
    EXPECT_TRUE(log.Refused(1000, 44, start + 3s).has_value()) << "not an allowed user";
    auto const later = log.Closed(1000, 43, "over the limit of 2 requests", start + 62s);
    ASSERT_TRUE(later.has_value());
    EXPECT_EQ(*later,
              "closed a connection of uid 1000 (pid 43): over the limit of 2 requests; 1 more "
              "closed from this user since the last line");
}

}  // namespace
