// SPDX-License-Identifier: Apache-2.0
#include "host/memory_modules.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <stdexcept>

#include "host/images/spd_image.h"
#include "orva_vpdd.h"

namespace vpdd::host {

namespace {

images::Generation generation_named(std::string_view name) {
    if (name == "DDR3") return images::Generation::ddr3;
    return name == "DDR4" ? images::Generation::ddr4 : images::Generation::ddr5;
}

images::ModuleType module_type_named(std::string_view name) {
    if (name == "RDIMM") return images::ModuleType::rdimm;
    if (name == "LRDIMM") return images::ModuleType::lrdimm;
    return name == "UDIMM" ? images::ModuleType::udimm : images::ModuleType::so_dimm;
}

images::MakerId maker_named(const std::string& name, const Json::json_pointer& place) try {
    return images::maker_named(name, jep_106);
} catch (const std::invalid_argument&) {
    throw DescriptionError(place, "JEP106 has no manufacturer \"" + name + "\".");
}

uint32_t number_in_hex(const std::string& digits) {
    uint32_t number = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), number, 16);
    return number;
}

// DMTF DSP0134 section 7.18.
constexpr uint16_t see_extended_size = 0x7FFF;
constexpr uint8_t form_factor_dimm = 0x09, form_factor_so_dimm = 0x0D;
constexpr uint16_t detail_synchronous = 1U << 7U, detail_registered = 1U << 13U, detail_unbuffered = 1U << 14U;
constexpr uint8_t technology_dram = 0x03;

uint8_t memory_type(std::string_view generation) {
    if (generation == "DDR3") return 0x18;
    return generation == "DDR4" ? 0x1A : 0x22;
}

uint16_t type_detail(std::string_view module) {
    const bool registered = module == "RDIMM" || module == "LRDIMM";
    return detail_synchronous | (registered ? detail_registered : detail_unbuffered);
}

std::string upper_case(std::string text) {
    std::ranges::transform(text, text.begin(), [](unsigned char letter) { return std::toupper(letter); });
    return text;
}

}  // namespace

Bytes spd_image(const Json& dimm, const Json::json_pointer& place) try {
    images::Module module;
    module.generation = generation_named(dimm["generation"].get<std::string_view>());
    module.type = module_type_named(dimm["module"].get<std::string_view>());
    module.size_gb = dimm["size_gib"];
    module.ranks = dimm["ranks"];
    module.dies = dimm.value("dies", 1U);
    module.device_width = dimm["device_width"];
    module.has_ecc = dimm.value("ecc", true);
    module.speed = dimm["speed"];
    module.maker = maker_named(dimm["maker"], place / "maker");
    module.dram_maker = maker_named(dimm.value("dram_maker", dimm["maker"]), place / "dram_maker");
    module.part = dimm["part_number"];
    module.serial = number_in_hex(dimm["serial_number"]);
    module.year = dimm["year"];
    module.week = dimm["week"];
    return images::spd_image(module);
} catch (const std::invalid_argument& reason) {
    throw DescriptionError(place, std::string("There is no such module: ") + reason.what() + ".");
}

bool is_unknown_to_smbios(const Json& dimm) { return dimm.value("/smbios/absent"_json_pointer, false); }

images::MemoryDeviceImage memory_device(const Json& dimm, uint32_t slot) {
    constexpr uint16_t data_bits = 64, ecc_bits = 8;
    const bool has_ecc = dimm.value("ecc", true);
    const uint32_t megabytes = dimm["size_gib"].get<uint32_t>() * 1024;
    const uint16_t speed = dimm["speed"];
    const Json said = dimm.value("smbios", Json::object());

    images::MemoryDeviceImage device;
    device.device_locator("DIMM " + std::to_string(slot))
        .bank_locator("BANK " + std::to_string(slot))
        .manufacturer(dimm["maker"].get<std::string>())
        .serial_number(said.value("serial_number", upper_case(dimm["serial_number"])))
        .part_number(dimm["part_number"].get<std::string>())
        .total_width(has_ecc ? data_bits + ecc_bits : data_bits)
        .data_width(data_bits)
        .size(static_cast<uint16_t>(std::min<uint32_t>(megabytes, see_extended_size)))
        .form_factor(dimm["module"] == "SO-DIMM" ? form_factor_so_dimm : form_factor_dimm)
        .memory_type(memory_type(dimm["generation"].get<std::string_view>()))
        .type_detail(type_detail(dimm["module"].get<std::string_view>()))
        .speed(said.value("speed", speed))
        .configured_memory_speed(said.value("configured_speed", said.value("speed", speed)))
        .attributes(dimm["ranks"])
        .memory_technology(technology_dram);
    if (megabytes >= see_extended_size) device.extended_size(megabytes);
    return device;
}

}  // namespace vpdd::host
