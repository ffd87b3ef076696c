// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>

namespace vpdd::cli {

/// IPMI entity ids that have a group of their own in the inventory.
inline constexpr uint8_t entity_processor = 0x03;
inline constexpr uint8_t entity_power_supply = 0x0A;
inline constexpr uint8_t entity_drive_backplane = 0x0F;
inline constexpr uint8_t entity_memory_device = 0x20;

/// What an IPMI entity id stands for, e.g. "Add-in card".
std::string entity_name(uint8_t entity_id);

}  // namespace vpdd::cli
