// SPDX-License-Identifier: Apache-2.0
// The state of the component cache. All of it is guarded by compvpd_access_mutex; the status is also read without it.
#pragma once

#include <atomic>

#include "orva_vpdd.h"

namespace vpdd {

inline constexpr int cache_never_created = 0;
inline constexpr int cache_created = 1;
inline constexpr int cache_destroyed = 2;

extern std::atomic<int> vpd_cache_status;
extern ComponentVpdList component_vpd_list;

/// Logs that the cache stands in another status than created. `tail` ends the line: look-ups and status passes write a
/// newline, update and destruction do not.
void log_cache_not_created(const char* function, int line, const char* tail);

}  // namespace vpdd
