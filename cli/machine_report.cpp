// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <charconv>
#include <cstddef>
#include <nlohmann/json.hpp>
#include <ostream>
#include <span>

#include "cli/display_text.h"
#include "cli/machine.h"
#include "cli/table.h"

namespace vpdd::cli {

namespace {

/// A value under its heading, and its property in JSON.
struct Value {
    const char* heading;
    const char* property;
    std::string text;
};

struct List {
    const char* heading;
    const char* property;
    std::vector<std::string> texts;
};

struct Pair {
    std::string label;
    std::string value;
};

/// The text at the start of some bytes.
std::string text_of(std::span<const char> bytes) {
    return std::string(trimmed({bytes.data(), strnlen(bytes.data(), bytes.size())}));
}

/// The texts of slots of the same size; the last one may be cut off.
std::vector<std::string> slot_texts(std::span<const char> bytes, std::size_t slot_size) {
    std::vector<std::string> texts;
    for (; !bytes.empty(); bytes = bytes.subspan(std::min(slot_size, bytes.size()))) {
        texts.push_back(text_of(bytes.first(std::min(slot_size, bytes.size()))));
    }
    return texts;
}

template <std::size_t Count, std::size_t Size>
std::vector<std::string> slot_texts(const char (&slots)[Count][Size]) {
    return slot_texts({slots[0], Count * Size}, Size);
}

std::vector<std::string> without_empty(std::vector<std::string> texts) {
    const auto is_empty = [](const std::string& text) { return text.find_first_not_of("0:") == std::string::npos; };
    texts.erase(std::remove_if(texts.begin(), texts.end(), is_empty), texts.end());
    return texts;
}

/// A port's address lies in eight bytes: "02005E56F0000000" is 02:00:5E:56:F0:00.
std::vector<std::string> port_macs(std::vector<std::string> slots) {
    constexpr std::size_t digits = 16;
    constexpr std::size_t mac_digits = 12;
    slots = without_empty(std::move(slots));
    for (std::string& slot : slots) {
        if (slot.size() != digits || !slot.ends_with("0000")) continue;
        slot.resize(mac_digits);
        for (std::size_t position = mac_digits - 2; position > 0; position -= 2) slot.insert(position, ":");
    }
    return slots;
}

/// 32 digits in the usual groups; anything else as it stands.
std::string uuid_text(std::string digits) {
    constexpr std::size_t uuid_digits = 32;
    if (digits.size() != uuid_digits) return digits;
    for (const std::size_t position : {20, 16, 12, 8}) digits.insert(position, "-");
    return digits;
}

/// "32473" for the eight hexadecimal digits of the record; anything else as it stands.
std::string iana_text(const std::string& digits) {
    uint32_t number = 0;
    const auto end = std::from_chars(digits.data(), digits.data() + digits.size(), number, 16).ptr;
    if (digits.empty() || end != digits.data() + digits.size()) return digits;
    return std::to_string(number);
}

std::vector<Value> values_of(const MachineVpdRecord& machine) {
    return {{"Manufacturer", "Manufacturer", field_text(machine.full_manufacturer_name)},
            {"Product name", "ProductName", field_text(machine.product_name)},
            {"Type/model", "TypeModel", field_text(machine.machine_type_model)},
            {"Serial number", "SerialNumber", field_text(machine.serial_number)},
            {"UUID", "UUID", uuid_text(field_text(machine.uuid))},
            {"Asset tag", "AssetTag", field_text(machine.asset_id)},
            {"VPD version", "VpdVersion", field_text(machine.vpd_version)},
            {"Serial number format", "SerialNumberFormat", field_text(machine.serial_number_format)},
            {"Manufacturer id", "ManufacturerId", field_text(machine.manufacturer_id)},
            {"Sub-manufacturer", "SubManufacturer", field_text(machine.sub_manufacturer)},
            {"IANA number", "IanaNumber", iana_text(field_text(machine.iana))},
            {"EC level", "EcLevel", field_text(machine.ec_level)},
            {"ISMP name", "IsmpName", field_text(machine.ismp_name)},
            {"Card part number", "CardPartNumber", field_text(machine.card_part_number)},
            {"Card FRU number", "CardFruNumber", field_text(machine.card_fru_number)},
            {"Card serial number", "CardSerialNumber", field_text(machine.card_serial_number)},
            {"Card made", "CardManufactureDate", field_text(machine.card_mfg_date)},
            {"Second part number", "SecondPartNumber", field_text(machine.second_part_number)},
            {"Second serial number", "SecondSerialNumber", field_text(machine.second_serial_number)}};
}

std::vector<List> lists_of(const MachineVpdRecord& machine) {
    return {{"Host MACs", "HostMacAddresses", without_empty(slot_texts(machine.host_macs))},
            {"Port MACs", "PortMacAddresses", port_macs(slot_texts(machine.port_macs))},
            {"Code levels", "CodeLevels", without_empty(slot_texts(machine.code_levels))}};
}

/// The record of an OEM machine keeps the end of the standard one as a run of bytes, without its last byte.
MachineVpdRecord standard_end(const OemMachineRecord& oem) {
    constexpr std::size_t begin = offsetof(MachineVpdRecord, serial_number_format);
    static_assert(begin + sizeof oem.serial_format_to_ismp + 1 == sizeof(MachineVpdRecord));
    MachineVpdRecord standard{};
    std::ranges::copy(oem.serial_format_to_ismp, reinterpret_cast<char*>(&standard) + begin);
    return standard;
}

std::vector<Value> values_of(const OemMachineRecord& machine) {
    const MachineVpdRecord standard = standard_end(machine);
    return {{"Manufacturer", "Manufacturer", field_text(standard.full_manufacturer_name)},
            {"Product name", "ProductName", field_text(machine.product_name)},
            {"Kind of maker", "ProductManufacturer", field_text(machine.product_manufacturer)},
            {"UUID", "UUID", uuid_text(field_text(machine.uuid))},
            {"VPD version", "VpdVersion", field_text(machine.vpd_version)},
            {"Serial number format", "SerialNumberFormat", field_text(standard.serial_number_format)},
            {"Sub-manufacturer", "SubManufacturer", field_text(machine.sub_manufacturer)},
            {"IANA number", "IanaNumber", iana_text(field_text(machine.iana))},
            {"EC level", "EcLevel", field_text(standard.ec_level)},
            {"ISMP name", "IsmpName", field_text(standard.ismp_name)},
            {"Card FRU number", "CardFruNumber", field_text(machine.card_fru_number)},
            {"Card made", "CardManufactureDate", field_text(machine.card_mfg_date)},
            {"Second part number", "SecondPartNumber", field_text(standard.second_part_number)},
            {"Second serial number", "SecondSerialNumber", field_text(standard.second_serial_number)}};
}

std::vector<List> lists_of(const OemMachineRecord& machine) {
    using Standard = MachineVpdRecord;
    return {
        {"Host MACs", "HostMacAddresses", without_empty(slot_texts(machine.host_macs, sizeof Standard::host_macs[0]))},
        {"Port MACs", "PortMacAddresses", port_macs(slot_texts(machine.port_macs, sizeof Standard::port_macs[0]))},
        {"Code levels", "CodeLevels", without_empty(slot_texts(machine.code_levels, sizeof Standard::code_levels[0]))}};
}

/// In the order of FRU 0. The library repeats the last pair up to the seventh: that one is shown once.
std::vector<Pair> pairs_of(const OemMachineRecord& machine) {
    std::vector<Pair> pairs;
    for (const MachineFieldPair* pair : {&machine.pair_0, &machine.pair_1, &machine.pair_2, &machine.pair_3,
                                         &machine.pair_4, &machine.pair_5, &machine.pair_6}) {
        const Pair read{field_text(pair->label), field_text(pair->value)};
        const bool repeated = !pairs.empty() && pairs.back().label == read.label && pairs.back().value == read.value;
        if (!repeated && !read.label.empty()) pairs.push_back(read);
    }
    return pairs;
}

std::string joined(const std::vector<std::string>& texts) {
    std::string line;
    for (const std::string& text : texts) line += (line.empty() ? "" : ", ") + text;
    return line;
}

template <class Record>
void add_values(ValueList& list, const Record& record) {
    for (const Value& value : values_of(record)) list.add(value.heading, value.text);
    for (const List& texts : lists_of(record)) list.add(texts.heading, joined(texts.texts));
}

template <class Record>
Json record_json(const Record& record) {
    Json object = Json::object();
    for (const Value& value : values_of(record)) {
        if (!value.text.empty()) object[value.property] = value.text;
    }
    for (const List& list : lists_of(record)) object[list.property] = list.texts;
    return object;
}

/// The texts that are there, with blanks between them.
std::string sentence(std::initializer_list<std::string> parts, const char* between) {
    std::string line;
    for (const std::string& part : parts) {
        if (!part.empty()) line += (line.empty() ? "" : between) + part;
    }
    return line;
}

std::string named(const char* name, const std::string& text) {
    return text.empty() ? std::string() : std::string(name) + ' ' + text;
}

}  // namespace

std::vector<std::string> identity_lines(const MachineVpdRecord& machine) {
    const std::string product =
        sentence({field_text(machine.full_manufacturer_name), field_text(machine.product_name)}, " ");
    const std::string first = sentence({product, named("type/model", field_text(machine.machine_type_model)),
                                        named("serial number", field_text(machine.serial_number))},
                                       ", ");
    const std::string second = sentence({named("UUID", uuid_text(field_text(machine.uuid))),
                                         named("code", joined(without_empty(slot_texts(machine.code_levels))))},
                                        ", ");
    return without_empty({first, second});
}

ValueList machine_values(const MachineVpdRecord& machine) {
    ValueList list;
    add_values(list, machine);
    return list;
}

void print_machine(std::ostream& out, const MachineVpdRecord& machine, const Style& style) {
    machine_values(machine).print(out, style);
}

void print_oem_machine(std::ostream& out, const OemMachineRecord& machine, const Style& style) {
    ValueList labels;
    for (const Pair& pair : pairs_of(machine)) labels.add(pair.label, pair.value.empty() ? "(empty)" : pair.value);
    out << style.heading("Labels of FRU 0") << '\n';
    if (labels.empty()) out << "  none: this is no OEM machine\n";
    labels.print(out, style);

    ValueList list;
    add_values(list, machine);
    out << '\n' << style.heading("Record") << '\n';
    list.print(out, style);
}

Json machine_json(const MachineVpdRecord& machine) { return record_json(machine); }

Json oem_machine_json(const OemMachineRecord& machine) {
    Json labels = Json::array();
    for (const Pair& pair : pairs_of(machine)) labels.push_back({{"Label", pair.label}, {"Value", pair.value}});
    Json object{{"Labels", std::move(labels)}};
    object.update(record_json(machine));
    return object;
}

}  // namespace vpdd::cli
