// Replays the inputs of the client's receive-path fuzz target: its seeds, its kept corpus
// (fuzz/corpus/client_receive) and every input that once broke it (kept in
// fuzz/regressions/client_receive).
#include <gtest/gtest.h>

#include <algorithm>
#include <map>

#include "fuzz/ClientReceiveExercise.h"
#include "fuzz/ClientSeeds.h"
#include "fuzz/KeptInputs.h"

using namespace Vellmark::Fuzz;

namespace {

bool Has(std::vector<std::string> const& lines, std::string const& text) {
    return std::find(lines.begin(), lines.end(), text) != lines.end();
}

TEST(ReceivedInputs, EverySeedAndRegressionRunsThroughTheReceivePath) {
    auto const seeds = Vellmark::Fuzz::ClientSeeds::ClientReceiveSeeds();
    ASSERT_GE(seeds.size(), 6u);
    // What each seed must reach, as the client's log shows it.
    std::map<std::string, std::vector<std::string>> const reaches = {
        {"answers_every_query",
         {"AcceptSourcesAPI", "AcceptVoiceAccountsAPI. Printing received Voice Accounts",
          "AcceptProductSettingsAPI", "AcceptPresetsAPI"}},
        {"pushes_every_update",
         {"AcceptSourcesSubscribe. Printing received sources ",
          "AcceptGroupsSubscribe. "
          "Printing received Groups"}},
        {"account_operations", {"GVACreated", "HandleGVADeleteError"}},
        {"disconnect_and_reconnect",
         {"Received disconnect event. Disconnecting...", "failed to create valid m_router"}},
        {"dumps", {" Number of groups: 1"}},
    };
    for (auto const& seed : seeds) {
        SCOPED_TRACE(seed.name);
        std::vector<std::string> lines;
        ExerciseClientReceive(reinterpret_cast<std::uint8_t const*>(seed.bytes.data()),
                              seed.bytes.size(), &lines);
        EXPECT_FALSE(lines.empty());
        auto const wanted = reaches.find(seed.name);
        if (wanted == reaches.end()) continue;
        for (auto const& text : wanted->second) EXPECT_TRUE(Has(lines, text)) << text;
    }
    ASSERT_FALSE(KeptInputs("corpus/client_receive").empty());
    for (auto const* folder : {"corpus/client_receive", "regressions/client_receive"}) {
        for (auto const& kept : KeptInputs(folder)) {
            SCOPED_TRACE(kept.name);
            ExerciseClientReceive(reinterpret_cast<std::uint8_t const*>(kept.bytes.data()),
                                  kept.bytes.size());
        }
    }
}

}  // namespace
