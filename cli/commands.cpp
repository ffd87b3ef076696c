// SPDX-License-Identifier: Apache-2.0
#include <array>

#include "cli/command.h"

namespace vpdd::cli {

namespace {

constexpr auto all_commands = std::to_array<Command>({
    {"inventory", "Show every component of a server",
     "Asks vpdd. With --server, reads the described server's FRUs and memory modules itself,\n"
     "compares the modules with SMBIOS and lists what could not be read, with the reason.\n"
     "\n"
     "Examples:\n"
     "  vpdctl inventory                                        of this machine\n"
     "  vpdctl inventory --server ddr5-2s\n"
     "  vpdctl inventory --server ddr5-2s --log -               with the library's messages\n"
     "  vpdctl inventory --platform ipmi --bmc rack4.json       asks a real BMC over IPMI\n"
     "  vpdctl inventory --server ddr5-2s --json | jq '.Memory[].SerialNumber'\n",
     declare_inventory},
    {"machine", "Show the identity of a server",
     "Type and model, serial numbers, UUID, addresses and code levels as the server's\n"
     "system VPD has them; vpdd is asked unless there is --server or --offline. An OEM\n"
     "machine has label/value pairs of its own: --oem.\n"
     "\n"
     "--from-cache builds the cache files that other processes read and shows what they\n"
     "hold. They are in a /tmp of vpdctl's own, which takes mount namespaces.\n"
     "\n"
     "Examples:\n"
     "  vpdctl machine --server ddr4-2s\n"
     "  vpdctl machine --server ddr5-2s --oem\n"
     "  vpdctl machine --server ddr4-2s --json | jq -r .UUID\n",
     declare_machine},
    {"status", "Show which components are there, and since when",
     "Asks vpdd. With --server, does what vpdd does: builds the component cache, restores the\n"
     "components' status from the activity log, reads the FRUs again and looks which are\n"
     "there. What has come, gone or been replaced since the last time is written to the\n"
     "activity log and to the change history.\n"
     "\n"
     "Memory devices (entity id 0x20) are never logged: they appear here, but neither in\n"
     "`vpdctl log` nor in `vpdctl history`, and it is not known since when they are there.\n"
     "\n"
     "/flash and /tmp, where the library keeps its files, are directories of DIR, in a\n"
     "mount namespace of vpdctl's own.\n"
     "\n"
     "Examples:\n"
     "  vpdctl status --refresh\n"
     "  vpdctl status --server ddr5-2s --state DIR\n"
     "  vpdctl status --server ddr5-2s --state DIR --changed\n"
     "  vpdctl status --server ddr5-2s --state DIR --json | jq '.Components[].Presence'\n",
     declare_status},
    {"log", "Show or empty the activity log",
     "The log has an entry for each component that was installed or removed, oldest first.\n"
     "vpdd writes it, and is asked for it; --offline reads it without vpdd. With --state it is\n"
     "DIR/flash/data0/component_activity.log, which `vpdctl status --server` writes.\n"
     "--clean empties it and says of how many entries; it has no --json.\n"
     "\n"
     "Memory devices (entity id 0x20) are never logged: see them in `vpdctl status`.\n"
     "\n"
     "Examples:\n"
     "  vpdctl log\n"
     "  vpdctl log --state DIR\n"
     "  vpdctl log --state DIR --json | jq '.Entries[-1]'\n"
     "  vpdctl log --state DIR --clean --yes\n",
     declare_log},
    {"history", "Show in sentences what has changed",
     "What `vpdctl status` found out, oldest first, from DIR/change_history.sqlite: which\n"
     "component was installed, removed or replaced, when, and its serial number.\n"
     "\n"
     "Memory devices (entity id 0x20) are never recorded: see them in `vpdctl status`. A part\n"
     "number that is no printable text, as a processor's, is left out.\n"
     "\n"
     "Examples:\n"
     "  vpdctl history --state DIR\n"
     "  vpdctl history --state DIR --json | jq '.Changes[] | select(.Event == \"Replaced\")'\n",
     declare_history},
    {"watch", "Follow what changes, as vpdd notices it",
     "Shows a line for each component that is installed, removed or replaced, until it is\n"
     "interrupted. When vpdd is started again meanwhile, what has changed in between is shown.\n"
     "\n"
     "Examples:\n"
     "  vpdctl watch\n"
     "  vpdctl watch --all --json | jq -c 'select(.Event == \"Removed\")'\n"
     "  vpdctl watch --count 1                                  wait for the next change\n",
     declare_watch},
    {"simulate", "Pull, insert or swap a component of a described server",
     "What is pulled answers that it is not present, and a processor's sensor no longer\n"
     "detects it; insert brings it back; swap puts a part with another serial number in\n"
     "its place. Later commands with the same --state see the server so; FILE stays.\n"
     "\n"
     "Examples:\n"
     "  vpdctl simulate swap \"CPU 2\" --server ddr5-2s --state DIR\n"
     "  vpdctl simulate pull 71 --server ddr5-2s --state DIR\n"
     "  vpdctl simulate insert \"Fan 2\" --server ddr5-2s --state DIR\n",
     declare_simulate},
    {"firmware", "Show the installed firmware",
     "Build id, date and version of every image that the library knows. The names of older\n"
     "controllers (orva, orva2) show the same builds as orva3. What cannot be read, or is\n"
     "not there, is a *.\n"
     "\n"
     "Examples:\n"
     "  vpdctl firmware --server ddr5-2s\n"
     "  vpdctl firmware --server ddr5-2s --json | jq '.Firmware[] | select(.Id == \"uefi\").Version'\n",
     declare_firmware},
    {"property", "Show a property of the management controller",
     "The value of PATH, or with --tree all properties below it. What is no text is shown in\n"
     "hexadecimal.\n"
     "\n"
     "Examples:\n"
     "  vpdctl property /v2/qsv/build_id --server ddr5-2s\n"
     "  vpdctl property /v2 --tree --server ddr5-2s\n"
     "  vpdctl property /ac --tree --server ddr5-2s --json | jq '.Properties[].Bytes'\n",
     declare_property},
    {"slots", "Draw the DIMM slots of a server's board, with its modules",
     "For each processor socket its memory controllers, their channels and the slots on\n"
     "each channel, with size and speed (MT/s) of the module in it. A module belongs to the\n"
     "slot with the last number in its name.\n"
     "\n"
     "Without a server the bare board of a platform is drawn. The environment variables\n"
     "hw_rev and VSK_NUM_SOCKETS choose a variant of some platforms.\n"
     "\n"
     "Examples:\n"
     "  vpdctl slots --server ddr5-2s\n"
     "  vpdctl slots --server ddr5-2s --svg board.svg\n"
     "  vpdctl slots --platform 0x00500076\n"
     "  vpdctl slots --server ddr5-2s --json | jq '.Slots[] | select(.State == \"Empty\").Slot'\n",
     declare_slots},
    {"report", "Write everything about a server as a web page",
     "One HTML file that needs nothing else, to read, print or send: the machine, its\n"
     "components, the DIMM slots as a picture, the firmware, and what could not be read.\n"
     "With --state also which components are there and what has changed; that is looked up\n"
     "and recorded as by `vpdctl status --server`. vpdd is not asked.\n"
     "\n"
     "FILE is replaced when the new page is complete, never left half written.\n"
     "\n"
     "Examples:\n"
     "  vpdctl report --server ddr5-2s --html ddr5-2s.html\n"
     "  vpdctl report --server ddr5-2s --state DIR --html ddr5-2s.html\n"
     "  vpdctl report --bmc rack4.json --html rack4.html        of a real BMC, over IPMI\n",
     declare_report},
    {"spd", "Decode a saved SPD image of a memory module",
     "FILE holds the module's SPD bytes from byte 0 on, raw or as the text of a hex dump\n"
     "(xxd, xxd -p, hexdump -C), whose offsets must follow each other. DDR3, DDR4, DDR5 and\n"
     "NVDIMM images are decoded.\n"
     "\n"
     "Examples:\n"
     "  vpdctl spd dimm.bin\n"
     "  vpdctl spd dimm.bin --json | jq .CapacityMiB\n",
     declare_spd},
    {"fru", "Decode an IPMI FRU image",
     "FILE holds the FRU's bytes from the common header on, raw or as the text of a hex\n"
     "dump (xxd, xxd -p, hexdump -C), whose offsets must follow each other. A wrong checksum\n"
     "or a missing end is reported; the rest is shown. Instead of a file a FRU of a server\n"
     "can be read: --fru-id.\n"
     "\n"
     "Examples:\n"
     "  vpdctl fru board.bin\n"
     "  vpdctl fru --fru-id 0 --bmc rack4.json\n"
     "  vpdctl fru board.bin --json | jq .Product.SerialNumber\n",
     declare_fru},
});

}  // namespace

std::span<const Command> commands() { return all_commands; }

}  // namespace vpdd::cli
