// SPDX-License-Identifier: Apache-2.0
// A server whose BMC the simulator plays: FRUs of our builders, and samples where there are any.
#pragma once

#include "simulator.h"

namespace vpdd::test {

// FRUs that the tests name.
inline constexpr uint8_t fru_board = 0, fru_processor = 1, fru_power_supply = 2, fru_bad_checksum = 3, fru_module = 4,
                         fru_absent = 5, fru_packed = 6, fru_product_only = 7, fru_small = 8, fru_large = 60;
inline constexpr uint8_t first_sample = 20;

inline constexpr uint8_t processor_1_sensor = 1, processor_2_sensor = 2, unscanned_sensor = 3;

/// The images of the samples that fit, by FRU id; their names by the same.
struct Samples {
    std::map<uint8_t, images::Bytes> images{};
    std::map<uint8_t, std::string> names{};
};
Samples fru_samples();

/// Everything.
SimulatedBmc large_server();
/// A board, a processor and its sensor, for what takes time.
SimulatedBmc small_server();

}  // namespace vpdd::test
