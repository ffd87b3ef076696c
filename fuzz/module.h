// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <span>

#include "fuzz/platform.h"

namespace vpdd::fuzz {

/// SPD byte 2.
inline constexpr uint8_t type_ddr3 = 0x0B, type_ddr4 = 0x0C, type_nvdimm = 0x0D, type_ddr5 = 0x12;

/// Decodes an image by both handlers, and as the only module of a server with an SMBIOS table.
/// Input: options, image. Options: bit 0 makes the checksum right, bit 1 leaves the type byte as it is, bits 2 and 3
/// choose `other_type` with the DDR4 layout ('#' in byte 0) or with the DDR5 layout ('0').
void decode_module(std::span<const uint8_t> bytes, uint8_t type, uint8_t other_type);

}  // namespace vpdd::fuzz
