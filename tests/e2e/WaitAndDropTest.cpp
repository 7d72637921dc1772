// Scripts can rely on vellmarkctl: --wait starts a command once the service takes
// connections, and a request whose connection ends before its answer is told at once
// (exit 3) instead of waiting out --timeout; a query is asked again once on the next
// connection.
#include "VellmarkMessageId.pb.h"
#include "tests/e2e/ServiceFixture.h"

namespace Vellmark::EndToEnd {
namespace {

class WaitAndDrop : public ServiceTest {
protected:
    // vellmarkctl, started and left running.
    std::unique_ptr<ChildProcess> StartCtl(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {"--runtime-dir", Folder()});
        return std::make_unique<ChildProcess>(VELLMARKCTL_PATH, arguments);
    }
    // Returns once a request under `number` has reached the service (seen by `events`) since
    // the last call.
    void AwaitRequest(Inbox<Vellmark::Admin::TrafficEvent>& events, unsigned int number) {
        for (;; ++m_seen) {
            ASSERT_TRUE(events.WaitFor(m_seen + 1, kBound)) << "no request " << number;
            auto const& event = events.At(m_seen);
            if (event.kind() == "request" && event.messageid() == number) {
                ++m_seen;
                return;
            }
        }
    }
    std::shared_ptr<Inbox<Vellmark::Admin::TrafficEvent>> Watch(AdminClient& admin) {
        auto events = std::make_shared<Inbox<Vellmark::Admin::TrafficEvent>>();
        admin.Monitor([events](Vellmark::Admin::TrafficEvent const& event) { events->Put(event); });
        return events;
    }
    void LeaveUnanswered(char const* id) {
        auto ctl = Ctl({"admin", "fail-next", id, "--no-answer"});
        ASSERT_EQ(ctl->ExitCode(), 0) << ctl->Errors();
    }
    void DropConnections() {
        auto ctl = Ctl({"admin", "drop-connections"});
        ASSERT_EQ(ctl->ExitCode(), 0) << ctl->Errors();
    }

    std::size_t m_seen = 0;
};

TEST_F(WaitAndDrop, WaitStartsTheCommandOnceTheServiceTakesConnections) {
    // Before the service, its folder and its socket exist.
    auto get = StartCtl({"--wait", "0", "--timeout", "60", "get", "product-settings"});
    auto admin = StartCtl({"--wait", "0", "--timeout", "60", "admin", "clients"});
    StartService();
    EXPECT_EQ(get->ExitCode(), 0) << get->Errors();
    VellmarkPB::ProductSettings settings;
    EXPECT_EQ(Vellmark::Json::Parse(get->Output(), settings), "") << get->Output();
    EXPECT_EQ(settings.name(), SeedDocument().productsettings().name());
    EXPECT_EQ(admin->ExitCode(), 0) << admin->Errors();
}

TEST_F(WaitAndDrop, WaitOutlastsASocketLeftByAServiceThatDied) {
    StartService();
    KillService();  // its socket files stay, and nothing listens on them
    auto get = StartCtl({"--wait", "0", "--timeout", "60", "get", "groups"});
    StartService(false);
    EXPECT_EQ(get->ExitCode(), 0) << get->Errors();
}

TEST_F(WaitAndDrop, WaitEndsWithThreeWhenTheServiceDoesNotComeUp) {
    auto get = Ctl({"--wait", "0.2", "get", "sources"});
    EXPECT_EQ(get->ExitCode(), 3);
    EXPECT_NE(get->Errors().find("vellmarkd did not come up at " + Folder() +
                                 "/Vellmark.sock within 0.2 s"),
              std::string::npos)
        << get->Errors();
}

TEST_F(WaitAndDrop, AChangeInFlightWhenTheConnectionEndsIsToldAtOnce) {
    StartService();
    AdminClient admin(kBound);
    auto events = Watch(admin);
    LeaveUnanswered("VELLMARK_MESSAGE_STORE_PRESETS");
    std::string const file = WriteFile("presets.json", R"({"presets": [{"key": "7"}]})");
    // No timeout: only the end of the connection can end these.
    auto store = StartCtl({"--timeout", "0", "store-presets", file});
    AwaitRequest(*events, VellmarkPB::VELLMARK_MESSAGE_STORE_PRESETS);
    DropConnections();
    EXPECT_EQ(store->ExitCode(), 3) << store->Errors();
    EXPECT_NE(store->Errors().find("ended before the answer; whether the service carried out "
                                   "the request is not known"),
              std::string::npos)
        << store->Errors();

    LeaveUnanswered("VELLMARK_MESSAGE_STORE_PRESETS");
    auto call = StartCtl({"--timeout", "0", "call", "VELLMARK_MESSAGE_STORE_PRESETS", file});
    AwaitRequest(*events, VellmarkPB::VELLMARK_MESSAGE_STORE_PRESETS);
    DropConnections();
    EXPECT_EQ(call->ExitCode(), 3) << call->Errors();
    EXPECT_NE(call->Errors().find("ended before the answer"), std::string::npos) << call->Errors();
}

TEST_F(WaitAndDrop, AQueryInFlightIsAskedAgainOnceTheConnectionIsBack) {
    StartService();
    AdminClient admin(kBound);
    auto events = Watch(admin);
    for (std::vector<std::string> const& command :
         {std::vector<std::string>{"get", "sources"}, {"call", "VELLMARK_MESSAGE_GET_SOURCES"}}) {
        SCOPED_TRACE(command[0]);
        LeaveUnanswered("VELLMARK_MESSAGE_GET_SOURCES");
        std::vector<std::string> arguments{"--timeout", "0"};
        arguments.insert(arguments.end(), command.begin(), command.end());
        auto get = StartCtl(arguments);
        AwaitRequest(*events, VellmarkPB::VELLMARK_MESSAGE_GET_SOURCES);
        DropConnections();
        EXPECT_EQ(get->ExitCode(), 0) << get->Errors();
        EXPECT_NE(get->Errors().find("ended before the answer; asking again once it is back"),
                  std::string::npos)
            << get->Errors();
        VellmarkPB::sources sources;
        EXPECT_EQ(Vellmark::Json::Parse(get->Output(), sources), "") << get->Output();
        EXPECT_EQ(sources.source_size(), SeedDocument().sources().source_size());
        // The query asked again, answered.
        AwaitRequest(*events, VellmarkPB::VELLMARK_MESSAGE_GET_SOURCES);
    }
}

TEST_F(WaitAndDrop, AQueryInFlightWhenTheServiceGoesIsToldAtOnce) {
    StartService();
    AdminClient admin(kBound);
    auto events = Watch(admin);
    LeaveUnanswered("VELLMARK_MESSAGE_GET_PERSONS");
    auto get = StartCtl({"--timeout", "0", "get", "persons"});
    AwaitRequest(*events, VellmarkPB::VELLMARK_MESSAGE_GET_PERSONS);
    // Stopping, it stops listening before it closes the connections.
    StopService();
    EXPECT_EQ(get->ExitCode(), 3) << get->Errors();
    EXPECT_NE(get->Errors().find("ended before the answer, and vellmarkd is gone"),
              std::string::npos)
        << get->Errors();
}

}  // namespace
}  // namespace Vellmark::EndToEnd
