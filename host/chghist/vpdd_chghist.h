/* SPDX-License-Identifier: Apache-2.0 */
/**
 * @file vpdd_chghist.h
 * @brief liborvadb_chghist.so: the change-history database of a development machine.
 *
 * Besides what is declared here the library has the functions of platform/change_history.h: `insert_hw_log`, which
 * liborva_vpdd.so looks up by its name, and the readers. The database is `change_history.sqlite` in the directory that
 * vpdd_chghist_use_directory() was told, else in the one that the environment variable VPDD_STATE_DIRECTORY names, else
 * in memory. libvpdd_host.so tells it the state directory of the open server. Processes may share a database.
 *
 * The functions may run on any thread at once.
 */
#ifndef ORVA_VPDD_CHGHIST_H
#define ORVA_VPDD_CHGHIST_H

#include "orva_vpdd.h"

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/** One stored row. */
typedef struct VpddChange {
    int64_t number;   /**< rows count from 1 in the order in which they were stored */
    int64_t recorded; /**< when it was stored, seconds since the Unix epoch */
    int64_t process;  /**< id of the process that stored it */
    ChangeHistoryRecord row;
} VpddChange;

/** @return non-zero ends the walk. */
typedef int (*VpddChangeVisitor)(void* context, const VpddChange* change);

/** @brief Keep the database in a directory, which exists; null: as the environment says. */
void vpdd_chghist_use_directory(const char* directory);

/** @brief Visit the rows, oldest first. @return 0; -1 when the database cannot be read. */
int vpdd_chghist_each_change(VpddChangeVisitor visitor, void* context);

/**
 * @brief Why this thread's last call found no database that could be used; empty when it found one. The text stays
 * until the thread's next call.
 */
const char* vpdd_chghist_last_error(void);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif
