/* SPDX-License-Identifier: Apache-2.0 */
/** @file The firmware's configuration-variable store. Every function returns non-zero on success. */
#ifndef ORVA_PLATFORM_CONFIGURATION_H
#define ORVA_PLATFORM_CONFIGURATION_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

int tarn_config_get_int(const char* name, int32_t* value);
int tarn_config_set_int(const char* name, int32_t value, int flag);
int tarn_config_set_str(const char* name, const char* value, int flag);
/** @param length strlen(value) */
int tarn_config_set_str_n(const char* name, const char* value, uint32_t length, int flag);
int tarn_event_type_occurred(int type, const char* name, int argument0, int argument1);

#ifdef __cplusplus
}
#endif

#endif
