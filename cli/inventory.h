// SPDX-License-Identifier: Apache-2.0
// The inventory of the open server: what the component cache holds, sorted into the groups that people look for.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "cli/cached_records.h"
#include "cli/json_output.h"
#include "cli/section.h"
#include "cli/terminal.h"
#include "orva_vpdd.h"

namespace vpdd::cli {

/// A component whose FRU could not be read or decoded.
struct UnreadComponent {
    ComponentVpdRecord record;
    std::string reason;
};

struct Inventory {
    MachineVpdRecord machine{};
    std::vector<ComponentVpdRecord> processors;
    std::vector<ComponentVpdRecord> memory;
    std::vector<ComponentVpdRecord> power_supplies;
    std::vector<ComponentVpdRecord> drive_backplanes;
    std::vector<ComponentVpdRecord> others;
    std::vector<UnreadComponent> unread;
    std::vector<PublishedVariable> published;

    std::size_t component_count() const;
    uint64_t memory_mib() const;
    uint32_t logical_processor_count() const;
};

/// Reads the machine's record, and the cache, which stands, through the library's look-ups.
Inventory take_inventory();

/// From what the daemon has; why it could not read a component it does not tell.
Inventory sorted_inventory(const MachineVpdRecord& machine, const std::vector<ComponentVpdRecord>& records);

/// All that it holds, as tables; what is not there is left out.
std::vector<Section> inventory_sections(const Inventory& inventory);

void print_inventory(std::ostream& out, const Inventory& inventory, const std::string& server, const Style& style);
Json inventory_json(const Inventory& inventory, const std::string& server);

}  // namespace vpdd::cli
