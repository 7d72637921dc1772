// A store is never quietly replaced: an empty or foreign file is refused unless a new
// store is asked for, and a store that cannot be written says what is read-only.
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/ipc/IPCMessageRouterFactory.h"
#include "tests/e2e/ProgramsForAnotherUser.h"
#include "tests/e2e/ServiceFixture.h"

namespace Vellmark::EndToEnd {
namespace {

std::uintmax_t SizeOf(std::string const& path) {
    std::error_code ignored;
    return std::filesystem::file_size(path, ignored);
}

class StoreSafety : public ServiceTest {
protected:
    // vellmarkd on the test's store with `extra` arguments; it must exit with 1 and say
    // `why`, naming the store.
    void ExpectRefused(std::vector<std::string> const& extra, std::string const& why) {
        std::vector<std::string> arguments{"--db", StorePath(), "--runtime-dir", Folder()};
        arguments.insert(arguments.end(), extra.begin(), extra.end());
        auto service = Run(arguments);
        EXPECT_EQ(service->ExitCode(), 1) << service->Errors();
        EXPECT_NE(service->Errors().find(why), std::string::npos) << service->Errors();
        EXPECT_NE(service->Errors().find(StorePath()), std::string::npos) << service->Errors();
    }

    virtual std::unique_ptr<ChildProcess> Run(std::vector<std::string> const& arguments) {
        return std::make_unique<ChildProcess>(VELLMARKD_PATH, arguments);
    }
};

TEST_F(StoreSafety, AnEmptyFileIsRefusedUntilANewStoreIsAskedFor) {
    WriteFile("vellmark.db", "");
    ExpectRefused({}, "an empty file, not a vellmarkd store");
    ExpectRefused({}, "--new-store");
    EXPECT_EQ(SizeOf(StorePath()), 0u) << "the file was left as it was";

    StartService(false, {"--new-store"});
    EXPECT_EQ(
        AdminGet<Vellmark::Admin::ServiceAccountList>("service-accounts").serviceaccounts_size(),
        0);
    StopService();

    // Seeding asks for a new store too.
    std::filesystem::remove(StorePath());
    WriteFile("vellmark.db", "");
    StartService(true);
    EXPECT_TRUE(Same(AdminGet<VellmarkPB::persons>("persons"), SeedDocument().persons()));
}

TEST_F(StoreSafety, AnSqliteDatabaseWithoutTablesIsNotTakenForANewStore) {
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open(StorePath().c_str(), &db), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(db, "PRAGMA application_id=12345", nullptr, nullptr, nullptr),
              SQLITE_OK);
    sqlite3_close(db);
    auto const size = SizeOf(StorePath());
    ASSERT_GT(size, 0u);
    ExpectRefused({}, "without any table, not a vellmarkd store");
    EXPECT_EQ(SizeOf(StorePath()), size);
    StartService(false, {"--new-store"});
}

TEST_F(StoreSafety, AnotherApplicationsDatabaseIsRefusedEvenWhenANewStoreIsAskedFor) {
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open(StorePath().c_str(), &db), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(db, "CREATE TABLE notes(text); INSERT INTO notes VALUES('mine')",
                           nullptr, nullptr, nullptr),
              SQLITE_OK);
    sqlite3_close(db);
    ExpectRefused({"--new-store"}, "not a vellmarkd store");
    ExpectRefused({"--seed", VELLMARK_SEED_PATH}, "not a vellmarkd store");
}

// The store as another user would see it: vellmarkd started as user 65534 (see
// ProgramsForAnotherUser.h) when the test runs as root (root may write anything), as
// itself otherwise.
class ReadOnlyStoreAsAnotherUser : public StoreSafety {
protected:
    static bool AsRoot() { return ::geteuid() == 0; }
    bool CanRun() const { return !AsRoot() || ProgramsForAnotherUser::Possible(); }
    std::unique_ptr<ChildProcess> Run(std::vector<std::string> const& arguments) override {
        if (!AsRoot()) return StoreSafety::Run(arguments);
        return ProgramsForAnotherUser::Get().Start("vellmarkd", arguments);
    }
    // Gives the test's files to the user the service runs as.
    void GiveAway(std::string const& path) {
        if (AsRoot()) {
            ASSERT_EQ(::chown(path.c_str(), 65534, 65534), 0) << path;
        }
    }
};

TEST_F(ReadOnlyStoreAsAnotherUser, AFileOrAFolderThatCannotBeWrittenIsNamed) {
    if (!CanRun()) GTEST_SKIP() << "cannot run vellmarkd as another user here";
    StartService();
    StopService();
    GiveAway(Folder());
    GiveAway(StorePath());
    ASSERT_EQ(::chmod(StorePath().c_str(), 0400), 0);
    ExpectRefused({}, "the file is read-only to this user (mode 400");

    ASSERT_EQ(::chmod(StorePath().c_str(), 0600), 0);
    ASSERT_EQ(::chmod(Folder().c_str(), 0500), 0);
    ExpectRefused({}, "its folder is read-only to this user (mode 500");
    ASSERT_EQ(::chmod(Folder().c_str(), 0700), 0);
}

TEST_F(StoreSafety, AStoreOnAReadOnlyMountSaysSo) {
    bool const canMount = ::geteuid() == 0 && kChildLauncher.empty() &&
                          std::system("unshare -m true >/dev/null 2>&1") == 0;
    if (!canMount) GTEST_SKIP() << "cannot make a read-only mount here";
    StartService();
    StopService();
    std::string const folder = Folder();
    ChildProcess service("unshare",
                         {"-m", "sh", "-c",
                          "mount --bind \"$1\" \"$1\" && mount -o remount,ro,bind \"$1\" \"$1\" "
                          "&& exec \"$2\" --db \"$1/vellmark.db\" --runtime-dir \"$1/run\"",
                          "sh", folder, VELLMARKD_PATH});
    EXPECT_EQ(service.ExitCode(), 1) << service.Errors();
    EXPECT_NE(service.Errors().find("it is on a read-only file system"), std::string::npos)
        << service.Errors();
}

TEST_F(StoreSafety, ARequestUnderAnIdentifierTheServiceDoesNotServeIsAnsweredAndLoggedOnce) {
    StartService();
    auto socket = std::make_shared<Inbox<std::shared_ptr<Network::ConnectorSocket>>>();
    auto listener = IL::CreateClientListener("test", std::chrono::milliseconds(10));
    auto listening = listener->Listen(IPCDirectory::Get().Lookup("Vellmark"),
                                      [socket](auto const& s) { socket->Put(s); });
    ASSERT_TRUE(socket->WaitFor(1, kBound));
    auto router = IPCMessageRouterFactory::CreateRouter("test", nullptr, socket->At(0));
    ASSERT_NE(router, nullptr);
    for (unsigned int id : {14u, 99u}) {
        auto answer = std::make_shared<Inbox<IPCMessageEnvelope>>();
        router->SendEnvelopeRequest(id, IPCMessageEnvelope(),
                                    [answer](IPCMessageEnvelope const& e) { answer->Put(e); });
        ASSERT_TRUE(answer->WaitFor(1, kBound)) << id;
        VellmarkPB::Error error;
        EXPECT_EQ(answer->At(0).payload_type_name(), "Error");
        ASSERT_TRUE(answer->At(0).GetPayload(error));
        EXPECT_EQ(error.subcode(), VellmarkPB::CODE_UNKNOWN_REQUEST);
        // 14 is a value of MessageId and named; 99 is none, so it cannot be.
        EXPECT_EQ(static_cast<unsigned int>(error.messageid()), id == 14 ? 14u : 0u);
    }
    router->Stop();
    listening.Disconnect();
    // The service's task logs the connection's end after everything it did for it.
    ASSERT_TRUE(Service().WaitForError("client gone: session 1", kBound)) << Service().Errors();
    auto const log = Service().Errors();
    EXPECT_NE(log.find("request 14 (reserved) from session"), std::string::npos) << log;
    auto const line = log.find("request 99 from session");
    ASSERT_NE(line, std::string::npos) << log;
    EXPECT_EQ(log.find("request 99 from session", line + 1), std::string::npos) << log;
}

}  // namespace
}  // namespace Vellmark::EndToEnd
