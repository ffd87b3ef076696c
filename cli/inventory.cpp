// SPDX-License-Identifier: Apache-2.0
#include "cli/inventory.h"

#include <bitset>

#include "cli/component.h"
#include "cli/entity_names.h"
#include "cli/fru_diagnosis.h"
#include "cli/machine.h"
#include "cli/memory_module.h"
#include "host/vpdd_host.h"

namespace vpdd::cli {

namespace {

constexpr uint8_t first_record = 0;
constexpr uint8_t no_further_record = 0xFF;
constexpr std::size_t fru_ids = 256;
constexpr std::size_t largest_bulk_copy = 2048;  ///< records

int collect_variable(void* context, const VpddHostVariable* variable) {
    const bool is_number = variable->kind == VPDD_HOST_INTEGER;
    static_cast<std::vector<PublishedVariable>*>(context)->push_back(
        {variable->name, variable->text, is_number, is_number ? variable->integer : 0});
    return 0;
}

std::vector<PublishedVariable> published_variables() {
    std::vector<PublishedVariable> variables;
    vpdd_host_each_variable(collect_variable, &variables);
    return variables;
}

/// Records of the cache, as the library counted them while it read the SDR repository.
std::size_t published_record_count(const std::vector<PublishedVariable>& variables) {
    for (const PublishedVariable& variable : variables) {
        if (variable.name == "vpdd_comp_sdr_cnt" && variable.number > 0) {
            return static_cast<std::size_t>(variable.number);
        }
    }
    return 0;
}

/// The records in the order of the cache, up to the first FRU id that comes a second time.
std::vector<ComponentVpdRecord> walk_by_fru_id() {
    std::vector<ComponentVpdRecord> records;
    std::bitset<fru_ids> seen;
    uint8_t fru_id = first_record;
    do {
        ComponentVpdRecord record{};
        uint32_t length = 0;
        if (GetComponentVPDByFruID(&length, sizeof record, &fru_id, &record) != 0) break;
        if (seen.test(record.fru_id)) break;
        seen.set(record.fru_id);
        records.push_back(record);
        fru_id = record.next_fru_id;
    } while (fru_id != no_further_record);
    return records;
}

std::vector<ComponentVpdRecord> copy_all_records(std::size_t count) {
    std::vector<ComponentVpdRecord> records(std::min(count, largest_bulk_copy));
    uint32_t length = 0;
    const auto size = static_cast<uint32_t>(records.size() * sizeof records[0]);
    if (GetComponentVPD_KIVA(&length, size, nullptr, records.data()) != 0) return {};
    records.resize(length / sizeof records[0]);
    return records;
}

/// A walk by FRU id cannot get past an id that two components share, nor past the ids 0 and 0xFF inside the list; then
/// the bulk copy has the rest.
std::vector<ComponentVpdRecord> all_records(std::size_t count) {
    std::vector<ComponentVpdRecord> records = walk_by_fru_id();
    return records.size() >= count ? records : copy_all_records(count);
}

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
    for (const ComponentVpdRecord& record : all_records(published_record_count(inventory.published))) {
        if (record.is_cached == 1) {
            group_of(inventory, record).push_back(record);
        } else {
            inventory.unread.push_back({record, why_unread(record)});
        }
    }
    return inventory;
}

}  // namespace vpdd::cli
