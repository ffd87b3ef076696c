// SPDX-License-Identifier: Apache-2.0
#include "host/config_store.h"

#include <cstring>
#include <ctime>

#include "host/server.h"
#include "platform/configuration.h"

namespace vpdd::host {

namespace {

// A value has the type that it was set with, so no column names one for it.
constexpr char variables_and_events[] = R"sql(
    CREATE TABLE variables(
        name TEXT PRIMARY KEY NOT NULL, kind TEXT NOT NULL CHECK(kind IN ('integer', 'text')), value NOT NULL,
        flag INTEGER NOT NULL, changed INTEGER NOT NULL) WITHOUT ROWID;
    CREATE TABLE events(
        number INTEGER PRIMARY KEY, name TEXT NOT NULL, type INTEGER NOT NULL, argument0 INTEGER NOT NULL,
        argument1 INTEGER NOT NULL, occurred INTEGER NOT NULL);
)sql";
constexpr char changed_frus[] =
    "CREATE TABLE changed_frus(fru_id INTEGER PRIMARY KEY, pulled INTEGER NOT NULL, content TEXT NOT NULL)";
constexpr const char* steps[] = {variables_and_events, changed_frus};

constexpr char get_sql[] = "SELECT value FROM variables WHERE name = ?1 AND kind = 'integer'";
constexpr char set_sql[] =
    "INSERT INTO variables(name, kind, value, flag, changed) VALUES(?1, ?2, ?3, ?4, ?5)"
    " ON CONFLICT(name) DO UPDATE SET kind = ?2, value = ?3, flag = ?4, changed = ?5";
constexpr char list_sql[] = "SELECT name, kind, value, flag, changed FROM variables ORDER BY name";
constexpr char add_event_sql[] =
    "INSERT INTO events(name, type, argument0, argument1, occurred) VALUES(?1, ?2, ?3, ?4, ?5)";
constexpr char list_events_sql[] = "SELECT name, type, argument0, argument1, occurred FROM events ORDER BY number";

constexpr char set_fru_sql[] =
    "INSERT INTO changed_frus(fru_id, pulled, content) VALUES(?1, ?2, ?3)"
    " ON CONFLICT(fru_id) DO UPDATE SET pulled = ?2, content = ?3";
constexpr char list_frus_sql[] = "SELECT fru_id, pulled, content FROM changed_frus";

int64_t now() { return std::time(nullptr); }

/// Writes to the open server's store. What a server without one drops counts as written.
template <class Write>
int publish(Write write) {
    const auto server = current_server();
    return server && (!server->store || write(*server->store));
}

}  // namespace

ConfigStore::ConfigStore(const std::filesystem::path& path)
    : database_(path, steps),
      get_(database_.prepared(get_sql)),
      set_(database_.prepared(set_sql)),
      list_(database_.prepared(list_sql)),
      add_event_(database_.prepared(add_event_sql)),
      list_events_(database_.prepared(list_events_sql)),
      set_fru_(database_.prepared(set_fru_sql)),
      list_frus_(database_.prepared(list_frus_sql)) {}

std::optional<int32_t> ConfigStore::integer(std::string_view name) {
    const std::scoped_lock lock(mutex_);
    Run run(get_);
    if (!run.bind(name).next_row()) return {};
    return run.small_integer(0);
}

bool ConfigStore::set_integer(std::string_view name, int32_t value, int32_t flag) {
    const std::scoped_lock lock(mutex_);
    return Run(set_).bind(name).bind("integer").bind(value).bind(flag).bind(now()).complete();
}

bool ConfigStore::set_text(std::string_view name, std::string_view value, int32_t flag) {
    const std::scoped_lock lock(mutex_);
    return Run(set_).bind(name).bind("text").bind(value).bind(flag).bind(now()).complete();
}

std::vector<Variable> ConfigStore::variables() {
    const std::scoped_lock lock(mutex_);
    std::vector<Variable> variables;
    for (Run run(list_); run.next_row();) {
        Variable variable{run.text(0), {}, run.text(2), run.small_integer(3), run.integer(4)};
        if (run.text(1) == "integer") variable.integer = run.small_integer(2);
        variables.push_back(std::move(variable));
    }
    return variables;
}

bool ConfigStore::add_event(const Event& event) {
    const std::scoped_lock lock(mutex_);
    return Run(add_event_)
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
    for (Run run(list_events_); run.next_row();) {
        events.push_back(
            {run.text(0), run.small_integer(1), run.small_integer(2), run.small_integer(3), run.integer(4)});
    }
    return events;
}

bool ConfigStore::set_fru_change(uint8_t fru_id, const FruChange& change) {
    const std::scoped_lock lock(mutex_);
    return Run(set_fru_).bind(int64_t{fru_id}).bind(int64_t{change.is_pulled}).bind(change.content).complete();
}

FruChanges ConfigStore::fru_changes() {
    const std::scoped_lock lock(mutex_);
    FruChanges changes;
    for (Run run(list_frus_); run.next_row();) {
        changes[static_cast<uint8_t>(run.integer(0))] = {run.integer(1) != 0, run.text(2)};
    }
    return changes;
}

}  // namespace vpdd::host

extern "C" int tarn_config_get_int(const char* name, int32_t* value) {
    const auto server = vpdd::host::current_server();
    if (!server || !server->store || name == nullptr || value == nullptr) return 0;
    const auto found = server->store->integer(name);
    if (!found) return 0;
    *value = *found;
    return 1;
}

extern "C" int tarn_config_set_int(const char* name, int32_t value, int flag) {
    return name != nullptr &&
           vpdd::host::publish([&](vpdd::host::ConfigStore& store) { return store.set_integer(name, value, flag); });
}

extern "C" int tarn_config_set_str(const char* name, const char* value, int flag) {
    return value != nullptr && tarn_config_set_str_n(name, value, static_cast<uint32_t>(std::strlen(value)), flag);
}

extern "C" int tarn_config_set_str_n(const char* name, const char* value, uint32_t length, int flag) {
    return name != nullptr && value != nullptr && vpdd::host::publish([&](vpdd::host::ConfigStore& store) {
               return store.set_text(name, {value, length}, flag);
           });
}

extern "C" int tarn_event_type_occurred(int type, const char* name, int argument0, int argument1) {
    return name != nullptr && vpdd::host::publish([&](vpdd::host::ConfigStore& store) {
               return store.add_event({name, type, argument0, argument1});
           });
}
