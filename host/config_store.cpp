// SPDX-License-Identifier: Apache-2.0
#include "host/config_store.h"

#include <cstring>
#include <ctime>
#include <limits>
#include <stdexcept>

#include "host/server.h"
#include "host/sleep.h"
#include "platform/configuration.h"

namespace vpdd::host {

namespace {

constexpr int database_version = 1;

// A value has the type that it was set with, so no column names one for it.
constexpr char create_tables[] = R"sql(
    BEGIN;
    CREATE TABLE variables(
        name TEXT PRIMARY KEY NOT NULL, kind TEXT NOT NULL CHECK(kind IN ('integer', 'text')), value NOT NULL,
        flag INTEGER NOT NULL, changed INTEGER NOT NULL) WITHOUT ROWID;
    CREATE TABLE events(
        number INTEGER PRIMARY KEY, name TEXT NOT NULL, type INTEGER NOT NULL, argument0 INTEGER NOT NULL,
        argument1 INTEGER NOT NULL, occurred INTEGER NOT NULL);
    PRAGMA user_version = 1;
    COMMIT;
)sql";

constexpr char get_sql[] = "SELECT value FROM variables WHERE name = ?1 AND kind = 'integer'";
constexpr char set_sql[] =
    "INSERT INTO variables(name, kind, value, flag, changed) VALUES(?1, ?2, ?3, ?4, ?5)"
    " ON CONFLICT(name) DO UPDATE SET kind = ?2, value = ?3, flag = ?4, changed = ?5";
constexpr char list_sql[] = "SELECT name, kind, value, flag, changed FROM variables ORDER BY name";
constexpr char add_event_sql[] =
    "INSERT INTO events(name, type, argument0, argument1, occurred) VALUES(?1, ?2, ?3, ?4, ?5)";
constexpr char list_events_sql[] = "SELECT name, type, argument0, argument1, occurred FROM events ORDER BY number";

/// Another process may be at the file. SQLite's own waiting would sleep through the interposed functions.
int wait_and_retry(void*, int attempt) {
    constexpr int attempts = 500;
    constexpr double pause = 0.01;  // seconds
    if (attempt >= attempts) return 0;
    sleep_really(pause);
    return 1;
}

/// A statement's run: binds by position, and is ready for the next run when the scope ends.
class Run {
public:
    explicit Run(sqlite3_stmt* statement) : statement_(statement) {}
    ~Run() {
        sqlite3_reset(statement_);
        sqlite3_clear_bindings(statement_);
    }
    Run(const Run&) = delete;
    Run& operator=(const Run&) = delete;

    Run& bind(int64_t value) {
        sqlite3_bind_int64(statement_, ++bound_, value);
        return *this;
    }
    /// The text has to live as long as the run.
    Run& bind(std::string_view text) {
        sqlite3_bind_text64(statement_, ++bound_, text.data(), text.size(), SQLITE_STATIC, SQLITE_UTF8);
        return *this;
    }
    bool next_row() { return sqlite3_step(statement_) == SQLITE_ROW; }
    bool complete() { return sqlite3_step(statement_) == SQLITE_DONE; }

    int64_t integer(int column) const { return sqlite3_column_int64(statement_, column); }
    int32_t small_integer(int column) const { return sqlite3_column_int(statement_, column); }
    std::string text(int column) const {
        const void* bytes = sqlite3_column_text(statement_, column);
        if (bytes == nullptr) return {};
        return {static_cast<const char*>(bytes), static_cast<std::size_t>(sqlite3_column_bytes(statement_, column))};
    }

private:
    sqlite3_stmt* statement_;
    int bound_ = 0;
};

int64_t now() { return std::time(nullptr); }

}  // namespace

ConfigStore::ConfigStore(const std::filesystem::path& path) {
    sqlite3* database = nullptr;
    const int result = sqlite3_open(path.empty() ? ":memory:" : path.c_str(), &database);
    database_.reset(database);
    if (result != SQLITE_OK) throw std::runtime_error(path.string() + ": " + sqlite3_errstr(result));

    sqlite3_busy_handler(database, wait_and_retry, nullptr);
    // A variable may be lost with the machine's power, never the file's consistency; set() is called a hundred times.
    execute("PRAGMA journal_mode = WAL; PRAGMA synchronous = NORMAL");
    migrate();
    get_ = prepared(get_sql);
    set_ = prepared(set_sql);
    list_ = prepared(list_sql);
    add_event_ = prepared(add_event_sql);
    list_events_ = prepared(list_events_sql);
}

void ConfigStore::execute(const char* sql) {
    if (sqlite3_exec(database_.get(), sql, nullptr, nullptr, nullptr) != SQLITE_OK)
        throw std::runtime_error(std::string("configuration store: ") + sqlite3_errmsg(database_.get()));
}

void ConfigStore::migrate() {
    const Statement version = prepared("PRAGMA user_version");
    Run run(version.get());
    const int64_t found = run.next_row() ? run.integer(0) : 0;
    if (found == 0) return execute(create_tables);
    if (found != database_version)
        throw std::runtime_error("configuration store: version " + std::to_string(found) + " is not known");
}

ConfigStore::Statement ConfigStore::prepared(const char* sql) {
    sqlite3_stmt* statement = nullptr;
    const int result = sqlite3_prepare_v3(database_.get(), sql, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
    if (result != SQLITE_OK)
        throw std::runtime_error(std::string("configuration store: ") + sqlite3_errmsg(database_.get()));
    return Statement(statement);
}

std::optional<int32_t> ConfigStore::integer(std::string_view name) {
    const std::scoped_lock lock(mutex_);
    Run run(get_.get());
    if (!run.bind(name).next_row()) return {};
    return run.small_integer(0);
}

bool ConfigStore::set_integer(std::string_view name, int32_t value, int32_t flag) {
    const std::scoped_lock lock(mutex_);
    return Run(set_.get()).bind(name).bind("integer").bind(value).bind(flag).bind(now()).complete();
}

bool ConfigStore::set_text(std::string_view name, std::string_view value, int32_t flag) {
    const std::scoped_lock lock(mutex_);
    return Run(set_.get()).bind(name).bind("text").bind(value).bind(flag).bind(now()).complete();
}

std::vector<Variable> ConfigStore::variables() {
    const std::scoped_lock lock(mutex_);
    std::vector<Variable> variables;
    for (Run run(list_.get()); run.next_row();) {
        Variable variable{run.text(0), {}, run.text(2), run.small_integer(3), run.integer(4)};
        if (run.text(1) == "integer") variable.integer = run.small_integer(2);
        variables.push_back(std::move(variable));
    }
    return variables;
}

bool ConfigStore::add_event(const Event& event) {
    const std::scoped_lock lock(mutex_);
    return Run(add_event_.get())
        .bind(event.name)
        .bind(event.type)
        .bind(event.argument0)
        .bind(event.argument1)
        .bind(now())
        .complete();
}

std::vector<Event> ConfigStore::events() {
    const std::scoped_lock lock(mutex_);
    std::vector<Event> events;
    for (Run run(list_events_.get()); run.next_row();) {
        events.push_back(
            {run.text(0), run.small_integer(1), run.small_integer(2), run.small_integer(3), run.integer(4)});
    }
    return events;
}

}  // namespace vpdd::host

using vpdd::host::current_server;

extern "C" int tarn_config_get_int(const char* name, int32_t* value) {
    const auto server = current_server();
    if (!server || name == nullptr || value == nullptr) return 0;
    const auto found = server->store.integer(name);
    if (!found) return 0;
    *value = *found;
    return 1;
}

extern "C" int tarn_config_set_int(const char* name, int32_t value, int flag) {
    const auto server = current_server();
    return server && name != nullptr && server->store.set_integer(name, value, flag);
}

extern "C" int tarn_config_set_str(const char* name, const char* value, int flag) {
    return value != nullptr && tarn_config_set_str_n(name, value, static_cast<uint32_t>(std::strlen(value)), flag);
}

extern "C" int tarn_config_set_str_n(const char* name, const char* value, uint32_t length, int flag) {
    const auto server = current_server();
    return server && name != nullptr && value != nullptr && server->store.set_text(name, {value, length}, flag);
}

extern "C" int tarn_event_type_occurred(int type, const char* name, int argument0, int argument1) {
    const auto server = current_server();
    return server && name != nullptr && server->store.add_event({name, type, argument0, argument1});
}
