// SPDX-License-Identifier: Apache-2.0
#include "host/fru_areas.h"

#include <algorithm>
#include <chrono>

#include "host/images/fru_image.h"
#include "host/server_defaults.h"

namespace vpdd::host {

namespace {

using images::BoardArea;
using images::ChassisArea;
using images::Field;
using images::OemProcessor;
using images::ProductArea;

Field text(const Json& area, const char* key) { return area.value(key, ""); }

std::vector<Field> custom_fields(const Json& area) {
    const auto texts = area.value("custom", std::vector<std::string>{});
    return {texts.begin(), texts.end()};
}

/// Minutes from 1996-01-01 to the day's noon, so that the date is the same in (nearly) every time zone.
uint32_t board_minutes(const std::string& date, const Json::json_pointer& place) {
    using namespace std::chrono;
    const auto number = [&](std::size_t position, std::size_t digits) {
        return static_cast<unsigned>(std::stoul(date.substr(position, digits)));
    };
    const year_month_day manufactured{year(static_cast<int>(number(0, 4))), month(number(5, 2)), day(number(8, 2))};
    constexpr sys_days first = year(1996) / January / 1;
    constexpr sys_days last = year(2027) / November / 24;
    if (!manufactured.ok() || sys_days(manufactured) > last)
        throw DescriptionError(place, "There is no such day, or it is beyond 2027-11-24.");
    return static_cast<uint32_t>(minutes(sys_days(manufactured) - first + 12h).count());
}

ChassisArea chassis_area(const Json& area) {
    constexpr uint8_t rack_mount = 23;
    return {area.value("type", rack_mount), text(area, "part_number"), text(area, "serial_number"),
            custom_fields(area)};
}

BoardArea board_area(const Json& area, const Json::json_pointer& place) {
    BoardArea board{text(area, "manufacturer"), text(area, "product_name"), text(area, "serial_number"),
                    text(area, "part_number"),  text(area, "file_id"),      custom_fields(area)};
    if (area.contains("manufactured")) board.date = board_minutes(area["manufactured"], place / "manufactured");
    return board;
}

ProductArea product_area(const Json& area) {
    ProductArea product{text(area, "manufacturer"), text(area, "product_name"),  text(area, "part_number"),
                        text(area, "version"),      text(area, "serial_number"), text(area, "asset_tag"),
                        text(area, "file_id"),      custom_fields(area)};
    product.language = area.value("language", images::english);
    return product;
}

/// The ninth and tenth custom fields of the board area.
void add_psu_firmware(BoardArea& board, const Json& firmware, const Json::json_pointer& place) {
    constexpr std::size_t fields_before = 8;
    if (board.custom.size() > fields_before)
        throw DescriptionError(place, "The firmware versions leave room for 8 custom fields of the board.");
    board.custom.resize(fields_before);
    board.custom.push_back(text(firmware, "primary"));
    board.custom.push_back(text(firmware, "secondary"));
}

Bytes oem_processor_data(const Json& processor) {
    OemProcessor record;
    record.iana = processor.value("iana", default_iana);
    record.index = Field::binary({processor.value("index", uint8_t{0})});
    std::ranges::copy(processor.value("texts", std::vector<std::string>{}), record.texts.begin());
    record.raw = Field::binary(bytes_of_hex(processor.value("raw", "")));
    return record.data();
}

}  // namespace

Bytes area_image(const Json& areas, const Json::json_pointer& place) try {
    images::FruImage image;
    if (areas.contains("chassis")) image.chassis(chassis_area(areas["chassis"]));
    if (areas.contains("board")) {
        BoardArea board = board_area(areas["board"], place / "board");
        if (areas.contains("psu_firmware")) add_psu_firmware(board, areas["psu_firmware"], place / "psu_firmware");
        image.board(board);
    }
    if (areas.contains("product")) image.product(product_area(areas["product"]));
    if (areas.contains("oem_cpu")) image.multirecord(OemProcessor::record_type, oem_processor_data(areas["oem_cpu"]));
    Bytes bytes = image.build();
    images::append(bytes, images::text_bytes(areas.value("ppin", "")));
    return bytes;
} catch (const std::invalid_argument& reason) {
    throw DescriptionError(place, std::string("The image cannot be made: ") + reason.what() + ".");
}

}  // namespace vpdd::host
