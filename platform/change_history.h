/* SPDX-License-Identifier: Apache-2.0 */
/** @file The change-history database. */
#ifndef ORVA_PLATFORM_CHANGE_HISTORY_H
#define ORVA_PLATFORM_CHANGE_HISTORY_H

#include "orva_vpdd.h"

#ifdef __cplusplus
extern "C" {
#endif

/** @brief Store a row; looked up in liborvadb_chghist.so at run time. */
int insert_hw_log(ChangeHistoryRecord* record);

/* The readers are weak references: a process without them has no records. */

/** @return the number of records, released with chghist_release_components() whatever it is */
int chghist_read_components(ComponentVpdRecord** records, void* current) __attribute__((weak));
int chghist_release_components(ComponentVpdRecord* records) __attribute__((weak));
/** @return the number of records of 158 bytes */
int chghist_read_pci(uint8_t** records, uint32_t table_code, uint32_t reserved) __attribute__((weak));
int chghist_release_pci(uint8_t* records) __attribute__((weak));

#ifdef __cplusplus
}
#endif

#endif
