// SPDX-License-Identifier: Apache-2.0
// The flag of the host MAC cache. A change notification clears it without the mutex that guards the cache.
#pragma once

#include "orva_vpdd.h"

namespace vpdd {

inline bool host_macs_are_cached() { return __atomic_load_n(&isHostMacCache, __ATOMIC_ACQUIRE) != 0; }
inline void remember_host_macs() { __atomic_store_n(&isHostMacCache, uint8_t{1}, __ATOMIC_RELEASE); }
inline void forget_host_macs() { __atomic_store_n(&isHostMacCache, uint8_t{0}, __ATOMIC_RELEASE); }

}  // namespace vpdd
