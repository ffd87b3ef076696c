// SPDX-License-Identifier: Apache-2.0
// The areas of a FRU image into the record of its component.
#pragma once

#include "compvpd/walk.h"
#include "ipmi/field_walk.h"

namespace vpdd {

/// Fills the record from the board area; the board's part number as it was found.
WalkedField decode_board(const Run& run, const uint8_t* board, const FruImage& image, ComponentVpdRecord& record);

/// Fills the record from the product area; the part/model number, which the record does not carry.
WalkedField decode_product(const uint8_t* product, const FruImage& image, ComponentVpdRecord& record);

/// Whether the image had anything to decode.
bool has_any_area(const FruAreaPointers& areas);

}  // namespace vpdd
