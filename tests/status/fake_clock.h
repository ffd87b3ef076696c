// SPDX-License-Identifier: Apache-2.0
// The system clock of the test program: it stands still.
#pragma once

#include <cstdint>

namespace vpdd::test {

/// Seconds since the Unix epoch.
void set_clock(int64_t seconds);

}  // namespace vpdd::test
