// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>

#include "cli/command.h"
#include "cli/component.h"
#include "cli/display_text.h"
#include "cli/fru_diagnosis.h"
#include "cli/input_file.h"
#include "cli/memory_module.h"
#include "cli/server_session.h"
#include "cli/spd_checksums.h"
#include "cli/spd_layout.h"
#include "cli/table.h"

namespace vpdd::cli {

namespace {

struct Arguments {
    std::string file;
    bool json = false;
    SessionOptions session;
};

// The smallest image with the module's type, geometry and first checksum, and the most that a decoder reads.
constexpr std::size_t smallest_image = 128;
constexpr std::size_t largest_image = 1024;

constexpr uint8_t module_fru_id = 1;

/// What there is to say about an image.
struct SpdReport {
    std::string file;
    std::vector<uint8_t> image;
    ComponentVpdRecord record;
    bool decoded;
    std::string not_decoded_because;
    std::vector<SpdChecksum> checksums;
    std::optional<int> library_check;  ///< result of check_spd_crc(), for the generations that it knows
    std::string dram_manufacturer;
    Geometry geometry;
    std::vector<std::string> notes;
};

/// The record that the component cache makes of an image.
ComponentVpdRecord decode(std::span<const uint8_t> image, const SessionOptions& options) {
    ServerSession session(options);
    session.open_module(image.first(std::min(image.size(), largest_image)));
    session.create_cache();
    ComponentVpdRecord record{};
    uint32_t length = 0;
    if (GetComponentVPDByFruID(&length, sizeof record, &module_fru_id, &record) != 0) {
        throw std::runtime_error("the library has no record of the module");
    }
    return record;
}

/// The cache refuses a DDR3 image with a wrong checksum. A person wants to see what is in it all the same, so that its
/// copy gets the right one; the report says what is wrong.
std::vector<uint8_t> with_right_checksum(std::vector<uint8_t> image, const std::vector<SpdChecksum>& checksums) {
    const bool refused = image[spd_memory_type] == memory_ddr3 && checksums.front().state == ChecksumState::wrong;
    if (!refused) return image;
    image[spd_crc] = __getlsb(checksums.front().calculated);
    image[spd_crc + 1] = __getmsb(checksums.front().calculated);
    return image;
}

/// Bytes that the decoder of a generation reads.
std::size_t decoded_size(std::span<const uint8_t> image) {
    switch (image[spd_memory_type]) {
        case memory_ddr3:
            return 176;
        case memory_ddr5:
            return 1024;
        default:
            return image[0] == nvdimm_ddr5_layout ? 1024 : 512;
    }
}

/// The decoders look for what they need, however short the image is.
std::vector<uint8_t> padded(std::vector<uint8_t> image) {
    image.resize(std::max(image.size(), largest_image));
    return image;
}

void look_at_bytes(SpdReport& report) {
    const std::vector<uint8_t> image = padded(report.image);

    const char* name = nullptr;
    if (parse_manufacturer_id(image.data(), largest_image, &name) == 0) report.dram_manufacturer = name;
    const uint8_t memory_type = image[spd_memory_type];
    if (memory_type == memory_ddr3 || memory_type == memory_ddr4 || memory_type == memory_nvdimm) {
        const int32_t expected = stored_crc(image);
        report.library_check = check_spd_crc(image.data(), largest_image, &expected);
    }
}

void decode_module(SpdReport& report, const SessionOptions& options) {
    const std::vector<uint8_t> readable = with_right_checksum(report.image, report.checksums);
    report.not_decoded_because = why_module_not_decoded(readable);
    if (!report.not_decoded_because.empty()) return;
    report.record = decode(readable, options);
    report.decoded = report.record.is_cached == 1;
    if (!report.decoded) report.not_decoded_because = "the library did not take the image";
    report.geometry = geometry_of(report.record.spd_info, padded(readable));
    if (readable != report.image) {
        report.record.spd_info.crc = stored_crc(report.image);
        report.notes.emplace_back("the component cache refuses this module because of its checksum");
    }
    const std::size_t wanted = decoded_size(report.image);
    if (report.image.size() < wanted) {
        report.notes.push_back("the image ends before byte " + std::to_string(wanted) + ": what is missing reads as 0");
    }
}

SpdReport examine(const Arguments& arguments) {
    SpdReport report{};
    report.file = arguments.file;
    report.image = read_image(arguments.file);
    if (report.image.size() < smallest_image) {
        throw BadInput(displayable(arguments.file) + ": " + std::to_string(report.image.size()) +
                       " bytes are too few for an SPD image, which has 128 or more");
    }
    report.checksums = spd_checksums(report.image);
    look_at_bytes(report);
    decode_module(report, arguments.session);
    return report;
}

bool is_complete(const SpdReport& report) {
    const auto is_right = [](const SpdChecksum& checksum) { return checksum.state == ChecksumState::right; };
    return report.decoded && report.notes.empty() &&
           std::all_of(report.checksums.begin(), report.checksums.end(), is_right);
}

/// The record's transfer rate leaves the fine correction of the cycle time out: for some modules it is another speed
/// than that of the line on which it would stand.
bool is_rate_of_speed(const SpdInfo& spd, const Geometry& geometry) {
    constexpr uint32_t usual_width = 64;  // bits
    const uint64_t expected = uint64_t{data_rate(spd).value_or(0)} * geometry.data_width.value_or(usual_width) / 8;
    const uint64_t rate = spd.speed_in_MBpsec;
    const uint64_t difference = rate > expected ? rate - expected : expected - rate;
    return difference * 100 <= expected;
}

std::string speed_text(const SpdInfo& spd, const Geometry& geometry) {
    const auto rate = data_rate(spd);
    const std::string named = field_text(spd.sdram_freq_string);
    std::string text = rate ? std::to_string(*rate) + " MT/s" : "unknown";
    if (!named.empty()) text += ", " + named;
    if (spd.speed_in_MBpsec != 0 && is_rate_of_speed(spd, geometry))
        text += ", " + std::to_string(spd.speed_in_MBpsec) + " MB/s";
    return text;
}

std::string width_text(const SpdInfo& spd, const Geometry& geometry) {
    std::string text = std::to_string(geometry.data_width.value_or(0)) + " bit";
    text += spd.ecc_bits == 0 ? ", no ECC" : " and " + std::to_string(spd.ecc_bits) + " bit ECC";
    return field_text(spd.device_type) == "DDR5" ? text + " per sub-channel" : text;
}

std::string manufactured_text(const ComponentVpdRecord& record) {
    const SpdInfo& spd = record.spd_info;
    const std::string week = "week " + std::to_string(spd.mfg_week) + ", year " + std::to_string(spd.mfg_year);
    const std::string date = identity(record).manufactured;
    return (date.empty() ? "no date" : date) + " (" + week + ')';
}

std::string latencies_text(const SpdInfo& spd) {
    std::string text;
    for (const uint32_t latency : cas_latencies(spd)) text += (text.empty() ? "" : " ") + std::to_string(latency);
    return text;
}

std::string checksum_text(const SpdChecksum& checksum) {
    switch (checksum.state) {
        case ChecksumState::right:
            return "right (" + hex_number(checksum.stored, 4) + ')';
        case ChecksumState::wrong:
            break;
        case ChecksumState::missing:
            return "missing, the image ends before it";
    }
    return "WRONG: " + hex_number(checksum.stored, 4) + " stored, " + hex_number(checksum.calculated, 4) +
           " calculated";
}

void print_module(std::ostream& out, const SpdReport& report, const Style& style) {
    const SpdInfo& spd = report.record.spd_info;
    const auto size = capacity_mib(spd);
    ValueList module;
    module.add("Type", type_text(spd));
    module.add("Size", size ? capacity_text(*size) : "unknown");
    module.add("Speed", speed_text(spd, report.geometry));
    module.add("Ranks", std::to_string(report.geometry.ranks.value_or(0)));
    module.add("Bus width", width_text(spd, report.geometry));
    module.add("CAS latencies", latencies_text(spd));
    out << '\n' << style.heading("Module") << '\n';
    module.print(out, style);

    const Identity who = identity(report.record);
    const std::string location = manufacturing_location(spd);
    ValueList maker;
    maker.add("Maker", who.manufacturer.empty() ? "unknown" : who.manufacturer);
    maker.add("DRAM maker", report.dram_manufacturer.empty() ? "unknown" : report.dram_manufacturer);
    maker.add("Part number", who.part_number);
    maker.add("Serial number", who.serial_number);
    maker.add("Manufactured", manufactured_text(report.record));
    maker.add("Location", location.empty() ? "" : "0x" + location);
    out << '\n' << style.heading("Identity") << '\n';
    maker.print(out, style);
}

void print_report(std::ostream& out, const SpdReport& report, const Style& style) {
    out << style.heading("SPD image " + displayable(report.file)) << '\n' << "  " << report.image.size() << " bytes\n";
    if (report.decoded) {
        print_module(out, report, style);
    } else {
        out << "  not decoded: " << report.not_decoded_because << '\n';
    }

    ValueList checksums;
    for (const SpdChecksum& checksum : report.checksums) checksums.add(checksum.covers, checksum_text(checksum));
    if (!checksums.empty()) {
        out << '\n' << style.heading("Checksums") << '\n';
        checksums.print(out, style);
    }
    for (const std::string& note : report.notes) out << "\nNote: " << note << '\n';
}

Json checksum_json(const SpdChecksum& checksum) {
    Json object = {{"Covers", checksum.covers}, {"State", checksum_name(checksum.state)}};
    if (checksum.state == ChecksumState::missing) return object;
    object["Stored"] = checksum.stored;
    object["Calculated"] = checksum.calculated;
    return object;
}

Json report_json(const SpdReport& report) {
    Json document = {{"File", report.file}, {"SizeBytes", report.image.size()}, {"Decoded", report.decoded}};
    if (report.decoded) {
        const SpdInfo& spd = report.record.spd_info;
        const Identity who = identity(report.record);
        document["Manufacturer"] = who.manufacturer;
        document["PartNumber"] = who.part_number;
        document["SerialNumber"] = who.serial_number;
        document["ManufactureDate"] = who.manufactured;
        document["ManufacturingLocation"] = manufacturing_location(spd);
        document["DramManufacturer"] = report.dram_manufacturer;
        add_module_properties(document, spd, report.geometry);
        document["Record"] = raw_record_json(spd);
    } else {
        document["Reason"] = report.not_decoded_because;
    }
    document["Checksums"] = Json::array();
    for (const SpdChecksum& checksum : report.checksums) document["Checksums"].push_back(checksum_json(checksum));
    if (report.library_check) document["CheckSpdCrc"] = *report.library_check;
    document["Notes"] = report.notes;
    return document;
}

ExitCode run(const Arguments& arguments) {
    const SpdReport report = examine(arguments);
    if (arguments.json) {
        print_json(std::cout, report_json(report));
    } else {
        print_report(std::cout, report, output_style());
    }
    return is_complete(report) ? ExitCode::ok : ExitCode::incomplete;
}

}  // namespace

Runner declare_spd(CLI::App& verb) {
    auto arguments = std::make_shared<Arguments>();
    verb.add_option("FILE", arguments->file, "The SPD image")->required()->type_name("");
    verb.add_flag("--json", arguments->json, "Print JSON instead of text");
    verb.add_option("--log", arguments->session.log, "Write the library's messages to FILE; - is standard error")
        ->type_name("FILE");
    return [arguments] { return run(*arguments); };
}

}  // namespace vpdd::cli
