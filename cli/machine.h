// SPDX-License-Identifier: Apache-2.0
// The identity of the open server, as its system VPD has it.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "cli/json_output.h"
#include "cli/table.h"
#include "cli/terminal.h"
#include "orva_vpdd.h"

namespace vpdd::cli {

/// From the system VPD. Both throw std::runtime_error.
MachineVpdRecord read_machine();
OemMachineRecord read_oem_machine();

/// From the cache files, which are built first: only in a private root. All throw std::runtime_error.
void build_machine_cache();
MachineVpdRecord read_cached_machine();
OemMachineRecord read_cached_oem_machine();

/// What people ask for first, in two lines at most.
std::vector<std::string> identity_lines(const MachineVpdRecord& machine);

/// All that the record says.
ValueList machine_values(const MachineVpdRecord& machine);

void print_machine(std::ostream& out, const MachineVpdRecord& machine, const Style& style);
void print_oem_machine(std::ostream& out, const OemMachineRecord& machine, const Style& style);
Json machine_json(const MachineVpdRecord& machine);
Json oem_machine_json(const OemMachineRecord& machine);

}  // namespace vpdd::cli
