// The documents vellmarkctl sends are read within a bound and checked before anything is
// sent: an endless input is refused at once without being read to its end, the service's
// rules are told with exit 2, and what is wrong comes with its line and column.
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <thread>

#include "VellmarkMessageId.pb.h"
#include "tests/e2e/ServiceFixture.h"

namespace Vellmark::EndToEnd {
namespace {

class InputLimits : public ServiceTest {
protected:
    // Watches the product endpoint's frames.
    std::shared_ptr<Inbox<Vellmark::Admin::TrafficEvent>> Watch(AdminClient& admin) {
        auto events = std::make_shared<Inbox<Vellmark::Admin::TrafficEvent>>();
        admin.Monitor([events](Vellmark::Admin::TrafficEvent const& event) { events->Put(event); });
        return events;
    }
    // Nothing reached the service: the next frame it sees is a query made now.
    void ExpectNothingSent(Inbox<Vellmark::Admin::TrafficEvent>& events) {
        auto probe = Ctl({"get", "persons"});
        ASSERT_EQ(probe->ExitCode(), 0) << probe->Errors();
        ASSERT_TRUE(events.WaitFor(1, kBound));
        EXPECT_EQ(events.At(0).messageid(), VellmarkPB::VELLMARK_MESSAGE_GET_PERSONS);
    }
    // vellmarkctl must end `command` with exit 2 and `text` on standard error.
    std::string ExpectRefused(std::vector<std::string> const& command, std::string const& text) {
        std::string where = "vellmarkctl";
        for (auto const& word : command) where += " " + word;
        auto ctl = Ctl(command);
        EXPECT_EQ(ctl->ExitCode(), 2) << where << "\n" << ctl->Errors();
        EXPECT_NE(ctl->Errors().find(text), std::string::npos) << where << "\n" << ctl->Errors();
        return ctl->Errors();
    }
};

TEST_F(InputLimits, DevZeroIsRefusedAtOnce) {
    StartService();
    AdminClient admin(kBound);
    auto events = Watch(admin);
    for (auto const& command : {std::vector<std::string>{"store-presets", "/dev/zero"},
                                {"account", "create", "/dev/zero"},
                                {"admin", "seed", "/dev/zero"},
                                {"call", "VELLMARK_MESSAGE_STORE_PRESETS", "/dev/zero"}}) {
        auto ctl = Ctl(command);
        EXPECT_EQ(ctl->ExitCode(), 2) << ctl->Errors();
        EXPECT_NE(ctl->Errors().find("/dev/zero:1:1: not JSON"), std::string::npos)
            << ctl->Errors();
    }
    ExpectNothingSent(*events);
}

TEST_F(InputLimits, AnEndlessDocumentIsReadOnlyUpToTheBound) {
    StartService();
    std::string const fifo = Folder() + "/endless";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    // A frame limit of 64 KiB: documents of at most 256 KiB.
    auto ctl = std::make_unique<ChildProcess>(
        VELLMARKCTL_PATH, std::vector<std::string>{"--runtime-dir", Folder(), "--max-frame-bytes",
                                                   "64K", "store-presets", fifo});
    // White space, which is JSON until it ends, written until vellmarkctl stops reading.
    struct sigaction ignore {};
    ignore.sa_handler = SIG_IGN;
    struct sigaction before {};
    ::sigaction(SIGPIPE, &ignore, &before);
    int const fd = ::open(fifo.c_str(), O_WRONLY);
    ASSERT_GE(fd, 0);
    std::string const blanks(64 * 1024, ' ');
    std::size_t written = 0;
    constexpr std::size_t kOffered = std::size_t(256) << 20;
    while (written < kOffered) {
        ssize_t const n = ::write(fd, blanks.data(), blanks.size());
        if (n <= 0) break;
        written += static_cast<std::size_t>(n);
    }
    ::close(fd);
    ::sigaction(SIGPIPE, &before, nullptr);
    EXPECT_EQ(ctl->ExitCode(), 2) << ctl->Errors();
    EXPECT_NE(ctl->Errors().find("longer than 262144 bytes"), std::string::npos) << ctl->Errors();
    // The bound, a chunk read and what the pipe holds: never the whole input.
    EXPECT_LT(written, std::size_t(2) << 20);
}

TEST_F(InputLimits, RepeatedOrEmptyKeysAndEmptyIdentifiersAreRefusedWithNothingSent) {
    StartService();
    AdminClient admin(kBound);
    auto events = Watch(admin);
    std::string const repeated =
        WriteFile("repeated.json", "{\"presets\": [{\"key\": \"9\"},\n  {\"key\": \"9\"}]}");
    std::string const told =
        ExpectRefused({"store-presets", repeated},
                      repeated + ":2:4: presets[1].key: \"9\" is the key of presets[0] too");
    EXPECT_NE(told.find("nothing was sent"), std::string::npos) << told;
    ExpectRefused({"call", "VELLMARK_MESSAGE_STORE_PRESETS", repeated}, "presets[1].key");
    ExpectRefused({"store-presets", WriteFile("empty.json", R"({"presets": [{"value": {}}]})")},
                  "presets[0].key: empty");
    ExpectRefused({"account", "delete", ""}, "accountID: empty");
    ExpectRefused({"gva", "delete", ""}, "accountID: empty");
    ExpectRefused({"gva", "create", "", "provider-1", "device-1"}, "tarvPersonID: empty");
    ExpectRefused({"gva", "update-device-id", ""}, "assistantDeviceId: empty");
    ExpectRefused({"account", "create", WriteFile("account.json", R"({"name": "x"})")},
                  "accountID: empty");
    ExpectRefused({"admin", "put", "service-accounts",
                   WriteFile("accounts.json",
                             R"({"serviceAccounts": [{"accountID": "a"}, {"accountID": "a"}]})")},
                  "serviceAccounts[1].accountID");
    ExpectNothingSent(*events);
    EXPECT_TRUE(Same(AdminGet<VellmarkPB::VellmarkPresets>("presets"), SeedDocument().presets()));
}

TEST_F(InputLimits, JsonErrorsGiveTheLineAndColumn) {
    StartService();
    std::string const syntax = WriteFile("syntax.json", "{\n  \"presets\": [\n    {\"key\": }\n]}");
    ExpectRefused({"store-presets", syntax}, syntax + ":3:13: not JSON");
    std::string const unknown =
        WriteFile("unknown.json", "{\"presets\": [\n  {\"key\": \"1\", \"colour\": 3}]}");
    ExpectRefused({"store-presets", unknown},
                  unknown + ":2:16: not a VellmarkPresets document: (presets[0]) colour");
    std::string const twice =
        WriteFile("twice.json", "{\"status\": \"OOB\",\n\"status\": \"ASSOCIATED\"}");
    ExpectRefused({"admin", "put", "association", twice},
                  twice + ":2:1: the member \"status\" is given twice");
    std::string const named = WriteFile("named.json", R"({"isAssociated": true})");
    ExpectRefused({"admin", "put", "association", named},
                  named +
                      ":1:2: not a AccountAssociated document: isAssociated: Cannot find "
                      "field. (`vellmarkctl describe AccountAssociated` lists its fields)");
}

}  // namespace
}  // namespace Vellmark::EndToEnd
