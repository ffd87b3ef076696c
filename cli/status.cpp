// SPDX-License-Identifier: Apache-2.0
#include "cli/status.h"

#include <fcntl.h>
#include <sys/file.h>

#include <algorithm>
#include <cerrno>
#include <nlohmann/json.hpp>
#include <ostream>
#include <stdexcept>
#include <system_error>

#include "base/file_handle.h"
#include "cli/activity_log.h"
#include "cli/cached_records.h"
#include "cli/display_text.h"
#include "cli/entity_names.h"
#include "cli/fru_diagnosis.h"
#include "cli/library_output.h"
#include "cli/time_text.h"

namespace vpdd::cli {

namespace {

using Records = std::vector<ComponentVpdRecord>;

constexpr int restore_from_log = 0;
constexpr int poll_presence = 1;

// The results of UpdateComponentVPDCache() after which the cache stands.
constexpr int updated = 0;
constexpr int smbios_unreadable = 64;
constexpr int fru_unreadable = -10;

constexpr const char* unchanged = "unchanged";

/// One pass at a time: of two that restore the same log before either has written to it, both would find the same
/// changes. The private /tmp lies in the state directory; the lock ends with the process at the latest.
class OnePass {
public:
    OnePass() : file_(open("/tmp/vpdctl.lock", O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600)) {
        int result = file_.get() < 0 ? -1 : 0;
        if (result == 0) {
            do {
                result = flock(file_.get(), LOCK_EX);
            } while (result != 0 && errno == EINTR);
        }
        if (result != 0)
            throw std::system_error(errno, std::generic_category(), "the state directory cannot be locked");
    }

private:
    const vpdd::ScopedFd file_;
};

void update_status(int mode) {
    const int result = UpdateComponentStatus(mode);
    if (result != 0) {
        throw std::runtime_error("the components' status cannot be updated: result " + std::to_string(result));
    }
}

/// Whether everything could be read.
bool update_cache() {
    const int result = UpdateComponentVPDCache();
    if (result != updated && result != smbios_unreadable && result != fru_unreadable) {
        throw std::runtime_error("the component cache cannot be updated: result " + std::to_string(result));
    }
    return result == updated;
}

/// The last thing that the log knows of a component, or null.
const ComponentVpdRecord* newest_entry(const Records& log, const ComponentVpdRecord& record) {
    const auto same = [&](const ComponentVpdRecord& entry) { return entry.fru_id == record.fru_id; };
    const auto found = std::find_if(log.rbegin(), log.rend(), same);
    return found != log.rend() ? &*found : nullptr;
}

Identity identity_of(const ComponentVpdRecord& record, const Records& log) {
    const bool was_read = record.is_cached != 0 || record.serial_number[0] != '\0';
    const ComponentVpdRecord* entry = was_read ? nullptr : newest_entry(log, record);
    return identity(entry != nullptr ? *entry : record);
}

/// The cache and the activity log at one time.
struct Snapshot {
    Records cache = cached_records(published_variables());
    Records log = read_activity_log();
};

/// The same processor with other data keeps its entry in the log, and the entry its time.
bool has_new_entry(const ComponentVpdRecord& record, const Records& before, const Records& after) {
    const ComponentVpdRecord* former = newest_entry(before, record);
    const ComponentVpdRecord* entry = newest_entry(after, record);
    return entry != nullptr && (former == nullptr || former->timestamp != entry->timestamp);
}

std::string change_of(const ComponentVpdRecord& record, const Snapshot& before, const Snapshot& after) {
    const auto same = [&](const ComponentVpdRecord& other) { return other.fru_id == record.fru_id; };
    const auto former = std::ranges::find_if(before.cache, same);
    if (former == before.cache.end() || former->status != record.status) return event_text(record);
    if (former->crc == record.crc) return unchanged;
    return has_new_entry(record, before.log, after.log) ? "replaced" : "data changed";
}

/// Empty for a component that was read, and for one that is not there.
std::string why_there_but_unread(const ComponentVpdRecord& record) {
    uint32_t size = 0;
    const bool is_there = record.is_cached == 0 && read_fru_size(record.fru_id, &size) != VPDD_IPMI_NOT_PRESENT;
    return is_there ? why_unread(record) : "";
}

ComponentStatus status_of(const ComponentVpdRecord& record, const Snapshot& before, const Snapshot& after) {
    ComponentStatus status{record,
                           identity_of(record, after.log),
                           {},
                           why_there_but_unread(record),
                           record.entity_id != entity_memory_device};
    if (status.is_logged) status.change = change_of(record, before, after);
    return status;
}

/// The library does not install what it cannot read.
std::string presence_of(const ComponentStatus& component) {
    if (!component.is_looked_at) return "not known";
    return component.remark.empty() ? presence_text(component.record.status) : "not read";
}

std::string since(const ComponentStatus& component, std::string (*to_text)(int64_t)) {
    const bool is_known = component.is_logged && component.record.timestamp != 0;
    return is_known ? to_text(component.record.timestamp) : "";
}

bool is_shown(const ComponentStatus& component, bool only_changes) {
    const bool has_changed = component.is_logged && !component.change.empty() && component.change != unchanged;
    return !only_changes || has_changed;
}

std::size_t count_with(const ServerStatus& status, const std::string& presence) {
    const auto has = [&](const ComponentStatus& component) { return presence_of(component) == presence; };
    return static_cast<std::size_t>(std::count_if(status.components.begin(), status.components.end(), has));
}

std::size_t count_changed(const ServerStatus& status) {
    const auto changed = [](const ComponentStatus& component) { return is_shown(component, true); };
    return static_cast<std::size_t>(std::count_if(status.components.begin(), status.components.end(), changed));
}

/// Of lines "key=value"; empty without such a key.
std::string value_of(const std::string& lines, const std::string& key) {
    const std::string mark = '\n' + key + '=';
    const std::size_t found = lines.find(mark);
    if (found == std::string::npos) return {};
    const std::size_t begin = found + mark.size();
    return lines.substr(begin, lines.find('\n', begin) - begin);
}

/// @param trouble "update=-10 status=-32"
std::string trouble_text(const std::string& trouble, bool is_looked_at) {
    if (trouble.empty()) return {};
    if (trouble.find("status=") == std::string::npos) return "vpdd could not read everything (" + trouble + ")";
    const std::string what =
        is_looked_at ? "cannot look any more which components are there" : "cannot look which components are there";
    return "vpdd " + what + " (" + trouble + "): can it write the activity log in /flash/data0?";
}

Json component_status_json(const ComponentStatus& component) {
    const ComponentVpdRecord& record = component.record;
    Json object{{"FruId", record.fru_id},
                {"Name", field_text(record.name)},
                {"EntityId", record.entity_id},
                {"EntityInstance", record.entity_instance},
                {"Presence", presence_of(component)},
                {"Logged", component.is_logged}};
    const auto add = [&](const char* name, const std::string& text) {
        if (!text.empty()) object[name] = text;
    };
    add("Status", component.change);
    add("Since", since(component, utc_time_text));
    add("SerialNumber", component.who.serial_number);
    add("PartNumber", component.who.part_number);
    add("Reason", component.remark);
    return object;
}

}  // namespace

ServerStatus take_status(std::ostream* log) {
    ServerStatus status;
    const LibraryOutput kept_apart(log);
    const OnePass alone;
    update_status(restore_from_log);
    status.is_complete = update_cache();
    const Snapshot before;
    update_status(poll_presence);
    const Snapshot after;
    for (const ComponentVpdRecord& record : after.cache) status.components.push_back(status_of(record, before, after));
    return status;
}

ServerStatus served_status(const std::vector<ComponentVpdRecord>& components,
                           const std::vector<ComponentVpdRecord>& log, const std::string& daemon_status) {
    ServerStatus status;
    const bool is_looked_at = value_of(daemon_status, "looked") != "0";
    for (const ComponentVpdRecord& record : components) {
        const bool is_logged = record.entity_id != entity_memory_device;
        status.components.push_back({record, identity_of(record, log), {}, {}, is_logged, is_looked_at});
    }
    status.trouble = trouble_text(value_of(daemon_status, "trouble"), is_looked_at);
    status.is_complete = status.trouble.empty();
    return status;
}

std::string summary(const ServerStatus& status) {
    std::string text = std::to_string(status.components.size()) +
                       " components: " + std::to_string(count_with(status, "present")) + " present, " +
                       std::to_string(count_with(status, "absent")) + " absent";
    for (const char* presence : {"not read", "no sensor", "not known"}) {
        const std::size_t count = count_with(status, presence);
        if (count > 0) text += ", " + std::to_string(count) + ' ' + presence;
    }
    return text + "; " + std::to_string(count_changed(status)) + " changed";
}

Table status_table(const ServerStatus& status, bool only_changes) {
    Table table({{"FRU", Align::right}, {"Name"}, {"Presence"}, {"Status"}, {"Since"}, {"Serial number"}, {"Reason"}},
                2);
    for (const ComponentStatus& component : status.components) {
        if (!is_shown(component, only_changes)) continue;
        const ComponentVpdRecord& record = component.record;
        table.add({std::to_string(record.fru_id), field_text(record.name), presence_of(component),
                   component.is_logged ? component.change : "not logged", since(component, local_time_text),
                   component.who.serial_number, component.remark});
    }
    return table;
}

void print_status(std::ostream& out, const ServerStatus& status, bool only_changes, const Style& style) {
    out << "  " << summary(status) << '\n';
    const Table table = status_table(status, only_changes);
    if (table.empty()) return;
    out << '\n';
    table.print(out, style);
}

Json status_json(const ServerStatus& status, bool only_changes) {
    Json components = Json::array();
    for (const ComponentStatus& component : status.components) {
        if (is_shown(component, only_changes)) components.push_back(component_status_json(component));
    }
    return {{"Components", std::move(components)},
            {"Totals",
             {{"Components", status.components.size()},
              {"Present", count_with(status, "present")},
              {"Absent", count_with(status, "absent")},
              {"NotRead", count_with(status, "not read")},
              {"NoSensor", count_with(status, "no sensor")},
              {"NotKnown", count_with(status, "not known")},
              {"Changed", count_changed(status)}}}};
}

}  // namespace vpdd::cli
