// SPDX-License-Identifier: Apache-2.0
#include <cstdarg>
#include <cstddef>
#include <cstdio>

#include "base/log_line.h"
#include "base/text.h"
#include "orva_vpdd.h"

namespace {

using namespace vpdd;

void print_text(const char* name, std::string_view text) {
    log_text(log_emergency, "%s:[%.*s]", name, static_cast<int>(text.size()), text.data());
}

template <std::size_t Size>
void print_field(const char* name, const char (&field)[Size]) {
    print_text(name, bounded_view(field, Size));
}

/// Deliberate: an id word is printed as the characters that stand in its place, up to a zero byte; at the latest the
/// record's end stops it.
void print_word(const char* name, const SpdInfo& record, std::size_t offset) {
    const char* const word = reinterpret_cast<const char*>(&record) + offset;
    print_text(name, bounded_view(word, sizeof record - offset));
}

void print_byte(const char* name, uint8_t value) { log_text(log_emergency, "%s:[0x%2x]", name, value); }

void print_count(const char* name, uint32_t value) { log_text(log_emergency, "%s:[%u]", name, value); }

void print_signed(const char* name, int32_t value) { log_text(log_emergency, "%s:[%d]", name, value); }

void print_time(const char* name, float value) { log_text(log_emergency, "%s:[%f]", name, static_cast<double>(value)); }

void print_identity(const SpdInfo& record) {
    print_field("description", record.description);
    print_field("part_number", record.part_number);
    print_field("serial_number", record.serial_number);
    print_field("udi_part_number", record.udi_part_number);
    print_field("mfg_id", record.mfg_id);
    print_field("device_type", record.device_type);
    print_field("module_type", record.module_type);
    print_field("sdram_freq_string", record.sdram_freq_string);
    print_word("vendor_product_id", record, offsetof(SpdInfo, vendor_product_id));
    print_word("module_vendor_id", record, offsetof(SpdInfo, module_vendor_id));
    print_word("subsys_vendor_id", record, offsetof(SpdInfo, subsys_vendor_id));
    print_word("subsys_device_id", record, offsetof(SpdInfo, subsys_device_id));
}

void print_geometry_and_timing(const SpdInfo& record) {
    print_byte("sdram_row_bits", record.sdram_row_bits);
    print_byte("sdram_col_bits", record.sdram_col_bits);
    print_byte("module_voltage", record.module_voltage);
    print_byte("module_ranks", record.module_ranks);
    print_byte("device_width", record.device_width);
    print_count("module_bus_width", record.module_bus_width);
    print_time("fine_timebase", record.fine_timebase);
    print_time("medium_timebase", record.medium_timebase);
    print_signed("sdram_frequency", record.sdram_frequency);
    print_time("sdram_clock", record.sdram_clock);
    print_field("cas_latencies_supports", record.cas_latencies_supports);
    print_time("cas_latency", record.cas_latency);
}

void print_summary(const SpdInfo& record) {
    print_signed("crc", record.crc);
    print_count("mfg_week", record.mfg_week);
    print_count("mfg_year", record.mfg_year);
    print_count("ram_size", record.ram_size);
    print_count("speed_in_MBpsec", record.speed_in_MBpsec);
    print_count("ecc_bits", record.ecc_bits);
    print_count("config_speed", record.config_speed);
    print_count("AEP_Flag", record.AEP_Flag);
    print_count("smbios_size", record.smbios_size);
    print_count("smbios_speed", record.smbios_speed);
}

}  // namespace

extern "C" int DBG_DIMM(int enabled, const char* format, ...) {
    if (enabled == 0 || format == nullptr) return 0;
    va_list arguments;
    va_start(arguments, format);
    const int printed = std::vfprintf(stderr, format, arguments);
    va_end(arguments);
    return printed;
}

extern "C" void vpdd_print(const SpdInfo* record) {
    log_text(log_emergency, "============[%s]=============", __func__);
    print_identity(*record);
    print_geometry_and_timing(*record);
    print_summary(*record);
}
