// SPDX-License-Identifier: Apache-2.0
// Ownership of heap blocks that come from the C allocator, because callers release what they are handed with free().
#pragma once

#include <cstddef>
#include <cstdlib>
#include <memory>

namespace vpdd {

struct FreeDeleter {
    void operator()(void* block) const { std::free(block); }
};

template <class T>
using HeapBlock = std::unique_ptr<T, FreeDeleter>;

/// One zeroed T, or null.
template <class T>
HeapBlock<T> allocate_zeroed() {
    return HeapBlock<T>(static_cast<T*>(std::calloc(1, sizeof(T))));
}

/// `count` zeroed bytes, or null.
inline HeapBlock<uint8_t> allocate_zeroed_bytes(std::size_t count) {
    return HeapBlock<uint8_t>(static_cast<uint8_t*>(std::calloc(1, count)));
}

}  // namespace vpdd
