// Nothing silently lost to the frame limit: writes that would make an answer too big are
// refused, a request too big is refused before it is sent, and the backup goes through at
// any size the service accepts.
#include "tests/e2e/ServiceFixture.h"

namespace Vellmark::EndToEnd {
namespace {

constexpr char kLimit[] = "64K";
constexpr std::size_t kLimitBytes = 64 * 1024;

class LargeData : public ServiceTest {
protected:
    void StartLimited(bool seed = true) { StartService(seed, {"--max-frame-bytes", kLimit}); }
    // vellmarkctl with the service's frame limit.
    std::unique_ptr<ChildProcess> LimitedCtl(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {"--max-frame-bytes", kLimit});
        return Ctl(arguments);
    }
    std::string AccountFile(std::string const& id, std::size_t nameBytes) {
        VellmarkPB::serviceAccounts account;
        account.set_accountid(id);
        account.set_provider("HARBOR_PODCASTS");
        account.set_name(std::string(nameBytes, 'n'));
        return WriteFile(id + ".json", Vellmark::Json::Print(account, false));
    }
};

TEST_F(LargeData, AWriteThatWouldMakeAnAnswerTooBigIsRefusedAndEveryAnswerStillComes) {
    StartLimited();
    int created = 0;
    std::unique_ptr<ChildProcess> refused;
    for (int i = 0; i < 8 && !refused; ++i) {
        auto ctl = LimitedCtl(
            {"account", "create", AccountFile("acct-big-" + std::to_string(i), 20 * 1024)});
        if (ctl->ExitCode() == 0) {
            ++created;
        } else {
            refused = std::move(ctl);
        }
    }
    ASSERT_TRUE(refused) << "sources never reached the limit";
    EXPECT_GE(created, 1);
    EXPECT_EQ(refused->ExitCode(), 1) << refused->Errors();
    EXPECT_NE(refused->Errors().find("sources would take a frame of"), std::string::npos)
        << refused->Errors();
    EXPECT_NE(refused->Errors().find("over the frame limit of 65536"), std::string::npos);

    // Every client still gets its answers, the backup included.
    auto sources = LimitedCtl({"get", "sources"});
    ASSERT_EQ(sources->ExitCode(), 0) << sources->Errors();
    VellmarkPB::sources list;
    ASSERT_EQ(Vellmark::Json::Parse(sources->Output(), list), "");
    EXPECT_EQ(list.source_size(), SeedDocument().sources().source_size() + created);
    EXPECT_EQ(LimitedCtl({"admin", "get", "sources"})->ExitCode(), 0);
    EXPECT_EQ(LimitedCtl({"admin", "export"})->ExitCode(), 0);
}

TEST_F(LargeData, ARequestOverTheLimitIsRefusedBeforeItIsSent) {
    StartLimited();
    VellmarkPB::VellmarkPresets presets;
    presets.add_presets()->set_key(std::string(kLimitBytes, 'k'));
    auto const file = WriteFile("presets.json", Vellmark::Json::Print(presets, false));
    auto ctl = LimitedCtl({"store-presets", file});
    EXPECT_EQ(ctl->ExitCode(), 2) << ctl->Errors();
    EXPECT_NE(ctl->Errors().find("over the frame limit of 65536 bytes"), std::string::npos)
        << ctl->Errors();
    EXPECT_NE(ctl->Errors().find("nothing was sent"), std::string::npos);
    auto account = LimitedCtl({"account", "create", AccountFile("acct-huge", kLimitBytes)});
    EXPECT_EQ(account->ExitCode(), 2) << account->Errors();
    // The framework's variable sets the same limit.
    ::setenv("TARV_IPC_MAX_FRAME_BYTES", "65536", 1);
    auto fromEnvironment = Ctl({"store-presets", file});
    ::unsetenv("TARV_IPC_MAX_FRAME_BYTES");
    EXPECT_EQ(fromEnvironment->ExitCode(), 2) << fromEnvironment->Errors();
    EXPECT_NE(fromEnvironment->Errors().find("frame limit of 65536"), std::string::npos);
    // The service heard of neither.
    EXPECT_EQ(Service().Errors().find("request 4 "), std::string::npos);
    EXPECT_EQ(
        AdminGet<Vellmark::Admin::ServiceAccountList>("service-accounts").serviceaccounts_size(),
        SeedDocument().serviceaccounts_size());
}

TEST_F(LargeData, TheBackupGoesThroughAtAnySizeTheServiceAccepts) {
    StartLimited(false);
    // Some 600 KB of accounts, ten times the frame limit; the lists they show in stay small.
    Vellmark::Admin::StoreDocument document = SeedDocument();
    for (int i = 0; i < 600; ++i) {
        auto account = document.serviceaccounts(0);
        account.set_accountid("acct-" + std::to_string(i));
        account.mutable_tokens()->set_refresh_token(std::string(900, 'r'));
        *document.add_serviceaccounts() = account;
    }
    std::string const json = Vellmark::Json::Print(document, false);
    ASSERT_GT(json.size(), 8 * kLimitBytes);
    auto seed = LimitedCtl({"admin", "seed", WriteFile("big.json", json)});
    ASSERT_EQ(seed->ExitCode(), 0) << seed->Errors();

    auto backup = LimitedCtl({"admin", "export"});
    ASSERT_EQ(backup->ExitCode(), 0) << backup->Errors();
    Vellmark::Admin::StoreDocument exported;
    ASSERT_EQ(Vellmark::Json::Parse(backup->Output(), exported), "");
    EXPECT_TRUE(Same(exported, document));
    // The same through the admin client, and the list of accounts alone.
    auto const accounts = AdminGet<Vellmark::Admin::ServiceAccountList>("service-accounts");
    EXPECT_EQ(accounts.serviceaccounts_size(), document.serviceaccounts_size());
}

TEST_F(LargeData, AStoreHoldingMoreThanAFrameIsRefusedAtStartUnderASmallerLimit) {
    StartService(true);
    VellmarkPB::ProductSettings settings;
    settings.set_name(std::string(2 * kLimitBytes, 'n'));
    AdminPut("product-settings", settings);
    StopService();
    ChildProcess service(VELLMARKD_PATH, {"--db", StorePath(), "--runtime-dir", Folder(),
                                          "--max-frame-bytes", kLimit});
    EXPECT_EQ(service.ExitCode(), 1) << service.Errors();
    EXPECT_NE(service.Errors().find("product-settings takes a frame of"), std::string::npos)
        << service.Errors();
    auto bad = std::make_unique<ChildProcess>(
        VELLMARKD_PATH, std::vector<std::string>{"--db", StorePath(), "--max-frame-bytes", "64G"});
    EXPECT_EQ(bad->ExitCode(), 2) << bad->Errors();
}

}  // namespace
}  // namespace Vellmark::EndToEnd
