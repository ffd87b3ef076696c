/* SPDX-License-Identifier: Apache-2.0 */
/** @file The sensor service. */
#ifndef ORVA_PLATFORM_SENSORS_H
#define ORVA_PLATFORM_SENSORS_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @brief Read all sensors of an IPMI sensor type into entries of 1492 bytes.
 * @param size in: 1; out: bytes filled
 * @param buffer_size room in `buffer` in bytes
 * @return 0 on success
 */
int GetAllSensorInfoByType(uint32_t* size, uint32_t buffer_size, const uint8_t* sensor_type, void* buffer);

#ifdef __cplusplus
}
#endif

#endif
