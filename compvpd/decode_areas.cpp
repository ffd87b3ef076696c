// SPDX-License-Identifier: Apache-2.0
#include "compvpd/decode_areas.h"

#include "base/dates.h"
#include "base/log_line.h"
#include "base/text.h"
#include "compvpd/locator.h"

namespace {

// IPMI FRU 11 and 12: offsets in the board and product info areas.
constexpr int board_date = 3;
constexpr int board_first_field = 6;
constexpr int product_first_field = 3;

/// Fills a text of the record. A field without data empties it; behind the end of the fields it stays.
template <std::size_t Size>
void set_text(char (&target)[Size], vpdd::WalkedField& field) {
    if (field.decoded) vpdd::assign_text(target, field.text());
}

template <std::size_t Size>
void take_text(char (&target)[Size], vpdd::FieldWalk& walk) {
    vpdd::WalkedField field = walk.next();
    set_text(target, field);
}

void set_board_date(const uint8_t* board, ComponentVpdRecord& record) {
    int year = 0;
    int month = 0;
    int day = 0;
    fru_minutes_to_date(board + board_date, &year, &month, &day);
    vpdd::assign_date(record.mfg_date, year, month, day);
}

}  // namespace

namespace vpdd {

BoardFields decode_board(const uint8_t* board, const FruImage& image, ComponentVpdRecord& record) {
    set_board_date(board, record);

    FieldWalk walk(board + board_first_field, image.end());
    take_text(record.mfg_id, walk);
    walk.skip(1);  // product name
    take_text(record.serial_number, walk);
    WalkedField part_number = walk.next();
    set_text(record.part_number, part_number);
    walk.skip(1);  // FRU file id
    take_text(record.board_extra, walk);
    return {part_number, walk.position()};
}

void decode_psu_versions(const Run& run, const BoardFields& fields, const FruImage& image, ComponentVpdRecord& record) {
    if (record.entity_id != entity_power_supply) return;
    if (get_psu_fw_version(fields.after_fields, &record.psu_fw, image.end()) == 0) return;
    log_spaced_line(log_error, run.function, "get %s fw version failed", record.name);
}

WalkedField decode_product(const uint8_t* product, const FruImage& image, ComponentVpdRecord& record) {
    FieldWalk walk(product + product_first_field, image.end());
    take_text(record.mfg_id, walk);
    walk.skip(1);  // product name
    const WalkedField model = walk.next();
    WalkedField version = walk.next();
    set_text(record.product_version, version);
    set_text(record.part_number, version);
    take_text(record.serial_number, walk);
    return model;
}

bool has_any_area(const FruAreaPointers& areas) {
    return areas.board != nullptr || areas.product != nullptr || areas.chassis != nullptr ||
           areas.multirecord != nullptr;
}

}  // namespace vpdd
