// SPDX-License-Identifier: Apache-2.0
// The property TLV: one head byte, whose high bits name the type and whose low bits count the data, and the data.
#pragma once

#include <cstdint>

namespace vpdd {

// The type bits of a head byte, which are also the type codes of check_property_type().
inline constexpr int tlv_string = 0x80;
inline constexpr int tlv_bytes = 0x10;
inline constexpr int tlv_words = 0x20;
inline constexpr int tlv_other = 0x40;

inline constexpr uint32_t longest_string = 127;
inline constexpr uint32_t longest_string_tlv = 1 + longest_string;

/// Characters that the head byte of a string announces.
constexpr uint32_t string_length(uint8_t head) { return head & 0x7FU; }

}  // namespace vpdd
