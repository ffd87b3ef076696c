// SPDX-License-Identifier: Apache-2.0
// The sensor service.
#include "platform/sensors.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "host/server.h"

namespace vpdd::host {

namespace {

/// What the service hands out for one sensor.
struct SensorEntry {
    uint8_t reserved_0[2];
    uint16_t valid;
    uint8_t reserved_4[2];
    char name[192];
    uint16_t state;
    uint8_t reserved_200[2];
    char state_text[1290];
};
static_assert(sizeof(SensorEntry) == 1492);
static_assert(offsetof(SensorEntry, name) == 6 && offsetof(SensorEntry, state) == 198 &&
              offsetof(SensorEntry, state_text) == 202);

SensorEntry entry_of(const Sensor& sensor) {
    SensorEntry entry{};
    entry.valid = 1;
    entry.state = sensor.state;
    sensor.name.copy(entry.name, sizeof entry.name - 1);
    sensor.text.copy(entry.state_text, sizeof entry.state_text - 1);
    return entry;
}

}  // namespace

}  // namespace vpdd::host

extern "C" int GetAllSensorInfoByType(uint32_t* size, uint32_t buffer_size, const uint8_t* sensor_type, void* buffer) {
    using vpdd::host::SensorEntry;
    const auto server = vpdd::host::current_server();
    if (!server || size == nullptr || sensor_type == nullptr || buffer == nullptr) return -1;
    *size = 0;
    for (const auto& sensor : server->description.sensors) {
        if (sensor.type != *sensor_type) continue;
        if (buffer_size - *size < sizeof(SensorEntry)) break;
        const SensorEntry entry = vpdd::host::entry_of(sensor);
        std::memcpy(static_cast<uint8_t*>(buffer) + *size, &entry, sizeof entry);
        *size += sizeof entry;
    }
    return 0;
}
