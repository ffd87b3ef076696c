// SPDX-License-Identifier: Apache-2.0
#include "base/log_line.h"
#include "base/scoped_lock.h"
#include "orva_vpdd.h"

uint8_t gb_fru_changed_flag = 0;

extern "C" int vpd_get_fru_changed_flag() {
    const vpdd::ScopedLock lock(g_fru_changed_flag_mutex);
    return gb_fru_changed_flag;
}

extern "C" int vpd_set_fru_changed_flag(uint8_t value) {
    const vpdd::ScopedLock lock(g_fru_changed_flag_mutex);
    if (gb_fru_changed_flag == value) return -1;
    gb_fru_changed_flag = value;
    return 0;
}

extern "C" int vpd_compvpd_changed_notify_callback(int fru) {
    vpdd::log_line(vpdd::log_info, __func__, "info: compvpd changed,fru=%d", fru);
    return vpd_set_fru_changed_flag(1);
}
