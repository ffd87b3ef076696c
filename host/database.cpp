// SPDX-License-Identifier: Apache-2.0
#include "host/database.h"

#include <chrono>
#include <stdexcept>
#include <thread>

namespace vpdd::host {

namespace {

constexpr int attempts = 1000;

/// In real time: SQLite's own waiting would sleep through the functions that the host platform replaces.
void pause() { std::this_thread::sleep_for(std::chrono::milliseconds(10)); }

/// Another process may be at the file.
int wait_and_retry(void*, int attempt) {
    if (attempt >= attempts) return 0;
    pause();
    return 1;
}

}  // namespace

Database::Database(const std::filesystem::path& path, std::span<const char* const> steps) : name_(path.string()) {
    sqlite3* database = nullptr;
    const int result = sqlite().open(path.empty() ? ":memory:" : path.c_str(), &database);
    database_.reset(database);
    if (result != SQLITE_OK) throw std::runtime_error(path.string() + ": " + sqlite().errstr(result));

    sqlite().busy_handler(database, wait_and_retry, nullptr);
    // The newest rows may be lost with the machine's power, never the file's consistency.
    execute("PRAGMA journal_mode = WAL; PRAGMA synchronous = NORMAL");
    migrate(steps);
}

void Database::fail() { throw std::runtime_error(name_ + ": " + sqlite().errmsg(database_.get())); }

/// The change to WAL does not wait for other processes by itself.
void Database::execute(const char* sql) {
    int result = SQLITE_BUSY;
    for (int attempt = 0; attempt < attempts && result == SQLITE_BUSY; ++attempt) {
        if (attempt > 0) pause();
        result = sqlite().exec(database_.get(), sql, nullptr, nullptr, nullptr);
    }
    if (result != SQLITE_OK) fail();
}

int64_t Database::version() {
    const Statement statement = prepared("PRAGMA user_version");
    Run run(statement);
    return run.next_row() ? run.integer(0) : 0;
}

/// One process makes the tables, the others wait for it.
void Database::migrate(std::span<const char* const> steps) {
    const auto newest = static_cast<int64_t>(steps.size());
    if (version() == newest) return;
    Transaction transaction(*this);
    const int64_t found = version();
    if (found > newest) throw std::runtime_error(name_ + ": version " + std::to_string(found) + " is not known");
    for (const char* step : steps.subspan(static_cast<std::size_t>(found))) execute(step);
    execute(("PRAGMA user_version = " + std::to_string(newest)).c_str());
    transaction.commit();
}

Database::Statement Database::prepared(const char* sql) {
    sqlite3_stmt* statement = nullptr;
    const int result = sqlite().prepare(database_.get(), sql, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
    if (result != SQLITE_OK) fail();
    return Statement(statement);
}

Transaction::~Transaction() {
    if (!is_open_) return;
    try {
        database_.execute("ROLLBACK");
    } catch (const std::runtime_error&) {
        // SQLite has ended the transaction by itself.
    }
}

void Transaction::commit() {
    database_.execute("COMMIT");
    is_open_ = false;
}

Run::~Run() {
    sqlite().reset(statement_);
    sqlite().clear_bindings(statement_);
}

Run& Run::bind(int64_t value) {
    sqlite().bind_int64(statement_, ++bound_, value);
    return *this;
}

Run& Run::bind(std::string_view text) {
    sqlite().bind_text64(statement_, ++bound_, text.data(), text.size(), SQLITE_STATIC, SQLITE_UTF8);
    return *this;
}

Run& Run::bind(std::span<const uint8_t> bytes) {
    sqlite().bind_blob64(statement_, ++bound_, bytes.data(), bytes.size(), SQLITE_STATIC);
    return *this;
}

std::string Run::text(int column) const {
    const void* bytes = sqlite().column_text(statement_, column);
    if (bytes == nullptr) return {};
    return {static_cast<const char*>(bytes), static_cast<std::size_t>(sqlite().column_bytes(statement_, column))};
}

std::span<const uint8_t> Run::bytes(int column) const {
    const auto* bytes = static_cast<const uint8_t*>(sqlite().column_blob(statement_, column));
    return {bytes, static_cast<std::size_t>(sqlite().column_bytes(statement_, column))};
}

}  // namespace vpdd::host
