// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cstdio>
#include <cstring>

#include "base/log_line.h"
#include "base/scoped_lock.h"
#include "compvpd/cache.h"

namespace {

using vpdd::cache_created;
using vpdd::component_vpd_list;
using vpdd::ScopedLock;
using vpdd::vpd_cache_status;

constexpr int refused = -1;
constexpr int no_such_record = -7;
constexpr int not_created = -4;

constexpr uint8_t no_more_records = 0xFF;
constexpr uint32_t record_size = sizeof(ComponentVpdRecord);
constexpr uint32_t bulk_limit = 2048;  // records in one bulk copy

/// 0 and 0xFF both ask for the first record.
const ComponentVpdNode* node_asked_for(uint8_t fru_id) {
    if (fru_id == 0 || fru_id == 0xFF) return component_vpd_list.head;
    return vpdd::find_node(fru_id);
}

uint8_t fru_id_behind(const ComponentVpdNode* node) {
    return node->next != nullptr ? node->next->record.fru_id : no_more_records;
}

/// False, logged, without a cache or without a record or buffer to copy to.
bool can_copy(const char* function, int line, const void* out) {
    if (vpd_cache_status != cache_created) {
        vpdd::log_cache_not_created(function, line, "\n");
        return false;
    }
    if (out == nullptr) {
        vpdd::log_located(vpdd::log_info, function, line, "ERROR:p_info is null\n");
        return false;
    }
    return true;
}

/// The cursor alone. Deliberate: a cache of one record reads as nothing more.
int probe(ComponentVpdRecord* out) {
    const ScopedLock lock(compvpd_access_mutex);
    const ComponentVpdNode* head = component_vpd_list.head;
    out->next_fru_id = head != nullptr && head->next != nullptr ? head->record.fru_id : no_more_records;
    return 0;
}

int copy_record(const char* function, uint8_t fru_id, uint32_t* out_length, ComponentVpdRecord* out) {
    const ScopedLock lock(compvpd_access_mutex);
    const ComponentVpdNode* node = node_asked_for(fru_id);
    if (node == nullptr) {
        vpdd::log_text(vpdd::log_info, "vpdd:%s - No such FRU record.\n", function);
        return no_such_record;
    }
    std::memcpy(out, &node->record, record_size);
    out->next_fru_id = fru_id_behind(node);
    if (out_length != nullptr) *out_length = record_size;
    return 0;
}

/// Copies up to `limit` records and returns the bytes copied. The first copy's cursor names the first record left out.
uint32_t copy_records(const ComponentVpdNode* node, uint32_t limit, uint8_t* out) {
    uint32_t count = 0;
    uint8_t left_out = no_more_records;
    for (; node != nullptr && count < limit; node = node->next) {
        std::memcpy(out + std::size_t{record_size} * count, &node->record, record_size);
        ++count;
        left_out = fru_id_behind(node);
    }
    out[offsetof(ComponentVpdRecord, next_fru_id)] = left_out;
    return record_size * count;
}

}  // namespace

extern "C" int GetComponentVPD(uint32_t* out_length, uint32_t /*size*/, const ComponentRequest* request,
                               ComponentVpdRecord* out) {
    ScopedLock readers(compvpd_readonly_mutex);
    if (request == nullptr) {
        readers.unlock();
        vpdd::log_line(vpdd::log_warning, __func__, "Invalid requested data.\n");
        return refused;
    }
    if (!can_copy(__func__, __LINE__, out)) return refused;
    if (request->probe != 0) return probe(out);
    return copy_record(__func__, request->fru_id, out_length, out);
}

extern "C" int GetComponentVPDByFruID(uint32_t* out_length, uint32_t /*size*/, const uint8_t* fru_id,
                                      ComponentVpdRecord* out) {
    ScopedLock readers(compvpd_readonly_mutex);
    if (fru_id == nullptr) {
        readers.unlock();
        vpdd::log_line(vpdd::log_warning, __func__, "Invalid requested data.\n");
        return refused;
    }
    // Deliberate: a plain progress message at the highest priority.
    vpdd::log_text(vpdd::log_emergency, "Get component VPD by FRU ID(%d)\n", *fru_id);
    if (!can_copy(__func__, __LINE__, out)) return refused;
    return copy_record(__func__, *fru_id, out_length, out);
}

extern "C" int GetComponentVPD_KIVA(uint32_t* out_length, uint32_t size, const void* /*ignored*/, void* out) {
    const ScopedLock readers(compvpd_kiva_readonly_mutex);
    if (!can_copy(__func__, __LINE__, out)) return refused;

    const ScopedLock lock(compvpd_access_mutex);
    if (component_vpd_list.head == nullptr) {
        vpdd::log_text(vpdd::log_emergency, "[%s](%d) -No such FRU record.- ", __func__, __LINE__);
        return no_such_record;
    }
    const uint32_t limit = std::clamp(size / record_size, 1U, bulk_limit);
    const uint32_t copied = copy_records(component_vpd_list.head, limit, static_cast<uint8_t*>(out));
    if (out_length != nullptr) *out_length = copied;
    return 0;
}

extern "C" int FindFRURecord(uint32_t fru_id, ComponentVpdRecord** out) {
    if (vpd_cache_status != cache_created) {
        vpdd::log_cache_not_created(__func__, __LINE__, "\n");
        return not_created;
    }
    const ScopedLock lock(compvpd_access_mutex);
    ComponentVpdNode* const node = vpdd::find_node(static_cast<uint8_t>(fru_id));
    ComponentVpdRecord* const record = node != nullptr ? &node->record : nullptr;
    if (record != nullptr) {
        std::printf("--> Found FRU, comp_info address = %p, fru id = %d\n", static_cast<void*>(record), record->fru_id);
    }
    if (out != nullptr) {
        *out = record;
        vpdd::fru_index.clear();
    }
    return record != nullptr ? 0 : -1;
}
