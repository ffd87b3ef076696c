// SPDX-License-Identifier: Apache-2.0
#include "daemon/inventory.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <ctime>
#include <string_view>

namespace vpdd::daemon {

namespace {

constexpr uint8_t memory_device = 0x20;  // IPMI 2.0 table 43-13
constexpr uint8_t no_further_record = 0xFF;
constexpr int32_t present = 1;
constexpr int32_t no_sensor = 255;

void link_records(Records& records) {
    for (std::size_t i = 0; i < records.size(); ++i) {
        records[i].next_fru_id = i + 1 < records.size() ? records[i + 1].fru_id : no_further_record;
    }
}

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

VpddChangeEntry general_entry(VpddChangeEvent event, int64_t time) {
    VpddChangeEntry entry{};
    entry.time = time;
    entry.event = event;
    return entry;
}

template <class Record>
bool are_equal(const std::optional<Record>& one, const std::optional<Record>& other) {
    if (!one || !other) return one.has_value() == other.has_value();
    return std::memcmp(&*one, &*other, sizeof(Record)) == 0;
}

}  // namespace

Records copy_components() {
    Records records(VPDD_MOST_RECORDS);
    uint32_t length = 0;
    const auto size = static_cast<uint32_t>(records.size() * sizeof(ComponentVpdRecord));
    if (GetComponentVPD_KIVA(&length, size, nullptr, records.data()) != 0) return {};
    records.resize(length / sizeof(ComponentVpdRecord));
    records.shrink_to_fit();
    link_records(records);
    return records;
}

Records copy_log() {
    Records entries;
    StatusList* log = nullptr;
    if (vpdd_serv_readlog(&log) != 0) return entries;
    for (const StatusNode* node = log->head; node != nullptr; node = node->next) entries.push_back(node->entry);
    vpdd_serv_freelog(&log);
    return entries;
}

LogStamp log_stamp() {
    struct stat found {};
    if (stat("/flash/data0/component_activity.log", &found) != 0) return {};
    return {found.st_ino, found.st_size, found.st_mtim.tv_sec, found.st_mtim.tv_nsec};
}

void copy_machine(Inventory& inventory) {
    MachineVpdRecord machine{};
    OemMachineRecord oem_machine{};
    inventory.machine.reset();
    inventory.oem_machine.reset();
    if (vpdd_machine_vpd_read(reinterpret_cast<uint8_t*>(&machine), sizeof machine) == 0) inventory.machine = machine;
    if (vpdd_machine_oem_vpd_read(reinterpret_cast<uint8_t*>(&oem_machine), sizeof oem_machine) == 0) {
        inventory.oem_machine = oem_machine;
    }
}

Changes changes_between(const Inventory& former, const Inventory& now) {
    Changes changes;
    const int64_t time = now.taken;
    if (are_same_components(former.components, now.components)) {
        for (std::size_t i = 0; i < now.components.size(); ++i) {
            compare(former.components[i], now.components[i], time, changes);
        }
    } else {
        changes.push_back(general_entry(VPDD_CHANGE_REBUILT, time));
    }
    if (!are_equal(former.machine, now.machine) || !are_equal(former.oem_machine, now.oem_machine)) {
        changes.push_back(general_entry(VPDD_CHANGE_MACHINE, time));
    }
    return changes;
}

}  // namespace vpdd::daemon
