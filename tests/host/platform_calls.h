// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "open_server.h"
#include "platform/ipmi_stack.h"

namespace vpdd::test {

/// The response with the completion code in front; empty when the stack failed.
inline Bytes ask(uint8_t netfn, uint8_t cmd, const Bytes& request) {
    Bytes response(256);
    int32_t length = 0;
    const int result =
        IPMI_DoIPMICmd(netfn, cmd, request.data(), static_cast<uint32_t>(request.size()), response.data(), &length);
    response.resize(result == 0 ? static_cast<std::size_t>(length) : 0);
    return response;
}

inline Bytes fru_size(uint8_t id) { return ask(0x0A, 0x10, {id}); }

inline Bytes read_fru_data(uint8_t id, uint16_t offset, uint8_t count) {
    return ask(0x0A, 0x11, {id, static_cast<uint8_t>(offset), static_cast<uint8_t>(offset >> 8U), count});
}

}  // namespace vpdd::test
