// SPDX-License-Identifier: Apache-2.0
// What a server keeps: the configuration variables, the events that happened, and the FRUs that were pulled or swapped.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/database.h"

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

/// What became of a FRU of the description.
struct FruChange {
    bool is_pulled = false;
    std::string content;  ///< in place of the description's "content"; empty: the same part

    bool operator==(const FruChange&) const = default;
};
using FruChanges = std::map<uint8_t, FruChange>;

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

    bool set_fru_change(uint8_t fru_id, const FruChange& change);
    FruChanges fru_changes();

private:
    std::mutex mutex_;
    Database database_;
    Database::Statement get_, set_, list_, add_event_, list_events_, set_fru_, list_frus_;
};

}  // namespace vpdd::host
