// SPDX-License-Identifier: Apache-2.0
#include "host/chghist/component_record.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace vpdd::host {

namespace {

constexpr uint8_t no_fru = 0xFF;
constexpr uint8_t entity_processor = 0x03;
constexpr uint32_t checked_length = offsetof(ComponentVpdRecord, crc);

template <std::size_t ToSize, std::size_t FromSize>
void copy_text(char (&to)[ToSize], const char (&from)[FromSize]) {
    std::memcpy(to, from, strnlen(from, std::min(FromSize, ToSize - 1)));
}

/// Only a processor's row has these words: its PPIN and the first bytes of its serial number.
void take_processor(const ChangeHistoryRecord& row, ComponentVpdRecord& record) {
    static_assert(sizeof row.cpu_words >= sizeof record.ppin);
    const auto is_set = [](uint32_t word) { return word != 0; };
    if (!std::ranges::any_of(row.cpu_words, is_set)) return;
    record.entity_id = entity_processor;
    std::memcpy(record.ppin, row.cpu_words, sizeof record.ppin - 1);
}

}  // namespace

ComponentVpdRecord component_record(const ChangeHistoryRecord& row) {
    ComponentVpdRecord record{};
    record.fru_id = no_fru;
    record.next_fru_id = no_fru;
    copy_text(record.board_extra, row.board_extra);
    copy_text(record.name, row.name);
    copy_text(record.serial_number, row.serial_number);
    copy_text(record.mfg_id, row.mfg_id);
    copy_text(record.part_number, row.part_number);
    take_processor(row, record);
    record.entity_instance = static_cast<uint8_t>(row.entity_instance);
    record.status = row.status;
    record.timestamp = row.time;
    record.crc = calc_crc(reinterpret_cast<const uint8_t*>(&record), checked_length);
    return record;
}

}  // namespace vpdd::host
