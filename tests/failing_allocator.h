// SPDX-License-Identifier: Apache-2.0
// Makes allocations of liborva_vpdd.so fail and counts the blocks that it has not given back. Only calls that come
// straight from the library's code count, or also those of the C library: a test and the fake platform allocate as they
// like meanwhile.
#pragma once

#include <cstddef>
#include <vector>

namespace vpdd::test {

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer)
#define VPDD_SANITIZER_OWNS_MALLOC
#endif
#elif defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define VPDD_SANITIZER_OWNS_MALLOC
#endif

/// A sanitizer brings its own allocator: tests that need this one skip there.
#ifdef VPDD_SANITIZER_OWNS_MALLOC
inline constexpr bool allocator_can_fail = false;
#else
inline constexpr bool allocator_can_fail = true;
#endif

enum class Failing { once, from_then_on };

/// Whose allocations count. Those of the C library and the loader are made for whoever runs meanwhile: for fopen(),
/// perror(), localtime_r(), dlopen().
enum class Allocating { library, library_and_c_library };

/// Watches malloc, calloc, realloc and strdup of the library while it lives. One at a time. What a block gains by
/// realloc is filled with rubbish, as a sanitizer does.
class AllocationWatch {
public:
    /// Counts only.
    AllocationWatch() : AllocationWatch(0, Failing::once) {}
    /// Also fails the n-th allocation, counted from 1, with ENOMEM.
    explicit AllocationWatch(std::size_t failing, Failing how = Failing::once, Allocating who = Allocating::library);
    ~AllocationWatch();
    AllocationWatch(const AllocationWatch&) = delete;
    AllocationWatch& operator=(const AllocationWatch&) = delete;

    /// Allocations that the library asked for so far.
    std::size_t allocations() const;
    /// The most that was allocated under this watch at one time.
    std::size_t peak_bytes() const;
    /// Whether an allocation was made to fail.
    bool has_failed() const;
    /// Blocks that the library allocated under this watch and that nobody has freed.
    std::size_t live_blocks() const { return blocks().size(); }
    std::vector<const void*> blocks() const;
};

}  // namespace vpdd::test
