// SPDX-License-Identifier: Apache-2.0
#include <array>

#include "cli/command.h"

namespace vpdd::cli {

namespace {

constexpr auto all_commands = std::to_array<Command>({
    {"inventory", "Show every component of a server",
     "Reads the server's FRUs and memory modules, compares the modules with SMBIOS and\n"
     "lists what could not be read, with the reason.\n"
     "\n"
     "Examples:\n"
     "  vpdctl inventory --server ddr5-2s.json\n"
     "  vpdctl inventory --server ddr5-2s.json --log -          with the library's messages\n"
     "  vpdctl inventory --server ddr5-2s.json --json | jq '.Memory[].SerialNumber'\n",
     declare_inventory},
    {"machine", "Show the identity of a server",
     "Type and model, serial numbers, UUID, addresses and code levels as the server's\n"
     "system VPD has them. An OEM machine has label/value pairs of its own: --oem.\n"
     "\n"
     "--from-cache builds the cache files that other processes read and shows what they\n"
     "hold. They are in a /tmp of vpdctl's own, which takes mount namespaces.\n"
     "\n"
     "Examples:\n"
     "  vpdctl machine --server ddr4-2s\n"
     "  vpdctl machine --server ddr5-2s --oem\n"
     "  vpdctl machine --server ddr4-2s --json | jq -r .UUID\n",
     declare_machine},
    {"log", "Show or empty the activity log",
     "The log has an entry for each component that was installed or removed, oldest\n"
     "first; `vpdctl status` writes it. It is DIR/flash/data0/component_activity.log,\n"
     "which the library sees as /flash/data0/component_activity.log in a mount namespace\n"
     "of vpdctl's own.\n"
     "\n"
     "Memory devices (entity id 0x20) are never logged: see them in `vpdctl status`.\n"
     "\n"
     "Examples:\n"
     "  vpdctl log --state DIR\n"
     "  vpdctl log --state DIR --json | jq '.Entries[-1]'\n"
     "  vpdctl log --state DIR --clean --yes\n",
     declare_log},
    {"spd", "Decode a saved SPD image of a memory module",
     "FILE holds the module's SPD bytes from byte 0 on, raw or as the text of a hex dump\n"
     "(xxd, hexdump -C). DDR3, DDR4, DDR5 and NVDIMM images are decoded.\n"
     "\n"
     "Examples:\n"
     "  vpdctl spd dimm.bin\n"
     "  vpdctl spd dimm.bin --json | jq .CapacityMiB\n",
     declare_spd},
    {"fru", "Decode a saved IPMI FRU image",
     "FILE holds the FRU's bytes from the common header on, raw or as the text of a hex\n"
     "dump. A wrong checksum or a missing end is reported; the rest is shown.\n"
     "\n"
     "Examples:\n"
     "  vpdctl fru board.bin\n"
     "  vpdctl fru board.bin --json | jq .Product.SerialNumber\n",
     declare_fru},
});

}  // namespace

std::span<const Command> commands() { return all_commands; }

}  // namespace vpdd::cli
