// SPDX-License-Identifier: Apache-2.0
// Type/length fields of the IPMI FRU Information Storage Definition, without an allocation for each field.
#pragma once

#include <cstddef>
#include <cstdint>

#include "orva_vpdd.h"

namespace vpdd {

enum FieldType : uint8_t { field_binary = 0, field_bcd_plus = 1, field_six_bit_ascii = 2, field_text = 3 };

inline constexpr uint32_t max_field_length = 63;  // six bits

/// Where a field stands and what follows it.
struct FieldHead {
    uint8_t type;
    uint8_t length;       // 0: an empty field or the end marker
    const uint8_t* next;  // null when the walk ends
};

inline FieldHead read_field_head(const uint8_t* field, const uint8_t* end) {
    constexpr uint8_t end_of_fields = 0xC1;
    const auto type = static_cast<uint8_t>(*field >> 6U);
    const auto length = static_cast<uint8_t>(*field & 0x3FU);
    if (*field == end_of_fields) return {type, 0, nullptr};
    const std::ptrdiff_t size = 1 + length;
    // A field that ends exactly at the end gives its data and ends the walk.
    return {type, length, end - field > size ? field + size : nullptr};
}

/// Writes the field's decoded bytes, `head.length` of them.
void decode_field_data(const uint8_t* field, const FieldHead& head, uint8_t* dest);

}  // namespace vpdd
