/* SPDX-License-Identifier: Apache-2.0 */
/** @file The system-VPD storage device; instance 0 is the system VPD. */
#ifndef ORVA_PLATFORM_SYSTEM_VPD_H
#define ORVA_PLATFORM_SYSTEM_VPD_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** @return the field's size in bytes */
uint32_t c_vpd_read_field_size(uint32_t instance, uint32_t id);
/** @return non-zero on success */
int c_vpd_read_field(uint32_t instance, uint32_t id, uint32_t size, uint8_t* buffer);
uint8_t* c_vpd_read(uint32_t instance, uint32_t offset, uint32_t length, uint8_t* buffer);
int c_vpd_write(uint32_t instance, uint32_t offset, uint32_t length, const uint8_t* buffer, int flag);

#ifdef __cplusplus
}
#endif

#endif
