// SPDX-License-Identifier: Apache-2.0
#include "status/change_history.h"

#include <dlfcn.h>

#include <atomic>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "base/log_line.h"
#include "base/text.h"
#include "compvpd/locator.h"

namespace {

constexpr char library_name[] = "liborvadb_chghist.so";
constexpr char function_name[] = "insert_hw_log";

using InsertFunction = int (*)(ChangeHistoryRecord*);

// The handle says whether the library is loaded: closing deliberately leaves the function's address.
std::atomic<void*> library_handle{nullptr};
std::atomic<InsertFunction> insert_function{nullptr};

__attribute__((constructor)) void load_with_the_library() { vpdd_load_chghist_lib(); }
__attribute__((destructor)) void close_with_the_library() { vpdd_close_chghist_lib(); }

/// Both texts stay empty for a time that the C library cannot convert.
void fill_time_texts(int64_t timestamp, ChangeHistoryRecord& out) {
    const auto seconds = static_cast<time_t>(timestamp);
    if (seconds != timestamp) return;  // beyond what the target's clock can count
    tm local{};
    if (localtime_r(&seconds, &local) == nullptr) return;
    const int64_t year = int64_t{local.tm_year} + 1900;  // a damaged entry's year may not fit an int
    std::snprintf(out.time_text, sizeof out.time_text, "%02d/%02d/%" PRId64 ",%02d:%02d:%02d", local.tm_mon + 1,
                  local.tm_mday, year, local.tm_hour, local.tm_min, local.tm_sec);
    std::snprintf(out.time_iso, sizeof out.time_iso, "%" PRId64 "-%02d-%02dT%02d:%02d", year, local.tm_mon + 1,
                  local.tm_mday, local.tm_hour, local.tm_min);
}

template <std::size_t ToSize, class Element, std::size_t FromSize>
void copy_text(char (&to)[ToSize], const Element (&from)[FromSize]) {
    vpdd::assign_text(to, vpdd::bounded_view(from, FromSize));
}

/// Deliberate: raw bytes from the PPIN text on, which run into the serial number.
void fill_cpu_words(const ComponentVpdRecord& record, ChangeHistoryRecord& out) {
    constexpr std::size_t from = offsetof(ComponentVpdRecord, ppin);
    static_assert(from + sizeof out.cpu_words == offsetof(ComponentVpdRecord, serial_number) + 2);
    std::memcpy(out.cpu_words, reinterpret_cast<const char*>(&record) + from, sizeof out.cpu_words);
}

}  // namespace

namespace vpdd {

void record_change(const ComponentVpdRecord& record) {
    if (library_handle.load() == nullptr) return;
    ChangeHistoryRecord change{};
    get_chghist_md_data(&record, &change);
    insert_function.load()(&change);
}

}  // namespace vpdd

extern "C" int vpdd_load_chghist_lib() {
    void* const handle = dlopen(library_name, RTLD_LAZY);
    if (handle == nullptr) {
        vpdd::log_text(vpdd::log_error, "open liborvadb_chghist.so dl failed.\n");
        return -1;
    }
    dlerror();
    void* const address = dlsym(handle, function_name);
    if (const char* const error = dlerror()) {
        vpdd::log_text(vpdd::log_error, "load func insert_hw_log failed, err = %s.\n", error);
        dlclose(handle);
        library_handle = nullptr;
        return -1;
    }
    insert_function = reinterpret_cast<InsertFunction>(address);
    library_handle = handle;
    return 1;
}

extern "C" int vpdd_close_chghist_lib() {
    void* const handle = library_handle.exchange(nullptr);
    return handle != nullptr ? dlclose(handle) : 0;
}

extern "C" int get_chghist_md_data(const ComponentVpdRecord* record, ChangeHistoryRecord* out) {
    fill_time_texts(record->timestamp, *out);
    out->time = static_cast<uint32_t>(record->timestamp);
    out->one = 1;
    out->status = record->status;
    copy_text(out->board_extra, record->board_extra);
    copy_text(out->name, record->name);
    copy_text(out->serial_number, record->serial_number);
    copy_text(out->mfg_id, record->mfg_id);
    out->entity_instance = record->entity_instance;
    if (record->entity_id == vpdd::entity_processor) {
        copy_text(out->part_number, record->oem_cpu.raw);
        fill_cpu_words(*record, *out);
    } else {
        copy_text(out->part_number, record->part_number);
    }
    return 0;
}
