// SPDX-License-Identifier: Apache-2.0
// The areas of a FRU image into the record of its component.
#pragma once

#include "compvpd/walk.h"
#include "ipmi/field_walk.h"

namespace vpdd {

struct BoardFields {
    WalkedField part_number;      // as it was found
    const uint8_t* after_fields;  // null where the list has ended
};

/// Fills the record from the board area.
BoardFields decode_board(const uint8_t* board, const FruImage& image, ComponentVpdRecord& record);

/// The firmware versions of a power supply stand behind the fields of its board area.
void decode_psu_versions(const Run& run, const BoardFields& fields, const FruImage& image, ComponentVpdRecord& record);

/// Fills the record from the product area; the part/model number, which the record does not carry.
WalkedField decode_product(const uint8_t* product, const FruImage& image, ComponentVpdRecord& record);

/// Whether the image had anything to decode.
bool has_any_area(const FruAreaPointers& areas);

}  // namespace vpdd
