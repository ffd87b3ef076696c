/* SPDX-License-Identifier: Apache-2.0 */
/** @file Inter-process messages, software events and shell commands. */
#ifndef ORVA_PLATFORM_MESSAGES_H
#define ORVA_PLATFORM_MESSAGES_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

int pm_sent_data(int fd, const void* data, uint32_t length);
int pm_read_data(int fd, void* data, uint32_t length);
int sw_msg_dispatcher(int message, void* payload, int32_t argument0, int32_t argument1);
/** @brief Run a shell command line. @return its status. */
int proc_system(const char* command);

#ifdef __cplusplus
}
#endif

#endif
