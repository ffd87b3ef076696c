// SPDX-License-Identifier: Apache-2.0
// Builds records of an SDR repository (IPMI 2.0 section 43).
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "host/images/bytes.h"

namespace vpdd::images {

/// FRU Device Locator, record type 0x11 (IPMI 2.0 table 43-7).
class FruLocator {
public:
    /// At most 31 characters of name; the table allows 16.
    FruLocator(uint8_t fru_id, std::string_view name) : fru_id_(fru_id) { this->name(name); }

    FruLocator& record_id(uint16_t id) { return set(record_id_, id); }
    FruLocator& access_address(uint8_t address) { return set(access_address_, address); }
    /// Logical device bit, LUN and private bus.
    FruLocator& access_lun_bus(uint8_t value) { return set(access_lun_bus_, value); }
    FruLocator& channel(uint8_t channel) { return set(channel_, channel); }
    FruLocator& type(uint8_t type) { return set(type_, type); }
    FruLocator& modifier(uint8_t modifier) { return set(modifier_, modifier); }
    /// An instance with bit 7 set is a logical entity.
    FruLocator& entity(uint8_t id, uint8_t instance);
    FruLocator& oem(uint8_t oem) { return set(oem_, oem); }
    FruLocator& name(std::string_view name);
    /// A device id string with any type/length byte.
    FruLocator& raw_name(uint8_t type_length, const Bytes& bytes);

    Bytes build() const;
    operator Bytes() const { return build(); }  // NOLINT(google-explicit-constructor): stands for its record

private:
    template <class Value>
    FruLocator& set(Value& member, Value value) {
        member = value;
        return *this;
    }

    uint8_t fru_id_;
    uint16_t record_id_ = 1;
    uint8_t access_address_ = 0x20;
    uint8_t access_lun_bus_ = 0x80;
    uint8_t channel_ = 0;
    uint8_t type_ = 0x10;
    uint8_t modifier_ = 0;
    uint8_t entity_id_ = 0;
    uint8_t entity_instance_ = 0;
    uint8_t oem_ = 0;
    uint8_t name_type_length_ = 0;
    Bytes name_;
};

/// A full sensor record, type 0x01 (IPMI 2.0 table 43-1).
Bytes full_sensor_record(uint8_t sensor_number, std::string_view name);

/// Any record: header (IPMI 2.0 section 43) and body.
Bytes sdr_record(uint16_t record_id, uint8_t type, const Bytes& body);

/// The records with the ids `first`, `first` + `step` ...
std::vector<Bytes> numbered(std::vector<Bytes> records, uint16_t first = 1, uint16_t step = 1);

}  // namespace vpdd::images
