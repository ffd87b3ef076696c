// SPDX-License-Identifier: Apache-2.0
#include <array>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "base/text.h"
#include "sysvpd/machine_record.h"

namespace {

constexpr unsigned long extended_version = 0x0300;

/// A run of bytes that the record takes over as it stands.
struct Copy {
    std::size_t to, size, from;
};

// The order of the pairs and the partial copies are part of the format.
constexpr std::array<Copy, 7> pair_copies{{
    {offsetof(OemMachineRecord, pair_0), sizeof(MachineFieldPair), 0 * sizeof(MachineFieldPair)},
    {offsetof(OemMachineRecord, pair_1), sizeof(MachineFieldPair), 1 * sizeof(MachineFieldPair)},
    {offsetof(OemMachineRecord, pair_6), sizeof(MachineFieldPair), 6 * sizeof(MachineFieldPair)},
    {offsetof(OemMachineRecord, pair_5), sizeof(MachineFieldPair), 5 * sizeof(MachineFieldPair)},
    {offsetof(OemMachineRecord, pair_2), sizeof(MachineFieldPair), 2 * sizeof(MachineFieldPair)},
    {offsetof(OemMachineRecord, pair_3), sizeof(MachineFieldPair), 3 * sizeof(MachineFieldPair)},
    {offsetof(OemMachineRecord, pair_4), sizeof(MachineFieldPair), 4 * sizeof(MachineFieldPair)},
}};

constexpr std::size_t card_serial_end = offsetof(MachineVpdRecord, card_serial_number) +
                                        sizeof(MachineVpdRecord::card_serial_number) -
                                        sizeof(OemMachineRecord::card_serial_number_end);

constexpr std::array<Copy, 10> standard_copies{{
    {offsetof(OemMachineRecord, vpd_version), sizeof(OemMachineRecord::vpd_version),
     offsetof(MachineVpdRecord, vpd_version)},
    {offsetof(OemMachineRecord, uuid), sizeof(OemMachineRecord::uuid), offsetof(MachineVpdRecord, uuid)},
    {offsetof(OemMachineRecord, card_fru_number), sizeof(OemMachineRecord::card_fru_number),
     offsetof(MachineVpdRecord, card_fru_number)},
    {offsetof(OemMachineRecord, card_serial_number_end), sizeof(OemMachineRecord::card_serial_number_end),
     card_serial_end},
    {offsetof(OemMachineRecord, card_mfg_date), sizeof(OemMachineRecord::card_mfg_date),
     offsetof(MachineVpdRecord, card_mfg_date)},
    {offsetof(OemMachineRecord, host_macs), sizeof(OemMachineRecord::host_macs), offsetof(MachineVpdRecord, host_macs)},
    {offsetof(OemMachineRecord, product_name), sizeof(OemMachineRecord::product_name),
     offsetof(MachineVpdRecord, product_name)},
    {offsetof(OemMachineRecord, code_levels), sizeof(OemMachineRecord::code_levels),
     offsetof(MachineVpdRecord, code_levels)},
    {offsetof(OemMachineRecord, port_macs), sizeof(OemMachineRecord::port_macs), offsetof(MachineVpdRecord, port_macs)},
    {offsetof(OemMachineRecord, iana), sizeof(OemMachineRecord::iana) + sizeof(OemMachineRecord::sub_manufacturer),
     offsetof(MachineVpdRecord, iana)},
}};

constexpr Copy extended_copy{offsetof(OemMachineRecord, serial_format_to_ismp),
                             sizeof(OemMachineRecord::serial_format_to_ismp),
                             offsetof(MachineVpdRecord, serial_number_format)};

void apply(const Copy& copy, const void* source, OemMachineRecord& record) {
    std::memcpy(reinterpret_cast<char*>(&record) + copy.to, static_cast<const char*>(source) + copy.from, copy.size);
}

}  // namespace

namespace vpdd {

const char* product_manufacturer(int posid_result) {
    switch (posid_result) {
        case 2:
            return "oem";
        case 1:
        case 3:
            return "zelt";
        default:
            return "";
    }
}

void fill_oem_machine_record(const MachineVpdRecord& machine, const MachineFieldsRecord& fields,
                             const char* manufacturer, OemMachineRecord& record) {
    record = {};
    std::memcpy(record.request, "_req_oem", sizeof record.request);
    assign_text(record.product_manufacturer, manufacturer);
    for (const Copy& copy : pair_copies) apply(copy, &fields, record);
    for (const Copy& copy : standard_copies) apply(copy, &machine, record);
    if (std::strtoul(machine.vpd_version, nullptr, 16) >= extended_version) apply(extended_copy, &machine, record);
}

}  // namespace vpdd
