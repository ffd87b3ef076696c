// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/log_line.h"
#include "base/scoped_lock.h"
#include "base/text.h"
#include "compvpd/cache.h"
#include "compvpd/decode_areas.h"
#include "compvpd/decode_dimm.h"
#include "compvpd/locator.h"
#include "ipmi/multirecord.h"
#include "ipmi/ppin_dump.h"
#include "platform/configuration.h"

namespace {

using vpdd::log_info;
using vpdd::log_text;
using vpdd::log_warning;

constexpr char update_name[] = "UpdateComponentVPDCache";

constexpr int cache_missing = -4;
constexpr int smbios_missing = 64;
constexpr int fru_unreadable = -10;
constexpr int module_without_size = -1;

/// What an update adds up over all components.
struct Totals {
    int32_t nodes = 0;
    uint32_t memory = 0;  // MB, of DDR4 and DDR5 modules
    int32_t processors = 0;
    uint32_t logical_processors = 0;
    int32_t power_supplies = 0;
    char first_model[sizeof(ComponentVpdRecord::product_version)] = {};
};

struct Update {
    vpdd::Run run{update_name};
    Totals totals;
    int result = 0;  // the last failure overwrites earlier ones
};

void publish_part_number(const ComponentVpdRecord& record, const char* text) {
    static constexpr char digits[] = "0123456789abcdef";
    char name[] = "TARN_STR_PART_NUM_00";
    name[sizeof name - 3] = digits[record.fru_id >> 4U];
    name[sizeof name - 2] = digits[record.fru_id & 0x0FU];
    tarn_config_set_str(name, text, 1);
}

void publish_part_number(const ComponentVpdRecord& record, vpdd::WalkedField field) {
    if (field.has_data()) publish_part_number(record, field.text());
}

/// The PPIN text stands at the image's end.
void take_ppin(const vpdd::FruImage& image, ComponentVpdRecord& record) {
    if (get_ppin_hexdump(&record, image.end()) != 0) return;
    const auto dump = vpdd::take_ppin_dump(&record);
    std::array<char, vpdd::ppin_dump_size + 1> text{};
    std::memcpy(text.data(), dump.get(), vpdd::ppin_dump_size);
    trim_string(text.data());
    vpdd::assign_text(record.ppin, text.data());
}

void count_processor(const ComponentVpdRecord& record, Totals& totals) {
    constexpr std::size_t thread_count_text = 3;  // of the OEM processor record
    ++totals.processors;
    if (totals.first_model[0] == '\0') vpdd::assign_text(totals.first_model, record.product_version);
    // In the range of the 32-bit target's long; a text that is no number counts as 0.
    const long long count = std::strtoll(record.oem_cpu.text[thread_count_text], nullptr, 10);
    totals.logical_processors += static_cast<uint32_t>(std::clamp<long long>(count, INT32_MIN, INT32_MAX));
}

void update_areas(Update& update, const vpdd::FruImage& image, const FruAreaPointers& areas,
                  ComponentVpdRecord& record) {
    if (areas.board != nullptr) {
        const vpdd::BoardFields fields = vpdd::decode_board(areas.board, image, record);
        publish_part_number(record, fields.part_number);
        vpdd::decode_psu_versions(update.run, fields, image, record);
    } else if (areas.product != nullptr) {
        take_ppin(image, record);
        publish_part_number(record, vpdd::decode_product(areas.product, image, record));
    } else {
        log_text(log_warning, "%s(%d) - Product and Board are empty, fruid=%d, fru name=%s", update_name, __LINE__,
                 record.fru_id, record.name);
    }
}

void update_fru(Update& update, const vpdd::FruImage& image, ComponentVpdRecord& record) {
    if (record.entity_id == vpdd::entity_power_supply) ++update.totals.power_supplies;
    FruAreaPointers areas{};
    parse_fru_header(image.bytes(), &areas);
    update_areas(update, image, areas, record);
    if (vpdd::has_any_area(areas)) record.is_cached = 1;
    if (areas.multirecord == nullptr) {
        log_text(log_warning, "%s(%d) - MultiRecord is empty, fruid=%d, fru name=%s", update_name, __LINE__,
                 record.fru_id, record.name);
    }
    vpdd::process_multirecords(areas.multirecord, image.end(), &record);
    if (record.entity_id == vpdd::entity_processor) count_processor(record, update.totals);
}

void log_dimm_crc_error() { vpdd::log_spaced_line(vpdd::log_error, update_name, "ERROR: DIMM CRC"); }

void update_ddr3(Update& update, const vpdd::FruImage& image, ComponentVpdRecord& record) {
    // Deliberate: any result but 0 counts as an error here, and any but 1 for DDR4. Neither stops the decoding.
    if (vpdd::check_stored_crc(image, record.spd_info) != 0) log_dimm_crc_error();
    vpdd::decode_ddr3(update.run, image, record);
    record.spd_info.module_bus_width = vpdd::ddr3_bus_width(image);
}

void update_ddr4(Update& update, const vpdd::FruImage& image, ComponentVpdRecord& record) {
    if (vpdd::check_stored_crc(image, record.spd_info) != 1) log_dimm_crc_error();
    if (!vpdd::decode_ddr4(update.run, image, ", description des:", record)) return;
    publish_part_number(record, record.spd_info.part_number);
    update.totals.memory += record.spd_info.ram_size;
}

void update_ddr5(Update& update, const vpdd::FruImage& image, ComponentVpdRecord& record) {
    vpdd::log_ddr5(update.run, image);
    if (!vpdd::decode_ddr5(update.run, image, record)) return;
    update.totals.memory += record.spd_info.ram_size;
    log_text(vpdd::log_emergency, "== [%s](%d) mfg date:[%s]", update_name, __LINE__, record.mfg_date);
}

/// False for a module without a size.
bool update_dimm(Update& update, const vpdd::FruImage& image, ComponentVpdRecord& record) {
    log_text(vpdd::log_emergency, "%s(%d) - DIMM device type: 0x%x", update_name, __LINE__,
             vpdd::device_type_of(image));
    switch (vpdd::begin_dimm(update.run, image, record)) {
        case vpdd::DimmPath::ddr3:
            update_ddr3(update, image, record);
            return true;
        case vpdd::DimmPath::ddr4:
            update_ddr4(update, image, record);
            return true;
        case vpdd::DimmPath::ddr5:
            update_ddr5(update, image, record);
            return true;
        case vpdd::DimmPath::ddr5_without_size:
            return false;
        case vpdd::DimmPath::none:
            return true;
    }
    return true;
}

void note_unreadable_size(Update& update, int size_result, ComponentVpdRecord& record) {
    record.is_cached = 0;
    if (size_result != -1) return;  // deliberate: any other failure is passed over silently
    log_text(log_warning, "%s(%d) - Read FRU size fail, fruid=%d, fru name=%s!", update_name, __LINE__, record.fru_id,
             record.name);
    update.result = fru_unreadable;
}

void note_failed_read(Update& update, ComponentVpdRecord& record) {
    record.is_cached = 0;
    log_text(log_warning, "%s(%d) - Read FRU fail, fruid=%d, fru name=%s!", update_name, __LINE__, record.fru_id,
             record.name);
    update.result = fru_unreadable;
}

/// Reads and decodes one component again. False: a module without a size ends the whole run.
bool update_node(Update& update, ComponentVpdNode& node) {
    ComponentVpdRecord& record = node.record;
    ++update.totals.nodes;
    vpdd::set_address(node);
    if (!vpdd::is_handled_format(update.run, node)) return true;

    vpdd::PreparedImage prepared = vpdd::prepare_image(update.run, record.fru_id, "!");
    if (prepared.state == vpdd::Preparation::no_memory) update.result = fru_unreadable;
    if (prepared.state == vpdd::Preparation::size_unreadable) {
        note_unreadable_size(update, prepared.size_result, record);
    }
    if (prepared.state != vpdd::Preparation::ready) return true;
    vpdd::FruImage& image = prepared.image;
    const bool is_read = image.read(record.fru_id, prepared.size).result == 0;

    switch (node.locator.device_type_modifier) {
        case vpdd::modifier_fru_unspecified:
        case vpdd::modifier_fru_inventory:
            if (is_read) {
                update_fru(update, image, record);
            } else {
                note_failed_read(update, record);
            }
            return true;
        case vpdd::modifier_dimm:
            if (!is_read) {
                vpdd::note_failed_dimm_read(image, record);
                note_failed_read(update, record);
                return true;
            }
            if (update_dimm(update, image, record)) return true;
            image.leave_allocated_for_good();
            return false;
        default:
            return true;
    }
}

void set_total(const char* name, int32_t value, const char* failed_name, int32_t failed_value) {
    if (tarn_config_set_int(name, value, 1) != 0) return;
    vpdd::log_spaced_line(log_info, update_name, "set TARN(%s) to %d failed", failed_name, failed_value);
}

void set_total(const char* name, int32_t value) { set_total(name, value, name, value); }

void publish_totals(const Totals& totals) {
    constexpr char cpu_count[] = "tarn_var_total_cpu_count";
    constexpr char first_model[] = "tarn_var_first_cpu_model";
    tarn_config_set_int("vpdd_comp_sdr_cnt", totals.nodes, 0);
    set_total("tarn_var_total_memory_size", static_cast<int32_t>(totals.memory));
    set_total(cpu_count, totals.processors);
    // Deliberate: a failure is reported with the name and value of the processor count.
    set_total("tarn_var_total_logical_cpu_count", static_cast<int32_t>(totals.logical_processors), cpu_count,
              totals.processors);
    if (tarn_config_set_str_n(first_model, totals.first_model, static_cast<uint32_t>(std::strlen(totals.first_model)),
                              1) == 0) {
        vpdd::log_spaced_line(log_info, update_name, "set TARN(%s) to %s failed", first_model, totals.first_model);
    }
    set_total("tarn_var_total_enabled_power_supply", totals.power_supplies);
}

}  // namespace

extern "C" int UpdateComponentVPDCache() {
    if (vpdd::vpd_cache_status != vpdd::cache_created) {
        vpdd::log_cache_not_created(__func__, __LINE__, "");
        return cache_missing;
    }
    Update update;
    if (vpdd_load_smbios_table(&update.run.smbios) != 0) {
        vpdd::log_line(vpdd::log_error, __func__, "err:SMBIOS Init failed");
        update.result = smbios_missing;
    }

    const vpdd::ScopedLock lock(compvpd_access_mutex);
    for (ComponentVpdNode* node = vpdd::component_vpd_list.head; node != nullptr; node = node->next) {
        if (vpdd::vpd_cache_status != vpdd::cache_created) {
            vpdd::log_cache_not_created(__func__, __LINE__, "");
            vpdd_free_smbios_table(&update.run.smbios);
            return cache_missing;
        }
        // Deliberate: the SMBIOS table is not released, unlike the mutex.
        if (!update_node(update, *node)) return module_without_size;
    }
    publish_totals(update.totals);
    vpdd_free_smbios_table(&update.run.smbios);
    return update.result;
}
