/* SPDX-License-Identifier: Apache-2.0 */
/** @file The store of the host's SMBIOS table. */
#ifndef ORVA_PLATFORM_SMBIOS_STORE_H
#define ORVA_PLATFORM_SMBIOS_STORE_H

#include "orva_vpdd.h"

#ifdef __cplusplus
extern "C" {
#endif

/** @brief Parse a stored table into lists of structures by type. @return 0 on success. */
int smbt_init(SmbiosTable** table, int flags, const char* name, const char* directory);
int smbt_release(SmbiosTable* table);

#ifdef __cplusplus
}
#endif

#endif
