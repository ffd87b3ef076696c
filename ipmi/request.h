// SPDX-License-Identifier: Apache-2.0
// What the senders of IPMI requests share.
#pragma once

#include <array>
#include <cstdint>
#include <span>

#include "orva_vpdd.h"

namespace vpdd {

inline constexpr uint8_t netfn_app = 0x06;
inline constexpr uint8_t netfn_storage = 0x0A;
inline constexpr uint8_t netfn_oem_group = 0x2E;  // the first three data bytes are the maker's number
inline constexpr uint8_t netfn_oem = 0x3A;

inline constexpr uint8_t ipmi_ok = 0x00;
inline constexpr uint8_t ipmi_not_present = 0xCB;  // IPMI 2.0, table 5-2

/// Room for the longest answer: completion code, returned count and 255 bytes of data; and a byte to spare.
using IpmiResponse = std::array<uint8_t, 1 + 1 + 255 + 1>;

/// ipmi_cmd_retry() into a response that the caller has zeroed. What a short answer lacks stays zero, whatever an
/// attempt that was refused has brought.
int carry_out(uint8_t netfn, uint8_t cmd, std::span<const uint8_t> data, std::span<uint8_t> response);

}  // namespace vpdd
