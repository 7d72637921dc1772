// vellmarkctl and vellmarkd as a person runs them: output, errors and exit codes.
#include <sys/stat.h>

#include <algorithm>

#include "tests/e2e/ProcessStats.h"
#include "tests/e2e/ServiceFixture.h"

namespace Vellmark::EndToEnd {
namespace {

class Programs : public ServiceTest {
protected:
    // `vellmarkctl subscribe product-settings --count 1`, once it says it has subscribed.
    std::unique_ptr<ChildProcess> SubscribeToProductSettings() {
        auto subscriber = std::make_unique<ChildProcess>(
            VELLMARKCTL_PATH, std::vector<std::string>{"--runtime-dir", Folder(), "subscribe",
                                                       "product-settings", "--count", "1"});
        EXPECT_TRUE(subscriber->WaitForError("subscribed to product-settings", kBound))
            << subscriber->Errors();
        return subscriber;
    }
};

TEST_F(Programs, GetPrintsTheResourceAsJsonMaskedUnlessSecretsAreAskedFor) {
    StartService();
    auto ctl = Ctl({"get", "sources"});
    ASSERT_EQ(ctl->ExitCode(), 0) << ctl->Errors();
    VellmarkPB::sources printed;
    ASSERT_EQ(Vellmark::Json::Parse(ctl->Output(), printed), "") << ctl->Output();
    VellmarkPB::sources masked = SeedDocument().sources();
    Vellmark::Admin::Mask(masked);
    EXPECT_TRUE(Same(printed, masked));

    auto clear = Ctl({"get", "sources", "--show-secrets"});
    ASSERT_EQ(clear->ExitCode(), 0) << clear->Errors();
    ASSERT_EQ(Vellmark::Json::Parse(clear->Output(), printed), "") << clear->Output();
    EXPECT_TRUE(Same(printed, SeedDocument().sources()));
}

TEST_F(Programs, ARefusalExitsWithOneAndPrintsTheErrorAsJson) {
    StartService();
    auto ctl = Ctl({"gva", "create", "person-3c8e91f0", "lena@example.com", "device-1"});
    EXPECT_EQ(ctl->ExitCode(), 1);
    EXPECT_EQ(ctl->Output(), "");
    auto const errors = ctl->Errors();
    auto const start = errors.find('{');
    ASSERT_NE(start, std::string::npos) << errors;
    VellmarkPB::Error error;
    ASSERT_EQ(Vellmark::Json::Parse(errors.substr(start), error), "") << errors;
    EXPECT_EQ(error.subcode(), VellmarkPB::CODE_GVA_ACCOUNT_EXISTS);
}

TEST_F(Programs, StorePresetsFromAFilePrintsTheStoredList) {
    StartService();
    auto const file = WriteFile("presets.json", R"({"presets":[{"key":"3","value":{}}]})");
    auto ctl = Ctl({"store-presets", file});
    ASSERT_EQ(ctl->ExitCode(), 0) << ctl->Errors();
    VellmarkPB::VellmarkPresets printed;
    ASSERT_EQ(Vellmark::Json::Parse(ctl->Output(), printed), "");
    EXPECT_EQ(printed.presets_size(), 3);
}

TEST_F(Programs, BadInputFilesExitWithTwoNameTheFileAndSendNothing) {
    StartService();
    AdminClient admin(kBound);
    auto events = std::make_shared<Inbox<Vellmark::Admin::TrafficEvent>>();
    admin.Monitor([events](Vellmark::Admin::TrafficEvent const& event) { events->Put(event); });

    struct Case {
        std::string text;
        std::vector<std::string> command;
        std::string problem;
    };
    std::vector<Case> const cases = {
        {"{\"presets\": [", {"store-presets"}, ""},
        {R"({"source": []})", {"store-presets"}, "source"},
        {R"({"accountID": 7})", {"account", "create"}, "accountID"},
        {R"({"serviceAccounts": []})", {"account", "update"}, "serviceAccounts"},
        {R"({"source": [{"id": "x"}]})", {"admin", "put", "sources"}, "sourceproviderid"},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.text);
        auto const file = WriteFile("bad.json", c.text);
        auto command = c.command;
        command.push_back(file);
        auto ctl = Ctl(command);
        EXPECT_EQ(ctl->ExitCode(), 2);
        EXPECT_NE(ctl->Errors().find(file), std::string::npos) << ctl->Errors();
        EXPECT_NE(ctl->Errors().find(c.problem), std::string::npos) << ctl->Errors();
    }
    auto missing = Ctl({"store-presets", Folder() + "/missing.json"});
    EXPECT_EQ(missing->ExitCode(), 2);
    EXPECT_NE(missing->Errors().find("missing.json"), std::string::npos);

    // Nothing reached the service: the next frame it sees is this query.
    auto probe = Ctl({"get", "persons"});
    ASSERT_EQ(probe->ExitCode(), 0);
    ASSERT_TRUE(events->WaitFor(1, kBound));
    EXPECT_EQ(events->At(0).messageid(), VellmarkPB::VELLMARK_MESSAGE_GET_PERSONS);
    EXPECT_TRUE(Same(AdminGet<VellmarkPB::sources>("sources"), SeedDocument().sources()));
}

TEST_F(Programs, NoServiceExitsWithThreeNamingTheSocket) {
    auto ctl = Ctl({"--timeout", "0.3", "get", "sources"});
    EXPECT_EQ(ctl->ExitCode(), 3);
    EXPECT_NE(ctl->Errors().find("Vellmark.sock"), std::string::npos) << ctl->Errors();
    auto admin = Ctl({"--timeout", "0.3", "admin", "acks"});
    EXPECT_EQ(admin->ExitCode(), 3);
}

TEST_F(Programs, EveryCommandHasHelpAndBadArgumentsExitWithTwo) {
    for (std::vector<std::string> command : {std::vector<std::string>{},
                                             {"get"},
                                             {"subscribe"},
                                             {"store-presets"},
                                             {"account"},
                                             {"account", "delete"},
                                             {"gva"},
                                             {"gva", "create"},
                                             {"admin"},
                                             {"admin", "fail-next"},
                                             {"monitor"},
                                             {"call"},
                                             {"describe"}}) {
        command.push_back("--help");
        auto ctl = Ctl(command);
        EXPECT_EQ(ctl->ExitCode(), 0);
        EXPECT_NE(ctl->Output().find("Usage"), std::string::npos) << ctl->Output();
    }
    EXPECT_EQ(Ctl({"get", "everything"})->ExitCode(), 2);
    EXPECT_EQ(Ctl({"gva", "create", "only-one"})->ExitCode(), 2);
    EXPECT_EQ(Ctl({"admin", "fail-next", "NOT_AN_ID", "--no-answer"})->ExitCode(), 2);
    EXPECT_EQ(Ctl({})->ExitCode(), 2);
}

TEST_F(Programs, SubscribePrintsEachUpdate) {
    StartService();
    auto subscriber = SubscribeToProductSettings();
    if (HasFailure()) return;
    VellmarkPB::ProductSettings settings;
    settings.set_name("Büro");
    AdminPut("product-settings", settings);
    ASSERT_EQ(subscriber->ExitCode(), 0) << subscriber->Errors();
    VellmarkPB::ProductSettings printed;
    ASSERT_EQ(Vellmark::Json::Parse(subscriber->Output(), printed), "");
    EXPECT_TRUE(Same(printed, settings));
}

// A client on its own task needs no other thread: the listener makes its attempts on the
// task's loop, as the router reads there. (Counted by name: a sanitizer or an emulator may
// add threads of its own.)
TEST_F(Programs, ASubscriberRunsNoThreadBeyondItsMainThreadAndItsTask) {
    StartService();
    auto subscriber = SubscribeToProductSettings();
    if (HasFailure()) return;
    auto const names = ThreadNames(subscriber->Pid());
    std::string listed;
    for (auto const& name : names) listed += "'" + name + "' ";
    EXPECT_GE(names.size(), 2u) << listed;
    EXPECT_EQ(std::count(names.begin(), names.end(), "IPC IO"), 0) << listed;
    VellmarkPB::ProductSettings settings;
    settings.set_name("Flur");
    AdminPut("product-settings", settings);
    EXPECT_EQ(subscriber->ExitCode(), 0) << subscriber->Errors();
}

TEST_F(Programs, AdminPushSendsEveryUpdateToASubscriberThatAcknowledgesEach) {
    StartService();
    auto updates = std::make_shared<Inbox<int>>();
    Client().SubscribeSourcesRequest(
        "", [updates](VellmarkPB::sources const& sources) { updates->Put(sources.source_size()); });
    WaitUntilConnected();  // the subscription's own step has run on the client's task
    auto ctl = Ctl({"admin", "push", "sources", "--count", "300", "--window", "8"});
    ASSERT_EQ(ctl->ExitCode(), 0) << ctl->Errors();
    Vellmark::Admin::PushReport report;
    ASSERT_EQ(Vellmark::Json::Parse(ctl->Output(), report), "") << ctl->Output();
    EXPECT_EQ(report.clients(), 1u);
    EXPECT_EQ(report.pushed(), 300u);
    EXPECT_EQ(report.acknowledged(), 300u);
    ASSERT_TRUE(updates->WaitFor(300, kBound));
    EXPECT_EQ(updates->At(299), SeedDocument().sources().source_size());
}

TEST_F(Programs, AdminPushRefusesAResourceWithoutUpdates) {
    StartService();
    auto ctl = Ctl({"admin", "push", "service-accounts"});
    EXPECT_EQ(ctl->ExitCode(), 2) << ctl->Errors();
}

TEST_F(Programs, TheServiceRefusesAStoreItCannotRead) {
    auto const garbage = WriteFile("garbage.db", std::string(8192, 'x'));
    ChildProcess service(VELLMARKD_PATH, {"--db", garbage, "--runtime-dir", Folder()});
    EXPECT_EQ(service.ExitCode(), 1);
    EXPECT_NE(service.Errors().find(garbage), std::string::npos) << service.Errors();
    std::string text;
    ASSERT_EQ(Vellmark::Json::ReadFile(garbage, text), "");
    EXPECT_EQ(text, std::string(8192, 'x'));  // left as it was

    auto const badSeed = WriteFile("seed.json", R"({"sources": 3})");
    ChildProcess seeded(VELLMARKD_PATH,
                        {"--db", StorePath(), "--seed", badSeed, "--runtime-dir", Folder()});
    EXPECT_EQ(seeded.ExitCode(), 2);
    EXPECT_NE(seeded.Errors().find(badSeed), std::string::npos) << seeded.Errors();
}

TEST_F(Programs, TheServiceStopsCleanlyOnSigtermAndKeepsItsData) {
    StartService();
    StopService();
    struct stat info {};
    EXPECT_NE(::stat((Folder() + "/Vellmark.sock").c_str(), &info), 0);  // socket removed
    StartService(false);
    auto ctl = Ctl({"get", "presets", "--show-secrets"});
    ASSERT_EQ(ctl->ExitCode(), 0);
    VellmarkPB::VellmarkPresets printed;
    ASSERT_EQ(Vellmark::Json::Parse(ctl->Output(), printed), "");
    EXPECT_TRUE(Same(printed, SeedDocument().presets()));
}

}  // namespace
}  // namespace Vellmark::EndToEnd
