/* SPDX-License-Identifier: Apache-2.0 */
/* The wiring of a daemon: which event of the platform calls which function of liborva_vpdd.so. On a BMC the events come
 * from the firmware's message bus and timers; here they are words on standard input, and a described server stands in
 * for the platform.
 *     cc daemon_callbacks.c -lvpdd_host $(pkg-config --cflags --libs orva_vpdd) -o daemon_callbacks
 *     printf 'timer\nfru-changed 5\ntimer\nstop\n' | ./daemon_callbacks ddr4-2s.json */
#include <orva_vpdd.h>
#include <stdio.h>
#include <string.h>
#include <vpdd_host.h>

enum { restore_from_log = 0, look_for_presence = 1 }; /* modes of UpdateComponentStatus() */

static void report(const char* what, int result) { printf("%s: %d\n", what, result); }

/* Once, before any event. Nothing else may be called until the cache stands. */
static int start(void) {
    const int result = CreateComponentVPDCache();
    report("CreateComponentVPDCache", result);
    if (result != 0) return result;
    report("update_machine_vpd_cache_file", update_machine_vpd_cache_file());
    report("UpdateComponentStatus(restore)", UpdateComponentStatus(restore_from_log));
    report("UpdateComponentStatus(presence)", UpdateComponentStatus(look_for_presence));
    return 0;
}

/* Somebody wrote to the system VPD. It rebuilds both machine cache files, so it belongs on a thread that may wait; it
 * is the only function that may be cancelled. */
static void on_system_vpd_changed(int argument) {
    (void)argument;
    vpd_sysvpd_changed_notify_callback();
    puts("vpd_sysvpd_changed_notify_callback");
}

/* Somebody wrote to a FRU, or a component came. It only sets a flag: any thread may call it, as often as it likes. */
static void on_fru_changed(int fru_id) {
    report("vpd_compvpd_changed_notify_callback", vpd_compvpd_changed_notify_callback(fru_id));
}

/* Every few seconds. The flag is cleared first, so that a change during the update leads to another one. */
static void on_timer(int argument) {
    (void)argument;
    if (vpd_get_fru_changed_flag() != 0) {
        vpd_set_fru_changed_flag(0);
        report("UpdateComponentVPDCache", UpdateComponentVPDCache());
    }
    report("UpdateComponentStatus(presence)", UpdateComponentStatus(look_for_presence));
}

/* A client asks for a component. */
static void on_request(int fru_id) {
    const uint8_t id = (uint8_t)fru_id;
    uint32_t length = 0;
    ComponentVpdRecord record;
    const int result = GetComponentVPDByFruID(&length, sizeof record, &id, &record);
    if (result != 0) {
        report("GetComponentVPDByFruID", result);
        return;
    }
    printf("GetComponentVPDByFruID: %s, %s\n", record.name, record.status == 1 ? "present" : "not present");
}

static const struct {
    const char* event;
    void (*handle)(int argument);
} wiring[] = {
    {"system-vpd-changed", on_system_vpd_changed},
    {"fru-changed", on_fru_changed},
    {"timer", on_timer},
    {"request", on_request},
};

static void dispatch(const char* event, int argument) {
    for (size_t i = 0; i < sizeof wiring / sizeof wiring[0]; ++i) {
        if (strcmp(wiring[i].event, event) == 0) wiring[i].handle(argument);
    }
}

int main(int count, char** arguments) {
    char error[512] = "usage: daemon_callbacks SERVER.json < events\n";
    if (count != 2 || vpdd_host_open_file(arguments[1], NULL, error, sizeof error) != 0) {
        fprintf(stderr, "%s\n", error);
        return 2;
    }
    /* The library keeps files in /flash and /tmp; a development machine has no /flash. */
    if (vpdd_host_enter_private_root(NULL, error, sizeof error) != 0) fprintf(stderr, "%s\n", error);

    const int result = start();
    char line[80];
    while (result == 0 && fgets(line, sizeof line, stdin) != NULL) {
        char event[40];
        int argument = 0;
        if (sscanf(line, "%39s %d", event, &argument) < 1) continue;
        if (strcmp(event, "stop") == 0) break;
        dispatch(event, argument);
    }
    if (result == 0) report("DestroyComponentVPDCache", DestroyComponentVPDCache());
    vpdd_host_close();
    return result == 0 ? 0 : 1;
}
