// SPDX-License-Identifier: Apache-2.0
#include "cli/firmware.h"

#include <algorithm>
#include <iterator>
#include <nlohmann/json.hpp>

#include "cli/display_text.h"
#include "cli/library_output.h"
#include "orva_vpdd.h"

namespace vpdd::cli {

namespace {

/// What the library can be asked for, names of older generations included.
constexpr auto image_names = std::to_array<const char*>(
    {"orva_primary", "orva2_primary", "orva3_primary", "orva", "orva2", "orva3", "orva_backup", "orva2_backup",
     "orva3_backup", "orva3_primary_pending", "uefi", "uefi_pending", "qsv", "drvwn", "drvln", "nexol"});

/// The library's word for what cannot be read.
constexpr const char* unreadable = "*";

Firmware firmware_of(const char* image) {
    FirmwareVpd record{};
    uint32_t size = 0;
    GetFirmwareVPD(&size, 0, image, &record);
    return {image,
            field_text(record.name),
            {field_text(record.build_id), field_text(record.build_date), field_text(record.build_version)}};
}

Json text_or_null(const std::string& text) { return text == unreadable ? Json(nullptr) : Json(text); }

}  // namespace

std::size_t Firmware::unreadable_fields() const {
    return static_cast<std::size_t>(std::ranges::count(build, unreadable));
}

std::vector<Firmware> read_firmware(std::ostream* log) {
    const LibraryOutput kept_apart(log);
    std::vector<Firmware> images;
    std::ranges::transform(image_names, std::back_inserter(images), firmware_of);
    return images;
}

bool is_complete(const std::vector<Firmware>& images) {
    return std::ranges::any_of(images, &Firmware::is_there) && std::ranges::none_of(images, &Firmware::is_in_part);
}

Table firmware_table(const std::vector<Firmware>& images) {
    Table table({{"Image"}, {"Name"}, {"Build id"}, {"Date"}, {"Version"}}, 1);
    for (const Firmware& image : images) {
        table.add({image.image, image.name, image.build[0], image.build[1], image.build[2]});
    }
    return table;
}

Json firmware_json(const std::vector<Firmware>& images) {
    Json list = Json::array();
    for (const Firmware& image : images) {
        list.push_back({{"Id", image.image},
                        {"Name", image.name},
                        {"SoftwareId", text_or_null(image.build[0])},
                        {"ReleaseDate", text_or_null(image.build[1])},
                        {"Version", text_or_null(image.build[2])}});
    }
    return {{"Firmware", std::move(list)}};
}

}  // namespace vpdd::cli
