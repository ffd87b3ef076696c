// SPDX-License-Identifier: Apache-2.0
// Lists that are loaded for a client, which releases them through the operation that frees them.
#pragma once

#include <cstdio>

#include "base/heap.h"
#include "base/linked_list.h"

namespace vpdd {

/// Operation codes of the two logs.
enum LogOperation : int { operation_read = 51, operation_reserved = 52, operation_free = 53, operation_clean = 54 };

inline constexpr int unknown_operation = -2;

template <class List>
int hand_out(const char* function, HeapBlock<List> list, List** handle) {
    *handle = list.release();
    std::printf("--> vpdd:%s - Created log buffer %p\n", function, static_cast<void*>(*handle));
    return 0;
}

template <class List>
int release(const char* function, List** handle) {
    if (handle == nullptr || *handle == nullptr) return -1;
    const HeapBlock<List> list(*handle);
    *handle = nullptr;
    free_nodes(*list);
    std::printf("--> vpdd:%s - Delete log buffer %p\n", function, static_cast<void*>(list.get()));
    return 0;
}

}  // namespace vpdd
