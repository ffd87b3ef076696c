// SPDX-License-Identifier: Apache-2.0
#include "host/description.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <system_error>

#include "host/fru_areas.h"
#include "host/images/sdr_record.h"
#include "host/images/smbios_image.h"
#include "host/memory_modules.h"
#include "host/server_defaults.h"
#include "host/system_vpd.h"

namespace vpdd::host {

namespace {

using Place = Json::json_pointer;

struct EntityName {
    std::string_view name;
    uint8_t id;
};

// IPMI 2.0 table 43-13.
constexpr std::array entity_names{
    EntityName{"processor", 3},
    EntityName{"disk", 4},
    EntityName{"peripheral bay", 5},
    EntityName{"system management module", 6},
    EntityName{"system board", 7},
    EntityName{"memory module", 8},
    EntityName{"processor module", 9},
    EntityName{"power supply", 10},
    EntityName{"add-in card", 11},
    EntityName{"front panel board", 12},
    EntityName{"back panel board", 13},
    EntityName{"power system board", 14},
    EntityName{"drive backplane", 15},
    EntityName{"system expansion board", 16},
    EntityName{"other system board", 17},
    EntityName{"processor board", 18},
    EntityName{"power management board", 21},
    EntityName{"system chassis", 23},
    EntityName{"other chassis board", 25},
    EntityName{"fan", 29},
    EntityName{"cooling unit", 30},
    EntityName{"memory device", 32},
    EntityName{"battery", 40},
};

uint8_t entity_id(const Json& entity) {
    if (entity.is_number()) return entity;
    // The schema lists the names.
    return std::ranges::find(entity_names, entity.get<std::string_view>(), &EntityName::name)->id;
}

std::optional<uint8_t> completion_code(const Json& fault, const char* key) {
    if (!fault.contains(key)) return {};
    return bytes_of_hex(fault[key].get<std::string_view>().substr(2)).front();
}

Fault fault_of(const Json& fault) {
    return {completion_code(fault, "size_completion_code"), completion_code(fault, "read_completion_code"),
            fault.value("read_from", 0U)};
}

constexpr std::size_t largest_image = 0xFFFF;                        // bytes, IPMI 2.0 section 34.1
constexpr std::size_t largest_smbios_table = std::size_t{1} << 20U;  // bytes

Bytes named_file(const Json& name, const std::filesystem::path& folder, std::size_t most, const Place& place) try {
    return file_content(folder / name.get<std::string>(), most);
} catch (const std::runtime_error& error) {
    throw DescriptionError(place, error.what());
}

std::optional<Bytes> image_of(const Json& content, const std::filesystem::path& folder, const Place& place) {
    if (content.contains("areas")) return area_image(content["areas"], place / "areas");
    if (content.contains("dimm")) return spd_image(content["dimm"], place / "dimm");
    if (content.contains("raw")) return named_file(content["raw"], folder, largest_image, place / "raw");
    return {};
}

Fru fru_of(const Json& fru, const std::filesystem::path& folder, const Place& place) {
    const Json fault = fru.value("fault", Json::object());
    Fru device{image_of(fru["content"], folder, place / "content"), fault_of(fault)};
    if (!device.image) return device;
    if (device.image->size() > largest_image)
        throw DescriptionError(place / "content", "The image exceeds 65535 bytes.");
    device.image->resize(std::min(device.image->size(), fault.value("short_size", largest_image)));
    return device;
}

// IPMI 2.0 table 43-12: a FRU inventory device behind the controller, and its modifiers.
constexpr uint8_t device_type = 0x10, fru_inventory = 0, spd = 1;

Bytes locator_of(const Json& fru, uint16_t record_id) {
    return images::FruLocator(fru["fru_id"], fru["name"].get<std::string>())
        .record_id(record_id)
        .type(fru.value("device_type", device_type))
        .modifier(fru.value("modifier", fru["content"].contains("dimm") ? spd : fru_inventory))
        .entity(entity_id(fru["entity"]), fru["instance"])
        .build();
}

void add_sdr_record(Description& description, uint16_t id, Bytes bytes, const Place& place) {
    constexpr uint16_t end_of_repository = 0xFFFF;
    if (id == end_of_repository) throw DescriptionError(place, "There is no record id behind 65534.");
    if (std::ranges::find(description.sdr, id, &SdrRecord::id) != description.sdr.end())
        throw DescriptionError(place, "SDR record " + std::to_string(id) + " is there twice.");
    description.sdr.push_back({id, std::move(bytes)});
}

void read_sdr_records(const Json& records, Description& description) {
    for (const Json& record : records) {
        add_sdr_record(description, record["record_id"], bytes_of_hex(record["bytes"].get<std::string_view>()),
                       Place("/sdr_records") / description.sdr.size() / "record_id");
    }
}

void read_fru(const Json& fru, const std::filesystem::path& folder, Description& description) {
    const Place place = Place("/frus") / description.frus.size();
    Fru device = fru_of(fru, folder, place);
    device.position = static_cast<uint32_t>(description.frus.size() + 1);
    if (!description.frus.emplace(fru["fru_id"], std::move(device)).second)
        throw DescriptionError(place / "fru_id", "FRU id " + fru["fru_id"].dump() + " is there twice.");

    const int next_id = description.sdr.empty() ? 1 : description.sdr.back().id + 1;
    const auto record_id = static_cast<uint16_t>(fru.value("record_id", next_id));
    add_sdr_record(description, record_id, locator_of(fru, record_id), place / "record_id");
}

/// The slot, else the number in the name; 0 without either.
uint32_t slot_of(const Json& fru) {
    const std::string name = fru["name"];
    const std::size_t digits = std::min(name.find_first_of("0123456789"), name.size());
    uint32_t number = 0;
    std::from_chars(name.data() + digits, name.data() + name.size(), number);
    return fru.value("slot", number);
}

/// What the host's firmware would say of the described server.
Bytes smbios_table(const Json& document) {
    const Json& machine = document["machine"];
    const std::string maker = machine.value("manufacturer", ""), serial = machine.value("serial_number", "");
    images::SmbiosImage table;
    table.system(maker, machine.value("product_name", ""), serial)
        .chassis(maker, serial, machine.value("asset_id", ""));

    const auto is_module = [](const Json& fru) { return fru["content"].contains("dimm"); };
    const auto modules = std::ranges::count_if(document["frus"], is_module);
    constexpr uint32_t unknown_capacity = 0x80000000;  // DMTF DSP0134 section 7.17
    table.memory_array(static_cast<uint16_t>(modules), unknown_capacity);
    for (const Json& fru : document["frus"]) {
        if (is_module(fru) && !is_unknown_to_smbios(fru["content"]["dimm"]))
            table.memory_device(memory_device(fru["content"]["dimm"], slot_of(fru)));
    }
    return table.file();
}

std::vector<Sensor> sensors_of(const Json& list) {
    std::vector<Sensor> sensors;
    for (const Json& sensor : list) {
        sensors.push_back(
            {sensor["name"], sensor["type"], sensor.value("state", uint16_t{0}), sensor.value("text", "")});
    }
    return sensors;
}

}  // namespace

Description read_description(const Json& document, const std::filesystem::path& folder) {
    Description description;
    description.name = document["name"];
    description.iana = document["machine"].value("iana", default_iana);
    description.system_vpd = system_vpd_image(document["machine"]);
    read_sdr_records(document.value("sdr_records", Json::array()), description);
    for (const Json& fru : document["frus"]) read_fru(fru, folder, description);
    description.smbios = document.contains("smbios")
                             ? named_file(document["smbios"]["raw"], folder, largest_smbios_table, Place("/smbios/raw"))
                             : smbios_table(document);
    description.sensors = sensors_of(document.value("sensors", Json::array()));
    description.properties = property_tree(document);
    return description;
}

Description lone_memory_module(std::span<const uint8_t> image) {
    if (image.size() > largest_image) throw std::length_error("The image exceeds 65535 bytes.");
    constexpr uint8_t fru_id = 1, instance = 1, memory_device = 32;
    constexpr uint16_t record_id = 1;
    Description description;
    description.frus[fru_id] = {Bytes(image.begin(), image.end()), {}, 1};
    description.sdr.push_back({record_id, images::FruLocator(fru_id, "DIMM 1")
                                              .record_id(record_id)
                                              .type(device_type)
                                              .modifier(spd)
                                              .entity(memory_device, instance)
                                              .build()});
    return description;
}

}  // namespace vpdd::host
