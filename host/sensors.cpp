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

SensorEntry entry_of(std::string_view name, uint16_t state, std::string_view text) {
    SensorEntry entry{};
    entry.valid = 1;
    entry.state = state;
    name.copy(entry.name, sizeof entry.name - 1);
    text.copy(entry.state_text, sizeof entry.state_text - 1);
    return entry;
}

/// Takes as many entries as fit.
class EntryBuffer {
public:
    explicit EntryBuffer(std::span<uint8_t> room) : room_(room) {}

    void add(const SensorEntry& entry) {
        if (room_.size() - used_ < sizeof entry) return;
        std::memcpy(room_.data() + used_, &entry, sizeof entry);
        used_ += sizeof entry;
    }
    uint32_t size() const { return static_cast<uint32_t>(used_); }

private:
    std::span<uint8_t> room_;
    std::size_t used_ = 0;
};

void add_sensor(void* context, const VpddHostSensor* sensor) {
    static_cast<EntryBuffer*>(context)->add(entry_of(sensor->name, sensor->state, sensor->text));
}

int add_sensors(const Server& server, uint8_t type, EntryBuffer& entries) {
    if (server.bmc) return server.bmc->each_sensor(server.bmc->context, type, add_sensor, &entries);
    for (const auto& sensor : server.description.sensors) {
        if (sensor.type == type) entries.add(entry_of(sensor.name, sensor.state, sensor.text));
    }
    return 0;
}

}  // namespace

}  // namespace vpdd::host

extern "C" int GetAllSensorInfoByType(uint32_t* size, uint32_t buffer_size, const uint8_t* sensor_type, void* buffer) {
    const auto server = vpdd::host::current_server();
    if (!server || size == nullptr || sensor_type == nullptr || buffer == nullptr) return -1;
    vpdd::host::EntryBuffer entries({static_cast<uint8_t*>(buffer), buffer_size});
    const int result = vpdd::host::add_sensors(*server, *sensor_type, entries);
    *size = entries.size();
    return result;
}
