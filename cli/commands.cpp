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
