// SPDX-License-Identifier: Apache-2.0
// Type/length fields of the IPMI FRU Information Storage Definition, without an allocation for each field.
#pragma once

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

FieldHead read_field_head(const uint8_t* field, const uint8_t* end);

/// Writes the field's decoded bytes, `head.length` of them.
void decode_field_data(const uint8_t* field, const FieldHead& head, uint8_t* dest);

}  // namespace vpdd
