/* SPDX-License-Identifier: Apache-2.0 */
/*
 * A program that is not position independent reaches the library's data through copies in its own image. What it writes
 * there the library must read, and what the library writes it must see. The few platform functions that it reaches are
 * its own.
 */
#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include "orva_vpdd.h"
#include "platform/configuration.h"
#include "platform/debug_trace.h"
#include "platform/system_vpd.h"

static int lines_logged;

void syslog(int priority, const char* format, ...);
void syslog(int priority, const char* format, ...) {
    (void)priority;
    (void)format;
    ++lines_logged;
}

int log_debug_log(const char* path, int level, const char* format, ...) {
    (void)path;
    (void)level;
    (void)format;
    return 0;
}

uint32_t c_vpd_read_field_size(uint32_t instance, uint32_t id) {
    (void)instance;
    (void)id;
    return 8;
}

int c_vpd_read_field(uint32_t instance, uint32_t id, uint32_t size, uint8_t* buffer) {
    (void)instance;
    memset(buffer, (int)id, size);
    return 1;
}

int tarn_config_get_int(const char* name, int32_t* value) {
    (void)name;
    *value = 0x00ABCDEF;
    return 1;
}

static int fails(const char* what) {
    fprintf(stderr, "%s\n", what);
    return 1;
}

/* A look-up with a null argument: what it says about that is a debug message. */
static int lines_of_a_look_up(void) {
    lines_logged = 0;
    vpdd_get_the_smbios_dimm_info(NULL, NULL);
    return lines_logged;
}

int main(void) {
    vpdd_smbios_debug = 0;
    if (lines_of_a_look_up() != 0) return fails("debug messages although the program switched them off");
    vpdd_smbios_debug = 1;
    if (lines_of_a_look_up() == 0) return fails("no debug messages although the program switched them on");

    if (isHostMacCache != 0) return fails("the MAC cache is filled from the start");
    updateSysvpdMacAddressCache();
    if (isHostMacCache != 1) return fails("the program does not see the library's flag");
    if (strcmp(host_mac_cache[0], "13:13:13:13:13:13") != 0)
        return fails("the program does not see the library's MACs");

    if (GetMemSlot() != NULL) return fails("the slot map of a platform that there is not");
    platMemSlots[29].platform_id = 0x00ABCDEF;
    if (GetMemSlot() != &platMemSlots[29].map) return fails("the library does not search the program's platforms");
    if (platMemSlots[29].map.rows != mem_slots_0050008b) return fails("the program has another copy of the map");
    return 0;
}
