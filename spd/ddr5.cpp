// SPDX-License-Identifier: Apache-2.0
#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "base/byte_view.h"
#include "base/heap.h"
#include "base/log_line.h"
#include "base/text.h"
#include "orva_vpdd.h"
#include "spd/geometry.h"
#include "spd/identity.h"
#include "spd/latency_list.h"
#include "spd/spd_bytes.h"

// Several keys stand in more than one row; the first counts.
const CasLatencyMaskRow cas_latency_mask[36] = {
    {"3200AN", "1E0000"},  {"3200B", "1A0000"},   {"3200BN", "1A0000"},  {"3200C", "120000"},   {"3600AN", "7E0000"},
    {"3600B", "7A0000"},   {"3600BN", "720000"},  {"3600C", "520000"},   {"4000AN", "7E1000"},  {"4000B", "7A1000"},
    {"4000BN", "7A1000"},  {"4000C", "521000"},   {"4400AN", "7E5000"},  {"4400B", "7A5000"},   {"4400BN", "725000"},
    {"4400C", "525000"},   {"4800AN", "FED000"},  {"4800B", "7AD000"},   {"4800BN", "72D000"},  {"4800C", "52D000"},
    {"5200AN", "7E2F000"}, {"5200B", "7A2D000"},  {"5200BN", "7A2D000"}, {"5200C", "522D000"},  {"5600AN", "7EAF000"},
    {"5600B", "7AAD000"},  {"5600BN", "72AD000"}, {"5600C", "52AD000"},  {"6000AN", "FEEF200"}, {"6000B", "7AED200"},
    {"6000BN", "7AED200"}, {"6000C", "52AD200"},  {"6400AN", "7EEF700"}, {"6400B", "7AED700"},  {"6400BN", "7AED700"},
    {"6400C", "52AD600"},
};

namespace {

using namespace vpdd;
using namespace vpdd::spd;

// Bare levels, without a facility.
constexpr int level_error = 3;
constexpr int level_info = 6;

constexpr uint32_t image_length = 1024;

constexpr IdentityBytes identity_bytes{ddr5::serial_number, ddr5::week, ddr5::year, ddr5::end_user_part};

constexpr int handler_mark = 2678;  // fixed number in the handler's first message
constexpr uint32_t persistent_memory = 2;

// By the code of byte 4 bits 7-5; 0 for codes that JESD400-5 leaves out, and code 7 deliberately 4.
constexpr std::array<int32_t, 8> die_counts{1, 0, 2, 4, 8, 16, 0, 4};

// Gbit by the code of byte 4 bits 4-0.
constexpr std::array<int32_t, 9> die_densities{0, 4, 8, 12, 16, 24, 32, 48, 64};

constexpr unsigned latency_byte_count = 5;
constexpr unsigned first_latency = 20;

struct TimingValue {
    const char* name;
    unsigned byte;
};

constexpr TimingValue clock_period{"tCKmin", ddr5::clock_period};
constexpr TimingValue write_recovery_time{"tWR", ddr5::write_recovery_time};
constexpr std::array<TimingValue, 5> further_timings{{
    {"tAA", ddr5::cas_latency_time},
    {"tRCD", ddr5::row_to_column_delay},
    {"tRP", ddr5::row_precharge_delay},
    {"tRAS", ddr5::active_to_precharge_delay},
    {"tRC", ddr5::active_to_refresh_delay},
}};

/// Reads and logs a time in ps.
uint16_t read_timing(const uint8_t* spd, const TimingValue& value) {
    const uint16_t picoseconds = little_endian_16(spd + value.byte);
    log_text(level_info, " msb:%.2x lsb:%.2x %s:%ld", spd[value.byte + 1], spd[value.byte], value.name,
             static_cast<long>(picoseconds));
    return picoseconds;
}

void log_no_clock_period() { log_text(log_emergency, "tCKmin is %lu", 0UL); }

/// Clock in units of 10 MHz, rounded down.
int32_t clock_in_tens(uint16_t picoseconds) {
    return static_cast<int32_t>(std::trunc(1.0 / static_cast<float>(picoseconds) * 1000.0 * 100.0));
}

/// Size in GB. Deliberate: 2^31 MB are below zero, as the size in MB is a signed word.
int32_t nvdimm_size(const uint8_t* spd) { return static_cast<int32_t>(hybrid_size(spd + ddr5::hybrid_area)) / 1024; }

/// Size in GB of the dies in a package. Deliberate: a die that is no multiple of 8 Gbit counts as rounded down.
int32_t package_size(uint8_t density_and_package) {
    const int32_t dies = die_counts[bits(density_and_package, 5, 3)];
    if (dies == 0) log_text(level_error, "*** SDRAM Die Count at Byte 4 invalid ***\n");

    const uint32_t code = bits(density_and_package, 0, 5);
    const int32_t density = code < die_densities.size() ? die_densities[code] : 0;
    return dies * (density / 8);
}

int32_t dram_size(const uint8_t* spd) {
    const int32_t package = package_size(spd[ddr5::density_and_package]);
    const bool is_asymmetric = bits(spd[ddr5::organization], 6, 1) != 0;
    if (is_asymmetric) {
        log_text(level_error, "Not support to calculate size of asymmetrical of DDR5!\n");
        return 0;
    }

    const int32_t bus_bits = 8 << bits(spd[ddr5::bus_width], 0, 3);
    const int32_t io_bits = 4 << bits(spd[ddr5::io_width], 5, 3);
    const auto sub_channels = static_cast<int32_t>(bits(spd[ddr5::bus_width], 5, 2) + 1);
    const auto ranks = static_cast<int32_t>(bits(spd[ddr5::organization], 3, 3) + 1);
    return sub_channels * (bus_bits / io_bits) * package * ranks;
}

/// The five latency bytes in hex without leading zeros, a zero byte as "0".
struct LatencyKey {
    char text[16];
};

LatencyKey latency_key(const uint8_t* latencies) {
    LatencyKey key{};
    std::snprintf(key.text, sizeof key.text, "%X%X%X%X%X", latencies[0], latencies[1], latencies[2], latencies[3],
                  latencies[4]);
    return key;
}

const CasLatencyMaskRow* find_speed_bin(const LatencyKey& key) {
    for (const CasLatencyMaskRow& row : cas_latency_mask)
        if (std::strcmp(row.key, key.text) == 0) return &row;
    return nullptr;
}

/// Logs the speed bin; false when the latencies stand for none.
bool log_speed_bin(const uint8_t* latencies) {
    const LatencyKey key = latency_key(latencies);
    const CasLatencyMaskRow* const row = find_speed_bin(key);
    if (row == nullptr) {
        log_text(log_emergency, "monoSpeedBin:%s is unexpected.", key.text);
        return false;
    }
    log_text(log_emergency, "1b:%X 2b:%X 3b:%X 4b:%X 5b:%X tmp:[%s] monoSpeedBin:[%s]", latencies[0], latencies[1],
             latencies[2], latencies[3], latencies[4], key.text, row->bin);
    return true;
}

/// Logs the write recovery time in clocks, by JEDEC's rounding rule with its guard band of 0.3 %.
void log_write_recovery_clocks(uint16_t period, uint16_t write_recovery) {
    if (period == 0) {
        log_text(log_emergency, "ClockPeriod is %d", 0);
        log_no_clock_period();
        return;
    }
    log_text(log_emergency, "TwrInNck:%d", (997 * write_recovery / period + 1000) / 1000);
    // Deliberate: 10 here, the clock, where the data rate has 20.
    log_text(log_emergency, "tCKmin:%ld  freq:%d", static_cast<long>(period), 10 * clock_in_tens(period));
}

void fill_part_number(const uint8_t* spd, SpdInfo& record) {
    constexpr std::size_t part_number_bytes = sizeof record.part_number - 1;
    char text[part_number_bytes];
    for (std::size_t i = 0; i < part_number_bytes; ++i) {
        const uint8_t byte = spd[ddr5::part_number + i];
        const bool is_printable = byte >= 0x20 && byte <= 0x7E;
        text[i] = is_printable ? static_cast<char>(byte) : ' ';
    }
    assign_text(record.part_number, std::string_view(text, part_number_bytes));
}

void fill_geometry(const uint8_t* spd, SpdInfo& record) {
    record.ram_size = static_cast<uint32_t>(calculate_dimm_ddr5_size(spd, image_length)) << 10U;  // GB to MB
    record.module_bus_width = get_dimm_bus_width(spd, image_length);
    record.ecc_bits = get_dimm_eccbit(spd, image_length);
    record.module_voltage = spd[ddr5::voltage];
    record.module_ranks = static_cast<uint8_t>(get_dimm_ranks(spd, image_length) + 1);
}

void fill_cas_latencies(const uint8_t* spd, SpdInfo& record) {
    constexpr std::size_t latencies_limit = 128;
    char* text = nullptr;
    get_cas_supported_latencies(spd, image_length, &text);
    const HeapBlock<char> latencies(text);
    assign_text(record.cas_latencies_supports, latencies.get(), latencies_limit);
}

}  // namespace

extern "C" int32_t calculate_dimm_ddr5_size(const uint8_t* spd, uint32_t) {
    return layout_of(spd) == Layout::nvdimm_as_ddr5 ? nvdimm_size(spd) : dram_size(spd);
}

extern "C" int32_t get_ddr5_dimm_freq(const uint8_t* spd, uint32_t) {
    const uint16_t period = read_timing(spd, clock_period);
    if (period == 0) {
        log_no_clock_period();
        return 0;
    }
    return 20 * clock_in_tens(period);  // two transfers in each clock
}

extern "C" int get_cas_supported_latencies(const uint8_t* spd, uint32_t, char** out_text) {
    const uint8_t* const bytes = spd + ddr5::cas_latencies;
    LatencyList latencies;
    // Deliberate: bit by bit through all bytes, so the list is not sorted.
    for (unsigned bit = 0; bit < 8; ++bit) {
        for (unsigned byte = 0; byte < latency_byte_count; ++byte) {
            if (bits(bytes[byte], bit, 1) != 0) latencies.append(first_latency + 2 * bit + 16 * byte);
        }
    }

    log_text(log_emergency, "ddr5_cl_supported_string:[%s]", latencies.c_str());
    *out_text = latencies.duplicate();
    return 1;
}

extern "C" void calculate_tWRmin(const uint8_t* spd, uint32_t) {
    const uint16_t period = read_timing(spd, clock_period);
    for (const TimingValue& value : further_timings) read_timing(spd, value);
    const uint16_t write_recovery = read_timing(spd, write_recovery_time);

    if (log_speed_bin(spd + ddr5::cas_latencies)) log_write_recovery_clocks(period, write_recovery);
}

extern "C" int vpdd_Handle_DDR5_SPD(const uint8_t* spd, SpdInfo* record) {
    log_text(log_emergency, "== [%s](%d)", __func__, handler_mark);
    if (!has_image_and_record(__func__, spd, record)) return -1;

    const char* type_name = nullptr;
    translate_dimm_type(spd[device_type_byte], &type_name);
    fill_module_type(spd, image_length, *record);
    fill_part_number(spd, *record);
    fill_serial_and_date(__func__, spd, identity_bytes, *record);
    fill_maker(spd, image_length, *record);
    fill_device_type(spd, type_name, persistent_memory, *record);
    fill_geometry(spd, *record);
    fill_cas_latencies(spd, *record);
    record->sdram_frequency = get_ddr5_dimm_freq(spd, image_length);
    fill_end_user_part(spd, identity_bytes, *record);
    calculate_tWRmin(spd, image_length);
    return 0;
}
