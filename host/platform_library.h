/* SPDX-License-Identifier: Apache-2.0 */
/**
 * @file platform_library.h
 * @brief What a platform library tells `vpdd` besides the platform functions themselves (docs/host-platform.md).
 *
 * A platform library is a shared object `libvpdd_NAME.so`. It exports every platform function of liborva_vpdd.so
 * (platform/ *.h) and vpdd_platform_library(). `vpdd --platform NAME` loads it with its symbols in global scope, and
 * the VPD library after it, which finds the platform functions there.
 *
 * `sleep`, `usleep` and `syslog` with its relatives are vpdd's own in this process, so that a shutdown ends a wait and
 * messages go where the daemon's go; a platform library does not provide them for vpdd.
 *
 * Threads. open() runs on the main thread, before any other function of the library. check(), reload() and close() run
 * on one thread, never at the same time as each other. The platform functions run on any thread, also during check()
 * and reload(). After close() nothing is called any more.
 */
#ifndef ORVA_VPDD_PLATFORM_LIBRARY_H
#define ORVA_VPDD_PLATFORM_LIBRARY_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/** The version of this interface. A library with another one is refused. */
#define VPDD_PLATFORM_VERSION 1

/** A setting from the command line: `--set KEY=VALUE`, or an option that stands for one (`--server`, `--state`). */
typedef struct VpddPlatformSetting {
    const char* key;
    const char* value;
} VpddPlatformSetting;

/**
 * What the platform reports. Each function may be called on any thread, returns at once, and may be called until
 * close() returns. What it leads to happens later, on the daemon's own thread.
 */
typedef struct VpddPlatformReports {
    void* context;
    /** The system VPD has changed: the machine's cache files are rebuilt. */
    void (*system_vpd_changed)(void* context);
    /** A FRU's data has changed: the FRUs are read again. */
    void (*fru_changed)(void* context, uint8_t fru_id);
    /** The SDR repository has other records than before: the component cache is built anew. */
    void (*sdr_changed)(void* context);
    /** The properties below a path have changed. */
    void (*property_changed)(void* context, const char* path);
    /** A message for the daemon's log. @param level a severity of `syslog`, 0 to 7 */
    void (*message)(void* context, int level, const char* text);
} VpddPlatformReports;

typedef struct VpddPlatformLibrary {
    uint32_t version;       /**< VPDD_PLATFORM_VERSION */
    const char* name;       /**< "host" */
    int waits_in_real_time; /**< non-zero: the library's pauses last; 0: they are skipped unless --real-time is given */
    /**
     * @brief Make the platform functions work.
     * @param reports lives until close() has returned
     * @param error receives the reason of a failure, also for a setting that the platform does not know
     * @return 0 or -1, and then no other function is called
     */
    int (*open)(const VpddPlatformSetting* settings, size_t count, const VpddPlatformReports* reports, char* error,
                size_t error_size);
    /** @brief Look for changes and report them: called before each look at the components' presence. May be null. */
    void (*check)(void);
    /**
     * @brief Read the configuration again (SIGHUP) and report what differs. After a failure all is as it was. May be
     *        null.
     * @return 0 or -1
     */
    int (*reload)(char* error, size_t error_size);
    void (*close)(void);
} VpddPlatformLibrary;

/** @brief The one function that vpdd looks up by name. @return never null; lives as long as the library is loaded. */
const VpddPlatformLibrary* vpdd_platform_library(void);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif
