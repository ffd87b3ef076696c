// SPDX-License-Identifier: Apache-2.0
#include "ipmi/ppin_dump.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "base/scoped_lock.h"

namespace {

constexpr bool pointer_fits = sizeof(void*) == sizeof(ComponentVpdRecord::ppin_dump);

/// A dump kept out of line: where a pointer does not fit into the record's word, the word holds the dump's number.
struct OutOfLineDump {
    OutOfLineDump* next;
    uint32_t number;
    uint8_t* bytes;
};

pthread_mutex_t out_of_line_mutex = PTHREAD_MUTEX_INITIALIZER;
OutOfLineDump* out_of_line_dumps = nullptr;
uint32_t last_number = 0;

/// The word for the record, 0 without memory.
uint32_t keep(vpdd::HeapBlock<uint8_t> dump) {
    if constexpr (pointer_fits) {
        return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(dump.release()));
    } else {
        auto entry = vpdd::allocate_zeroed<OutOfLineDump>();
        if (entry == nullptr) return 0;
        const vpdd::ScopedLock lock(out_of_line_mutex);
        if (++last_number == 0) ++last_number;
        entry->next = out_of_line_dumps;
        entry->number = last_number;
        entry->bytes = dump.release();
        out_of_line_dumps = entry.release();
        return last_number;
    }
}

vpdd::HeapBlock<uint8_t> fetch(uint32_t word) {
    if constexpr (pointer_fits) {
        // NOLINTNEXTLINE(performance-no-int-to-ptr): the word is the pointer
        return vpdd::HeapBlock<uint8_t>(reinterpret_cast<uint8_t*>(static_cast<uintptr_t>(word)));
    } else {
        const vpdd::ScopedLock lock(out_of_line_mutex);
        for (OutOfLineDump** link = &out_of_line_dumps; *link != nullptr; link = &(*link)->next) {
            if ((*link)->number != word) continue;
            const vpdd::HeapBlock<OutOfLineDump> entry(*link);
            *link = entry->next;
            return vpdd::HeapBlock<uint8_t>(entry->bytes);
        }
        return nullptr;
    }
}

}  // namespace

namespace vpdd {

HeapBlock<uint8_t> take_ppin_dump(ComponentVpdRecord* record) {
    if (record->ppin_dump == 0) return nullptr;
    auto dump = fetch(record->ppin_dump);
    record->ppin_dump = 0;
    return dump;
}

}  // namespace vpdd

extern "C" int get_ppin_hexdump(ComponentVpdRecord* record, const uint8_t* end) {
    record->ppin_dump = 0;
    auto dump = vpdd::allocate_zeroed_bytes(vpdd::ppin_dump_size);
    if (dump != nullptr) {
        std::memcpy(dump.get(), end - (vpdd::ppin_dump_size - 1), vpdd::ppin_dump_size);
        record->ppin_dump = keep(std::move(dump));
    }
    if (record->ppin_dump != 0) return 0;
    const int error = errno;
    perror("malloc");
    return error;
}
