// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/heap.h"
#include "orva_vpdd.h"

namespace vpdd {

inline constexpr std::size_t ppin_dump_size = 10;

/// The dump that get_ppin_hexdump() left with the record, null when there is none. The record's word is 0 afterwards.
HeapBlock<uint8_t> take_ppin_dump(ComponentVpdRecord* record);

}  // namespace vpdd
