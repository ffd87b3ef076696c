// SPDX-License-Identifier: Apache-2.0
// How it is found out whether a component is there.
#pragma once

#include "orva_vpdd.h"

namespace vpdd {

inline constexpr int32_t status_absent = 0;
inline constexpr int32_t status_present = 1;
inline constexpr int32_t status_no_sensor = 255;

enum class Finding {
    known,        // `status` holds what was found
    no_sensor,    // the processor sensors cannot be read
    unavailable,  // the sensor says that it cannot tell: the component is left alone
};

struct Presence {
    Finding finding;
    int32_t status;
};

Presence probe_processor(const ComponentVpdRecord& record);
Presence probe_fru(const ComponentVpdRecord& record);

}  // namespace vpdd
