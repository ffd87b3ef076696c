// SPDX-License-Identifier: Apache-2.0
#include "host/ipmi/sensors.h"

#include <algorithm>
#include <bitset>

namespace vpdd::host::ipmi {

namespace {

constexpr uint8_t get_sensor_reading = 0x2D;  // IPMI 2.0 section 35.14

constexpr uint8_t full_sensor = 0x01, compact_sensor = 0x02;  // IPMI 2.0 sections 43.1 and 43.2

// Bytes of both records.
constexpr std::size_t record_type = 3, owner_id = 5, owner_lun = 6, sensor_number = 7, sensor_type = 12;
// Bytes of the id string's type/length code.
constexpr std::size_t full_name = 47, compact_name = 31;
// Bytes of a compact record that stands for several sensors.
constexpr std::size_t share_count = 23, share_modifier = 24;

/// The 8-bit text behind a type/length code (IPMI 2.0 section 43.15); other encodings give none.
std::string text_at(const Bytes& record, std::size_t offset) {
    constexpr uint8_t eight_bit_text = 3;
    if (record.size() <= offset || record[offset] >> 6U != eight_bit_text) return {};
    const std::size_t length = std::min<std::size_t>(record[offset] & 0x1FU, record.size() - offset - 1);
    const auto begin = record.begin() + static_cast<std::ptrdiff_t>(offset) + 1;
    return {begin, begin + static_cast<std::ptrdiff_t>(length)};
}

/// What tells the sensors of one record apart: a number behind the name, or a letter.
std::string instance_text(const Bytes& record, unsigned position) {
    constexpr uint8_t kind = 0x30, letters = 0x10;
    const unsigned instance = (record[share_modifier] & 0x7FU) + position;
    const bool is_letter = (record[share_count] & kind) == letters && instance < 26;
    return is_letter ? std::string(1, static_cast<char>('A' + instance)) : std::to_string(instance);
}

unsigned sensors_in(const Bytes& record) {
    if (record[record_type] != compact_sensor || record.size() <= share_modifier) return 1;
    return std::max(1U, record[share_count] & 0x0FU);
}

void add_addresses(const Bytes& record, std::vector<SensorAddress>& addresses) {
    if (record.size() <= sensor_type) return;
    const bool is_full = record[record_type] == full_sensor;
    if (!is_full && record[record_type] != compact_sensor) return;
    const bool is_software = (record[owner_id] & 1U) != 0;
    if (is_software) return;

    const std::string name = text_at(record, is_full ? full_name : compact_name);
    const unsigned count = sensors_in(record);
    for (unsigned position = 0; position < count; ++position) {
        addresses.push_back({record[owner_id], static_cast<uint8_t>(record[owner_lun] & 0x03U),
                             static_cast<uint8_t>(record[sensor_number] + position), record[sensor_type],
                             count == 1 ? name : name + instance_text(record, position)});
    }
}

/// @param answer of Get Sensor Reading
SensorReading reading_of(const SensorAddress& sensor, const Answer& answer) {
    constexpr std::size_t flags = 1, low_states = 2, high_states = 3;
    constexpr uint8_t unavailable = 0x20, scanning = 0x40;
    SensorReading reading{sensor.name, 0, false};
    if (answer.completion_code != completed || answer.data.size() <= flags) return reading;
    reading.is_available = (answer.data[flags] & unavailable) == 0 && (answer.data[flags] & scanning) != 0;
    if (!reading.is_available || answer.data.size() <= low_states) return reading;
    reading.state = answer.data[low_states];
    if (answer.data.size() > high_states) {
        reading.state = static_cast<uint16_t>(reading.state | (answer.data[high_states] & 0x7FU) << 8U);
    }
    return reading;
}

}  // namespace

std::optional<std::vector<SensorReading>> Sensors::read(uint8_t type) {
    const auto sensors = addresses();
    if (!sensors) return {};
    std::vector<SensorReading> readings;
    for (const SensorAddress& sensor : *sensors) {
        if (sensor.type != type) continue;
        const auto answer = exchange_({sensor.owner, netfn_sensor, sensor.lun, get_sensor_reading, {sensor.number}});
        if (!answer) return {};
        if (answer->completion_code == not_present) continue;
        readings.push_back(reading_of(sensor, *answer));
    }
    return readings;
}

/// Reads the repository only when it has changed.
std::optional<std::vector<SensorAddress>> Sensors::addresses() {
    const std::scoped_lock lock(mutex_);
    const auto times = repository_.times();
    if (times && times == known_times_) return known_;

    std::vector<SensorAddress> found;
    std::bitset<0x10000> seen;  // a chain that comes back to a record runs in a circle
    uint16_t id = first_sdr_record;
    do {
        if (seen.test(id)) return {};
        seen.set(id);
        const auto record = repository_.read(id);
        if (!record) return {};
        add_addresses(record->bytes, found);
        id = record->next_id;
    } while (id != no_sdr_record);
    known_times_ = times;
    known_ = std::move(found);
    return known_;
}

}  // namespace vpdd::host::ipmi
