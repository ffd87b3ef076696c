// SPDX-License-Identifier: Apache-2.0
// What a command's handler gets and returns.
#pragma once

#include <cstdint>
#include <span>

#include "host/document.h"

namespace vpdd::host {

// Completion codes, IPMI 2.0 table 5-2.
inline constexpr uint8_t completed = 0x00;
inline constexpr uint8_t invalid_command = 0xC1;
inline constexpr uint8_t request_length_invalid = 0xC7;
inline constexpr uint8_t offset_out_of_range = 0xC9;
inline constexpr uint8_t too_much_requested = 0xCA;
inline constexpr uint8_t not_present = 0xCB;
inline constexpr uint8_t invalid_data_field = 0xCC;

inline constexpr std::size_t response_room = 256;  // bytes, completion code included: what callers provide

/// The data behind the command.
using Request = std::span<const uint8_t>;

struct Response {
    uint8_t completion_code;
    Bytes data{};
};

}  // namespace vpdd::host
