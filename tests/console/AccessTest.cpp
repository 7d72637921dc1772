// Who may use the console: only a request that carries the token, sent to a loopback name,
// and for a change, from the console's own page; and the console itself gets into
// vellmarkd only as its own user would.
#include <sys/stat.h>
#include <unistd.h>

#include "tests/console/ConsoleFixture.h"
#include "tests/e2e/ProgramsForAnotherUser.h"

namespace Vellmark::ConsoleTest {
namespace {

TEST_F(ConsoleTest, EveryPathIsRefusedWithoutTheToken) {
    StartService();
    StartConsole();
    auto http = Http(false);
    for (std::string const path : {"/", "/assets/app.js", "/api/overview", "/api/store/sources",
                                   "/api/store/service-accounts", "/api/export", "/api/clients",
                                   "/api/events", "/nowhere"}) {
        auto answer = http->Get(path);
        ASSERT_TRUE(answer) << path;
        EXPECT_EQ(answer->status, 403) << path;
        EXPECT_NE(answer->body.find("needs the token"), std::string::npos) << answer->body;
    }
    auto put = http->Put("/api/store/presets", "{}", "application/json");
    ASSERT_TRUE(put);
    EXPECT_EQ(put->status, 403);
    auto wrong = http->Get(
        "/api/overview",
        {{"Cookie", "vellmark-console-" + std::to_string(Port()) + "=" + std::string(64, '0')}});
    ASSERT_TRUE(wrong);
    EXPECT_EQ(wrong->status, 403);
}

TEST_F(ConsoleTest, ThePrintedUrlGivesTheBrowserACookieThatOpensThePage) {
    StartService();
    StartConsole();
    auto http = Http(false);
    auto first = http->Get("/?token=" + Token());
    ASSERT_TRUE(first);
    EXPECT_EQ(first->status, 303);
    EXPECT_EQ(first->get_header_value("Location"), "/");
    std::string const cookie = first->get_header_value("Set-Cookie");
    EXPECT_EQ(cookie, "vellmark-console-" + std::to_string(Port()) + "=" + Token() +
                          "; Path=/; HttpOnly; SameSite=Strict");
    auto page = http->Get("/", {{"Cookie", cookie.substr(0, cookie.find(';'))}});
    ASSERT_TRUE(page);
    EXPECT_EQ(page->status, 200);
    EXPECT_EQ(page->get_header_value("Content-Type"), "text/html; charset=utf-8");
    EXPECT_NE(page->body.find("<title>vellmarkd console</title>"), std::string::npos);
    EXPECT_NE(page->get_header_value("Content-Security-Policy").find("default-src 'none'"),
              std::string::npos);
    EXPECT_EQ(page->get_header_value("X-Frame-Options"), "DENY");
    EXPECT_EQ(page->get_header_value("Referrer-Policy"), "no-referrer");
}

TEST_F(ConsoleTest, ARequestToANameThatIsNotLoopbackIsRefused) {
    StartService();
    StartConsole();
    auto http = Http();
    for (std::string const& host :
         {std::string("evil.example"), "evil.example:" + std::to_string(Port()),
          std::string("127.0.0.1.nip.example")}) {
        auto answer = http->Get("/api/store/sources", {{"Host", host}});
        ASSERT_TRUE(answer) << host;
        EXPECT_EQ(answer->status, 403) << host;
        EXPECT_NE(answer->body.find("is not a loopback address"), std::string::npos)
            << answer->body;
        EXPECT_EQ(answer->body.find("Aurora"), std::string::npos);
    }
    auto own = http->Get("/api/store/sources", {{"Host", "localhost:" + std::to_string(Port())}});
    ASSERT_TRUE(own);
    EXPECT_EQ(own->status, 200);
}

TEST_F(ConsoleTest, AChangeAskedForByAnotherSitesPageIsRefusedAndChangesNothing) {
    StartService();
    StartConsole();
    auto const before = AdminGet<VellmarkPB::VellmarkPresets>("presets");
    auto http = Http();
    std::string const edit = R"({"presets":[{"key":"1","value":{"createdOn":"x"}}]})";
    for (std::string const origin : {"http://evil.example", "null", "http://127.0.0.1:1"}) {
        auto put = http->Put("/api/store/presets", {{"Origin", origin}}, edit, "application/json");
        ASSERT_TRUE(put);
        EXPECT_EQ(put->status, 403) << origin;
        EXPECT_NE(put->body.find("is refused"), std::string::npos) << put->body;
        auto drop = http->Post("/api/command", {{"Origin", origin}}, R"({"dropConnections":true})",
                               "application/json");
        ASSERT_TRUE(drop);
        EXPECT_EQ(drop->status, 403) << origin;
    }
    auto crossSite = http->Put("/api/store/presets", {{"Sec-Fetch-Site", "cross-site"}}, edit,
                               "application/json");
    ASSERT_TRUE(crossSite);
    EXPECT_EQ(crossSite->status, 403);
    EXPECT_TRUE(Same(AdminGet<VellmarkPB::VellmarkPresets>("presets"), before));
    // The page's own origin may.
    auto own =
        http->Put("/api/store/presets", {{"Origin", "http://127.0.0.1:" + std::to_string(Port())}},
                  edit, "application/json");
    ASSERT_TRUE(own);
    EXPECT_EQ(own->status, 200) << own->body;
}

TEST_F(ConsoleTest, PortZeroPicksAFreePortAndATakenPortIsRefused) {
    StartService();
    StartConsole();
    ChildProcess second(VELLMARK_CONSOLE_PATH,
                        {"--runtime-dir", Folder(), "--port", std::to_string(Port())});
    EXPECT_EQ(second.ExitCode(), 2) << second.Errors();
    EXPECT_NE(second.Errors().find("--port 0 picks a free one"), std::string::npos)
        << second.Errors();
    ChildProcess third(VELLMARK_CONSOLE_PATH, {"--runtime-dir", Folder(), "--port", "0"});
    ASSERT_TRUE(third.WaitForOutput("\n", kBound));
    EXPECT_EQ(third.Output().find("127.0.0.1:" + std::to_string(Port()) + "/"), std::string::npos);
    third.Signal(SIGTERM);
    EXPECT_EQ(third.ExitCode(kStopBound), 0) << third.Errors();
}

// Runs the console as another user, from a copy that user can reach (ProgramsForAnotherUser.h).
class ConsoleAsAnotherUser : public ConsoleTest {};

TEST_F(ConsoleAsAnotherUser, TheConsoleGetsIntoVellmarkdOnlyAsItsUserWould) {
    if (!ProgramsForAnotherUser::Possible()) {
        GTEST_SKIP() << "cannot run a program as another user here";
    }
    ASSERT_EQ(::chmod(Folder().c_str(), 0711), 0);  // others may reach the socket files
    StartService();
    // In root's group, which the socket files belong to.
    AnotherUser const nobody{65534, 65534, {0}};
    std::vector<std::string> const options{"--runtime-dir", Folder(), "--port", "0",
                                           "--timeout",     "2"};
    auto const& programs = ProgramsForAnotherUser::Get();
    auto refused = programs.Start("vellmark-console", options, nobody);
    EXPECT_EQ(refused->ExitCode(), 5) << refused->Errors();
    EXPECT_NE(refused->Errors().find("closed the connection at once: it does not let nobody (uid "
                                     "65534) in (see its --admin-allow-user)"),
              std::string::npos)
        << refused->Errors();
    EXPECT_EQ(refused->Output(), "");
    StopService();

    StartService(true, {"--admin-allow-user", "65534"});
    auto allowed = programs.Start("vellmark-console", options, nobody);
    EXPECT_TRUE(allowed->WaitForOutput("?token=", kBound)) << allowed->Errors();
    allowed->Signal(SIGTERM);
    EXPECT_EQ(allowed->ExitCode(kStopBound), 0) << allowed->Errors();
}

TEST_F(ConsoleTest, AServiceThatIsNotThereYetIsWaitedFor) {
    StartConsole();
    EXPECT_TRUE(Console().WaitForError(
        "vellmarkd is not running at " + Folder() + "/VellmarkAdmin.sock (no socket file there)",
        kBound))
        << Console().Errors();
    auto http = Http();
    auto away = http->Get("/api/store/sources");
    ASSERT_TRUE(away);
    EXPECT_EQ(away->status, 503);
    EXPECT_NE(away->body.find("vellmarkd is not running at"), std::string::npos) << away->body;
    StartService();
    auto status = Stream([](std::string const& text) {
        return text.find("\"watching\":true") != std::string::npos;
    });
    EXPECT_NE(status.find("\"watching\":true"), std::string::npos) << status;
    auto back = http->Get("/api/store/sources");
    ASSERT_TRUE(back);
    EXPECT_EQ(back->status, 200) << back->body;
}

}  // namespace
}  // namespace Vellmark::ConsoleTest
