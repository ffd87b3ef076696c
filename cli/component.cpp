// SPDX-License-Identifier: Apache-2.0
#include "cli/component.h"

#include <algorithm>
#include <charconv>
#include <nlohmann/json.hpp>

#include "cli/display_text.h"
#include "cli/entity_names.h"
#include "cli/memory_module.h"

namespace vpdd::cli {

namespace {

constexpr uint32_t oem_processor_format = 2;

// Which text of the OEM processor record holds the number of logical processors.
constexpr std::size_t logical_processor_text = 3;

void add_text(Json& object, const char* name, const std::string& text) {
    if (!text.empty()) object[name] = text;
}

Json oem_processor_json(const OemCpuRecord& record) {
    Json texts = Json::array();
    for (const auto& text : record.text) texts.push_back(field_text(text));
    return {{"Index", record.index}, {"Texts", texts}, {"RawHex", hex_bytes(oem_processor_bytes(record))}};
}

}  // namespace

Identity identity(const ComponentVpdRecord& record) {
    const std::string date = field_text(record.mfg_date);
    if (!is_decoded(record.spd_info)) {
        return {field_text(record.mfg_id), field_text(record.part_number), field_text(record.serial_number), date};
    }
    const SpdInfo& spd = record.spd_info;
    return {field_text(spd.mfg_id), field_text(spd.part_number), module_serial_number(spd),
            has_manufacture_date(spd) ? date : ""};
}

std::string entity_text(const ComponentVpdRecord& record) {
    return entity_name(record.entity_id) + ' ' + std::to_string(record.entity_instance);
}

bool has_oem_processor_record(const ComponentVpdRecord& record) { return record.vpd_format == oem_processor_format; }

std::vector<std::string> oem_processor_texts(const OemCpuRecord& record) {
    std::vector<std::string> texts;
    for (const auto& text : record.text) {
        if (text[0] != '\0') texts.push_back(field_text(text));
    }
    return texts;
}

std::span<const uint8_t> oem_processor_bytes(const OemCpuRecord& record) {
    return {record.raw, std::min<std::size_t>(record.raw_length, sizeof record.raw)};
}

uint32_t logical_processors(const ComponentVpdRecord& record) {
    if (!has_oem_processor_record(record)) return 0;
    const std::string text = field_text(record.oem_cpu.text[logical_processor_text]);
    uint32_t count = 0;
    std::from_chars(text.data(), text.data() + text.size(), count);
    return count;
}

Json component_json(const ComponentVpdRecord& record) {
    Json object;
    object["FruId"] = record.fru_id;
    object["Name"] = field_text(record.name);
    object["EntityId"] = record.entity_id;
    object["EntityName"] = entity_name(record.entity_id);
    object["EntityInstance"] = record.entity_instance;
    const Identity who = identity(record);
    add_text(object, "Manufacturer", who.manufacturer);
    add_text(object, "PartNumber", who.part_number);
    add_text(object, "SerialNumber", who.serial_number);
    add_text(object, "ManufactureDate", who.manufactured);
    add_text(object, "Version", field_text(record.product_version));
    add_text(object, "BoardCustomField", field_text(record.board_extra));
    add_text(object, "Ppin", field_text(record.ppin));
    add_text(object, "FirmwareVersion", field_text(record.psu_fw.primary));
    add_text(object, "SecondaryFirmwareVersion", field_text(record.psu_fw.secondary));
    if (has_oem_processor_record(record)) object["OemProcessorRecord"] = oem_processor_json(record.oem_cpu);
    if (is_decoded(record.spd_info)) add_module_properties(object, record.spd_info, geometry_of(record.spd_info));
    return object;
}

}  // namespace vpdd::cli
