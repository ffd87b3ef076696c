// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace vpdd::host {

inline constexpr uint32_t default_iana = 32473;  // the number reserved for documentation

}  // namespace vpdd::host
