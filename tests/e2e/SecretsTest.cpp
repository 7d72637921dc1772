// Secrets stay secret: every command of vellmarkctl masks tokens, identifiers and user
// names by default, the monitor always does, the backup is faithful unless asked to
// redact, and the service's log never holds a clear secret, at any level.
#include "platform/log/Redact.h"
#include "tests/e2e/ServiceFixture.h"

namespace Vellmark::EndToEnd {
namespace {

// The clear values that masking hides in `documents`.
std::vector<std::string> SecretsOf(std::vector<google::protobuf::Message const*> const& documents) {
    std::vector<std::string> secrets;
    for (auto const* document : documents) {
        auto const values = Vellmark::Admin::SecretValues(*document);
        secrets.insert(secrets.end(), values.begin(), values.end());
    }
    return secrets;
}

// Fails for every secret that `text` holds in clear.
void ExpectNoSecret(std::string const& where, std::string const& text,
                    std::vector<std::string> const& secrets) {
    for (auto const& secret : secrets) {
        EXPECT_EQ(text.find(secret), std::string::npos)
            << where << " shows \"" << secret << "\" in clear:\n"
            << text;
    }
}

// A service account that carries the seed's secrets under an identifier of its own.
VellmarkPB::serviceAccounts NewAccount() {
    VellmarkPB::serviceAccounts account = SeedDocument().serviceaccounts(0);
    account.set_accountid("acct-new-0f3c9a71");
    return account;
}

class Secrets : public ServiceTest {
protected:
    // The seed's secrets and those of the new account.
    std::vector<std::string> Known() const {
        auto const seed = SeedDocument();
        auto const account = NewAccount();
        return SecretsOf({&seed, &account});
    }

    // Runs vellmarkctl; it must end with `code`, and neither of its streams may show a
    // known secret.
    void ExpectMasked(std::vector<std::string> const& command, int code = 0) {
        std::string where = "vellmarkctl";
        for (auto const& word : command) where += " " + word;
        auto ctl = Ctl(command);
        EXPECT_EQ(ctl->ExitCode(), code) << where << "\n" << ctl->Errors();
        EXPECT_FALSE(ctl->Output().empty() && ctl->Errors().empty()) << where;
        ExpectNoSecret(where, ctl->Output() + ctl->Errors(), Known());
    }
};

TEST_F(Secrets, EveryCommandMasksTheSeedsSecretsByDefault) {
    StartService(true, {"--log-level", "4"});
    for (auto const& resource : Vellmark::Admin::Resources()) {
        if (resource.queryId != 0) ExpectMasked({"get", resource.name});
        ExpectMasked({"admin", "get", resource.name});
    }
    ExpectMasked({"admin", "get", "service-accounts"});
    ExpectMasked({"admin", "export", "--redact"});

    auto presets = SeedDocument().presets();
    ExpectMasked(
        {"store-presets", WriteFile("presets.json", Vellmark::Json::Print(presets, false))});

    auto const account = WriteFile("account.json", Vellmark::Json::Print(NewAccount(), false));
    ExpectMasked({"account", "create", account});
    ExpectMasked({"account", "create", account}, 1);  // refused: it exists now
    ExpectMasked({"account", "update", account});
    ExpectMasked({"account", "delete", NewAccount().accountid()});
    ExpectMasked({"account", "delete", NewAccount().accountid()}, 1);  // refused: gone

    // The seeded person has a GVA account: refused; another person gets one.
    ExpectMasked({"gva", "create", "person-3c8e91f0", "lena.hartmann@example.com", "device-x"}, 1);
    ExpectMasked({"gva", "create", "person-a41d07bb", "lena.hartmann@example.com", "device-y"});
    ExpectMasked({"gva", "update-device-id", "device-51f0c2"});
    ExpectMasked({"gva", "delete", "gva-seeded-1"});
    ExpectMasked({"gva", "delete", "gva-seeded-1"}, 1);

    // The service's own log, at its most detailed, shows none of it either.
    ExpectNoSecret("vellmarkd's log at level 4", Service().Errors(), Known());
}

TEST_F(Secrets, SubscribeMasksEachUpdate) {
    StartService();
    auto subscriber = std::make_unique<ChildProcess>(
        VELLMARKCTL_PATH, std::vector<std::string>{"--runtime-dir", Folder(), "subscribe",
                                                   "sources", "--count", "1"});
    ASSERT_TRUE(subscriber->WaitForError("subscribed to sources", kBound)) << subscriber->Errors();
    AdminPut("sources", SeedDocument().sources());
    ASSERT_EQ(subscriber->ExitCode(), 0) << subscriber->Errors();
    VellmarkPB::sources printed;
    ASSERT_EQ(Vellmark::Json::Parse(subscriber->Output(), printed), "") << subscriber->Output();
    VellmarkPB::sources masked = SeedDocument().sources();
    Vellmark::Admin::Mask(masked);
    EXPECT_TRUE(Same(printed, masked)) << subscriber->Output();
    ExpectNoSecret("subscribe", subscriber->Output() + subscriber->Errors(), Known());
}

TEST_F(Secrets, TheMonitorMasksASourcesUpdateAndNeverShowsSecrets) {
    StartService();
    auto updates = std::make_shared<Inbox<VellmarkPB::sources>>();
    Client().SubscribeSourcesRequest(
        "", [updates](VellmarkPB::sources const& update) { updates->Put(update); });
    WaitUntilConnected();
    // No wait after starting: --timeout 0 means no limit, also while it connects.
    auto monitor = std::make_unique<ChildProcess>(
        VELLMARKCTL_PATH, std::vector<std::string>{"--runtime-dir", Folder(), "--timeout", "0",
                                                   "monitor", "--count", "1"});
    ASSERT_TRUE(monitor->WaitForError("watching the traffic", kBound)) << monitor->Errors();
    AdminPut("sources", SeedDocument().sources());
    ASSERT_TRUE(updates->WaitFor(1, kBound));
    ASSERT_EQ(monitor->ExitCode(), 0) << monitor->Errors();
    auto const line = monitor->Output();
    EXPECT_NE(line.find("VELLMARK_MESSAGE_SOURCES_UPDATE"), std::string::npos) << line;
    EXPECT_NE(line.find("Aurora Radio"), std::string::npos) << line;
    EXPECT_NE(line.find(Redact::RedactID("acct-aurora-55102938", '-')), std::string::npos) << line;
    ExpectNoSecret("monitor", line + monitor->Errors(), Known());

    auto refused = Ctl({"monitor", "--show-secrets"});
    EXPECT_EQ(refused->ExitCode(), 2);
}

TEST_F(Secrets, TheExportIsAFaithfulBackupAndRedactGivesAMaskedCopy) {
    StartService();
    auto backup = Ctl({"admin", "export"});
    ASSERT_EQ(backup->ExitCode(), 0) << backup->Errors();
    Vellmark::Admin::StoreDocument exported;
    ASSERT_EQ(Vellmark::Json::Parse(backup->Output(), exported), "");
    // Seeding the backup back gives the same store.
    auto seed = Ctl({"admin", "seed", WriteFile("backup.json", backup->Output())});
    ASSERT_EQ(seed->ExitCode(), 0) << seed->Errors();
    auto again = Ctl({"admin", "export"});
    EXPECT_EQ(again->Output(), backup->Output());
    EXPECT_NE(backup->Output().find("rt-4f9a1c0e7b2d4e6f8a9b0c1d2e3f4a5b"), std::string::npos);

    auto redacted = Ctl({"admin", "export", "--redact"});
    ASSERT_EQ(redacted->ExitCode(), 0) << redacted->Errors();
    Vellmark::Admin::StoreDocument masked = exported;
    Vellmark::Admin::Mask(masked);
    Vellmark::Admin::StoreDocument printed;
    ASSERT_EQ(Vellmark::Json::Parse(redacted->Output(), printed), "");
    EXPECT_TRUE(Same(printed, masked));

    auto help = Ctl({"admin", "export", "--help"});
    EXPECT_NE(help->Output().find("secrets in clear"), std::string::npos) << help->Output();
}

TEST_F(Secrets, TimeoutZeroMeansNoLimitForEveryKindOfCommand) {
    StartService();
    for (std::vector<std::string> command : {std::vector<std::string>{"get", "persons"},
                                             {"admin", "acks"},
                                             {"admin", "get", "persons"}}) {
        command.insert(command.begin(), {"--timeout", "0"});
        auto ctl = Ctl(command);
        EXPECT_EQ(ctl->ExitCode(), 0) << command.back() << ": " << ctl->Errors();
        EXPECT_EQ(ctl->Errors().find("within"), std::string::npos) << ctl->Errors();
    }
}

}  // namespace
}  // namespace Vellmark::EndToEnd
