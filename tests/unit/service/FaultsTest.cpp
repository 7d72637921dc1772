#include "service/Faults.h"

#include <gtest/gtest.h>

using namespace Vellmark::Service;

namespace {

using std::chrono::milliseconds;

VellmarkPB::Error AnError(int subcode) {
    VellmarkPB::Error error;
    error.set_code(6);
    error.set_subcode(subcode);
    error.set_message("planned");
    return error;
}

TEST(FaultsTest, NothingIsPlannedAtFirst) {
    Faults faults;
    EXPECT_FALSE(faults.Take(5).has_value());
    EXPECT_EQ(faults.DelayOf(5), milliseconds(0));
}

TEST(FaultsTest, FailNextFailsExactlyCountRequestsThenNothing) {
    Faults faults;
    faults.FailNext(7, 3, AnError(1007));
    for (int i = 0; i < 3; ++i) {
        auto const failure = faults.Take(7);
        ASSERT_TRUE(failure.has_value()) << "request " << i;
        ASSERT_TRUE(failure->error.has_value());
        EXPECT_EQ(failure->error->subcode(), 1007);
        EXPECT_EQ(failure->error->message(), "planned");
    }
    EXPECT_FALSE(faults.Take(7).has_value());
    EXPECT_FALSE(faults.Take(7).has_value());
}

TEST(FaultsTest, FailNextOnlyConcernsItsIdentifier) {
    Faults faults;
    faults.FailNext(7, 1, AnError(1));
    EXPECT_FALSE(faults.Take(8).has_value());
    EXPECT_TRUE(faults.Take(7).has_value());
}

TEST(FaultsTest, FailNextReplacesWhatWasPlannedForTheIdentifier) {
    Faults faults;
    faults.FailNext(7, 5, AnError(1));
    faults.FailNext(7, 1, AnError(2));
    auto const failure = faults.Take(7);
    ASSERT_TRUE(failure.has_value() && failure->error.has_value());
    EXPECT_EQ(failure->error->subcode(), 2);
    EXPECT_FALSE(faults.Take(7).has_value());
}

TEST(FaultsTest, ACountOfZeroClearsThePlan) {
    Faults faults;
    faults.FailNext(7, 4, AnError(1));
    faults.FailNext(9, 4, AnError(1));
    faults.FailNext(7, 0, AnError(1));
    EXPECT_FALSE(faults.Take(7).has_value());
    EXPECT_TRUE(faults.Take(9).has_value());
}

TEST(FaultsTest, AFailureWithoutErrorMeansNoAnswer) {
    Faults faults;
    faults.FailNext(7, 1, std::nullopt);
    auto const failure = faults.Take(7);
    ASSERT_TRUE(failure.has_value());
    EXPECT_FALSE(failure->error.has_value());
    EXPECT_FALSE(faults.Take(7).has_value());
}

TEST(FaultsTest, ADelayForAllIdentifiersAppliesToEveryIdentifier) {
    Faults faults;
    faults.SetDelay(milliseconds(250), 0);
    EXPECT_EQ(faults.DelayOf(1), milliseconds(250));
    EXPECT_EQ(faults.DelayOf(42), milliseconds(250));
}

TEST(FaultsTest, ADelayForOneIdentifierOverridesTheDelayForAll) {
    Faults faults;
    faults.SetDelay(milliseconds(250), 0);
    faults.SetDelay(milliseconds(900), 42);
    EXPECT_EQ(faults.DelayOf(42), milliseconds(900));
    EXPECT_EQ(faults.DelayOf(41), milliseconds(250));
}

TEST(FaultsTest, ADelayForOneIdentifierLeavesTheOthersUndelayed) {
    Faults faults;
    faults.SetDelay(milliseconds(900), 42);
    EXPECT_EQ(faults.DelayOf(42), milliseconds(900));
    EXPECT_EQ(faults.DelayOf(41), milliseconds(0));
}

TEST(FaultsTest, AZeroDelayClearsEveryDelay) {
    Faults faults;
    faults.SetDelay(milliseconds(250), 0);
    faults.SetDelay(milliseconds(900), 42);
    faults.SetDelay(milliseconds(0), 42);
    EXPECT_EQ(faults.DelayOf(42), milliseconds(0));
    EXPECT_EQ(faults.DelayOf(1), milliseconds(0));
}

}  // namespace
