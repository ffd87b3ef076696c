// SPDX-License-Identifier: Apache-2.0
#include "cli/entity_names.h"

#include <array>

#include "cli/display_text.h"

namespace vpdd::cli {

namespace {

// IPMI 2.0 table 43-13, entity ids from 0x00 on.
constexpr auto names = std::to_array<const char*>({
    "Unspecified",
    "Other",
    "Unknown",
    "Processor",
    "Disk or disk bay",
    "Peripheral bay",
    "System management module",
    "System board",
    "Memory module",
    "Processor module",
    "Power supply",
    "Add-in card",
    "Front panel board",
    "Back panel board",
    "Power system board",
    "Drive backplane",
    "System internal expansion board",
    "Other system board",
    "Processor board",
    "Power unit",
    "Power module",
    "Power distribution board",
    "Chassis back panel board",
    "System chassis",
    "Sub-chassis",
    "Other chassis board",
    "Disk drive bay",
    "Peripheral bay",
    "Device bay",
    "Fan",
    "Cooling unit",
    "Cable",
    "Memory device",
    "System management software",
    "System firmware",
    "Operating system",
    "System bus",
    "Group",
    "Remote management device",
    "External environment",
    "Battery",
    "Processing blade",
    "Connectivity switch",
    "Processor/memory module",
    "I/O module",
    "Processor/I/O module",
    "Management controller firmware",
    "IPMI channel",
    "PCI bus",
    "PCI Express bus",
    "SCSI bus",
    "SATA/SAS bus",
    "Processor bus",
    "Real-time clock",
    "Reserved",
    "Air inlet",
});

struct Range {
    uint8_t first;
    uint8_t last;
    const char* name;
};

// The ranges of the same table, and the ids that DCMI 1.5 table 6-4 adds.
constexpr auto ranges = std::to_array<Range>({
    {0x40, 0x40, "Air inlet"},
    {0x41, 0x41, "Processor"},
    {0x42, 0x42, "System board"},
    {0x90, 0xAF, "Chassis-specific"},
    {0xB0, 0xCF, "Board-set specific"},
    {0xD0, 0xFF, "OEM-specific"},
});

}  // namespace

std::string entity_name(uint8_t entity_id) {
    if (entity_id < names.size()) return names[entity_id];
    for (const Range& range : ranges) {
        if (entity_id >= range.first && entity_id <= range.last) return range.name;
    }
    return "Entity " + hex_number(entity_id);
}

}  // namespace vpdd::cli
