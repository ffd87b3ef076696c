// SPDX-License-Identifier: Apache-2.0
#include "cli/inventory.h"

#include "cli/component.h"
#include "cli/entity_names.h"
#include "cli/fru_diagnosis.h"
#include "cli/machine.h"
#include "cli/memory_module.h"

namespace vpdd::cli {

namespace {

std::vector<ComponentVpdRecord>& group_of(Inventory& inventory, const ComponentVpdRecord& record) {
    if (record.entity_id == entity_memory_device || is_decoded(record.spd_info)) return inventory.memory;
    if (record.entity_id == entity_processor) return inventory.processors;
    if (record.entity_id == entity_power_supply) return inventory.power_supplies;
    if (record.entity_id == entity_drive_backplane) return inventory.drive_backplanes;
    return inventory.others;
}

}  // namespace

std::size_t Inventory::component_count() const {
    return processors.size() + memory.size() + power_supplies.size() + drive_backplanes.size() + others.size() +
           unread.size();
}

uint64_t Inventory::memory_mib() const {
    uint64_t total = 0;
    for (const ComponentVpdRecord& record : memory) total += capacity_mib(record.spd_info).value_or(0);
    return total;
}

uint32_t Inventory::logical_processor_count() const {
    uint32_t total = 0;
    for (const ComponentVpdRecord& record : processors) total += logical_processors(record);
    return total;
}

Inventory take_inventory() {
    Inventory inventory;
    inventory.machine = read_machine();
    inventory.published = published_variables();
    for (const ComponentVpdRecord& record : cached_records(inventory.published)) {
        if (record.is_cached == 1) {
            group_of(inventory, record).push_back(record);
        } else {
            inventory.unread.push_back({record, why_unread(record)});
        }
    }
    return inventory;
}

Inventory sorted_inventory(const MachineVpdRecord& machine, const std::vector<ComponentVpdRecord>& records) {
    Inventory inventory;
    inventory.machine = machine;
    for (const ComponentVpdRecord& record : records) {
        if (record.is_cached == 1) {
            group_of(inventory, record).push_back(record);
        } else {
            inventory.unread.push_back({record, "not present, or not readable"});
        }
    }
    return inventory;
}

}  // namespace vpdd::cli
