#pragma once
// Store: the service's data in one SQLite file.
//
// Resources (sources, presets, ...) are kept whole, as their serialized messages, under
// their names; service accounts one row each, in the order they were created. The file is
// in WAL mode with full synchronisation: once a Transaction's Commit() has returned, what
// it wrote survives a crash of the process or of the machine.
//
// Opening refuses, with a StoreError naming the file and the cause, a file that is not a
// store of ours, one that is damaged, one written by a newer version, an empty one (unless
// a new store is asked for), and one this process may not write (saying whether the file,
// its folder or the mount is read-only); it never replaces what it cannot read. A new file
// is made when none exists, and taken away again if opening it fails.
//
// The store holds the product's tokens, so its files are its owner's alone: a new store
// (and with it SQLite's -wal and -shm files, which take the store's mode) is made 0600,
// and an existing one that group or others may read is tightened to its owner's bits.
//
// Not thread-safe: one thread uses a Store (vellmarkd: its own task).
#include <sqlite3.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "VellmarkServiceAccounts.pb.h"

namespace Vellmark::Service {

// What went wrong with the store. what() names the file, for the service's own log;
// Reason() does not, for errors sent to clients, which must not learn the host's paths.
class StoreError : public std::runtime_error {
public:
    StoreError(std::string const& path, std::string reason)
        : std::runtime_error("store " + path + ": " + reason), m_reason(std::move(reason)) {}
    std::string const& Reason() const { return m_reason; }

private:
    std::string m_reason;
};

struct StoreOptions {
    // The largest the store may grow, in bytes (0: no limit). A write that would pass it
    // fails like one on a full disk, and nothing of it is kept.
    std::uint64_t maxBytes = 0;
    // Makes a new store where an empty file (or an SQLite database without tables) stands;
    // without it such a file is refused, never quietly taken for a new store.
    bool newStore = false;
    // Keeps the store in this process's memory, not in a file (fuzzers): the path only
    // names it in errors, and nothing of it outlives the Store.
    bool inMemory = false;
};

class Store {
public:
    using Options = StoreOptions;

    // Opens or creates the store at `path`. Throws StoreError.
    explicit Store(std::string path, Options options = Options());
    ~Store();
    Store(Store const&) = delete;
    Store& operator=(Store const&) = delete;

    std::string const& Path() const { return m_path; }
    // The mode the store's file had when opening found it readable by group or others and
    // tightened it; nothing otherwise.
    std::optional<unsigned> TightenedFrom() const { return m_tightenedFrom; }

    // The serialized message stored under `name`, or nothing when none was ever stored.
    std::optional<std::string> Resource(std::string const& name) const;
    void PutResource(std::string const& name, std::string const& bytes);

    // Every service account, oldest first.
    std::vector<VellmarkPB::serviceAccounts> Accounts() const;
    std::optional<VellmarkPB::serviceAccounts> Account(std::string const& accountID) const;
    // Adds the account, or replaces the one with its accountID keeping its place.
    void PutAccount(VellmarkPB::serviceAccounts const& account);
    // False when there was no such account.
    bool DeleteAccount(std::string const& accountID);
    void DeleteAllAccounts();

    // Changes whenever what the store holds may have changed (a write, a rolled-back
    // transaction): what was read while it stays the same is still what the store holds,
    // so readers may keep it.
    std::uint64_t Generation() const { return m_generation; }

    // The next value of the counter `name`, from 1; never repeats, also across restarts.
    std::uint64_t NextNumber(std::string const& name);

    // What the store holds, as the bytes of its database file.
    std::string Image() const;
    // Replaces what a store in memory holds with `image` (from Image()), so that a fuzzer's
    // every input starts from the same store without making one. Throws StoreError, also
    // for a store in a file, which is never replaced.
    void Restore(std::string const& image);

    // Groups writes into one atomic, durable step. Without Commit(), everything written
    // since it began is rolled back when it ends. Transactions do not nest.
    class Transaction {
    public:
        explicit Transaction(Store& store);
        ~Transaction();
        Transaction(Transaction const&) = delete;
        Transaction& operator=(Transaction const&) = delete;
        // Throws StoreError when the commit fails; the writes are then rolled back.
        void Commit();

    private:
        Store& m_store;
        bool m_done = false;
    };

private:
    class Statement;
    // Opens and checks the file, or makes a new store in it; `created` when this process
    // has just made the file.
    void Open(Options const& options, bool created);
    void Execute(char const* sql);
    // The first column of the first row of `sql`.
    std::int64_t Number(char const* sql) const;
    [[noreturn]] void Fail(std::string const& what) const;

    std::string const m_path;
    bool const m_inMemory;
    std::optional<unsigned> m_tightenedFrom;
    sqlite3* m_db = nullptr;
    std::uint64_t m_generation = 0;
};

}  // namespace Vellmark::Service
