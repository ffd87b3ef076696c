// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstdint>
#include <span>

namespace vpdd::fuzz {

/// Takes a fuzzer's input apart from its front. Behind its end there are zeros.
class Input {
public:
    explicit Input(std::span<const uint8_t> bytes) : bytes_(bytes) {}

    bool is_empty() const { return bytes_.empty(); }

    uint8_t byte() {
        const auto taken = take(1);
        return taken.empty() ? 0 : taken[0];
    }
    /// Low byte first.
    uint16_t word() {
        const uint8_t low = byte();
        return static_cast<uint16_t>(low | byte() << 8U);
    }
    /// Fewer bytes at the end.
    std::span<const uint8_t> take(std::size_t count) {
        const auto taken = bytes_.first(std::min(count, bytes_.size()));
        bytes_ = bytes_.subspan(taken.size());
        return taken;
    }
    std::span<const uint8_t> rest() { return take(bytes_.size()); }

private:
    std::span<const uint8_t> bytes_;
};

}  // namespace vpdd::fuzz
