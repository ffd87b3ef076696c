// SPDX-License-Identifier: Apache-2.0
#include "compvpd/cache.h"

#include "base/log_line.h"

namespace vpdd {

std::atomic<int> vpd_cache_status{cache_never_created};
ComponentVpdList component_vpd_list{};
FruIndex fru_index;

void FruIndex::build(const ComponentVpdList& list) {
    clear();
    for (ComponentVpdNode* node = list.head; node != nullptr; node = node->next) {
        ComponentVpdNode*& first = first_[node->record.fru_id];
        if (first == nullptr) first = node;
    }
}

ComponentVpdNode* FruIndex::find(uint8_t fru_id, const ComponentVpdList& list) const {
    if (first_[fru_id] != nullptr) return first_[fru_id];
    ComponentVpdNode* node = list.head;
    while (node != nullptr && node->record.fru_id != fru_id) node = node->next;
    return node;
}

void log_cache_not_created(const char* function, int line, const char* tail) {
    log_located(log_info, function, line, "ERROR:Cache wasn't created(status: %d)%s", vpd_cache_status.load(), tail);
}

}  // namespace vpdd
