// SPDX-License-Identifier: Apache-2.0
#include "cli/cached_records.h"

#include <algorithm>
#include <bitset>

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

}  // namespace

std::vector<PublishedVariable> published_variables() {
    std::vector<PublishedVariable> variables;
    vpdd_host_each_variable(collect_variable, &variables);
    return variables;
}

// A walk by FRU id cannot get past an id that two components share, nor past the ids 0 and 0xFF inside the list; then
// the bulk copy has the rest.
std::vector<ComponentVpdRecord> cached_records(const std::vector<PublishedVariable>& published) {
    const std::size_t count = published_record_count(published);
    std::vector<ComponentVpdRecord> records = walk_by_fru_id();
    return records.size() >= count ? records : copy_all_records(count);
}

}  // namespace vpdd::cli
