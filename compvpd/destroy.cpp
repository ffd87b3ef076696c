// SPDX-License-Identifier: Apache-2.0
#include "base/log_line.h"
#include "base/scoped_lock.h"
#include "compvpd/cache.h"

namespace {

constexpr int cache_missing = -5;

}  // namespace

extern "C" int DestroyComponentVPDCache() {
    const vpdd::ScopedLock lock(compvpd_access_mutex);
    if (vpdd::vpd_cache_status != vpdd::cache_created) {
        vpdd::log_cache_not_created(__func__, __LINE__, "");
        return cache_missing;
    }
    vpdd::fru_index.clear();
    for (ComponentVpdNode* node = vpdd::component_vpd_list.head; node != nullptr;) {
        ComponentVpdNode* const next = node->next;
        remove_vpd_node(&vpdd::component_vpd_list, node);
        node = next;
    }
    vpdd::vpd_cache_status = vpdd::cache_destroyed;
    // Deliberate spelling.
    vpdd::trace_line(vpdd::TraceLevel::progress, __func__, "VPDCACHE Status -> %d (Destoryed)", vpdd::cache_destroyed);
    return 0;
}
