// SPDX-License-Identifier: Apache-2.0
// The host MAC cache. A change notification clears its flag without the mutex that guards the cache.
#pragma once

#include <cstdio>
#include <cstring>

#include "orva_vpdd.h"

namespace vpdd {

using MacSlot = char[26];

inline constexpr std::size_t mac_size = 6;  // bytes

/// Fills a whole slot with the text of six bytes, in one copy: a reader may look meanwhile.
inline void assign_mac(MacSlot& slot, const uint8_t* mac) {
    constexpr std::size_t text_size = 24;
    MacSlot text = {};
    std::snprintf(text, text_size, "%.2X:%.2X:%.2X:%.2X:%.2X:%.2X", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
    std::memcpy(slot, text, sizeof slot);
}

inline bool host_macs_are_cached() { return __atomic_load_n(&isHostMacCache, __ATOMIC_ACQUIRE) != 0; }
inline void remember_host_macs() { __atomic_store_n(&isHostMacCache, uint8_t{1}, __ATOMIC_RELEASE); }
inline void forget_host_macs() { __atomic_store_n(&isHostMacCache, uint8_t{0}, __ATOMIC_RELEASE); }

}  // namespace vpdd
