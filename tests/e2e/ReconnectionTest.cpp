// Subscriptions that come back: an application hears of every new connection and
// subscribes again, so updates flow after each restart of the service.
#include "tests/e2e/ServiceFixture.h"

namespace Vellmark::EndToEnd {
namespace {

class Reconnection : public ServiceTest {
protected:
    // Puts product settings named `name`: every subscriber gets the update.
    void PutSettingsNamed(std::string const& name) {
        VellmarkPB::ProductSettings settings;
        settings.set_name(name);
        AdminPut("product-settings", settings);
    }
    // Ends the service, by SIGTERM or by SIGKILL, and starts it again on its store.
    void Restart(int round) {
        if (round % 2 == 0) {
            StopService();
        } else {
            KillService();
        }
        StartService(false);
    }
};

TEST_F(Reconnection, AnObserverThatSubscribesAgainHearsUpdatesAfterEveryRestart) {
    StartService();
    auto updates = std::make_shared<Inbox<std::string>>();
    auto connections = std::make_shared<Inbox<bool>>();
    Callback<VellmarkPB::ProductSettings> const onUpdate =
        [updates](VellmarkPB::ProductSettings const& s) { updates->Put(s.name()); };
    auto& client = Client();
    client.AddConnectionObserver([&client, onUpdate, connections] {
        client.SubscribeProductSettingsRequest("", onUpdate);
        connections->Put(true);
    });
    constexpr std::size_t kRestarts = 4;
    for (std::size_t round = 0; round <= kRestarts; ++round) {
        if (round > 0) Restart(static_cast<int>(round));
        ASSERT_TRUE(connections->WaitFor(round + 1, kBound)) << "round " << round;
        // The subscription's own step was posted before this query's: it is in place.
        WaitUntilConnected();
        PutSettingsNamed("round " + std::to_string(round));
        ASSERT_TRUE(updates->WaitFor(round + 1, kBound)) << "round " << round;
        EXPECT_EQ(updates->At(round), "round " + std::to_string(round));
    }
}

TEST_F(Reconnection, VellmarkctlSubscribeSubscribesAgainAfterEveryRestartAndSaysSo) {
    StartService();
    constexpr int kRestarts = 3;
    ChildProcess subscriber(VELLMARKCTL_PATH,
                            {"--runtime-dir", Folder(), "--timeout", "0", "subscribe",
                             "product-settings", "--count", std::to_string(kRestarts + 1)});
    ASSERT_TRUE(subscriber.WaitForError("vellmarkctl: subscribed to product-settings", kBound))
        << subscriber.Errors();
    for (int round = 0; round <= kRestarts; ++round) {
        if (round > 0) {
            Restart(round);
            ASSERT_TRUE(subscriber.WaitForError(
                "vellmarkctl: connected again; subscribed again to product-settings", kBound,
                static_cast<std::size_t>(round)))
                << subscriber.Errors();
        }
        std::string const name = "round " + std::to_string(round);
        PutSettingsNamed(name);
        ASSERT_TRUE(subscriber.WaitForOutput(name, kBound)) << subscriber.Output();
    }
    EXPECT_EQ(subscriber.ExitCode(), 0) << subscriber.Errors();
}

}  // namespace
}  // namespace Vellmark::EndToEnd
