// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace vpdd::spd {

/// The flag that each debug line hands to DBG_DIMM; there is no global switch.
inline constexpr int debug_off = 0;
inline constexpr int debug_on = 1;

}  // namespace vpdd::spd
