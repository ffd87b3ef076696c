// SPDX-License-Identifier: Apache-2.0
#include "compvpd/scan.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "base/heap.h"
#include "base/log_line.h"
#include "base/scoped_lock.h"
#include "compvpd/cache.h"
#include "compvpd/locator.h"
#include "platform/configuration.h"
#include "platform/sdr_repository.h"

namespace {

constexpr char scan_name[] = "vpdd_create_sdr_cache";
constexpr char create_name[] = "CreateComponentVPDCache";

constexpr int bmc_repository = 1;
constexpr uint16_t first_record = 0;
constexpr uint16_t no_more_records = 0xFFFF;

constexpr uint8_t fru_device_locator = 0x11;  // IPMI 2.0, 43.8
constexpr int32_t default_processor_base = 1;

/// One SDR record as the scan looks at it: header bytes up to the record type, then the locator.
struct SdrBuffer {
    uint8_t record_id[2];
    uint8_t version;
    uint8_t type;
    uint8_t length;
    FruLocatorCopy locator;
    uint8_t rest[31];
};
static_assert(sizeof(SdrBuffer) == 64);

/// The record ids that have been read: a chain that comes back to one runs in a circle.
class SeenRecords {
public:
    /// False when the id was there already.
    bool add(uint16_t id) {
        uint8_t& bits = seen_[id / 8U];
        const auto bit = static_cast<uint8_t>(1U << id % 8U);
        if ((bits & bit) != 0) return false;
        bits |= bit;
        return true;
    }

private:
    std::array<uint8_t, 0x10000 / 8> seen_{};
};

void count_processor(const FruLocatorCopy& locator, vpdd::ComponentCounts& counts) {
    ++counts.processors;
    const int32_t instance = vpdd::instance_of(locator);
    if (instance >= counts.lowest_processor) return;
    // Deliberate: both numbers are the new instance.
    vpdd::log_text(vpdd::log_info, "%s: instance %d become the smallest index of cpu(base: %d)", scan_name, instance,
                   instance);
    counts.lowest_processor = instance;
}

void count_drive_backplane(const FruLocatorCopy& locator, vpdd::ComponentCounts& counts) {
    const auto position = static_cast<std::size_t>(counts.drive_backplanes++);
    if (position < counts.drive_backplane_fru_ids.size()) {
        counts.drive_backplane_fru_ids[position] = locator.fru_device_id;
    }
}

void count(const FruLocatorCopy& locator, vpdd::ComponentCounts& counts) {
    ++counts.locators;
    if (locator.device_type != vpdd::device_type_fru) return;
    switch (locator.entity_id) {
        case vpdd::entity_processor:
            count_processor(locator, counts);
            break;
        case vpdd::entity_memory_device:
            ++counts.memory_devices;
            break;
        case vpdd::entity_power_supply:
            ++counts.power_supplies;
            break;
        case vpdd::entity_drive_backplane:
            count_drive_backplane(locator, counts);
            break;
        default:
            break;
    }
}

/// Without memory the record is passed over.
void keep_locator(const FruLocatorCopy& locator, vpdd::ComponentCounts& counts) {
    auto node = vpdd::allocate_zeroed<ComponentVpdNode>();
    if (node == nullptr) return;
    node->locator = locator;
    node->locator.id_string[sizeof locator.id_string - 1] = '\0';  // 16 characters fill a good string
    if (vpdd::is_processor_cartridge(locator)) return;

    count(locator, counts);
    const vpdd::ScopedLock lock(g_list_access_mutex);
    insert_vpd_node_last(&vpdd::component_vpd_list, node.release());
}

void set_count(const char* name, int32_t value) { tarn_config_set_int(name, value, 1); }

}  // namespace

namespace vpdd {

bool scan_sdr_repository(ComponentCounts& counts) {
    int32_t bytes_read = 0;
    uint16_t record_id = first_record;
    SeenRecords seen;
    while (record_id != no_more_records) {
        SdrBuffer record{};
        uint16_t next_record_id = no_more_records;
        if (!seen.add(record_id) || mosk_sdr_get_entry(bmc_repository, record_id, sizeof record, &next_record_id,
                                                       &bytes_read, reinterpret_cast<uint8_t*>(&record)) != 0) {
            log_line(log_info, scan_name, "ERROR: Invalid SDR record head(n_read=%d).", bytes_read);
            log_line(log_info, scan_name, "ERROR:Create SDR cache error.");
            return false;
        }
        if (record.type == fru_device_locator) keep_locator(record.locator, counts);
        record_id = next_record_id;
    }
    return true;
}

void publish_counts(const ComponentCounts& counts) {
    tarn_config_set_int("vpdd_comp_sdr_cnt", counts.locators, 0);
    set_count("tarn_var_num_of_cpu_in_sys", counts.processors);
    set_count("tarn_var_num_of_mem_in_sys", counts.memory_devices);
    set_count("tarn_var_num_of_ps_in_sys", counts.power_supplies);
    set_count("tarn_var_num_of_drive_bp_in_sys", counts.drive_backplanes);

    const int stored = std::min(counts.drive_backplanes, static_cast<int>(counts.drive_backplane_fru_ids.size()));
    for (int i = 0; i < stored; ++i) {
        char name[64];
        std::snprintf(name, sizeof name, "Tarn_Var_Drive_Backplane_%d_FRU_Num", i);
        tarn_config_set_int(name, counts.drive_backplane_fru_ids[static_cast<std::size_t>(i)], 0);
    }

    int32_t base = counts.lowest_processor;
    if (counts.processors == 0) {
        base = default_processor_base;
        log_text(log_info, "%s: cpu base is set to default(%d)", create_name, base);
    }
    constexpr char base_variable[] = "tarn_var_base_of_cpu_in_fru";
    if (tarn_config_set_int(base_variable, base, 1) == 0) {
        log_text(log_info, "%s: can't update cpu base(%d) to tarn variable(%s)", create_name, base, base_variable);
    }
}

}  // namespace vpdd
