// SPDX-License-Identifier: Apache-2.0
#include "spd/timing.h"

#include <array>
#include <span>

#include "orva_vpdd.h"
#include "spd/debug.h"
#include "spd/latency_list.h"
#include "spd/spd_bytes.h"

// The gaps between the rows are deliberate: a clock in a gap has no text.
const DimmFrequencyRow dimm_freq_ddr4_table[] = {
    {1, 789, "DDR4 (Not support freq.)"},       {790, 910, "DDR4-1600 (800 MHz clock)"},
    {923, 943, "DDR4-1866 (933 MHz clock)"},    {1057, 1087, "DDR4-2133 (1067 MHz clock)"},
    {1190, 1210, "DDR4-2400 (1200 MHz clock)"}, {1323, 1343, "DDR4-2666 (1333 MHz clock)"},
    {1456, 1476, "DDR4-2933 (1466 MHz clock)"}, {1590, 1610, "DDR4-3200 (1600 MHz clock)"},
    {1611, 9999, "DDR4 (Not support freq.)"},   {0, 0, nullptr},
};

const DimmFrequencyRow dimm_frequency_table[] = {
    {1, 389, "DDR3 (Not support freq.)"},
    {390, 410, "DDR3-800 (400 MHz clock)"},
    {523, 543, "DDR3-1066 (533 MHz clock)"},
    {657, 677, "DDR3-1333 (667 MHz clock)"},
    {790, 810, "DDR3-1600 (800 MHz clock)"},
    {923, 943, "DDR3-1866 (933 MHz clock)"},
    {1057, 1077, "DDR3-2133 (1067 MHz clock)"},
    {1078, 9999, "DDR3 (Not support freq.)"},
    {0, 0, nullptr},
};

namespace vpdd::spd {

namespace {

// JEDEC 21-C Annex L, byte 17: code 0 is the only one that is defined for either timebase.
constexpr float ddr4_fine_timebase = 0.001F;
constexpr float ddr4_medium_timebase = 0.125F;

// Bits of one byte of supported latencies: bit i stands for latency `first` + i.
struct LatencyByte {
    unsigned byte;
    unsigned bit_count;
    unsigned first;
};

constexpr std::array<LatencyByte, 2> ddr3_latencies{{
    {ddr3::cas_latencies_low, 8, 4},
    {ddr3::cas_latencies_high, 7, 12},
}};

constexpr std::array<LatencyByte, 4> ddr4_latencies{{
    {ddr4::cas_latencies, 8, 7},
    {ddr4::cas_latencies + 1, 8, 15},
    {ddr4::cas_latencies + 2, 8, 23},
    {ddr4::cas_latencies + 3, 8, 30},  // deliberate: one less than the count goes on from the byte before
}};

std::span<const LatencyByte> latency_bytes_of(const uint8_t* spd) {
    switch (device_type(spd)) {
        case DeviceType::ddr3:
            return ddr3_latencies;
        case DeviceType::ddr4:
            return ddr4_latencies;
        case DeviceType::nvdimm:
        case DeviceType::ddr5:
            break;
    }
    return {};
}

/// A divisor of 0 counts as 1.
float quotient(uint32_t dividend, uint32_t divisor) {
    return static_cast<float>(dividend) / static_cast<float>(divisor == 0 ? 1 : divisor);
}

/// Deliberate: both timebases of DDR4 hang on the bits of the fine one.
bool has_ddr4_timebases(const uint8_t* spd) { return bits(spd[ddr4::timebases], 0, 2) == 0; }

/// A time as a count of medium timebases and a correction in fine ones.
struct Time {
    uint8_t count;
    uint8_t correction;
};

constexpr Time no_time{0, 0};

Time clock_period(const uint8_t* spd) {
    switch (device_type(spd)) {
        case DeviceType::ddr3:
            return {spd[ddr3::clock_period], spd[ddr3::clock_period_offset]};
        case DeviceType::ddr4:
        case DeviceType::nvdimm:
            return {spd[ddr4::clock_period], spd[ddr4::clock_period_offset]};
        case DeviceType::ddr5:
            break;
    }
    return no_time;
}

Time cas_latency_time(const uint8_t* spd) {
    switch (device_type(spd)) {
        case DeviceType::ddr3:
            return {spd[ddr3::cas_latency_time], spd[ddr3::cas_latency_time_offset]};
        case DeviceType::ddr4:
            return {spd[ddr4::cas_latency_time], spd[ddr4::cas_latency_time_offset]};
        case DeviceType::nvdimm:
        case DeviceType::ddr5:
            break;
    }
    return no_time;
}

const char* frequency_text(const DimmFrequencyRow* row, uint32_t mhz) {
    for (; row->low != 0; ++row)
        if (row->low <= mhz && mhz <= row->high) return row->text;
    return nullptr;
}

/// Two transfers of the bus in each clock, whose period is a count of medium timebases.
uint32_t ddr3_speed(const uint8_t* spd, uint32_t bus_bytes) {
    const uint32_t divisor = uint32_t{spd[ddr3::medium_timebase_dividend]} * spd[ddr3::clock_period];
    return divisor == 0 ? 0 : 2000 * bus_bytes * spd[ddr3::medium_timebase_divisor] / divisor;
}

/// As for DDR3, with the medium timebase of 1/8 ns. The fine correction does not count.
uint32_t ddr4_speed(const uint8_t* spd, uint32_t bus_bytes) {
    const bool has_medium_timebase = bits(spd[ddr4::timebases], 2, 2) == 0;
    if (!has_medium_timebase || spd[ddr4::clock_period] == 0) return 0;
    return 8 * bus_bytes * 2000 / spd[ddr4::clock_period];
}

uint32_t speed_of(const uint8_t* spd, uint32_t bus_bytes) {
    return device_type(spd) == DeviceType::ddr3 ? ddr3_speed(spd, bus_bytes) : ddr4_speed(spd, bus_bytes);
}

/// Bus width for the speed alone: an NVDIMM's layout is not asked for here.
uint32_t speed_bus_bytes(const uint8_t* spd) {
    switch (device_type(spd)) {
        case DeviceType::ddr3:
            return bus_width_inbytes(bits(spd[ddr3::bus_width], 0, 3));
        case DeviceType::ddr4:
            return bus_width_inbytes(bits(spd[ddr4::bus_width], 0, 3));
        case DeviceType::nvdimm:
            return bus_width_inbytes(bits(spd[ddr4::hybrid_area + hybrid::bus_width], 0, 3));
        case DeviceType::ddr5:
            break;
    }
    return 0;
}

}  // namespace

int32_t clock_megahertz(float period_ns) {
    constexpr double limit = 2147483648.0;
    if (period_ns == 0) return 0;
    const double megahertz = 1.0 / static_cast<double>(period_ns) * 1000.0;
    return megahertz > -limit && megahertz < limit ? static_cast<int32_t>(megahertz) : 0;
}

}  // namespace vpdd::spd

using namespace vpdd::spd;

extern "C" float calculate_fine_timebase(const uint8_t* spd, uint32_t) {
    switch (device_type(spd)) {
        case DeviceType::ddr3: {
            // Deliberate: stays in picoseconds.
            const float timebase = quotient(bits(spd[ddr3::fine_timebase], 4, 4), bits(spd[ddr3::fine_timebase], 0, 4));
            DBG_DIMM(debug_off, "--> %s: Fine Timebase = %f.\n", __func__, static_cast<double>(timebase));
            return timebase;
        }
        case DeviceType::ddr4:
        case DeviceType::nvdimm:
            return has_ddr4_timebases(spd) ? ddr4_fine_timebase : 0;
        case DeviceType::ddr5:
            break;
    }
    return 0;
}

extern "C" float calculate_medium_timebase(const uint8_t* spd, uint32_t) {
    switch (device_type(spd)) {
        case DeviceType::ddr3: {
            const float timebase = quotient(spd[ddr3::medium_timebase_dividend], spd[ddr3::medium_timebase_divisor]);
            DBG_DIMM(debug_off, "--> %s: Medium Timebase = %f.\n", __func__, static_cast<double>(timebase));
            return timebase;
        }
        case DeviceType::ddr4:
        case DeviceType::nvdimm:
            return has_ddr4_timebases(spd) ? ddr4_medium_timebase : 0;
        case DeviceType::ddr5:
            break;
    }
    return 0;
}

extern "C" float calculate_sdram_clock(const uint8_t* spd, uint32_t, float fine, float medium) {
    const auto [count, correction] = clock_period(spd);
    const auto signed_correction = static_cast<int8_t>(correction);  // plain char is unsigned on some targets
    const float clock = medium * static_cast<float>(count) + fine * static_cast<float>(signed_correction);
    DBG_DIMM(debug_off, "--> %s: SDRAM Clock = %f.[%f %f][%02x %02x]\n", __func__, static_cast<double>(clock),
             static_cast<double>(medium), static_cast<double>(fine), count, correction);
    return clock;
}

extern "C" int translate_sdram_frequency(uint32_t mhz, const char** out_text) {
    DBG_DIMM(debug_off, "--> %s: SDRAM Freq.(int) = %d.\n", __func__, static_cast<int>(mhz));
    *out_text = frequency_text(dimm_frequency_table, mhz);
    if (*out_text == nullptr) return -1;
    DBG_DIMM(debug_off, "--> %s: SDRAM Freq. = %s.\n", __func__, *out_text);
    return 0;
}

extern "C" int translate_sdram_frequency_ddr4(uint32_t mhz, const char** out_text) {
    DBG_DIMM(debug_off, "--> %s: SDRAM Freq.(int) = %d.\n", __func__, static_cast<int>(mhz));
    *out_text = frequency_text(dimm_freq_ddr4_table, mhz);
    if (*out_text == nullptr) return -1;
    DBG_DIMM(debug_off, "--> %s: SDRAM Freq. = %s.\n", __func__, *out_text);
    return 0;
}

extern "C" float calculate_cas_latency(const uint8_t* spd, uint32_t, float fine, float medium) {
    // Deliberate: the correction is unsigned here, unlike that of the clock period.
    const auto [count, correction] = cas_latency_time(spd);
    const float latency = medium * static_cast<float>(count) + fine * static_cast<float>(correction);
    DBG_DIMM(debug_off, "--> %s: SDRAM CAS Latencies = %f.\n", __func__, static_cast<double>(latency));
    return latency;
}

extern "C" int parse_cas_supported_latencies(const uint8_t* spd, uint32_t, char** out_text) {
    LatencyList latencies;
    for (const auto& [byte, bit_count, first] : latency_bytes_of(spd)) {
        for (unsigned bit = 0; bit < bit_count; ++bit) {
            if (bits(spd[byte], bit, 1) != 0) latencies.append(first + bit);
        }
    }

    *out_text = latencies.duplicate();
    if (*out_text == nullptr) return -1;
    DBG_DIMM(debug_off, "--> %s: SDRAM CAS Supported Latencies = %s.\n", __func__, *out_text);
    return 0;
}

extern "C" uint32_t calculate_dimm_speed_inmbspsec(const uint8_t* spd, uint32_t length) {
    if (length < shortest_image) return 0;
    const uint32_t bus_bytes = speed_bus_bytes(spd);
    const uint32_t speed = speed_of(spd, bus_bytes);
    DBG_DIMM(debug_off, "--> %s: Bus width = %u bytes, DIMM speed = %u MB/s.\n", __func__, bus_bytes, speed);
    return speed;
}
