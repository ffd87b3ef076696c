// SPDX-License-Identifier: Apache-2.0
#include <array>

#include "ipmi/request.h"

namespace {

constexpr uint8_t cmd_read_system_vpd = 0x0B;

enum MachineClass : int { read_failed = 0, standard_machine = 1, oem_machine = 2, unrecognised = 3 };

MachineClass machine_class(uint8_t high, uint8_t low) {
    if (high == 0x00 && low == 0x00) return standard_machine;
    if (high == 0xFF && low == 0xEE) return oem_machine;
    return unrecognised;
}

}  // namespace

extern "C" int read_POSID_ext() {
    // Offset of the POS id extension, least significant byte first, the command's constant, and the byte count.
    static constexpr std::array<uint8_t, 4> data{0x0A, 0x00, 0x10, 0x02};
    std::array<uint8_t, 32> response{};
    if (vpdd::carry_out(vpdd::netfn_oem, cmd_read_system_vpd, data, response) != 0) return read_failed;
    return machine_class(response[1], response[2]);  // behind the completion code
}
