// The kit's gMock double: it mocks every operation of the interface (an operation left out
// would leave the class abstract, and this file would not compile) and its expectations
// hand results to the callbacks of the code under test.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <type_traits>

#include "testing/MockVellmarkClientAPI.h"

namespace Vellmark::KitTest {
namespace {

using ::testing::_;
using ::testing::InvokeArgument;
using ::testing::Return;
using Vellmark::Testing::MockVellmarkClientAPI;

static_assert(!std::is_abstract_v<MockVellmarkClientAPI>,
              "MockVellmarkClientAPI must mock every operation of VellmarkClientAPIIF");

VellmarkPB::sources TwoSources() {
    VellmarkPB::sources sources;
    for (char const* id : {"src-a", "src-b"}) {
        auto* source = sources.add_source();
        source->set_id(id);
        source->mutable_sourceproviderid()->set_text("PROVIDER");
    }
    return sources;
}

TEST(MockVellmarkClientAPITest, AQueryExpectationHandsTheAnswerToTheCallback) {
    MockVellmarkClientAPI mock;
    EXPECT_CALL(mock, GetSources(_)).WillOnce(InvokeArgument<0>(TwoSources()));
    VellmarkClientAPIIF& client = mock;
    int answered = -1;
    client.GetSources([&](VellmarkPB::sources const& list) { answered = list.source_size(); });
    EXPECT_EQ(answered, 2);
}

TEST(MockVellmarkClientAPITest, AnAccountOperationCanBeRefusedThroughItsErrorCallback) {
    MockVellmarkClientAPI mock;
    VellmarkPB::Error refusal;
    refusal.set_code(5);
    refusal.set_message("cloud down");
    EXPECT_CALL(mock, CreateServiceAccount(_, _, _)).WillOnce(InvokeArgument<2>(refusal));
    VellmarkClientAPIIF& client = mock;
    bool created = false;
    VellmarkPB::Error heard;
    client.CreateServiceAccount(
        VellmarkPB::serviceAccounts(), [&](VellmarkPB::serviceAccounts const&) { created = true; },
        [&](VellmarkPB::Error const& error) { heard = error; });
    EXPECT_FALSE(created);
    EXPECT_EQ(heard.code(), 5);
    EXPECT_EQ(heard.message(), "cloud down");
}

TEST(MockVellmarkClientAPITest, SubscriptionsKeepTheirCallbackForLaterUpdates) {
    MockVellmarkClientAPI mock;
    Callback<VellmarkPB::VellmarkPresets> subscriber;
    EXPECT_CALL(mock, SubscribePresetsRequest("", _))
        .WillOnce([&](std::string const&, Callback<VellmarkPB::VellmarkPresets> const& callback) {
            subscriber = callback;
        });
    EXPECT_CALL(mock, IsConnected()).WillRepeatedly(Return(true));
    VellmarkClientAPIIF& client = mock;
    int updates = 0;
    client.SubscribePresetsRequest("", [&](VellmarkPB::VellmarkPresets const&) { ++updates; });
    ASSERT_TRUE(subscriber);
    subscriber(VellmarkPB::VellmarkPresets());
    subscriber(VellmarkPB::VellmarkPresets());
    EXPECT_EQ(updates, 2);
    EXPECT_TRUE(client.IsConnected());
}

}  // namespace
}  // namespace Vellmark::KitTest
