/* SPDX-License-Identifier: Apache-2.0 */
/**
 * @file vpdd_ipmi.h
 * @brief libvpdd_ipmi.so: the firmware's other libraries over a real IPMI stack.
 *
 * The library gives libvpdd_host.so, which it needs, a BMC that is reached over LAN or by the kernel's driver. FRUs,
 * the SDR repository and sensors are the BMC's; everything else is what libvpdd_host.so keeps (docs/host-platform.md).
 *
 * A program that links libvpdd_host.so may load this library when it is wanted (`dlopen`) and look the function up by
 * its name. `vpdd --platform ipmi` needs vpdd_platform_library() only.
 */
#ifndef ORVA_VPDD_IPMI_H
#define ORVA_VPDD_IPMI_H

#include "host/vpdd_host.h"

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/**
 * @brief Open the server whose BMC a platform file names; an open server is closed first. vpdd_host_close() closes it.
 *
 * When the BMC no longer answers, commands fail, at once after the first one, and the message sink receives why
 * (VPDD_HOST_PLATFORM); later commands try again.
 * @param options null: all zero
 * @param error receives the reason of a failure; may be null
 * @return 0; -1 when the file cannot be read or says what a platform file cannot say; -2 when there is no session with
 *         the BMC
 */
int vpdd_ipmi_open_file(const char* path, const VpddHostOptions* options, char* error, size_t error_size);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif
