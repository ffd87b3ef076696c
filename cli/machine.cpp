// SPDX-License-Identifier: Apache-2.0
#include "cli/machine.h"

#include <stdexcept>

namespace vpdd::cli {

namespace {

constexpr const char* oem_request = "_req_oem";

void require(int result, const char* what) {
    if (result != 0) throw std::runtime_error(std::string(what) + ": result " + std::to_string(result));
}

template <class Record>
uint8_t* bytes_of(Record& record) {
    return reinterpret_cast<uint8_t*>(&record);
}

}  // namespace

MachineVpdRecord read_machine() {
    MachineVpdRecord machine{};
    uint32_t length = 0;
    require(GetMachineVPD(&length, sizeof machine, nullptr, bytes_of(machine)), "the machine record cannot be read");
    return machine;
}

OemMachineRecord read_oem_machine() {
    OemMachineRecord machine{};
    uint32_t length = 0;
    require(GetMachineVPD(&length, sizeof machine, oem_request, bytes_of(machine)),
            "the OEM machine record cannot be read");
    return machine;
}

void build_machine_cache() { require(init_machine_vpd_cache_file(), "the machine's cache files cannot be built"); }

MachineVpdRecord read_cached_machine() {
    MachineVpdRecord machine{};
    require(vpdd_machine_vpd_read(bytes_of(machine), sizeof machine), "the machine's cache file cannot be read");
    return machine;
}

OemMachineRecord read_cached_oem_machine() {
    OemMachineRecord machine{};
    require(vpdd_machine_oem_vpd_read(bytes_of(machine), sizeof machine),
            "the OEM machine's cache file cannot be read");
    return machine;
}

}  // namespace vpdd::cli
