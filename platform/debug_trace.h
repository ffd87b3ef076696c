/* SPDX-License-Identifier: Apache-2.0 */
/** @file The firmware's debug trace. */
#ifndef ORVA_PLATFORM_DEBUG_TRACE_H
#define ORVA_PLATFORM_DEBUG_TRACE_H

#ifdef __cplusplus
extern "C" {
#endif

/** @brief Append a line to a trace file; level 2 marks progress, 4 failures. */
int log_debug_log(const char* path, int level, const char* format, ...) __attribute__((format(printf, 3, 4)));

#ifdef __cplusplus
}
#endif

#endif
