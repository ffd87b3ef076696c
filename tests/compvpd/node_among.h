// SPDX-License-Identifier: Apache-2.0
// No look-up hands out a record before the cache stands: until then a node is looked for among the library's blocks.
#pragma once

#include <malloc.h>

#include "failing_allocator.h"
#include "orva_vpdd.h"

namespace vpdd::test {

/// The node of this FRU id that was allocated under the watch, or null.
inline ComponentVpdNode* node_among(const AllocationWatch& watch, uint8_t fru_id) {
    for (const void* block : watch.blocks()) {
        auto* node = static_cast<ComponentVpdNode*>(const_cast<void*>(block));
        if (malloc_usable_size(node) >= sizeof *node && node->locator.fru_device_id == fru_id) return node;
    }
    return nullptr;
}

}  // namespace vpdd::test
