// What the console answers: every payload masked, edits checked by the schema and stored
// with their secrets kept, the redacted export, the seed, the faults, the traffic stream
// and its capture.
#include "VellmarkPresets.pb.h"
#include "VellmarkSources.pb.h"
#include "tests/console/ConsoleFixture.h"
#include "tests/support/JsonFields.h"

namespace Vellmark::ConsoleTest {
namespace {

std::vector<std::string> Paths() {
    std::vector<std::string> paths{"/api/store/service-accounts"};
    for (auto const& resource : Vellmark::Admin::Resources()) {
        paths.push_back("/api/store/" + std::string(resource.name));
    }
    return paths;
}

TEST_F(ConsoleTest, EveryAnswerIsMasked) {
    StartService();
    StartConsole();
    auto const secrets = StoredSecrets();
    ASSERT_GT(secrets.size(), 5u);
    auto http = Http();
    for (auto const& path : Paths()) {
        auto answer = http->Get(path);
        ASSERT_TRUE(answer) << path;
        EXPECT_EQ(answer->status, 200) << path << answer->body;
        ExpectNoSecret(path, answer->body, secrets);
    }
    auto exported = http->Get("/api/export");
    ASSERT_TRUE(exported);
    EXPECT_EQ(exported->status, 200);
    EXPECT_EQ(exported->get_header_value("Content-Disposition"),
              "attachment; filename=\"vellmark-store-redacted.json\"");
    ExpectNoSecret("/api/export", exported->body, secrets);
    Vellmark::Admin::StoreDocument document;
    EXPECT_EQ(Vellmark::Json::Parse(exported->body, document), "");
    EXPECT_EQ(document.sources().source_size(), SeedDocument().sources().source_size());
    auto overview = http->Get("/api/overview");
    ASSERT_TRUE(overview);
    ExpectNoSecret("/api/overview", overview->body, secrets);

    // The traffic of a client that reads every resource, and an update it acknowledges.
    auto subscriber = std::make_unique<ChildProcess>(
        VELLMARKCTL_PATH, std::vector<std::string>{"--runtime-dir", Folder(), "--timeout", "0",
                                                   "subscribe", "presets"});
    ASSERT_TRUE(subscriber->WaitForError("subscribed to presets", kBound));
    for (auto const& resource : Vellmark::Admin::Resources()) {
        if (resource.queryId) {
            EXPECT_EQ(Ctl({"get", resource.name})->ExitCode(), 0);
        }
    }
    EXPECT_EQ(Ctl({"admin", "push", "presets", "--count", "2"})->ExitCode(), 0);
    std::string const events = Stream([](std::string const& text) {
        return text.find("GET_GROUPS") != std::string::npos &&
               text.find("CLOUDSYNC_RECEIVED") != std::string::npos &&
               text.find("\"VELLMARK_MESSAGE_PRESETS_UPDATE\":2") != std::string::npos;
    });
    EXPECT_NE(events.find("\"kind\":\"response\",\"messageId\":1,"), std::string::npos) << events;
    EXPECT_NE(events.find("\"kind\":\"one-way\",\"messageId\":13,"), std::string::npos) << events;
    ExpectNoSecret("/api/events", events, secrets);
    auto clients = http->Get("/api/clients");
    ASSERT_TRUE(clients);
    EXPECT_NE(clients->body.find("\"VELLMARK_MESSAGE_PRESETS_UPDATE\":2"), std::string::npos)
        << clients->body;
    if (kChildLauncher.empty()) {
        EXPECT_NE(clients->body.find("\"program\":\"vellmarkctl\""), std::string::npos)
            << clients->body;
    }
    ExpectNoSecret("/api/clients", clients->body, secrets);
}

TEST_F(ConsoleTest, BadJsonEditsAreRefusedWithTheSchemasErrorAndNothingIsStored) {
    StartService();
    StartConsole();
    auto const before = AdminGet<VellmarkPB::VellmarkPresets>("presets");
    auto http = Http();
    for (std::string const json :
         {R"({"presets":[{"key":"1"}],"colour":"red"})", R"({"presets":[{"key":)",
          R"({"presets":[{"key":7}]})", R"([1,2])"}) {
        VellmarkPB::VellmarkPresets parsed;
        std::string const schemaError = Vellmark::Json::Parse(json, parsed);
        ASSERT_NE(schemaError, "") << json;
        for (std::string const path : {"/api/store/presets", "/api/store/presets/check"}) {
            auto answer = path.back() == 'k' ? http->Post(path, json, "application/json")
                                             : http->Put(path, json, "application/json");
            ASSERT_TRUE(answer);
            EXPECT_EQ(answer->status, 400) << json;
            TestJson::Fields error;
            ASSERT_TRUE(TestJson::ParseObject(answer->body, error)) << answer->body;
            EXPECT_EQ(error["error"].string_value(), "not a presets document: " + schemaError);
        }
    }
    // A mask that stands for no stored value.
    auto forged = http->Put("/api/store/presets",
                            R"({"presets":[{"key":"1","value":{"actions":[{"metadata":)"
                            R"({"accountID":"----------------0000"}}]}}]})",
                            "application/json");
    ASSERT_TRUE(forged);
    EXPECT_EQ(forged->status, 400);
    EXPECT_NE(forged->body.find("stands for no stored value"), std::string::npos) << forged->body;
    auto unknown = http->Put("/api/store/passwords", "{}", "application/json");
    ASSERT_TRUE(unknown);
    EXPECT_EQ(unknown->status, 404);
    EXPECT_TRUE(Same(AdminGet<VellmarkPB::VellmarkPresets>("presets"), before));
}

TEST_F(ConsoleTest, AnEditSavedAsShownKeepsTheSecretsItShowedMasked) {
    StartService();
    StartConsole();
    auto const before = AdminGet<VellmarkPB::VellmarkPresets>("presets");
    auto http = Http();
    auto shown = http->Get("/api/store/presets");
    ASSERT_TRUE(shown);
    VellmarkPB::VellmarkPresets edited;
    ASSERT_EQ(Vellmark::Json::Parse(shown->body, edited), "");
    edited.mutable_presets(0)->mutable_value()->mutable_actions(0)->mutable_metadata()->set_name(
        "Jazz FM");
    auto saved =
        http->Put("/api/store/presets", Vellmark::Json::Print(edited, true), "application/json");
    ASSERT_TRUE(saved);
    EXPECT_EQ(saved->status, 200) << saved->body;
    auto expected = before;
    expected.mutable_presets(0)->mutable_value()->mutable_actions(0)->mutable_metadata()->set_name(
        "Jazz FM");
    EXPECT_TRUE(Same(AdminGet<VellmarkPB::VellmarkPresets>("presets"), expected));
    // Every resource, read and written back as shown, stays as it was.
    auto const store = [this] {
        AdminClient admin(kBound);
        Vellmark::Admin::Request request;
        request.set_exportstore(true);
        return admin.Command(request);
    };
    std::string const whole = store();
    for (auto const& path : Paths()) {
        auto read = http->Get(path);
        ASSERT_TRUE(read);
        auto written = http->Put(path, read->body, "application/json");
        ASSERT_TRUE(written);
        EXPECT_EQ(written->status, 200) << path << written->body;
    }
    EXPECT_EQ(store(), whole);
}

TEST_F(ConsoleTest, TheStoreIsSeededFromADocumentAndABadOneChangesNothing) {
    StartService();
    StartConsole();
    auto http = Http();
    auto refused =
        http->Post("/api/seed", R"({"sources":{"source":[{"id":5}]}})", "application/json");
    ASSERT_TRUE(refused);
    EXPECT_EQ(refused->status, 400);
    EXPECT_NE(refused->body.find("not a store document"), std::string::npos) << refused->body;
    EXPECT_EQ(AdminGet<VellmarkPB::sources>("sources").source_size(),
              SeedDocument().sources().source_size());
    Vellmark::Admin::StoreDocument document;
    *document.mutable_sources()->add_source() = SeedDocument().sources().source(1);
    document.mutable_sources()->mutable_source(0)->set_id("only-one");
    auto seeded =
        http->Post("/api/seed", Vellmark::Json::Print(document, false), "application/json");
    ASSERT_TRUE(seeded);
    EXPECT_EQ(seeded->status, 200) << seeded->body;
    auto const sources = AdminGet<VellmarkPB::sources>("sources");
    ASSERT_EQ(sources.source_size(), 1);
    EXPECT_EQ(sources.source(0).id(), "only-one");
    EXPECT_EQ(AdminGet<VellmarkPB::VellmarkPresets>("presets").presets_size(), 0);
}

TEST_F(ConsoleTest, AFaultSetThroughTheConsoleFailsTheNextRequest) {
    StartService();
    StartConsole();
    auto http = Http();
    auto fail = http->Post(
        "/api/command",
        R"({"failNext":{"messageId":15,"count":1,"error":{"code":5,"message":"cloud down"}}})",
        "application/json");
    ASSERT_TRUE(fail);
    EXPECT_EQ(fail->status, 200) << fail->body;
    EXPECT_EQ(fail->body, "{\"ok\":true}");
    auto gva = Ctl({"gva", "create", "person-3c8e91f0", "acct-x", "device-1"});
    EXPECT_EQ(gva->ExitCode(), 1);
    EXPECT_NE(gva->Errors().find("cloud down"), std::string::npos) << gva->Errors();
    // The service's own refusal comes back as it said it.
    auto refused =
        http->Post("/api/command", R"({"failNext":{"messageId":7,"count":1}})", "application/json");
    ASSERT_TRUE(refused);
    EXPECT_EQ(refused->status, 400);
    EXPECT_NE(refused->body.find("is not a request of the service"), std::string::npos)
        << refused->body;
    // What only the console's own reads and writes may do is not taken here.
    for (std::string const command :
         {R"({"monitor":true})", R"({"exportStore":true})", R"({"get":{"resource":"sources"}})",
          R"({"nextPart":true})"}) {
        auto other = http->Post("/api/command", command, "application/json");
        ASSERT_TRUE(other);
        EXPECT_EQ(other->status, 400) << command;
        ExpectNoSecret(command, other->body, StoredSecrets());
    }
}

TEST_F(ConsoleTest, TheFramesAPageShowsAreSavedAsAMaskedCapture) {
    StartService();
    StartConsole();
    auto const secrets = StoredSecrets();
    EXPECT_EQ(Ctl({"get", "sources"})->ExitCode(), 0);
    std::string const events = Stream([](std::string const& text) {
        return text.find("\"kind\":\"response\"") != std::string::npos;
    });
    ASSERT_NE(events.find("\"seq\":2,"), std::string::npos) << events;
    auto http = Http();
    auto capture = http->Post("/api/capture", "[1, 2]", "application/json");
    ASSERT_TRUE(capture);
    EXPECT_EQ(capture->status, 200);
    EXPECT_EQ(capture->get_header_value("Content-Disposition"),
              "attachment; filename=\"vellmark-traffic.pcapng\"");
    ASSERT_GT(capture->body.size(), 4u);
    EXPECT_EQ(capture->body.substr(0, 4), std::string("\x0a\x0d\x0d\x0a", 4));
    EXPECT_NE(capture->body.find("Aurora Radio"), std::string::npos);
    ExpectNoSecret("the capture", capture->body, secrets);
    auto bad = http->Post("/api/capture", "[1,", "application/json");
    ASSERT_TRUE(bad);
    EXPECT_EQ(bad->status, 400);
}

TEST_F(ConsoleTest, StopsCleanlyOnSigterm) {
    StartService();
    StartConsole();
    Console().Signal(SIGTERM);
    EXPECT_EQ(Console().ExitCode(kStopBound), 0) << Console().Errors();
}

}  // namespace
}  // namespace Vellmark::ConsoleTest
