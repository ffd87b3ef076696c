// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <numeric>
#include <span>
#include <string_view>
#include <vector>

namespace vpdd::images {

using Bytes = std::vector<uint8_t>;

inline Bytes text_bytes(std::string_view text) { return Bytes(text.begin(), text.end()); }

inline void append(Bytes& bytes, std::span<const uint8_t> more) { bytes.insert(bytes.end(), more.begin(), more.end()); }

/// The byte that makes the sum of all bytes and itself 0 modulo 256.
inline uint8_t zero_checksum(std::span<const uint8_t> bytes) {
    return static_cast<uint8_t>(-std::accumulate(bytes.begin(), bytes.end(), 0));
}

}  // namespace vpdd::images
