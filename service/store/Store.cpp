#include "service/store/Store.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string_view>

#include "admin/Sensitivity.h"

namespace Vellmark::Service {

namespace {

// Marks a file as a store of ours ("VMK1"), so that another SQLite file is refused.
constexpr int kApplicationId = 0x564D4B31;
// The schema version this build writes; a newer one is refused.
constexpr int kSchemaVersion = 1;

char const kSchema[] =
    "CREATE TABLE resources(name TEXT PRIMARY KEY, payload BLOB NOT NULL);"
    "CREATE TABLE accounts(account_id TEXT PRIMARY KEY, position INTEGER NOT NULL,"
    "                      payload BLOB NOT NULL);"
    "CREATE TABLE counters(name TEXT PRIMARY KEY, value INTEGER NOT NULL);";

// What opening found at the store's path before SQLite saw it.
struct Found {
    bool created = false;
    // The mode of an existing file that group or others could read, before tightening.
    std::optional<unsigned> tightenedFrom;
};

// Makes the store's file 0600 when there is none, so that SQLite, which gives its -wal and
// -shm files the store's mode, never makes any of them readable by others. An existing file
// (and any -wal or -shm file beside it) that group or others may read is tightened.
Found MakePrivate(std::string const& path) {
    Found found;
    int const fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd >= 0) {
        ::close(fd);
        found.created = true;
        return found;
    }
    struct stat status {};
    if (errno != EEXIST || ::stat(path.c_str(), &status) != 0) return found;
    if ((status.st_mode & 077) == 0) return found;
    for (char const* suffix : {"", "-wal", "-shm"}) {
        std::string const file = path + suffix;
        struct stat each {};
        if (::stat(file.c_str(), &each) == 0) ::chmod(file.c_str(), each.st_mode & 0700);
    }
    found.tightenedFrom = static_cast<unsigned>(status.st_mode & 0777);
    return found;
}

std::string ModeAndOwner(std::string const& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) return std::strerror(errno);
    char text[64];
    std::snprintf(text, sizeof text, "mode %03o, owner uid %u", status.st_mode & 0777,
                  static_cast<unsigned>(status.st_uid));
    return text;
}

// Why this process cannot keep a store at `path`, or "" when nothing stands in the way: a
// read-only mount, a file it may not write, or a folder it may not write, where SQLite
// keeps its write-ahead log beside the store.
std::string WhyNotWritable(std::string const& path) {
    std::string folder = std::filesystem::path(path).parent_path().string();
    if (folder.empty()) folder = ".";
    struct statvfs mount {};
    if (::statvfs(folder.c_str(), &mount) == 0 && (mount.f_flag & ST_RDONLY)) {
        return "it is on a read-only file system";
    }
    if (::access(path.c_str(), F_OK) == 0 && ::access(path.c_str(), R_OK | W_OK) != 0) {
        return "the file is read-only to this user (" + ModeAndOwner(path) + ")";
    }
    if (::access(folder.c_str(), W_OK | X_OK) != 0) {
        if (errno == ENOENT) return "its folder does not exist";
        return "its folder is read-only to this user (" + ModeAndOwner(folder) +
               "), and SQLite keeps its write-ahead log beside the store";
    }
    return {};
}

// Takes back what opening made of a new store when it failed.
void RemoveNewFiles(std::string const& path) {
    for (char const* suffix : {"", "-wal", "-shm"}) ::unlink((path + suffix).c_str());
}

// Errors name an account in masked form: they reach logs and clients.
std::string MaskedAccountId(std::string const& accountId) {
    return Vellmark::Admin::Masked(Vellmark::Admin::Sensitivity::AccountId, accountId);
}

}  // namespace

// One prepared statement, finalized when it goes out of scope.
class Store::Statement {
public:
    Statement(Store const& store, char const* sql) : m_store(store) {
        if (sqlite3_prepare_v2(store.m_db, sql, -1, &m_statement, nullptr) != SQLITE_OK) {
            store.Fail("cannot prepare a statement");
        }
    }
    ~Statement() { sqlite3_finalize(m_statement); }
    Statement(Statement const&) = delete;
    Statement& operator=(Statement const&) = delete;

    Statement& Bind(int index, std::string_view text) {
        Check(sqlite3_bind_text(m_statement, index, text.data(), static_cast<int>(text.size()),
                                SQLITE_TRANSIENT));
        return *this;
    }
    Statement& BindBlob(int index, std::string const& bytes) {
        Check(sqlite3_bind_blob(m_statement, index, bytes.data(), static_cast<int>(bytes.size()),
                                SQLITE_TRANSIENT));
        return *this;
    }
    // True while a row is there to read.
    bool Step() {
        int const result = sqlite3_step(m_statement);
        if (result == SQLITE_ROW) return true;
        if (result != SQLITE_DONE) m_store.Fail("cannot read or write");
        return false;
    }
    std::string Blob(int column) const {
        auto const* data = static_cast<char const*>(sqlite3_column_blob(m_statement, column));
        return std::string(data ? data : "",
                           static_cast<std::size_t>(sqlite3_column_bytes(m_statement, column)));
    }
    std::string Text(int column) const {
        auto const* text = sqlite3_column_text(m_statement, column);
        return text ? reinterpret_cast<char const*>(text) : "";
    }
    std::int64_t Integer(int column) const { return sqlite3_column_int64(m_statement, column); }

private:
    void Check(int result) const {
        if (result != SQLITE_OK) m_store.Fail("cannot bind a value");
    }

    Store const& m_store;
    sqlite3_stmt* m_statement = nullptr;
};

Store::Store(std::string path, Options options)
    : m_path(std::move(path)), m_inMemory(options.inMemory) {
    if (m_inMemory) {
        Open(options, true);
        return;
    }
    if (std::string const why = WhyNotWritable(m_path); !why.empty()) {
        throw StoreError(m_path, "cannot be read and written: " + why);
    }
    Found const found = MakePrivate(m_path);
    m_tightenedFrom = found.tightenedFrom;
    try {
        Open(options, found.created);
    } catch (...) {
        if (found.created) RemoveNewFiles(m_path);
        throw;
    }
}

void Store::Open(Options const& options, bool created) {
    // An existing empty file is not a store: taken as a new one, every account would be
    // gone without a word. It becomes one only when the user asks for a new store.
    struct stat status {};
    if (!created && !options.newStore && ::stat(m_path.c_str(), &status) == 0 &&
        status.st_size == 0) {
        throw StoreError(m_path,
                         "an empty file, not a vellmarkd store; it is not taken for a new "
                         "one, which would start without any account. To make a new store "
                         "there, start with --new-store (or --seed FILE)");
    }
    int const opened = sqlite3_open_v2(m_inMemory ? ":memory:" : m_path.c_str(), &m_db,
                                       SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
    if (opened != SQLITE_OK) {
        std::string const cause = m_db ? sqlite3_errmsg(m_db) : sqlite3_errstr(opened);
        sqlite3_close(m_db);
        m_db = nullptr;
        throw StoreError(m_path, "cannot open: " + cause);
    }
    try {
        sqlite3_extended_result_codes(m_db, 1);
        sqlite3_busy_timeout(m_db, 1000);
        // One process owns the store: a second vellmarkd on the same file is refused
        // instead of sharing it. Exclusive locking also spares WAL its shared-memory file.
        if (!m_inMemory) Execute("PRAGMA locking_mode=EXCLUSIVE");
        // The first read of the header: a file that is not a database fails here.
        int const id = static_cast<int>(Number("PRAGMA application_id"));
        int const schemaVersion = static_cast<int>(Number("PRAGMA user_version"));
        bool const empty = Number("SELECT count(*) FROM sqlite_master") == 0;

        if (!empty && id != kApplicationId) Fail("not a vellmarkd store");
        if (empty && !created && !options.newStore && status.st_size > 0) {
            Fail(
                "an SQLite database without any table, not a vellmarkd store; to make a new "
                "store there, start with --new-store (or --seed FILE)");
        }
        if (schemaVersion > kSchemaVersion) {
            Fail("written by a newer vellmarkd (store version " + std::to_string(schemaVersion) +
                 ")");
        }
        // In memory there is no disk to reach, nor a log beside the store.
        if (!m_inMemory) {
            Statement journal(*this, "PRAGMA journal_mode=WAL");
            if (!journal.Step() || journal.Text(0) != "wal") Fail("cannot switch to WAL mode");
            // Every commit reaches the disk before it returns.
            Execute("PRAGMA synchronous=FULL");
        }
        if (options.maxBytes > 0) {
            auto const pageSize = static_cast<std::uint64_t>(Number("PRAGMA page_size"));
            auto const pages = std::max<std::uint64_t>(1, options.maxBytes / pageSize);
            Execute(("PRAGMA max_page_count=" + std::to_string(pages)).c_str());
        }
        if (!empty) {
            // Damage anywhere in the file shows here rather than in the middle of a request.
            Statement check(*this, "PRAGMA quick_check");
            check.Step();
            std::string const verdict = check.Text(0);
            if (verdict != "ok") Fail("damaged (" + verdict + ")");
        }
        // Takes the exclusive lock now, so that a store in use is refused at start.
        Transaction transaction(*this);
        if (empty) {
            Execute(kSchema);
            Execute(("PRAGMA application_id=" + std::to_string(kApplicationId)).c_str());
            Execute(("PRAGMA user_version=" + std::to_string(kSchemaVersion)).c_str());
        }
        transaction.Commit();
    } catch (...) {
        sqlite3_close(m_db);
        m_db = nullptr;
        throw;
    }
}

Store::~Store() {
    sqlite3_close(m_db);
}

void Store::Execute(char const* sql) {
    char* error = nullptr;
    if (sqlite3_exec(m_db, sql, nullptr, nullptr, &error) != SQLITE_OK) {
        std::string const cause = error ? error : sqlite3_errmsg(m_db);
        sqlite3_free(error);
        throw StoreError(m_path, cause);
    }
}

std::int64_t Store::Number(char const* sql) const {
    Statement statement(*this, sql);
    if (!statement.Step()) Fail(std::string("no result from ") + sql);
    return statement.Integer(0);
}

void Store::Fail(std::string const& what) const {
    std::string reason = what;
    int const code = sqlite3_errcode(m_db);
    if (code != SQLITE_OK && code != SQLITE_ROW && code != SQLITE_DONE) {
        reason += std::string(" (") + sqlite3_errmsg(m_db) + ")";
    }
    throw StoreError(m_path, reason);
}

std::optional<std::string> Store::Resource(std::string const& name) const {
    Statement select(*this, "SELECT payload FROM resources WHERE name = ?");
    select.Bind(1, name);
    if (!select.Step()) return std::nullopt;
    return select.Blob(0);
}

void Store::PutResource(std::string const& name, std::string const& bytes) {
    ++m_generation;
    Statement upsert(*this,
                     "INSERT INTO resources(name, payload) VALUES(?, ?)"
                     " ON CONFLICT(name) DO UPDATE SET payload = excluded.payload");
    upsert.Bind(1, name).BindBlob(2, bytes);
    upsert.Step();
}

std::vector<VellmarkPB::serviceAccounts> Store::Accounts() const {
    std::vector<VellmarkPB::serviceAccounts> accounts;
    Statement select(*this, "SELECT account_id, payload FROM accounts ORDER BY position");
    while (select.Step()) {
        accounts.emplace_back();
        if (!accounts.back().ParseFromString(select.Blob(1))) {
            Fail("damaged account " + MaskedAccountId(select.Text(0)));
        }
    }
    return accounts;
}

std::optional<VellmarkPB::serviceAccounts> Store::Account(std::string const& accountID) const {
    Statement select(*this, "SELECT payload FROM accounts WHERE account_id = ?");
    select.Bind(1, accountID);
    if (!select.Step()) return std::nullopt;
    VellmarkPB::serviceAccounts account;
    if (!account.ParseFromString(select.Blob(0))) {
        Fail("damaged account " + MaskedAccountId(accountID));
    }
    return account;
}

void Store::PutAccount(VellmarkPB::serviceAccounts const& account) {
    ++m_generation;
    Statement upsert(*this,
                     "INSERT INTO accounts(account_id, position, payload)"
                     " VALUES(?, (SELECT coalesce(max(position), 0) + 1 FROM accounts), ?)"
                     " ON CONFLICT(account_id) DO UPDATE SET payload = excluded.payload");
    upsert.Bind(1, account.accountid()).BindBlob(2, account.SerializeAsString());
    upsert.Step();
}

bool Store::DeleteAccount(std::string const& accountID) {
    ++m_generation;
    Statement remove(*this, "DELETE FROM accounts WHERE account_id = ?");
    remove.Bind(1, accountID);
    remove.Step();
    return sqlite3_changes(m_db) > 0;
}

void Store::DeleteAllAccounts() {
    ++m_generation;
    Execute("DELETE FROM accounts");
}

std::uint64_t Store::NextNumber(std::string const& name) {
    Statement upsert(*this,
                     "INSERT INTO counters(name, value) VALUES(?, 1)"
                     " ON CONFLICT(name) DO UPDATE SET value = value + 1 RETURNING value");
    upsert.Bind(1, name);
    upsert.Step();
    auto const value = static_cast<std::uint64_t>(upsert.Integer(0));
    while (upsert.Step()) {
    }
    return value;
}

std::string Store::Image() const {
    sqlite3_int64 size = 0;
    unsigned char* bytes = sqlite3_serialize(m_db, "main", &size, 0);
    if (!bytes) Fail("cannot make an image");
    std::string image(reinterpret_cast<char const*>(bytes), static_cast<std::size_t>(size));
    sqlite3_free(bytes);
    return image;
}

void Store::Restore(std::string const& image) {
    if (!m_inMemory) Fail("only a store in memory is replaced by an image");
    ++m_generation;
    auto* copy = static_cast<unsigned char*>(sqlite3_malloc64(image.size()));
    if (!copy) Fail("no memory for an image");
    std::memcpy(copy, image.data(), image.size());
    // SQLite owns the copy from here, also when this fails.
    auto const size = static_cast<sqlite3_int64>(image.size());
    if (sqlite3_deserialize(m_db, "main", copy, size, size,
                            SQLITE_DESERIALIZE_FREEONCLOSE | SQLITE_DESERIALIZE_RESIZEABLE) !=
        SQLITE_OK) {
        Fail("cannot take an image");
    }
}

Store::Transaction::Transaction(Store& store) : m_store(store) {
    m_store.Execute("BEGIN IMMEDIATE");
}

Store::Transaction::~Transaction() {
    if (m_done) return;
    sqlite3_exec(m_store.m_db, "ROLLBACK", nullptr, nullptr, nullptr);
    ++m_store.m_generation;
}

void Store::Transaction::Commit() {
    try {
        m_store.Execute("COMMIT");
    } catch (...) {
        sqlite3_exec(m_store.m_db, "ROLLBACK", nullptr, nullptr, nullptr);
        ++m_store.m_generation;
        m_done = true;
        throw;
    }
    m_done = true;
}

}  // namespace Vellmark::Service
