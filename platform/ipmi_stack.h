/* SPDX-License-Identifier: Apache-2.0 */
/** @file The BMC's IPMI stack. */
#ifndef ORVA_PLATFORM_IPMI_STACK_H
#define ORVA_PLATFORM_IPMI_STACK_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @brief Carry out one request.
 * @param response byte 0 receives the completion code, the data follow
 * @param response_length out: bytes in `response`, completion code included
 * @return 0 when the request was carried out, non-zero when the stack failed
 */
int IPMI_DoIPMICmd(uint8_t netfn, uint8_t cmd, const uint8_t* request, uint32_t request_length, uint8_t* response,
                   int32_t* response_length);

/**
 * @brief Send one raw frame: target address, NetFn, LUN, command, data.
 * @param response_length in: room in `response`; out: bytes returned
 * @return 0 on success
 */
int send_ipmi_cmd(const uint8_t* raw_request, uint32_t* raw_request_length, uint8_t* response,
                  uint32_t* response_length);

#ifdef __cplusplus
}
#endif

#endif
