// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdlib>

namespace vpdd::test {

/// Tests of thousands of runs make one of so many on a slow machine: VPDD_TEST_STRIDE, which `./dev arm` sets.
inline std::size_t stride_of_runs() {
    constexpr int decimal = 10;
    const char* const text = std::getenv("VPDD_TEST_STRIDE");
    return text != nullptr ? std::max(1UL, std::strtoul(text, nullptr, decimal)) : 1;
}

}  // namespace vpdd::test
