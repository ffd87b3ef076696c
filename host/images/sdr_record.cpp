// SPDX-License-Identifier: Apache-2.0
#include "host/images/sdr_record.h"

#include <algorithm>
#include <stdexcept>

namespace vpdd::images {

namespace {

constexpr uint8_t sdr_version = 0x51;
constexpr uint8_t full_sensor_type = 0x01, fru_locator_type = 0x11;
constexpr std::size_t max_name_length = 31;

/// Type/length byte of an 8-bit ASCII device id string (IPMI 2.0 section 43.15).
uint8_t text_type_length(std::string_view text) {
    if (text.size() > max_name_length) throw std::invalid_argument("device id string longer than 31 characters");
    return static_cast<uint8_t>(0xC0 | text.size());
}

void put_record_id(Bytes& record, uint16_t id) {
    record.at(0) = static_cast<uint8_t>(id);
    record.at(1) = static_cast<uint8_t>(id >> 8);
}

}  // namespace

FruLocator& FruLocator::entity(uint8_t id, uint8_t instance) {
    entity_id_ = id;
    entity_instance_ = instance;
    return *this;
}

FruLocator& FruLocator::name(std::string_view name) { return raw_name(text_type_length(name), text_bytes(name)); }

FruLocator& FruLocator::raw_name(uint8_t type_length, const Bytes& bytes) {
    name_type_length_ = type_length;
    name_ = bytes;
    return *this;
}

Bytes FruLocator::build() const {
    constexpr uint8_t reserved = 0;
    Bytes body{access_address_, fru_id_,    access_lun_bus_,  channel_, reserved,         type_,
               modifier_,       entity_id_, entity_instance_, oem_,     name_type_length_};
    append(body, name_);
    return sdr_record(record_id_, fru_locator_type, body);
}

Bytes full_sensor_record(uint8_t sensor_number, std::string_view name) {
    // Offsets in the body, which begins at byte 6 of the table.
    constexpr std::size_t owner_id = 0, number = 2, entity_id = 3, entity_instance = 4, sensor_type = 7,
                          reading_type = 8, name_type_length = 42;
    Bytes body(name_type_length + 1);
    body[owner_id] = 0x20;
    body[number] = sensor_number;
    body[entity_id] = 7;  // system board
    body[entity_instance] = 1;
    body[sensor_type] = 0x01;   // temperature
    body[reading_type] = 0x01;  // threshold
    body[name_type_length] = text_type_length(name);
    append(body, text_bytes(name));
    return sdr_record(1, full_sensor_type, body);
}

Bytes sdr_record(uint16_t record_id, uint8_t type, const Bytes& body) {
    if (body.size() > 0xFF) throw std::invalid_argument("SDR record longer than 255 bytes");
    Bytes record{0, 0, sdr_version, type, static_cast<uint8_t>(body.size())};
    put_record_id(record, record_id);
    append(record, body);
    return record;
}

std::vector<Bytes> numbered(std::vector<Bytes> records, uint16_t first, uint16_t step) {
    uint16_t id = first;
    for (Bytes& record : records) {
        put_record_id(record, id);
        id = static_cast<uint16_t>(id + step);
    }
    return records;
}

}  // namespace vpdd::images
