// SPDX-License-Identifier: Apache-2.0
// What a FRU Device Locator says about its component.
#pragma once

#include "orva_vpdd.h"

namespace vpdd {

// IPMI 2.0, table 43-13: entity ids.
inline constexpr uint8_t entity_processor = 0x03;
inline constexpr uint8_t entity_power_supply = 0x0A;
inline constexpr uint8_t entity_drive_backplane = 0x0F;
inline constexpr uint8_t entity_memory_device = 0x20;

// IPMI 2.0, table 43-12: device type 10h is a FRU behind a management controller, told apart by the modifier.
inline constexpr uint8_t device_type_fru = 0x10;
inline constexpr uint8_t modifier_fru_unspecified = 0;
inline constexpr uint8_t modifier_dimm = 1;
inline constexpr uint8_t modifier_fru_inventory = 2;
inline constexpr uint8_t modifier_processor_cartridge = 3;

inline constexpr uint8_t instance_mask = 0x7F;  // bit 7 marks a logical entity

inline uint8_t instance_of(const FruLocatorCopy& locator) {
    return static_cast<uint8_t>(locator.entity_instance & instance_mask);
}

inline bool is_processor_cartridge(const FruLocatorCopy& locator) {
    return locator.device_type == device_type_fru && locator.device_type_modifier == modifier_processor_cartridge &&
           locator.entity_id == entity_processor;
}

}  // namespace vpdd
