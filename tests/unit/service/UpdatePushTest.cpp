// UpdatePush: the window per connection, the end of a push, connections that go.
#include <gtest/gtest.h>

#include <map>
#include <optional>

#include "service/UpdatePush.h"

namespace Vellmark::ServiceTest {
namespace {

using Service::UpdatePush;
constexpr unsigned int kUpdateId = 8;

std::shared_ptr<IPCServerSession> Session(std::uint64_t id) {
    return std::make_shared<IPCServerSession>(id, nullptr);
}

// A push whose sends are counted per connection; `closed` connections refuse them.
struct PushUnderTest {
    PushUnderTest(std::uint32_t count, std::uint32_t window) {
        Vellmark::Admin::PushReport identity;
        identity.set_resource("sources");
        identity.set_messageid(kUpdateId);
        push = std::make_unique<UpdatePush>(
            identity, count, window,
            [this](std::shared_ptr<IPCServerSession> const& session) {
                if (closed.count(session->Id())) return false;
                ++sent[session->Id()];
                return true;
            },
            [this](Vellmark::Admin::PushReport const& report, bool abandoned) {
                ++doneCalls;
                this->report = report;
                this->abandoned = abandoned;
            });
    }

    std::unique_ptr<UpdatePush> push;
    std::map<std::uint64_t, int> sent;
    std::map<std::uint64_t, bool> closed;
    int doneCalls = 0;
    std::optional<Vellmark::Admin::PushReport> report;
    bool abandoned = false;
};

TEST(UpdatePush, SendsAWindowThenOneUpdatePerAcknowledgementUntilTheCount) {
    PushUnderTest test(5, 2);
    test.push->Start({Session(1)});
    EXPECT_EQ(test.sent[1], 2);
    test.push->Acknowledged(kUpdateId, 1);
    EXPECT_EQ(test.sent[1], 3);
    for (int i = 0; i < 3; ++i) test.push->Acknowledged(kUpdateId, 1);
    EXPECT_EQ(test.sent[1], 5);
    EXPECT_FALSE(test.push->Finished());
    test.push->Acknowledged(kUpdateId, 1);
    ASSERT_TRUE(test.push->Finished());
    EXPECT_EQ(test.doneCalls, 1);
    EXPECT_FALSE(test.abandoned);
    EXPECT_EQ(test.report->clients(), 1u);
    EXPECT_EQ(test.report->pushed(), 5u);
    EXPECT_EQ(test.report->acknowledged(), 5u);
    EXPECT_EQ(test.report->messageid(), kUpdateId);
}

TEST(UpdatePush, IgnoresAcknowledgementsOfOtherUpdatesAndOfUnknownConnections) {
    PushUnderTest test(2, 1);
    test.push->Start({Session(1)});
    test.push->Acknowledged(kUpdateId + 1, 1);
    test.push->Acknowledged(kUpdateId, 7);
    EXPECT_EQ(test.sent[1], 1);
    test.push->Acknowledged(kUpdateId, 1);
    test.push->Acknowledged(kUpdateId, 1);
    test.push->Acknowledged(kUpdateId, 1);  // one more than was sent
    EXPECT_EQ(test.report->acknowledged(), 2u);
    EXPECT_EQ(test.doneCalls, 1);
}

TEST(UpdatePush, WithoutConnectionsIsDoneAtOnce) {
    PushUnderTest test(10, 4);
    test.push->Start({});
    EXPECT_TRUE(test.push->Finished());
    EXPECT_EQ(test.report->clients(), 0u);
    EXPECT_EQ(test.report->pushed(), 0u);
}

TEST(UpdatePush, EndsWhenTheLastUnfinishedConnectionGoes) {
    PushUnderTest test(3, 3);
    test.push->Start({Session(1), Session(2)});
    for (int i = 0; i < 3; ++i) test.push->Acknowledged(kUpdateId, 1);
    EXPECT_FALSE(test.push->Finished());
    test.push->Gone(2);
    EXPECT_TRUE(test.push->Finished());
    EXPECT_EQ(test.report->clients(), 2u);
    EXPECT_EQ(test.report->pushed(), 6u);
    EXPECT_EQ(test.report->acknowledged(), 3u);
}

TEST(UpdatePush, AConnectionThatRefusesASendLeavesThePush) {
    PushUnderTest test(3, 3);
    test.closed[2] = true;
    test.push->Start({Session(1), Session(2)});
    EXPECT_EQ(test.sent[1], 3);
    for (int i = 0; i < 3; ++i) test.push->Acknowledged(kUpdateId, 1);
    EXPECT_TRUE(test.push->Finished());
    EXPECT_EQ(test.report->pushed(), 3u);
}

TEST(UpdatePush, AbandonedTellsItsRequesterOnceAndTakesNoMoreAcknowledgements) {
    PushUnderTest test(3, 1);
    test.push->Start({Session(1)});
    test.push->Abandon();
    test.push->Acknowledged(kUpdateId, 1);
    test.push->Abandon();
    EXPECT_TRUE(test.push->Finished());
    EXPECT_TRUE(test.abandoned);
    EXPECT_EQ(test.doneCalls, 1);
    EXPECT_EQ(test.sent[1], 1);
}

TEST(UpdatePush, SpreadOverTurnsItSendsABoundedNumberOfFirstUpdatesAtATime) {
    PushUnderTest test(10, 4);
    std::vector<std::function<void()>> deferred;
    test.push->SpreadOver([&deferred](std::function<void()> work) { deferred.push_back(work); }, 6);
    test.push->Start({Session(1), Session(2), Session(3)});
    // Whole windows until six updates have gone in this turn; the rest wait their turn.
    EXPECT_EQ(test.sent[1], 4);
    EXPECT_EQ(test.sent[2], 4);
    EXPECT_EQ(test.sent[3], 0);
    ASSERT_EQ(deferred.size(), 1u);
    // An acknowledgement meanwhile is answered at once, as ever.
    test.push->Acknowledged(kUpdateId, 1);
    EXPECT_EQ(test.sent[1], 5);
    auto next = deferred.back();
    deferred.clear();
    next();
    EXPECT_EQ(test.sent[3], 4);
    EXPECT_TRUE(deferred.empty()) << "every first window has gone";
    EXPECT_FALSE(test.push->Finished());
}

TEST(UpdatePush, WorkDeferredForAPushThatHasGoneDoesNothing) {
    std::vector<std::function<void()>> deferred;
    {
        PushUnderTest test(10, 4);
        test.push->SpreadOver([&deferred](std::function<void()> work) { deferred.push_back(work); },
                              4);
        test.push->Start({Session(1), Session(2)});
        ASSERT_EQ(deferred.size(), 1u);
    }
    deferred.back()();  // the push, and its test, are gone: nothing is touched
}

TEST(UpdatePush, AbandonedWhileSpreadItSendsNoMore) {
    PushUnderTest test(10, 4);
    std::vector<std::function<void()>> deferred;
    test.push->SpreadOver([&deferred](std::function<void()> work) { deferred.push_back(work); }, 4);
    test.push->Start({Session(1), Session(2)});
    test.push->Abandon();
    deferred.back()();
    EXPECT_EQ(test.sent[2], 0);
    EXPECT_EQ(test.doneCalls, 1);
}

}  // namespace
}  // namespace Vellmark::ServiceTest
