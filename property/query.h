// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include "base/heap.h"
#include "property/tlv.h"

namespace vpdd {

/// The decoded value of a property.
struct Property {
    HeapBlock<void> value;
    uint32_t length = 0;  ///< bytes, or words of a words value
    int type = 0;         ///< of its TLV

    /// Strings and bytes end with a zero byte that is not counted; words do not.
    bool is_terminated() const { return type == tlv_string || type == tlv_bytes; }
    char* text() const { return static_cast<char*>(value.get()); }
};

/// vpdd_get_property() with the type of the value.
int read_property(const char* path, Property& property);

}  // namespace vpdd
