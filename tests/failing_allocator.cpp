// SPDX-License-Identifier: Apache-2.0
#include "failing_allocator.h"

#include <link.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string_view>

namespace vpdd::test {

namespace {

struct AddressRange {
    std::atomic<uintptr_t> first{0}, end{0};

    bool holds(uintptr_t address) const { return address >= first && address < end; }
};

/// The code of the library, and of those that allocate for it.
struct Code {
    std::string_view file_name;
    AddressRange range{};
};
std::array<Code, 3> codes{{{"liborva_vpdd.so"}, {"/libc.so.6"}, {"/ld-linux-x86-64.so.2"}}};
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

int find_code(dl_phdr_info* object, std::size_t, void*) {
    for (Code& code : codes) {
        if (!std::string_view(object->dlpi_name).ends_with(code.file_name)) continue;
        for (std::size_t i = 0; i < object->dlpi_phnum; ++i) {
            const auto& segment = object->dlpi_phdr[i];
            if (segment.p_type != PT_LOAD || (segment.p_flags & PF_X) == 0) continue;
            code.range.first = object->dlpi_addr + segment.p_vaddr;
            code.range.end = code.range.first + segment.p_memsz;
        }
    }
    return 0;
}

[[maybe_unused]] bool is_watched(void* caller) {
    if (!watching) return false;
    const auto address = reinterpret_cast<uintptr_t>(caller);
    const auto holds = [=](const Code& code) { return code.range.holds(address); };
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
    return block;
}

[[maybe_unused]] void forget(void* block) {
    const std::lock_guard lock(live_mutex);
    for (std::size_t i = 0; i < live_count; ++i) {
        if (live[i] != block) continue;
        live[i] = live[--live_count];
        return;
    }
}

}  // namespace

AllocationWatch::AllocationWatch(std::size_t failing, Failing how, Allocating who) {
    dl_iterate_phdr(find_code, nullptr);
    watched_codes = who == Allocating::library ? 1 : codes.size();
    allocation_count = 0;
    failed = false;
    failing_number = failing;
    fails_from_then_on = how == Failing::from_then_on;
    live_count = 0;
    watching = true;
}

AllocationWatch::~AllocationWatch() { watching = false; }

std::size_t AllocationWatch::allocations() const { return allocation_count; }

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
    forget(block);
    return kept(__libc_realloc(block, size));
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
