// SPDX-License-Identifier: Apache-2.0
// The state of the component cache. All of it is guarded by compvpd_access_mutex; the status is also read without it.
#pragma once

#include <array>
#include <atomic>

#include "orva_vpdd.h"

namespace vpdd {

inline constexpr int cache_never_created = 0;
inline constexpr int cache_created = 1;
inline constexpr int cache_destroyed = 2;

/// The first node of each FRU id in the order of a list, so that a look-up need not walk the list.
class FruIndex {
public:
    void build(const ComponentVpdList& list);
    void clear() { first_ = {}; }

    /// Null for an id that no record of the list has.
    ComponentVpdNode* find(uint8_t fru_id, const ComponentVpdList& list) const;

private:
    std::array<ComponentVpdNode*, 256> first_{};
};

extern std::atomic<int> vpd_cache_status;
extern ComponentVpdList component_vpd_list;

/// Of the list, from the end of creation to destruction, since in between no record comes or goes; or until
/// FindFRURecord() hands out a record, whose holder may give it another id.
extern FruIndex fru_index;

/// The first node with this FRU id; null when there is none.
inline ComponentVpdNode* find_node(uint8_t fru_id) { return fru_index.find(fru_id, component_vpd_list); }

/// Logs that the cache stands in another status than created. `tail` ends the line: look-ups and status passes write a
/// newline, update and destruction do not.
void log_cache_not_created(const char* function, int line, const char* tail);

}  // namespace vpdd
