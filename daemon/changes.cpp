// SPDX-License-Identifier: Apache-2.0
#include "daemon/changes.h"

#include <algorithm>
#include <cstring>
#include <string_view>

namespace vpdd::daemon {

namespace {

constexpr uint8_t memory_device = 0x20;  // IPMI 2.0 table 43-13
constexpr int32_t present = 1;
constexpr int32_t no_sensor = 255;

template <std::size_t Size>
std::string_view text_of(const char (&text)[Size]) {
    return {text, strnlen(text, Size)};
}

template <std::size_t Size>
void put_text(char (&to)[Size], std::string_view text) {
    to[text.copy(to, Size - 1)] = '\0';
}

/// A memory module has its identity in its SPD, everything else in its FRU.
bool is_memory(const ComponentVpdRecord& record) { return record.entity_id == memory_device; }

std::string_view serial_number_of(const ComponentVpdRecord& record) {
    return is_memory(record) ? text_of(record.spd_info.serial_number) : text_of(record.serial_number);
}

std::string_view part_number_of(const ComponentVpdRecord& record) {
    return is_memory(record) ? text_of(record.spd_info.part_number) : text_of(record.part_number);
}

VpddChangeEntry entry_of(VpddChangeEvent event, const ComponentVpdRecord& record, int64_t time) {
    VpddChangeEntry entry{};
    entry.time = time;
    entry.event = event;
    entry.fru_id = record.fru_id;
    entry.entity_id = record.entity_id;
    entry.entity_instance = record.entity_instance;
    put_text(entry.name, text_of(record.name));
    put_text(entry.serial_number, serial_number_of(record));
    put_text(entry.part_number, part_number_of(record));
    return entry;
}

/// An absent component shows the part that was there last.
const ComponentVpdRecord& with_identity(const ComponentVpdRecord& former, const ComponentVpdRecord& now) {
    return serial_number_of(now).empty() ? former : now;
}

VpddChangeEvent event_of(int32_t status) {
    if (status == present) return VPDD_CHANGE_INSTALLED;
    return status == no_sensor ? VPDD_CHANGE_NO_SENSOR : VPDD_CHANGE_REMOVED;
}

void compare(const ComponentVpdRecord& former, const ComponentVpdRecord& now, int64_t time, Changes& changes) {
    if (former.status != now.status) {
        const ComponentVpdRecord& shown = now.status == present ? now : with_identity(former, now);
        changes.push_back(entry_of(event_of(now.status), shown, time));
        return;
    }
    if (now.status != present || former.crc == now.crc) return;
    const bool is_replaced = serial_number_of(former) != serial_number_of(now);
    VpddChangeEntry entry = entry_of(is_replaced ? VPDD_CHANGE_REPLACED : VPDD_CHANGE_DATA, now, time);
    if (is_replaced) put_text(entry.previous_serial_number, serial_number_of(former));
    changes.push_back(entry);
}

bool are_same_components(const Records& former, const Records& now) {
    return std::ranges::equal(former, now, [](const ComponentVpdRecord& one, const ComponentVpdRecord& other) {
        return one.fru_id == other.fru_id && text_of(one.name) == text_of(other.name);
    });
}

}  // namespace

Changes changes_between(const Records& former, const Records& now, int64_t time) {
    Changes changes;
    if (!are_same_components(former, now)) return {general_change(VPDD_CHANGE_REBUILT, time)};
    for (std::size_t i = 0; i < now.size(); ++i) compare(former[i], now[i], time, changes);
    return changes;
}

VpddChangeEntry general_change(VpddChangeEvent event, int64_t time) {
    VpddChangeEntry entry{};
    entry.time = time;
    entry.event = event;
    return entry;
}

}  // namespace vpdd::daemon
