// SPDX-License-Identifier: Apache-2.0
#include "cli/memory_module.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <iterator>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string_view>

#include "cli/display_text.h"

namespace vpdd::cli {

namespace {

// The decoders give the size of this maker's flash modules in GB, of every other module in MB.
constexpr std::string_view flash_module_maker = "Diablo Technologies";

constexpr std::size_t ddr3_serial_digits = 8;   ///< serial number only
constexpr std::size_t udi_bytes = 7;            ///< bytes, not text
constexpr std::size_t full_serial_digits = 18;  ///< maker 4, location 2, date 4, serial number 8

/// The DDR5 decoder sets no clock period and keeps the number of ranks instead of its code.
bool has_ddr5_layout(const SpdInfo& spd) {
    const std::string type = field_text(spd.device_type);
    return type == "DDR5" || spd.AEP_Flag == 2 || (type == "NVM" && spd.sdram_clock == 0.0F);
}

bool is_ddr3(const SpdInfo& spd) { return field_text(spd.device_type) == "DDR3"; }

/// "DDR4-2933 (1466 MHz clock)" names 2933.
std::optional<uint32_t> rate_in_name(const std::string& frequency_text) {
    const std::size_t dash = frequency_text.find('-');
    if (dash == std::string::npos) return std::nullopt;
    const unsigned long rate = std::strtoul(frequency_text.c_str() + dash + 1, nullptr, 10);
    if (rate == 0) return std::nullopt;
    return static_cast<uint32_t>(rate);
}

/// Rates come from clock periods in whole picoseconds and from rounded speed classes: half a percent is the same speed,
/// and the next speed class is five percent away.
Agreement compare_rates(std::optional<uint32_t> spd, std::optional<uint32_t> smbios) {
    if (!spd.has_value() || !smbios.has_value()) return Agreement::unknown;
    const uint64_t difference = *spd > *smbios ? *spd - *smbios : *smbios - *spd;
    return difference * 200 <= *spd ? Agreement::agrees : Agreement::differs;
}

/// A speed word of SMBIOS type 17: 0 is unknown, 0xFFFF refers to an extended field.
std::optional<uint32_t> smbios_rate(uint32_t word) {
    if (word == 0 || word >= 0xFFFF) return std::nullopt;
    return word;
}

// SMBIOS type 17, Size at offset 0x0C.
constexpr uint32_t size_unknown = 0xFFFF;
constexpr uint32_t size_extended = 0x7FFF;
constexpr uint32_t size_in_kilobytes = 0x8000;
constexpr uint64_t smallest_extended_mib = 0x7FFF;

void compare_sizes(SmbiosCheck& check, std::optional<uint64_t> mib, uint32_t word) {
    if (word == 0 || word >= size_unknown) return;
    if (word == size_extended) {
        check.size_is_extended = true;
        if (mib.has_value() && *mib < smallest_extended_mib) check.size = Agreement::differs;
        return;
    }
    const bool kilobytes = (word & size_in_kilobytes) != 0;
    check.size_mib = kilobytes ? (word & ~size_in_kilobytes) / 1024 : word;
    if (mib.has_value()) check.size = *mib == *check.size_mib ? Agreement::agrees : Agreement::differs;
}

const char* agreement_name(Agreement agreement) {
    switch (agreement) {
        case Agreement::agrees:
            return "Agrees";
        case Agreement::differs:
            return "Differs";
        case Agreement::unknown:
            break;
    }
    return "Unknown";
}

std::string rate_part(const char* name, Agreement agreement, std::optional<uint32_t> rate) {
    if (agreement == Agreement::unknown) return std::string(name) + " unknown";
    return std::string(name) + " " + std::to_string(*rate);
}

std::string size_part(const SmbiosCheck& check) {
    if (check.size_is_extended) return "size 32 GiB or more";
    return check.size_mib.has_value() ? "size " + capacity_text(*check.size_mib) : "size unknown";
}

template <class Value>
Json value_or_null(const std::optional<Value>& value) {
    return value.has_value() ? Json(*value) : Json(nullptr);
}

/// The shortest number that reads back as the same float; as a double it would show the digits of its binary form.
Json shortest(float value) {
    char text[32];
    const auto result = std::to_chars(text, std::end(text) - 1, value);
    *result.ptr = '\0';
    return std::strtod(text, nullptr);
}

template <std::size_t Size>
Json raw_text(const char (&field)[Size]) {
    return std::string(field, strnlen(field, Size));
}

}  // namespace

bool is_decoded(const SpdInfo& spd) { return spd.device_type[0] != '\0'; }

bool has_manufacture_date(const SpdInfo& spd) { return spd.mfg_week >= 1 && spd.mfg_week <= 53 && spd.mfg_year <= 99; }

std::optional<uint64_t> capacity_mib(const SpdInfo& spd) {
    if (spd.ram_size == 0) return std::nullopt;
    const uint64_t unit = field_text(spd.mfg_id) == flash_module_maker ? 1024 : 1;
    return spd.ram_size * unit;
}

std::string capacity_text(uint64_t mib) {
    return mib % 1024 == 0 ? std::to_string(mib / 1024) + " GiB" : std::to_string(mib) + " MiB";
}

std::optional<uint32_t> data_rate(const SpdInfo& spd) {
    if (spd.sdram_frequency <= 0) return std::nullopt;
    const auto frequency = static_cast<uint32_t>(spd.sdram_frequency);
    if (has_ddr5_layout(spd)) return frequency;
    const std::optional<uint32_t> named = rate_in_name(field_text(spd.sdram_freq_string));
    // A period of zero leaves a clock that no memory has.
    constexpr uint32_t fastest_clock_mhz = 9999;
    if (!named.has_value() && frequency > fastest_clock_mhz) return std::nullopt;
    return named.value_or(frequency * 2);
}

Geometry geometry_of(const SpdInfo& spd) {
    if (is_ddr3(spd)) return {};
    const uint32_t ranks = has_ddr5_layout(spd) ? spd.module_ranks : spd.module_ranks + 1U;
    return {ranks, spd.module_bus_width};
}

Geometry geometry_of(const SpdInfo& spd, std::span<const uint8_t> image) {
    if (!is_ddr3(spd)) return geometry_of(spd);
    const auto size = static_cast<uint32_t>(image.size());
    // JEDEC DDR3 SPD byte 7: code 4 stands for 8 ranks; every other code is one less than the count.
    constexpr uint32_t eight_ranks = 4;
    const uint32_t code = get_dimm_ranks(image.data(), size);
    return {code == eight_ranks ? 8 : code + 1, get_dimm_bus_width(image.data(), size)};
}

std::string module_serial_number(const SpdInfo& spd) {
    const std::string text = field_text(spd.serial_number);
    return text.size() == full_serial_digits ? text.substr(full_serial_digits - ddr3_serial_digits) : text;
}

std::string manufacturing_location(const SpdInfo& spd) {
    const std::string text = field_text(spd.serial_number);
    return text.size() == full_serial_digits ? text.substr(4, 2) : std::string();
}

std::vector<uint32_t> cas_latencies(const SpdInfo& spd) {
    std::vector<uint32_t> values;
    std::istringstream list(field_text(spd.cas_latencies_supports));
    for (std::string item; std::getline(list, item, ',');) {
        const unsigned long value = std::strtoul(item.c_str(), nullptr, 10);
        if (value != 0) values.push_back(static_cast<uint32_t>(value));
    }
    std::sort(values.begin(), values.end());
    return values;
}

std::string type_text(const SpdInfo& spd) {
    return std::string(trimmed(field_text(spd.device_type) + ' ' + field_text(spd.module_type)));
}

std::string ecc_text(const SpdInfo& spd) { return spd.ecc_bits == 0 ? "none" : std::to_string(spd.ecc_bits) + " bit"; }

SmbiosCheck compare_with_smbios(const SpdInfo& spd) {
    SmbiosCheck check;
    compare_sizes(check, capacity_mib(spd), spd.smbios_size);
    check.speed_mts = smbios_rate(spd.smbios_speed);
    check.configured_speed_mts = smbios_rate(spd.config_speed);
    check.speed = compare_rates(data_rate(spd), check.speed_mts);
    check.configured_speed = compare_rates(data_rate(spd), check.configured_speed_mts);
    return check;
}

std::string smbios_text(const SmbiosCheck& check) {
    const bool nothing_known = !check.size_mib.has_value() && !check.size_is_extended && !check.speed_mts.has_value() &&
                               !check.configured_speed_mts.has_value();
    if (nothing_known) return "unknown";
    std::string text;
    const auto append = [&text](const std::string& part) { text += (text.empty() ? "" : ", ") + part; };
    const bool size_is_open = check.size_is_extended && check.size == Agreement::unknown;
    if (check.size != Agreement::agrees && !size_is_open) append(size_part(check));
    if (check.speed != Agreement::agrees) append(rate_part("speed", check.speed, check.speed_mts));
    if (check.configured_speed != Agreement::agrees) {
        append(rate_part("configured", check.configured_speed, check.configured_speed_mts));
    }
    if (!text.empty()) return text;
    return size_is_open ? "speeds agree" : "agrees";
}

void add_module_properties(Json& object, const SpdInfo& spd, const Geometry& geometry) {
    const SmbiosCheck check = compare_with_smbios(spd);
    object["MemoryDeviceType"] = field_text(spd.device_type);
    object["BaseModuleType"] = field_text(spd.module_type);
    object["CapacityMiB"] = value_or_null(capacity_mib(spd));
    object["AllowedSpeedsMHz"] = Json::array();
    if (const auto rate = data_rate(spd)) object["AllowedSpeedsMHz"].push_back(*rate);
    object["OperatingSpeedMhz"] = value_or_null(check.configured_speed_mts);
    object["RankCount"] = value_or_null(geometry.ranks);
    object["DataWidthBits"] = value_or_null(geometry.data_width);
    object["BusWidthBits"] = geometry.data_width ? Json(*geometry.data_width + spd.ecc_bits) : Json(nullptr);
    object["EccBits"] = spd.ecc_bits;
    object["CasLatencies"] = cas_latencies(spd);
    object["Smbios"] = smbios_json(check);
}

Json smbios_json(const SmbiosCheck& check) {
    Json object;
    object["Size"] = agreement_name(check.size);
    object["SizeMiB"] = value_or_null(check.size_mib);
    if (check.size_is_extended) object["SizeIsExtended"] = true;
    object["Speed"] = agreement_name(check.speed);
    object["SpeedMTs"] = value_or_null(check.speed_mts);
    object["ConfiguredSpeed"] = agreement_name(check.configured_speed);
    object["ConfiguredSpeedMTs"] = value_or_null(check.configured_speed_mts);
    return object;
}

Json raw_record_json(const SpdInfo& spd) {
    return {
        {"description", raw_text(spd.description)},
        {"part_number", raw_text(spd.part_number)},
        {"serial_number", raw_text(spd.serial_number)},
        {"udi_part_number", hex_bytes({reinterpret_cast<const uint8_t*>(spd.udi_part_number), udi_bytes})},
        {"mfg_id", raw_text(spd.mfg_id)},
        {"device_type", raw_text(spd.device_type)},
        {"module_type", raw_text(spd.module_type)},
        {"sdram_freq_string", raw_text(spd.sdram_freq_string)},
        {"vendor_product_id", spd.vendor_product_id},
        {"module_vendor_id", spd.module_vendor_id},
        {"subsys_vendor_id", spd.subsys_vendor_id},
        {"subsys_device_id", spd.subsys_device_id},
        {"sdram_row_bits", spd.sdram_row_bits},
        {"sdram_col_bits", spd.sdram_col_bits},
        {"module_voltage", spd.module_voltage},
        {"module_ranks", spd.module_ranks},
        {"device_width", spd.device_width},
        {"module_bus_width", spd.module_bus_width},
        {"fine_timebase", shortest(spd.fine_timebase)},
        {"medium_timebase", shortest(spd.medium_timebase)},
        {"sdram_frequency", spd.sdram_frequency},
        {"sdram_clock", shortest(spd.sdram_clock)},
        {"cas_latencies_supports", raw_text(spd.cas_latencies_supports)},
        {"cas_latency", shortest(spd.cas_latency)},
        {"crc", spd.crc},
        {"mfg_week", spd.mfg_week},
        {"mfg_year", spd.mfg_year},
        {"ram_size", spd.ram_size},
        {"speed_in_MBpsec", spd.speed_in_MBpsec},
        {"ecc_bits", spd.ecc_bits},
        {"config_speed", spd.config_speed},
        {"AEP_Flag", spd.AEP_Flag},
        {"smbios_size", spd.smbios_size},
        {"smbios_speed", spd.smbios_speed},
    };
}

}  // namespace vpdd::cli
