// Storing presets and the handling of the stored list.
#include "tests/unit/client/ClientTestSupport.h"

using namespace Vellmark::ClientTests;

namespace {

VellmarkPB::VellmarkPresets Presets(std::string const& key) {
    VellmarkPB::VellmarkPresets presets;
    presets.add_presets()->set_key(key);
    return presets;
}

class PresetStorage : public ClientTest {};

TEST_F(PresetStorage, StoreSendsThePresetsUnder4AndLogsNothingOnTheCallersThread) {
    auto router = Connect();
    log.Clear();
    client->StorePresets(Presets("1"), {});
    EXPECT_TRUE(Lines().empty());
    task.RunUntilIdle();
    ASSERT_EQ(router->Sends().size(), 1u);
    EXPECT_EQ(router->Sends()[0].id, 4u);
    EXPECT_TRUE(router->Sends()[0].expectsResponse);
    EXPECT_EQ(router->SentPayload<VellmarkPB::VellmarkPresets>(0).presets(0).key(), "1");
    auto lines = Lines();
    ASSERT_GE(lines.size(), 2u);
    EXPECT_EQ(lines[0], ClientLine(DPrint::Flow, "operator()",
                                   "storing presets - received from product in lambda within "
                                   "StorePresets"));
    EXPECT_EQ(lines[1], ClientLine(DPrint::Flow, "PrintPresets", "preset_size: 1"));
}

TEST_F(PresetStorage, ReplyReachesTheSubscriberFirstThenTheStoreCallback) {
    auto router = Connect();
    std::vector<std::string> calls;
    client->SubscribePresetsRequest("", [&](VellmarkPB::VellmarkPresets const& p) {
        calls.push_back("sub " + p.presets(0).key());
    });
    client->StorePresets(Presets("1"), [&](VellmarkPB::VellmarkPresets const& p) {
        calls.push_back("stored " + p.presets(0).key());
    });
    task.RunUntilIdle();
    log.Clear();
    router->Respond(0, Presets("7"));
    task.RunUntilIdle();
    EXPECT_EQ(calls, (std::vector<std::string>{"sub 7", "stored 7"}));
    auto lines = Lines();
    ASSERT_GE(lines.size(), 2u);
    EXPECT_EQ(lines[0], ClientLine(DPrint::Flow, "PresetsStored", "PresetsStored"));
    EXPECT_EQ(lines[1], ClientLine(DPrint::Flow, "PrintPresets", "preset_size: 1"));
    EXPECT_TRUE(router->Sends().size() == 1u) << "a stored reply is not acknowledged";
}

TEST_F(PresetStorage, TwoStoresBeforeTheFirstReplyBothAnswerTheSecondCallback) {
    auto router = Connect();
    int first = 0, second = 0;
    client->StorePresets(Presets("1"), [&](VellmarkPB::VellmarkPresets const&) { ++first; });
    client->StorePresets(Presets("2"), [&](VellmarkPB::VellmarkPresets const&) { ++second; });
    task.RunUntilIdle();
    ASSERT_EQ(router->Sends().size(), 2u);
    router->Respond(0, Presets("1"));
    router->Respond(1, Presets("2"));
    task.RunUntilIdle();
    EXPECT_EQ(first, 0);
    EXPECT_EQ(second, 2);
}

TEST_F(PresetStorage, StoreWhileDisconnectedIsQueuedThenSentWithItsLinesAtThatTime) {
    int stored = 0;
    client->StorePresets(Presets("3"), [&](VellmarkPB::VellmarkPresets const&) { ++stored; });
    task.RunUntilIdle();
    EXPECT_EQ(Lines().back(), ClientLine(DPrint::Flow, "operator()",
                                         "Not connected, queuing call to StorePresets"));
    EXPECT_EQ(IndexOf(ClientLine(DPrint::Flow, "PrintPresets", "preset_size: 1")), -1);
    log.Clear();
    auto router = Connect();
    ASSERT_EQ(router->Sends().size(), 1u);
    EXPECT_EQ(router->Sends()[0].id, 4u);
    int const storing = IndexOf(
        ClientLine(DPrint::Flow, "operator()",
                   "storing presets - received from product in lambda within StorePresets"));
    ASSERT_NE(storing, -1);
    EXPECT_EQ(IndexOf(ClientLine(DPrint::Flow, "PrintPresets", "preset_size: 1")), storing + 1);
    router->Respond(0, Presets("3"));
    task.RunUntilIdle();
    EXPECT_EQ(stored, 1);
}

}  // namespace
