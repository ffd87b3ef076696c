// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstdint>

namespace vpdd {

/// What the SDR scan counts, for the rest of the firmware.
struct ComponentCounts {
    int32_t locators = 0;
    int32_t processors = 0;
    int32_t memory_devices = 0;
    int32_t power_supplies = 0;
    int32_t drive_backplanes = 0;                       // not capped
    int32_t lowest_processor = 33;                      // entity instance; one above the highest CPU slot
    std::array<uint8_t, 16> drive_backplane_fru_ids{};  // of the first sixteen
};

/// Appends a node for each FRU Device Locator of the SDR repository. False when the repository cannot be read.
bool scan_sdr_repository(ComponentCounts& counts);

/// Sets the configuration variables that tell the rest of the firmware what the scan found.
void publish_counts(const ComponentCounts& counts);

}  // namespace vpdd
