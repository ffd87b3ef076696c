// SPDX-License-Identifier: Apache-2.0
// What the daemon serves: copies of what the library holds, taken between two of its passes. Clients are answered from
// here, since the library keeps its look-ups waiting for as long as a pass lasts.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "daemon/changes.h"
#include "orva_vpdd.h"

namespace vpdd::daemon {

/// Never changed once it is published.
struct Inventory {
    Records components;  ///< each with the FRU id of the next one
    Records log;         ///< the activity log, oldest first
    std::optional<MachineVpdRecord> machine;
    std::optional<OemMachineRecord> oem_machine;
    uint64_t pass = 0;    ///< the keeper's pass that made it
    int64_t taken = 0;    ///< seconds since the Unix epoch
    int64_t looked = 0;   ///< when presence was last looked at, seconds since the Unix epoch; 0: not yet
    std::string trouble;  ///< what the last pass could not do; empty: nothing
};

using SharedInventory = std::shared_ptr<const Inventory>;
/// The cache as the library's look-ups have it. Empty when it has no records.
/// @param room is kept by the caller from one copy to the next: it is large
Records copy_components(Records& room);
Records copy_log();

/// Differs when the activity log has been written.
struct LogStamp {
    uint64_t file = 0;
    int64_t size = -1;  ///< -1: there is none
    int64_t seconds = 0;
    int64_t nanoseconds = 0;

    bool operator==(const LogStamp&) const = default;
};
LogStamp log_stamp();

void copy_machine(Inventory& inventory);

/// What became of the components and of the machine from one inventory to the next; without sequence numbers.
Changes changes_between(const Inventory& former, const Inventory& now);

}  // namespace vpdd::daemon
