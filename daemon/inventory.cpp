// SPDX-License-Identifier: Apache-2.0
#include "daemon/inventory.h"

#include <sys/stat.h>

#include <cstring>
#include <ctime>

namespace vpdd::daemon {

namespace {

constexpr uint8_t no_further_record = 0xFF;

void link_records(Records& records) {
    for (std::size_t i = 0; i < records.size(); ++i) {
        records[i].next_fru_id = i + 1 < records.size() ? records[i + 1].fru_id : no_further_record;
    }
}

template <class Record>
bool are_equal(const std::optional<Record>& one, const std::optional<Record>& other) {
    if (!one || !other) return one.has_value() == other.has_value();
    return std::memcmp(&*one, &*other, sizeof(Record)) == 0;
}

}  // namespace

Records copy_components(Records& room) {
    room.resize(VPDD_MOST_RECORDS);
    uint32_t length = 0;
    const auto size = static_cast<uint32_t>(room.size() * sizeof(ComponentVpdRecord));
    if (GetComponentVPD_KIVA(&length, size, nullptr, room.data()) != 0) return {};
    const auto count = static_cast<std::ptrdiff_t>(length / sizeof(ComponentVpdRecord));
    Records records(room.begin(), room.begin() + count);
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
    Changes changes = changes_between(former.components, now.components, now.taken);
    if (!are_equal(former.machine, now.machine) || !are_equal(former.oem_machine, now.oem_machine)) {
        changes.push_back(general_change(VPDD_CHANGE_MACHINE, now.taken));
    }
    return changes;
}

}  // namespace vpdd::daemon
