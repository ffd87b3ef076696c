// SPDX-License-Identifier: Apache-2.0
#include "fake_clock.h"

#include <atomic>
#include <ctime>

namespace {

std::atomic<int64_t> clock_seconds{0};

}  // namespace

namespace vpdd::test {

void set_clock(int64_t seconds) { clock_seconds = seconds; }

}  // namespace vpdd::test

// Stands in front of the C library's function.
extern "C" time_t time(time_t* out) noexcept {
    const auto seconds = static_cast<time_t>(clock_seconds.load());
    if (out != nullptr) *out = seconds;
    return seconds;
}
