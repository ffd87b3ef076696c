// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace vpdd {

constexpr uint16_t little_endian_16(const uint8_t* bytes) {
    return static_cast<uint16_t>(bytes[0] | static_cast<unsigned>(bytes[1]) << 8U);
}

constexpr uint16_t big_endian_16(const uint8_t* bytes) {
    return static_cast<uint16_t>(static_cast<unsigned>(bytes[0]) << 8U | bytes[1]);
}

}  // namespace vpdd
