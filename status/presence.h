// SPDX-License-Identifier: Apache-2.0
// How it is found out whether a component is there.
#pragma once

#include <cstddef>

#include "base/heap.h"
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

/// The processor sensors, as the platform tells them. They are read for each processor, but the megabyte for them is
/// allocated and zeroed once.
class ProcessorSensors {
public:
    Presence probe(const ComponentVpdRecord& record);

private:
    struct Buffer;
    struct Entry;

    bool prepare();
    bool read();
    const Entry* find(const ComponentVpdRecord& record) const;

    HeapBlock<Buffer> buffer_;
    std::size_t written_ = 0;  // bytes that the platform has written
    std::size_t count_ = 0;    // sensors
};

Presence probe_fru(const ComponentVpdRecord& record);

}  // namespace vpdd
