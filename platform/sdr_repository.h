/* SPDX-License-Identifier: Apache-2.0 */
/** @file The BMC's SDR repository. */
#ifndef ORVA_PLATFORM_SDR_REPOSITORY_H
#define ORVA_PLATFORM_SDR_REPOSITORY_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @brief Read one SDR record.
 * @param repository 1 is the BMC's own
 * @param record_id 0 asks for the first record
 * @param length room in `buffer`
 * @param next_record_id out: 0xFFFF behind the last record
 * @return 0 on success
 */
int mosk_sdr_get_entry(int repository, uint16_t record_id, uint32_t length, uint16_t* next_record_id,
                       int32_t* bytes_read, uint8_t* buffer);

#ifdef __cplusplus
}
#endif

#endif
