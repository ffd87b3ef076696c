// SPDX-License-Identifier: Apache-2.0
// Read FRU Data of any count from BMCs that hand out less at once.
#pragma once

#include <array>
#include <mutex>

#include "host/ipmi/exchange.h"

namespace vpdd::host::ipmi {

class FruReads {
public:
    explicit FruReads(Exchange exchange) : exchange_(std::move(exchange)) {}

    static bool is_read(const Command& command);
    /// The answer that a BMC without a limit would give. None when the BMC did not answer.
    std::optional<Answer> carry_out(const Command& command);

private:
    std::optional<Answer> read_part(Command part);
    uint8_t most(uint8_t fru_id);
    void set_most(uint8_t fru_id, uint8_t count);

    Exchange exchange_;
    std::mutex mutex_;
    std::array<uint8_t, 256> most_{};  ///< bytes at once that worked, by FRU id; 0: nothing was refused so far
};

}  // namespace vpdd::host::ipmi
