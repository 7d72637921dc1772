// What vellmarkd keeps to itself: its store and the files SQLite makes beside it, the
// folders it makes, a runtime folder others could write to, and host paths in errors.
#include <sys/stat.h>

#include "tests/e2e/ServiceFixture.h"

namespace Vellmark::EndToEnd {
namespace {

unsigned ModeOf(std::string const& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) return 0;
    return status.st_mode & 07777;
}

class PrivateFiles : public ServiceTest {};

TEST_F(PrivateFiles, TheStoreAndItsJournalAreTheOwnersAlone) {
    StartService();
    // A write keeps the write-ahead log open beside the store while the service runs.
    AdminPut("persons", SeedDocument().persons());
    EXPECT_EQ(ModeOf(StorePath()), 0600u);
    for (auto const* suffix : {"-wal", "-shm"}) {
        std::string const file = StorePath() + suffix;
        if (std::filesystem::exists(file)) {
            EXPECT_EQ(ModeOf(file), 0600u) << file;
        }
    }
    EXPECT_TRUE(std::filesystem::exists(StorePath() + "-wal"));
    StopService();
    EXPECT_EQ(ModeOf(StorePath()), 0600u);
}

TEST_F(PrivateFiles, FoldersTheServiceMakesArePrivate) {
    std::string const store = Folder() + "/data/vellmarkd/vellmark.db";
    ChildProcess service(VELLMARKD_PATH, {"--db", store, "--runtime-dir", Folder() + "/run/tarv"});
    ASSERT_TRUE(service.WaitForError("vellmarkd: serving", kBound)) << service.Errors();
    for (auto const* made : {"/data", "/data/vellmarkd", "/run", "/run/tarv"}) {
        EXPECT_EQ(ModeOf(Folder() + made), 0700u) << made;
    }
    EXPECT_EQ(ModeOf(store), 0600u);
    EXPECT_EQ(ModeOf(Folder() + "/run/tarv/Vellmark.sock"), 0660u);
    EXPECT_EQ(ModeOf(Folder() + "/run/tarv/VellmarkAdmin.sock"), 0660u);
    service.Signal(SIGTERM);
    EXPECT_EQ(service.ExitCode(), 0) << service.Errors();
}

TEST_F(PrivateFiles, AStoreOthersCanReadIsTightenedAtStartWithOneLine) {
    StartService();
    StopService();
    ASSERT_EQ(::chmod(StorePath().c_str(), 0644), 0);
    StartService(false);
    EXPECT_EQ(ModeOf(StorePath()), 0600u);
    auto const log = Service().Errors();
    auto const line = log.find("was readable by group or others (mode 644)");
    ASSERT_NE(line, std::string::npos) << log;
    EXPECT_EQ(log.find("was readable", line + 1), std::string::npos) << log;
    // Its data is still there.
    EXPECT_TRUE(Same(AdminGet<VellmarkPB::persons>("persons"), SeedDocument().persons()));
    StopService();

    // Tight already: nothing to say.
    StartService(false);
    EXPECT_EQ(Service().Errors().find("was readable"), std::string::npos);
}

TEST_F(PrivateFiles, ARuntimeFolderEveryUserMayWriteToIsRefused) {
    for (mode_t mode : {0777, 01777}) {
        ASSERT_EQ(::chmod(Folder().c_str(), mode), 0);
        ChildProcess service(VELLMARKD_PATH, {"--db", StorePath(), "--runtime-dir", Folder()});
        EXPECT_EQ(service.ExitCode(), 1) << mode;
        auto const errors = service.Errors();
        EXPECT_NE(errors.find("every user may write to"), std::string::npos) << errors;
        EXPECT_NE(errors.find(Folder()), std::string::npos) << errors;
        EXPECT_FALSE(std::filesystem::exists(Folder() + "/Vellmark.sock"));
    }
    ASSERT_EQ(::chmod(Folder().c_str(), 0700), 0);
}

TEST_F(PrivateFiles, AFullStoreFailsTheWriteWithAnErrorThatNamesNoPath) {
    StartService(false, {"--max-store-bytes", "96K"});
    WaitUntilConnected();
    // Each answer in turn: nothing for a success, the Error for a refusal.
    auto answers = std::make_shared<Inbox<std::optional<VellmarkPB::Error>>>();
    std::size_t created = 0;
    std::optional<VellmarkPB::Error> refusal;
    // Accounts of 8 KB each until the store is full.
    for (int i = 0; i < 40 && !refusal; ++i) {
        VellmarkPB::serviceAccounts account;
        account.set_accountid("acct-fill-" + std::to_string(i));
        account.set_name(std::string(8192, 'n'));
        Client().CreateServiceAccount(
            account, [answers](auto const&) { answers->Put(std::nullopt); },
            [answers](VellmarkPB::Error const& e) { answers->Put(e); });
        ASSERT_TRUE(answers->WaitFor(static_cast<std::size_t>(i) + 1, kBound));
        refusal = answers->At(static_cast<std::size_t>(i));
        if (!refusal) ++created;
    }
    ASSERT_TRUE(refusal.has_value()) << "the store never filled up";
    auto const& error = *refusal;
    EXPECT_EQ(error.code(), VellmarkPB::CODE_INTERNAL_ERROR);
    EXPECT_NE(error.message().find("database or disk is full"), std::string::npos)
        << error.message();
    EXPECT_EQ(error.message().find(Folder()), std::string::npos) << error.message();
    EXPECT_EQ(error.message().find(".db"), std::string::npos) << error.message();
    // The service's own log has the whole story.
    EXPECT_TRUE(Service().WaitForError(StorePath() + ": ", kBound)) << Service().Errors();
    // Nothing of the failed write was kept, and what was written before is intact.
    auto const accounts = AdminGet<Vellmark::Admin::ServiceAccountList>("service-accounts");
    EXPECT_EQ(static_cast<std::size_t>(accounts.serviceaccounts_size()), created);
}

}  // namespace
}  // namespace Vellmark::EndToEnd
