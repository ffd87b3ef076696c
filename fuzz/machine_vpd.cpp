// SPDX-License-Identifier: Apache-2.0
// The fields of the system VPD and FRU 0 through the machine's records.
// Input: options, size of FRU 0 in two bytes, image, then fields: id, size, bytes. Options: bit 0 lets every field
// claim a size that the last two bytes of the fields say.
#include <cstring>
#include <memory>

#include "fuzz/input.h"
#include "fuzz/platform.h"

using namespace vpdd::fuzz;

namespace {

void add_fields(Input& input) {
    while (!input.is_empty()) {
        const uint8_t id = input.byte();
        const auto bytes = input.take(input.byte());
        world().fields[id] = Bytes(bytes.begin(), bytes.end());
    }
}

/// Into a block of exactly the room that the caller states.
void read_field(uint32_t id, uint32_t room) {
    const auto text = std::make_unique<uint8_t[]>(room);
    sysvpd_read_field(id, room, text.get());
}

/// The text functions, on a field with a terminator.
void trim_field(const Bytes& field) {
    for (void (*const trim)(char*) : {left_justified, right_justified, trim_string}) {
        std::vector<char> text(field.begin(), field.end());
        text.push_back('\0');
        trim(text.data());
        require(std::strlen(text.data()) <= field.size(), "a trimmed text grew");
    }
    Bytes padded(field.begin(), field.end());
    padded.resize(32);
    oem_justified(reinterpret_cast<char*>(padded.data()));
}

template <class Text>
void require_ended(const Text& text) {
    require(strnlen(text, sizeof text) < sizeof text, "a text has no end");
}

void require_ended_texts(const MachineVpdRecord& record) {
    require_ended(record.vpd_version);
    require_ended(record.machine_type_model);
    require_ended(record.serial_number);
    require_ended(record.uuid);
    require_ended(record.asset_id);
    require_ended(record.manufacturer_id);
    require_ended(record.card_part_number);
    require_ended(record.card_fru_number);
    require_ended(record.card_serial_number);
    require_ended(record.card_mfg_date);
    for (const auto& mac : record.host_macs) require_ended(mac);
    require_ended(record.product_name);
    for (const auto& level : record.code_levels) require_ended(level);
    for (const auto& mac : record.port_macs) require_ended(mac);
    require_ended(record.iana);
    require_ended(record.sub_manufacturer);
    require_ended(record.serial_number_format);
    require_ended(record.ec_level);
    require_ended(record.second_part_number);
    require_ended(record.second_serial_number);
    require_ended(record.full_manufacturer_name);
    require_ended(record.ismp_name);
}

void read_machine() {
    const auto machine = std::make_unique<MachineVpdRecord>();
    uint32_t length = 0;
    require(GetMachineVPD(&length, sizeof *machine, nullptr, reinterpret_cast<uint8_t*>(machine.get())) == 0,
            "the machine's record");
    require_ended_texts(*machine);
    const auto oem = std::make_unique<OemMachineRecord>();
    GetMachineVPD(&length, sizeof *oem, "_req_oem", reinterpret_cast<uint8_t*>(oem.get()));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    Input input({data, size});
    const uint8_t options = input.byte();
    const auto image = input.take(input.word());

    const Round round;
    world().frus[0] = Bytes(image.begin(), image.end());
    add_fields(input);
    if ((options & 1U) != 0 && size >= 2) world().field_size = data[size - 2] | data[size - 1] << 8U;
    read_machine();
    for (const auto& [id, bytes] : world().fields) {
        trim_field(bytes);
        for (const uint32_t room : {0U, 1U, 31U, 32U, 33U, 1024U}) read_field(id, room);
    }
    return 0;
}
