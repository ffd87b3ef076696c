// SPDX-License-Identifier: Apache-2.0
// One request to a controller, and its answer.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "host/ipmi_response.h"

namespace vpdd::host::ipmi {

// IPMI 2.0 table 5-1.
inline constexpr uint8_t netfn_sensor = 0x04, netfn_storage = 0x0A;
// IPMI 2.0 section 5.4.
inline constexpr uint8_t bmc_address = 0x20;

// Completion codes, IPMI 2.0 table 5-2, besides those that the host library gives.
inline constexpr uint8_t reservation_cancelled = 0xC5, length_limit_exceeded = 0xC8;

struct Command {
    uint8_t address;
    uint8_t netfn;
    uint8_t lun;
    uint8_t cmd;
    Bytes data;
};

struct Answer {
    uint8_t completion_code = completed;
    Bytes data{};
};

/// None when the BMC did not answer.
using Exchange = std::function<std::optional<Answer>(const Command&)>;

/// Whether the request might be carried out if it asked for less.
inline bool asks_for_too_much(const Answer& answer) {
    return answer.completion_code == request_length_invalid || answer.completion_code == length_limit_exceeded ||
           answer.completion_code == too_much_requested;
}

}  // namespace vpdd::host::ipmi
