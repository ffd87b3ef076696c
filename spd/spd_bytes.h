// SPDX-License-Identifier: Apache-2.0
// Where a value stands in an SPD image: one table of byte numbers for each generation.
#pragma once

#include <cstdint>

namespace vpdd::spd {

/// SPD byte 2. A byte may hold any other value too.
enum class DeviceType : uint8_t { ddr3 = 0x0B, ddr4 = 0x0C, nvdimm = 0x0D, ddr5 = 0x12 };

/// At the same place in every generation.
inline constexpr unsigned first_byte = 0;
inline constexpr unsigned device_type_byte = 2;
inline constexpr unsigned module_type_byte = 3;

/// DDR3 and DDR4.
inline constexpr unsigned crc_byte = 126;

/// What an NVDIMM's first byte says about its layout.
inline constexpr uint8_t nvdimm_ddr4_mark = '#';
inline constexpr uint8_t nvdimm_ddr5_mark = '0';

/// Below this length the bus width, ECC bits, ranks and transfer rate are 0, whatever the generation. It guards what is
/// read of DDR3 and DDR4; the bytes of DDR5 and of an NVDIMM lie behind it, and there the image is taken as whole.
inline constexpr uint32_t shortest_image = 127;

/// JEDEC 21-C Annex K.
namespace ddr3 {
inline constexpr unsigned density = 4;
inline constexpr unsigned nominal_voltage = 6;
inline constexpr unsigned organization = 7;
inline constexpr unsigned bus_width = 8;
inline constexpr unsigned fine_timebase = 9;  // dividend in bits 7-4, divisor in bits 3-0
inline constexpr unsigned medium_timebase_dividend = 10;
inline constexpr unsigned medium_timebase_divisor = 11;
inline constexpr unsigned clock_period = 12;
inline constexpr unsigned cas_latencies_low = 14;
inline constexpr unsigned cas_latencies_high = 15;
inline constexpr unsigned cas_latency_time = 16;
inline constexpr unsigned clock_period_offset = 34;
inline constexpr unsigned cas_latency_time_offset = 35;
inline constexpr unsigned module_maker = 117;
inline constexpr unsigned year = 120;
inline constexpr unsigned week = 121;
inline constexpr unsigned serial_number = 122;
inline constexpr unsigned serial_number_bytes = 4;
inline constexpr unsigned part_number = 128;
inline constexpr unsigned part_number_bytes = 18;
inline constexpr unsigned dram_maker = 148;
inline constexpr unsigned flash_capacity = 152;  // maker's own, GB
}  // namespace ddr3

/// JEDEC 21-C Annex L.
namespace ddr4 {
inline constexpr unsigned density = 4;
inline constexpr unsigned package = 6;
inline constexpr unsigned voltage = 11;
inline constexpr unsigned organization = 12;
inline constexpr unsigned bus_width = 13;
inline constexpr unsigned timebases = 17;
inline constexpr unsigned clock_period = 18;
inline constexpr unsigned cas_latencies = 20;  // 4 bytes
inline constexpr unsigned cas_latency_time = 24;
inline constexpr unsigned cas_latency_time_offset = 123;
inline constexpr unsigned clock_period_offset = 125;
inline constexpr unsigned hybrid_area = 176;
inline constexpr unsigned product_id = 192;
inline constexpr unsigned subsystem_vendor_id = 194;
inline constexpr unsigned subsystem_device_id = 196;
inline constexpr unsigned hybrid_media = 204;
inline constexpr unsigned module_maker = 320;
inline constexpr unsigned serial_number = 320;  // 9 bytes: maker, location, date, serial number
inline constexpr unsigned year = 323;
inline constexpr unsigned week = 324;
inline constexpr unsigned part_number = 329;  // 20 bytes
inline constexpr unsigned dram_maker = 350;
inline constexpr unsigned flash_capacity = 355;  // maker's own, GB
inline constexpr unsigned end_user_part = 496;   // 7 bytes
}  // namespace ddr4

/// JESD400-5.
namespace ddr5 {
inline constexpr unsigned density_and_package = 4;
inline constexpr unsigned io_width = 6;
inline constexpr unsigned voltage = 16;
inline constexpr unsigned clock_period = 20;
inline constexpr unsigned cas_latencies = 24;  // 5 bytes
inline constexpr unsigned cas_latency_time = 30;
inline constexpr unsigned row_to_column_delay = 32;
inline constexpr unsigned row_precharge_delay = 34;
inline constexpr unsigned active_to_precharge_delay = 36;
inline constexpr unsigned active_to_refresh_delay = 38;
inline constexpr unsigned write_recovery_time = 40;
inline constexpr unsigned module_vendor_id = 194;
inline constexpr unsigned organization = 234;
inline constexpr unsigned bus_width = 235;
inline constexpr unsigned module_maker = 512;
inline constexpr unsigned serial_number = 512;  // 9 bytes: maker, location, date, serial number
inline constexpr unsigned year = 515;
inline constexpr unsigned week = 516;
inline constexpr unsigned part_number = 521;  // 30 bytes
inline constexpr unsigned hybrid_area = 592;
inline constexpr unsigned end_user_part = 1008;  // 7 bytes
}  // namespace ddr5

/// Byte numbers in the hybrid area of an NVDIMM, which both layouts have alike.
namespace hybrid {
inline constexpr unsigned capacity = 0;
inline constexpr unsigned package = 2;
inline constexpr unsigned organization = 4;
inline constexpr unsigned bus_width = 5;
}  // namespace hybrid

inline constexpr unsigned serial_number_bytes = 9;
inline constexpr unsigned end_user_part_bytes = 7;

constexpr DeviceType device_type(const uint8_t* spd) { return static_cast<DeviceType>(spd[device_type_byte]); }

/// The device type, and for an NVDIMM the layout that it follows.
enum class Layout : uint8_t { ddr3, ddr4, ddr5, nvdimm_as_ddr4, nvdimm_as_ddr5, nvdimm_other, unknown };

constexpr Layout nvdimm_layout(const uint8_t* spd) {
    if (spd[first_byte] == nvdimm_ddr4_mark) return Layout::nvdimm_as_ddr4;
    if (spd[first_byte] == nvdimm_ddr5_mark) return Layout::nvdimm_as_ddr5;
    return Layout::nvdimm_other;
}

constexpr Layout layout_of(const uint8_t* spd) {
    switch (device_type(spd)) {
        case DeviceType::ddr3:
            return Layout::ddr3;
        case DeviceType::ddr4:
            return Layout::ddr4;
        case DeviceType::ddr5:
            return Layout::ddr5;
        case DeviceType::nvdimm:
            return nvdimm_layout(spd);
    }
    return Layout::unknown;
}

/// `count` bits from bit `lowest` upwards.
constexpr uint32_t bits(uint8_t value, unsigned lowest, unsigned count) {
    return static_cast<uint32_t>(value) >> lowest & ((1U << count) - 1U);
}

}  // namespace vpdd::spd
