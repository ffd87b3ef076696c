// SPDX-License-Identifier: Apache-2.0
// Holds a table to its rows where they are too many to be written down twice: the CRC that POSIX cksum prints.
#pragma once

#include <cstdint>
#include <string_view>

namespace vpdd::test {

inline uint32_t cksum(std::string_view text) {
    constexpr uint32_t polynomial = 0x04C11DB7, top_bit = 0x80000000;
    uint32_t crc = 0;
    const auto add = [&crc](uint32_t byte) {
        crc ^= byte << 24U;
        for (int bit = 0; bit < 8; ++bit) crc = (crc & top_bit) != 0 ? crc << 1U ^ polynomial : crc << 1U;
    };
    for (const char character : text) add(static_cast<uint8_t>(character));
    for (std::size_t length = text.size(); length != 0; length >>= 8U) add(length & 0xFFU);
    return ~crc;
}

}  // namespace vpdd::test
