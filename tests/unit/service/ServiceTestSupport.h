#pragma once
// Helpers of the service tests: a temporary folder, and plain SQLite access to a store's
// file from outside the Store.
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>

namespace Vellmark::ServiceTest {

// A folder under /tmp, removed with everything in it when the object goes.
class TempFolder {
public:
    TempFolder() {
        char pattern[] = "/tmp/vellmark-service-XXXXXX";
        char* made = ::mkdtemp(pattern);
        if (!made) ADD_FAILURE() << "cannot make a temporary folder";
        m_path = made ? made : "";
    }
    ~TempFolder() {
        std::error_code ignored;
        if (!m_path.empty()) std::filesystem::remove_all(m_path, ignored);
    }
    TempFolder(TempFolder const&) = delete;
    TempFolder& operator=(TempFolder const&) = delete;

    std::string const& Path() const { return m_path; }
    std::string File(std::string const& name) const { return m_path + "/" + name; }

private:
    std::string m_path;
};

// A connection to an SQLite file that the test drives directly; closed when it goes.
class RawDatabase {
public:
    explicit RawDatabase(std::string const& path) {
        if (sqlite3_open_v2(path.c_str(), &m_db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE,
                            nullptr) != SQLITE_OK) {
            ADD_FAILURE() << "cannot open " << path << ": " << sqlite3_errmsg(m_db);
        }
    }
    ~RawDatabase() { sqlite3_close(m_db); }
    RawDatabase(RawDatabase const&) = delete;
    RawDatabase& operator=(RawDatabase const&) = delete;

    // Runs `sql`; a failure fails the test.
    void Execute(std::string const& sql) {
        char* error = nullptr;
        if (sqlite3_exec(m_db, sql.c_str(), nullptr, nullptr, &error) != SQLITE_OK) {
            ADD_FAILURE() << sql << ": " << (error ? error : sqlite3_errmsg(m_db));
        }
        sqlite3_free(error);
    }

    // The first column of the first row of `sql`, as text ("" when there is none).
    std::string Text(std::string const& sql) {
        sqlite3_stmt* statement = nullptr;
        std::string result;
        if (sqlite3_prepare_v2(m_db, sql.c_str(), -1, &statement, nullptr) != SQLITE_OK) {
            ADD_FAILURE() << sql << ": " << sqlite3_errmsg(m_db);
            return result;
        }
        if (sqlite3_step(statement) == SQLITE_ROW) {
            auto const* text = sqlite3_column_text(statement, 0);
            if (text) result = reinterpret_cast<char const*>(text);
        }
        sqlite3_finalize(statement);
        return result;
    }

private:
    sqlite3* m_db = nullptr;
};

inline std::string ReadBytes(std::string const& path) {
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

inline void WriteBytes(std::string const& path, std::string const& bytes) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

}  // namespace Vellmark::ServiceTest
