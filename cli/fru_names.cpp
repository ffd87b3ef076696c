// SPDX-License-Identifier: Apache-2.0
#include "cli/fru_names.h"

#include <array>

namespace vpdd::cli {

namespace {

// SMBIOS 3.6 table 17, chassis types from 0 on; 0 is not assigned.
constexpr auto chassis_types = std::to_array<const char*>({
    "",
    "Other",
    "Unknown",
    "Desktop",
    "Low Profile Desktop",
    "Pizza Box",
    "Mini Tower",
    "Tower",
    "Portable",
    "Laptop",
    "Notebook",
    "Hand Held",
    "Docking Station",
    "All in One",
    "Sub Notebook",
    "Space-saving",
    "Lunch Box",
    "Main Server Chassis",
    "Expansion Chassis",
    "SubChassis",
    "Bus Expansion Chassis",
    "Peripheral Chassis",
    "RAID Chassis",
    "Rack Mount Chassis",
    "Sealed-case PC",
    "Multi-system chassis",
    "Compact PCI",
    "Advanced TCA",
    "Blade",
    "Blade Enclosure",
    "Tablet",
    "Convertible",
    "Detachable",
    "IoT Gateway",
    "Embedded PC",
    "Mini PC",
    "Stick PC",
});

// FRU Information Storage Definition 1.0, table 16-2, record types from 0 on.
constexpr auto multirecord_types = std::to_array<const char*>({
    "Power supply information",
    "DC output",
    "DC load",
    "Management access",
    "Base compatibility",
    "Extended compatibility",
    "ASF fixed SMBus device",
    "ASF legacy-device alerts",
    "ASF remote control",
    "Extended DC output",
    "Extended DC load",
});

constexpr uint8_t first_oem_type = 0xC0;

}  // namespace

std::string chassis_type_name(uint8_t type) { return type < chassis_types.size() ? chassis_types[type] : ""; }

std::string multirecord_name(uint8_t type) {
    if (type >= first_oem_type) return "OEM record";
    return type < multirecord_types.size() ? multirecord_types[type] : "Unknown record";
}

}  // namespace vpdd::cli
