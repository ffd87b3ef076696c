// SPDX-License-Identifier: Apache-2.0
// An SQLite database that several processes may use at once.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "host/sqlite.h"

namespace vpdd::host {

class Database {
public:
    struct Finalize {
        void operator()(sqlite3_stmt* statement) const { sqlite().finalize(statement); }
    };
    using Statement = std::unique_ptr<sqlite3_stmt, Finalize>;

    /// @param path the database file; empty: in memory
    /// @param steps the SQL that makes version n + 1 of the database from version n; what is missing is carried out
    /// @throws std::runtime_error
    Database(const std::filesystem::path& path, std::span<const char* const> steps);

    Statement prepared(const char* sql);
    /// One statement or several. @throws std::runtime_error
    void execute(const char* sql);

private:
    struct Close {
        void operator()(sqlite3* database) const { sqlite().close(database); }
    };

    int64_t version();
    void migrate(std::span<const char* const> steps);
    [[noreturn]] void fail();

    std::string name_;
    std::unique_ptr<sqlite3, Close> database_;
};

/// Changes that happen together or not at all: not at all, unless they are committed.
class Transaction {
public:
    explicit Transaction(Database& database) : database_(database) { database_.execute("BEGIN IMMEDIATE"); }
    ~Transaction();
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;

    void commit();

private:
    Database& database_;
    bool is_open_ = true;
};

/// A statement's run: binds by position, and is ready for the next run when the scope ends.
class Run {
public:
    explicit Run(const Database::Statement& statement) : statement_(statement.get()) {}
    ~Run();
    Run(const Run&) = delete;
    Run& operator=(const Run&) = delete;

    Run& bind(int64_t value);
    /// The text and the bytes have to live as long as the run.
    Run& bind(std::string_view text);
    Run& bind(std::span<const uint8_t> bytes);
    bool next_row() { return sqlite().step(statement_) == SQLITE_ROW; }
    bool complete() { return sqlite().step(statement_) == SQLITE_DONE; }

    int64_t integer(int column) const { return sqlite().column_int64(statement_, column); }
    int32_t small_integer(int column) const { return sqlite().column_int(statement_, column); }
    std::string text(int column) const;
    std::span<const uint8_t> bytes(int column) const;

private:
    sqlite3_stmt* statement_;
    int bound_ = 0;
};

}  // namespace vpdd::host
