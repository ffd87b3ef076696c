// SPDX-License-Identifier: Apache-2.0
#include "failing_allocator.h"

#include <malloc.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "library_code.h"

namespace vpdd::test {

namespace {

/// The code of the library, and of those that allocate for it.
std::array<ObjectCode, 3> codes{ObjectCode(library_file), ObjectCode("/libc.so.6"), ObjectCode("/ld-linux")};
std::atomic<std::size_t> watched_codes{0};
std::atomic<bool> watching{false};
std::atomic<std::size_t> allocation_count{0};
std::atomic<std::size_t> failing_number{0};
std::atomic<bool> fails_from_then_on{false};
std::atomic<bool> failed{false};

// Must not allocate itself, so it is a plain table.
std::mutex live_mutex;
std::array<void*, 65536> live{};
std::size_t live_count = 0;
std::size_t live_size = 0;  // bytes
std::size_t peak_size = 0;

[[maybe_unused]] bool is_watched(const void* caller) {
    if (!watching) return false;
    const auto holds = [=](const ObjectCode& code) { return code.holds(caller); };
    return std::any_of(codes.begin(), codes.begin() + watched_codes, holds);
}

[[maybe_unused]] bool must_fail() {
    const std::size_t number = ++allocation_count;
    const std::size_t failing = failing_number;
    const bool fails = failing != 0 && (number == failing || (fails_from_then_on && number > failing));
    if (!fails) return false;
    failed = true;
    errno = ENOMEM;
    return true;
}

[[maybe_unused]] void* kept(void* block) {
    const std::lock_guard lock(live_mutex);
    if (block == nullptr) return block;
    if (live_count == live.size()) std::abort();
    live[live_count++] = block;
    live_size += malloc_usable_size(block);
    peak_size = std::max(peak_size, live_size);
    return block;
}

[[maybe_unused]] constexpr int rubbish = 0xA5;

[[maybe_unused]] void forget(void* block) {
    const std::lock_guard lock(live_mutex);
    for (std::size_t i = 0; i < live_count; ++i) {
        if (live[i] != block) continue;
        live[i] = live[--live_count];
        live_size -= malloc_usable_size(block);
        return;
    }
}

}  // namespace

AllocationWatch::AllocationWatch(std::size_t failing, Failing how, Allocating who) {
    for (ObjectCode& code : codes) code.find();
    watched_codes = who == Allocating::library ? 1 : codes.size();
    allocation_count = 0;
    failed = false;
    failing_number = failing;
    fails_from_then_on = how == Failing::from_then_on;
    live_count = live_size = peak_size = 0;
    watching = true;
}

AllocationWatch::~AllocationWatch() { watching = false; }

std::size_t AllocationWatch::allocations() const { return allocation_count; }

std::size_t AllocationWatch::peak_bytes() const { return peak_size; }

bool AllocationWatch::has_failed() const { return failed; }

std::vector<const void*> AllocationWatch::blocks() const {
    std::vector<const void*> copy;
    copy.reserve(live.size());  // nothing may be allocated or freed under the lock
    const std::lock_guard lock(live_mutex);
    copy.assign(live.begin(), live.begin() + static_cast<std::ptrdiff_t>(live_count));
    return copy;
}

}  // namespace vpdd::test

#ifndef VPDD_SANITIZER_OWNS_MALLOC

using namespace vpdd::test;

extern "C" {

// The C library's own entry points, which stay reachable under these names when malloc and its family are interposed.
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void __libc_free(void* block);

void* malloc(std::size_t size) noexcept {
    if (!is_watched(__builtin_return_address(0))) return __libc_malloc(size);
    return must_fail() ? nullptr : kept(__libc_malloc(size));
}

void* calloc(std::size_t count, std::size_t size) noexcept {
    if (!is_watched(__builtin_return_address(0))) return __libc_calloc(count, size);
    return must_fail() ? nullptr : kept(__libc_calloc(count, size));
}

void* realloc(void* block, std::size_t size) noexcept {
    if (!is_watched(__builtin_return_address(0))) return __libc_realloc(block, size);
    if (must_fail()) return nullptr;
    const std::size_t old_size = block != nullptr ? malloc_usable_size(block) : 0;
    forget(block);
    auto* const grown = static_cast<char*>(kept(__libc_realloc(block, size)));
    // Nobody promises zeros there.
    if (grown != nullptr && size > old_size) std::memset(grown + old_size, rubbish, size - old_size);
    return grown;
}

char* strdup(const char* text) noexcept {
    const std::size_t size = std::strlen(text) + 1;
    const bool watched = is_watched(__builtin_return_address(0));
    if (watched && must_fail()) return nullptr;
    void* const block = __libc_malloc(size);
    if (block == nullptr) return nullptr;
    if (watched) kept(block);
    return static_cast<char*>(std::memcpy(block, text, size));
}

void free(void* block) noexcept {
    if (watching) forget(block);
    __libc_free(block);
}

}  // extern "C"

#endif
