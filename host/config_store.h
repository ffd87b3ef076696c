// SPDX-License-Identifier: Apache-2.0
// The configuration-variable store, and the events that happened: an SQLite database.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vpdd::host {

struct Variable {
    std::string name;
    std::optional<int32_t> integer;  ///< none: a text
    std::string text;
    int32_t flag = 0;
    int64_t changed = 0;  ///< seconds since the epoch
};

struct Event {
    std::string name;
    int32_t type = 0;
    int32_t argument0 = 0;
    int32_t argument1 = 0;
    int64_t occurred = 0;  ///< seconds since the epoch
};

/// Its functions may be called on any thread.
class ConfigStore {
public:
    /// @param path the database file; empty: in memory
    /// @throws std::runtime_error
    explicit ConfigStore(const std::filesystem::path& path);

    std::optional<int32_t> integer(std::string_view name);
    bool set_integer(std::string_view name, int32_t value, int32_t flag);
    bool set_text(std::string_view name, std::string_view value, int32_t flag);
    std::vector<Variable> variables();

    bool add_event(const Event& event);
    std::vector<Event> events();

private:
    struct Close {
        void operator()(sqlite3* database) const { sqlite3_close(database); }
    };
    struct Finalize {
        void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
    };
    using Statement = std::unique_ptr<sqlite3_stmt, Finalize>;

    void execute(const char* sql);
    void migrate();
    Statement prepared(const char* sql);

    std::mutex mutex_;
    std::unique_ptr<sqlite3, Close> database_;
    Statement get_, set_, list_, add_event_, list_events_;
};

}  // namespace vpdd::host
