#include "service/store/Store.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/unit/service/ServiceTestSupport.h"

using namespace Vellmark::Service;

namespace {

using Vellmark::ServiceTest::RawDatabase;
using Vellmark::ServiceTest::ReadBytes;
using Vellmark::ServiceTest::TempFolder;
using Vellmark::ServiceTest::WriteBytes;

VellmarkPB::serviceAccounts Account(std::string const& id, std::string const& name = "") {
    VellmarkPB::serviceAccounts account;
    account.set_accountid(id);
    if (!name.empty()) account.set_name(name);
    return account;
}

std::vector<std::string> IdsOf(std::vector<VellmarkPB::serviceAccounts> const& accounts) {
    std::vector<std::string> ids;
    for (auto const& account : accounts) ids.push_back(account.accountid());
    return ids;
}

// Opening `path` must fail with a StoreError that names the file (and `cause`, if given).
void ExpectRefused(std::string const& path, std::string const& cause = "") {
    try {
        Store store(path);
        ADD_FAILURE() << "the store " << path << " was opened";
    } catch (StoreError const& error) {
        std::string const what = error.what();
        EXPECT_NE(what.find(path), std::string::npos) << what;
        EXPECT_NE(what.find(cause), std::string::npos) << what;
    }
}

class StoreTest : public ::testing::Test {
protected:
    TempFolder folder;
    std::string const path = folder.File("store.db");
};

TEST_F(StoreTest, AResourceNeverStoredIsNothing) {
    Store store(path);
    EXPECT_FALSE(store.Resource("sources").has_value());
    store.PutResource("presets", "");
    ASSERT_TRUE(store.Resource("presets").has_value());
    EXPECT_EQ(*store.Resource("presets"), "");
    EXPECT_FALSE(store.Resource("sources").has_value());
}

TEST_F(StoreTest, ResourcesSurviveClosingAndReopening) {
    std::string const binary("\x00\x01\xff payload \x00", 13);
    {
        Store store(path);
        store.PutResource("sources", binary);
        store.PutResource("presets", "first");
        store.PutResource("presets", "second");
    }
    Store store(path);
    ASSERT_TRUE(store.Resource("sources").has_value());
    EXPECT_EQ(*store.Resource("sources"), binary);
    ASSERT_TRUE(store.Resource("presets").has_value());
    EXPECT_EQ(*store.Resource("presets"), "second");
    EXPECT_FALSE(store.Resource("groups").has_value());
}

TEST_F(StoreTest, AccountsSurviveReopeningInTheOrderTheyWereCreated) {
    {
        Store store(path);
        for (auto const* id : {"zulu", "alpha", "mike", "bravo"}) {
            store.PutAccount(Account(id, std::string("name of ") + id));
        }
    }
    Store store(path);
    auto const accounts = store.Accounts();
    EXPECT_EQ(IdsOf(accounts), (std::vector<std::string>{"zulu", "alpha", "mike", "bravo"}));
    ASSERT_TRUE(store.Account("mike").has_value());
    EXPECT_EQ(store.Account("mike")->name(), "name of mike");
    EXPECT_FALSE(store.Account("nobody").has_value());
}

TEST_F(StoreTest, ReplacingAnAccountKeepsItsPlace) {
    {
        Store store(path);
        store.PutAccount(Account("one", "first"));
        store.PutAccount(Account("two", "second"));
        store.PutAccount(Account("three", "third"));
        store.PutAccount(Account("one", "renamed"));
        EXPECT_EQ(IdsOf(store.Accounts()), (std::vector<std::string>{"one", "two", "three"}));
    }
    Store store(path);
    auto const accounts = store.Accounts();
    ASSERT_EQ(IdsOf(accounts), (std::vector<std::string>{"one", "two", "three"}));
    EXPECT_EQ(accounts[0].name(), "renamed");
}

TEST_F(StoreTest, DeletingAnAccountRemovesOnlyThatAccount) {
    Store store(path);
    store.PutAccount(Account("one"));
    store.PutAccount(Account("two"));
    store.PutAccount(Account("three"));
    EXPECT_TRUE(store.DeleteAccount("two"));
    EXPECT_FALSE(store.DeleteAccount("two"));
    EXPECT_FALSE(store.DeleteAccount("unknown"));
    EXPECT_EQ(IdsOf(store.Accounts()), (std::vector<std::string>{"one", "three"}));
    store.PutAccount(Account("four"));
    EXPECT_EQ(IdsOf(store.Accounts()), (std::vector<std::string>{"one", "three", "four"}));
    store.DeleteAllAccounts();
    EXPECT_TRUE(store.Accounts().empty());
}

TEST_F(StoreTest, NextNumberCountsFromOneAndNeverRepeatsAcrossReopening) {
    {
        Store store(path);
        EXPECT_EQ(store.NextNumber("gva"), 1u);
        EXPECT_EQ(store.NextNumber("gva"), 2u);
        EXPECT_EQ(store.NextNumber("other"), 1u);
        EXPECT_EQ(store.NextNumber("gva"), 3u);
    }
    Store store(path);
    EXPECT_EQ(store.NextNumber("gva"), 4u);
    EXPECT_EQ(store.NextNumber("other"), 2u);
}

TEST_F(StoreTest, ATransactionWithoutCommitIsRolledBack) {
    {
        Store store(path);
        store.PutResource("presets", "kept");
        store.PutAccount(Account("kept"));
        {
            Store::Transaction transaction(store);
            store.PutResource("presets", "dropped");
            store.PutResource("sources", "dropped");
            store.PutAccount(Account("dropped"));
            store.DeleteAccount("kept");
            EXPECT_EQ(store.NextNumber("gva"), 1u);
        }
        EXPECT_EQ(*store.Resource("presets"), "kept");
        EXPECT_FALSE(store.Resource("sources").has_value());
        EXPECT_EQ(IdsOf(store.Accounts()), std::vector<std::string>{"kept"});
    }
    Store store(path);
    EXPECT_EQ(*store.Resource("presets"), "kept");
    EXPECT_FALSE(store.Resource("sources").has_value());
    EXPECT_EQ(IdsOf(store.Accounts()), std::vector<std::string>{"kept"});
    EXPECT_EQ(store.NextNumber("gva"), 1u);
}

TEST_F(StoreTest, ACommittedTransactionIsKept) {
    {
        Store store(path);
        Store::Transaction transaction(store);
        store.PutResource("presets", "committed");
        store.PutAccount(Account("committed"));
        transaction.Commit();
    }
    Store store(path);
    EXPECT_EQ(*store.Resource("presets"), "committed");
    EXPECT_EQ(IdsOf(store.Accounts()), std::vector<std::string>{"committed"});
}

TEST_F(StoreTest, TheGenerationChangesWithEveryWriteAndRollbackAndOnlyThen) {
    Store store(path);
    auto generation = store.Generation();
    auto const changed = [&] {
        bool const moved = store.Generation() != generation;
        generation = store.Generation();
        return moved;
    };
    store.Resource("presets");
    store.Accounts();
    EXPECT_FALSE(changed()) << "reading changes nothing";
    store.PutResource("presets", "a");
    EXPECT_TRUE(changed());
    store.PutAccount(Account("one"));
    EXPECT_TRUE(changed());
    store.DeleteAccount("one");
    EXPECT_TRUE(changed());
    store.DeleteAllAccounts();
    EXPECT_TRUE(changed());
    {
        Store::Transaction transaction(store);
        store.PutResource("presets", "b");
        changed();
    }
    EXPECT_TRUE(changed()) << "what was read inside the transaction is gone";
    EXPECT_EQ(*store.Resource("presets"), "a");
}

TEST_F(StoreTest, KeepsItsFileInWalMode) {
    { Store store(path); }
    RawDatabase database(path);
    EXPECT_EQ(database.Text("PRAGMA journal_mode"), "wal");
}

TEST_F(StoreTest, RefusesAFileThatIsNotADatabase) {
    std::string garbage;
    while (garbage.size() < 8192) garbage += "this is not a database at all; ";
    WriteBytes(path, garbage);
    ExpectRefused(path);
    EXPECT_EQ(ReadBytes(path), garbage);
}

TEST_F(StoreTest, RefusesADatabaseThatIsNotAStore) {
    {
        RawDatabase other(path);
        other.Execute("CREATE TABLE notes(body TEXT); INSERT INTO notes VALUES('keep me');");
    }
    ExpectRefused(path);
    RawDatabase other(path);
    EXPECT_EQ(other.Text("SELECT body FROM notes"), "keep me");
    EXPECT_EQ(other.Text("SELECT count(*) FROM sqlite_master WHERE name = 'accounts'"), "0");
}

TEST_F(StoreTest, RefusesAStoreOfANewerVersionAndLeavesItsContent) {
    {
        Store store(path);
        store.PutAccount(Account("precious"));
        store.PutResource("presets", "stored");
    }
    { RawDatabase(path).Execute("PRAGMA user_version = 2"); }
    ExpectRefused(path, "newer");
    RawDatabase database(path);
    EXPECT_EQ(database.Text("PRAGMA user_version"), "2");
    EXPECT_EQ(database.Text("SELECT account_id FROM accounts"), "precious");
    EXPECT_EQ(database.Text("SELECT payload FROM resources WHERE name = 'presets'"), "stored");
}

TEST_F(StoreTest, RefusesADamagedStore) {
    {
        Store store(path);
        std::string const payload(500, 'p');
        for (int i = 0; i < 200; ++i)
            store.PutAccount(Account("account-" + std::to_string(i), payload));
    }
    // Everything is in the main file once the store is closed.
    ASSERT_FALSE(std::filesystem::exists(path + "-wal"));
    std::string bytes = ReadBytes(path);
    ASSERT_GE(bytes.size(), 100u);
    // The page size, big-endian at offset 16 of the header (1 stands for 65536).
    std::size_t pageSize =
        (static_cast<unsigned char>(bytes[16]) << 8) | static_cast<unsigned char>(bytes[17]);
    if (pageSize == 1) pageSize = 65536;
    std::size_t const pages = bytes.size() / pageSize;
    ASSERT_GE(pages, 8u) << "too few pages to damage one in the middle";
    // A whole page in the middle, far from the header, becomes garbage.
    std::size_t const damaged = pages / 2;
    for (std::size_t i = 0; i < pageSize; ++i) bytes[damaged * pageSize + i] = '\xA5';
    WriteBytes(path, bytes);

    ExpectRefused(path, "damaged");
    EXPECT_EQ(ReadBytes(path), bytes);
}

TEST_F(StoreTest, RefusesAStoreInUse) {
    Store first(path);
    first.PutResource("presets", "before");
    ExpectRefused(path);
    first.PutResource("presets", "after");
    EXPECT_EQ(*first.Resource("presets"), "after");
}

TEST_F(StoreTest, RefusesAPathInAFolderThatDoesNotExist) {
    std::string const missing = folder.File("missing/store.db");
    ExpectRefused(missing);
    EXPECT_FALSE(std::filesystem::exists(folder.File("missing")));
}

TEST_F(StoreTest, CreatesAnEmptyStoreWhenTheFileDoesNotExist) {
    ASSERT_FALSE(std::filesystem::exists(path));
    {
        Store store(path);
        EXPECT_EQ(store.Path(), path);
        EXPECT_TRUE(store.Accounts().empty());
    }
    EXPECT_TRUE(std::filesystem::exists(path));
    Store reopened(path);
    EXPECT_TRUE(reopened.Accounts().empty());
}

}  // namespace

namespace {

unsigned ModeOf(std::string const& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) return 0;
    return status.st_mode & 07777;
}

TEST_F(StoreTest, ANewStoreAndItsJournalAreTheOwnersAlone) {
    ::umask(0);  // the loosest a process may run with
    {
        Store store(path);
        EXPECT_FALSE(store.TightenedFrom().has_value());
        store.PutResource("sources", "x");
        EXPECT_EQ(ModeOf(path), 0600u);
        ASSERT_TRUE(std::filesystem::exists(path + "-wal"));
        EXPECT_EQ(ModeOf(path + "-wal"), 0600u);
        EXPECT_FALSE(std::filesystem::exists(path + "-shm"));
    }
    ::umask(022);
    EXPECT_EQ(ModeOf(path), 0600u);
}

TEST_F(StoreTest, AStoreOthersCanReadIsTightenedToItsOwnersBitsAndSaysFromWhat) {
    { Store store(path); }
    ASSERT_EQ(::chmod(path.c_str(), 0664), 0);
    WriteBytes(path + "-shm", "");
    ASSERT_EQ(::chmod((path + "-shm").c_str(), 0644), 0);
    {
        Store store(path);
        EXPECT_EQ(store.TightenedFrom(), 0664u);
        EXPECT_EQ(ModeOf(path), 0600u);
        EXPECT_EQ(ModeOf(path + "-shm"), 0600u);
    }
    Store again(path);
    EXPECT_FALSE(again.TightenedFrom().has_value());
}

TEST_F(StoreTest, AWritePastTheSizeLimitFailsAsOnAFullDiskAndKeepsNothing) {
    Store store(path, StoreOptions{64 * 1024});
    std::string const big(10 * 1024, 'b');
    int stored = 0;
    try {
        for (; stored < 20; ++stored) {
            Store::Transaction transaction(store);
            store.PutResource("r" + std::to_string(stored), big);
            transaction.Commit();
        }
        ADD_FAILURE() << "200 KB went into a 64 KB store";
    } catch (StoreError const& error) {
        EXPECT_NE(error.Reason().find("database or disk is full"), std::string::npos)
            << error.what();
        EXPECT_EQ(error.Reason().find(path), std::string::npos) << error.Reason();
        EXPECT_NE(std::string(error.what()).find(path), std::string::npos) << error.what();
    }
    EXPECT_GT(stored, 0);
    EXPECT_FALSE(store.Resource("r" + std::to_string(stored)).has_value());
    EXPECT_TRUE(store.Resource("r0").has_value());
}

}  // namespace

namespace {

TEST_F(StoreTest, AnEmptyFileIsRefusedAsAStoreUnlessANewOneIsAskedFor) {
    WriteBytes(path, "");
    ExpectRefused(path, "an empty file, not a vellmarkd store");
    EXPECT_EQ(ReadBytes(path), "");
    StoreOptions options;
    options.newStore = true;
    { Store store(path, options); }
    Store reopened(path);
    EXPECT_FALSE(reopened.Resource("sources").has_value());
}

TEST_F(StoreTest, AStoreInAFolderThatIsNotThereSaysSoAndLeavesNothing) {
    std::string const missing = folder.File("no/such/folder/store.db");
    ExpectRefused(missing, "its folder does not exist");
    EXPECT_FALSE(std::filesystem::exists(folder.File("no")));
}

TEST_F(StoreTest, AFileMadeForANewStoreIsTakenAwayWhenTheStoreCannotBeMade) {
    // Too small for the store's own tables.
    StoreOptions tiny;
    tiny.maxBytes = 1;
    EXPECT_THROW(Store store(path, tiny), StoreError);
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_FALSE(std::filesystem::exists(path + "-wal"));
}

TEST_F(StoreTest, AnExistingFileIsKeptWhenOpeningItFails) {
    Store first(path);  // holds the store: a second opening fails
    ExpectRefused(path, "");
    EXPECT_TRUE(std::filesystem::exists(path));
}

}  // namespace

namespace {

TEST_F(StoreTest, AStoreInMemoryLeavesNoFileAndTakesBackAnImage) {
    Store::Options inMemory;
    inMemory.inMemory = true;
    Store store(path, inMemory);
    store.PutResource("presets", "kept");
    store.PutAccount(Account("a1"));
    std::string const image = store.Image();

    store.PutResource("presets", "changed");
    store.DeleteAccount("a1");
    store.PutAccount(Account("a2"));
    auto const before = store.Generation();
    store.Restore(image);
    EXPECT_NE(store.Generation(), before) << "what was read before may not be kept";
    EXPECT_EQ(store.Resource("presets"), std::optional<std::string>("kept"));
    EXPECT_EQ(IdsOf(store.Accounts()), std::vector<std::string>{"a1"});
    // Written again after a restore, and restored again.
    store.PutAccount(Account("a3"));
    store.Restore(image);
    EXPECT_EQ(IdsOf(store.Accounts()), std::vector<std::string>{"a1"});
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(StoreTest, AStoreInAFileIsNeverReplacedByAnImage) {
    Store store(path);
    store.PutResource("presets", "mine");
    std::string const image = store.Image();
    store.PutResource("presets", "newer");
    EXPECT_THROW(store.Restore(image), StoreError);
    EXPECT_EQ(store.Resource("presets"), std::optional<std::string>("newer"));
}

}  // namespace
