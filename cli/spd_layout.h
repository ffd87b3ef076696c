// SPDX-License-Identifier: Apache-2.0
// The bytes of an SPD image that say how to read the rest.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace vpdd::cli {

/// Memory type, byte 2 in every generation.
inline constexpr std::size_t spd_memory_type = 2;

inline constexpr uint8_t memory_ddr3 = 0x0B;
inline constexpr uint8_t memory_ddr4 = 0x0C;
inline constexpr uint8_t memory_nvdimm = 0x0D;
inline constexpr uint8_t memory_ddr5 = 0x12;

// Byte 0 of an NVDIMM image selects its layout.
inline constexpr uint8_t nvdimm_ddr4_layout = 0x23;
inline constexpr uint8_t nvdimm_ddr5_layout = 0x30;

/// The checksum of DDR3, of DDR4's first block and of an NVDIMM, low byte first.
inline constexpr std::size_t spd_crc = 126;

constexpr uint16_t stored_crc(std::span<const uint8_t> image) {
    return static_cast<uint16_t>(image[spd_crc] | image[spd_crc + 1] << 8);
}

}  // namespace vpdd::cli
