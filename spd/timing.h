// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace vpdd::spd {

/// Whole MHz of a clock period; 0 for a period of 0 and for one whose frequency no 32-bit number holds.
int32_t clock_megahertz(float period_ns);

}  // namespace vpdd::spd
