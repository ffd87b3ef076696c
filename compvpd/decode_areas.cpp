// SPDX-License-Identifier: Apache-2.0
#include "base/dates.h"
#include "base/log_line.h"
#include "base/text.h"
#include "compvpd/decode.h"
#include "compvpd/locator.h"
#include "ipmi/field_walk.h"
#include "ipmi/multirecord.h"

namespace {

// IPMI FRU 11 and 12: offsets in the board and product info areas.
constexpr int board_date = 3;
constexpr int board_first_field = 6;
constexpr int product_first_field = 3;

/// Fills a text of the record with the next field. A walk that has ended leaves it; a field without data empties it.
template <std::size_t Size>
void take_text(vpdd::FieldWalk& walk, char (&target)[Size]) {
    vpdd::WalkedField field = walk.next();
    if (field.decoded) vpdd::assign_text(target, field.text());
}

void decode_board(const uint8_t* board, const uint8_t* end, ComponentVpdRecord& record) {
    int year = 0;
    int month = 0;
    int day = 0;
    fru_minutes_to_date(board + board_date, &year, &month, &day);
    vpdd::assign_date(record.mfg_date, year, month, day);

    vpdd::FieldWalk walk(board + board_first_field, end);
    take_text(walk, record.mfg_id);
    walk.skip(1);  // product name
    take_text(walk, record.serial_number);
    take_text(walk, record.part_number);
    walk.skip(1);  // FRU file id
    take_text(walk, record.board_extra);

    if (record.entity_id != vpdd::entity_power_supply) return;
    if (get_psu_fw_version(walk.position(), &record.psu_fw, end) != 0) {
        vpdd::log_spaced_line(vpdd::log_error, "CreateComponentVPDCache", "get %s fw version failed", record.name);
    }
}

void decode_product(const uint8_t* product, const uint8_t* end, ComponentVpdRecord& record) {
    vpdd::FieldWalk walk(product + product_first_field, end);
    take_text(walk, record.mfg_id);
    walk.skip(2);  // product name, part/model number
    vpdd::WalkedField version = walk.next();
    if (version.decoded) {
        vpdd::assign_text(record.product_version, version.text());
        vpdd::assign_text(record.part_number, version.text());
    }
    take_text(walk, record.serial_number);
}

}  // namespace

namespace vpdd {

void decode_fru_areas(const FruImage& image, ComponentVpdRecord& record) {
    FruAreaPointers areas{};
    parse_fru_header(image.bytes(), &areas);
    if (areas.board != nullptr) {
        decode_board(areas.board, image.end(), record);
    } else if (areas.product != nullptr) {
        decode_product(areas.product, image.end(), record);
    }
    const bool has_area = areas.board != nullptr || areas.product != nullptr || areas.chassis != nullptr;
    record.is_cached = has_area || areas.multirecord != nullptr ? 1 : 0;
    process_multirecords(areas.multirecord, image.end(), &record);
}

}  // namespace vpdd
