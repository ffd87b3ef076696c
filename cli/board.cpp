// SPDX-License-Identifier: Apache-2.0
#include "cli/board.h"

#include <algorithm>
#include <charconv>
#include <nlohmann/json.hpp>
#include <set>
#include <stdexcept>

#include "cli/cached_records.h"
#include "cli/component.h"
#include "cli/display_text.h"
#include "cli/entity_names.h"
#include "cli/fru_diagnosis.h"
#include "cli/memory_module.h"

namespace vpdd::cli {

namespace {

bool is_memory(const ComponentVpdRecord& record) {
    return record.entity_id == entity_memory_device || is_decoded(record.spd_info);
}

SlotContent content_of(const ComponentVpdRecord& record) {
    if (record.is_cached == 1) return {SlotState::populated, record, ""};
    uint32_t size = 0;
    if (read_fru_size(record.fru_id, &size) == VPDD_IPMI_NOT_PRESENT) return {SlotState::empty, record, ""};
    return {SlotState::unread, record, why_unread(record)};
}

/// The last number in the name, else the entity instance.
uint32_t slot_number(const ComponentVpdRecord& record) {
    constexpr const char* digits = "0123456789";
    const std::string name = field_text(record.name);
    const std::size_t last = name.find_last_of(digits);
    if (last == std::string::npos) return record.entity_instance;
    const std::size_t before = name.find_last_not_of(digits, last);
    const std::size_t first = before == std::string::npos ? 0 : before + 1;
    uint32_t number = 0;
    std::from_chars(name.data() + first, name.data() + last + 1, number);
    return number;
}

std::string counted(std::size_t count, const char* what) {
    return std::to_string(count) + ' ' + what + (count == 1 ? "" : "s");
}

std::string name_of(const ComponentVpdRecord& record) {
    return field_text(record.name) + " (FRU " + std::to_string(record.fru_id) + ')';
}

const char* state_name(SlotState state) {
    switch (state) {
        case SlotState::empty:
            return "Empty";
        case SlotState::populated:
            return "Populated";
        case SlotState::unread:
            return "NotRead";
        case SlotState::unknown:
            break;
    }
    return "Unknown";
}

Json content_json(const SlotContent& content) {
    Json object{{"State", state_name(content.state)}};
    if (!content.reason.empty()) object["Reason"] = content.reason;
    const bool is_there = content.state == SlotState::populated || content.state == SlotState::unread;
    if (is_there) object["Module"] = component_json(content.record);
    return object;
}

/// The place in the words of Redfish, where the position on the channel is called slot as well.
Json slot_json(const Slot& slot) {
    Json object{{"Slot", slot.place.slot},
                {"MemoryLocation",
                 {{"Socket", slot.place.socket},
                  {"MemoryController", slot.place.controller},
                  {"Channel", slot.place.channel},
                  {"Slot", slot.place.dimm_in_channel}}}};
    object.update(content_json(slot.content));
    return object;
}

}  // namespace

std::size_t Board::count(SlotState state) const {
    const auto has = [&](const Slot& slot) { return slot.content.state == state; };
    return static_cast<std::size_t>(std::ranges::count_if(slots, has));
}

uint32_t Board::socket_count() const {
    std::set<uint32_t> sockets;
    for (const Slot& slot : slots) sockets.insert(slot.place.socket);
    return static_cast<uint32_t>(sockets.size());
}

uint64_t Board::memory_mib() const {
    uint64_t total = 0;
    for (const Slot& slot : slots) total += capacity_mib(slot.content.record.spd_info).value_or(0);
    return total;
}

bool Board::is_complete() const { return count(SlotState::unread) == 0 && without_slot.empty(); }

std::vector<SlotContent> memory_contents() {
    std::vector<SlotContent> contents;
    for (const ComponentVpdRecord& record : cached_records(published_variables())) {
        if (is_memory(record)) contents.push_back(content_of(record));
    }
    return contents;
}

Board board_of_platform() {
    const DimmSlotMapRef* const map = GetMemSlot();
    if (map == nullptr) throw std::runtime_error("the library has no slot map of this platform");
    Board board;
    const auto row = std::ranges::find_if(platMemSlots, [&](const PlatMemSlot& known) { return &known.map == map; });
    board.platform_id = row->platform_id;
    for (uint32_t index = 0; index < map->count; ++index) board.slots.push_back({map->rows[index], {}});
    return board;
}

void populate(Board& board, const std::vector<SlotContent>& contents) {
    for (Slot& slot : board.slots) slot.content.state = SlotState::empty;
    for (const SlotContent& content : contents) {
        if (content.state == SlotState::empty) continue;
        const uint32_t number = slot_number(content.record);
        const auto slot = std::ranges::find_if(board.slots, [&](const Slot& one) { return one.place.slot == number; });
        if (slot == board.slots.end() || slot->content.state != SlotState::empty) {
            board.without_slot.push_back(content);
        } else {
            slot->content = content;
        }
    }
}

std::string platform_text(uint32_t platform_id) { return hex_number(platform_id, 8); }

std::string summary(const Board& board) {
    std::string text = counted(board.socket_count(), "socket") + ", " + counted(board.slots.size(), "slot");
    if (board.server.empty()) return text;
    text += ", " + counted(board.count(SlotState::populated), "module");
    return text + ", " + capacity_text(board.memory_mib());
}

std::string slot_text(const SlotContent& content) {
    switch (content.state) {
        case SlotState::empty:
            return "empty";
        case SlotState::unread:
            return "not read";
        case SlotState::populated:
            break;
        case SlotState::unknown:
            return "";
    }
    const SpdInfo& spd = content.record.spd_info;
    const auto capacity = capacity_mib(spd);
    const auto rate = data_rate(spd);
    return (capacity ? capacity_text(*capacity) : "? GiB") + (rate ? ' ' + std::to_string(*rate) : "");
}

std::vector<std::string> notes(const Board& board) {
    std::vector<std::string> sentences;
    for (const Slot& slot : board.slots) {
        if (slot.content.state != SlotState::unread) continue;
        sentences.push_back("Slot " + std::to_string(slot.place.slot) + ", " + name_of(slot.content.record) +
                            ": not read: " + slot.content.reason);
    }
    for (const SlotContent& content : board.without_slot) {
        sentences.push_back(name_of(content.record) + ": " + slot_text(content) + ": no free slot of this board");
    }
    return sentences;
}

Table board_table(const Board& board) {
    Table table({{"Slot", Align::right},
                 {"Socket", Align::right},
                 {"Controller", Align::right},
                 {"Channel", Align::right},
                 {"Position", Align::right},
                 {"Size, MT/s"},
                 {"Maker"},
                 {"Part number"},
                 {"Serial number"}},
                1);
    for (const Slot& slot : board.slots) {
        const DimmSlotMapRow& place = slot.place;
        const Identity who = slot.content.state == SlotState::populated ? identity(slot.content.record) : Identity{};
        table.add({std::to_string(place.slot), std::to_string(place.socket), std::to_string(place.controller),
                   std::to_string(place.channel), std::to_string(place.dimm_in_channel), slot_text(slot.content),
                   who.manufacturer, who.part_number, who.serial_number});
    }
    return table;
}

Json board_json(const Board& board) {
    Json slots = Json::array();
    for (const Slot& slot : board.slots) slots.push_back(slot_json(slot));
    Json object{{"PlatformId", platform_text(board.platform_id)},
                {"SocketCount", board.socket_count()},
                {"SlotCount", board.slots.size()},
                {"Slots", std::move(slots)}};
    if (board.server.empty()) return object;
    object["ModuleCount"] = board.count(SlotState::populated);
    object["CapacityMiB"] = board.memory_mib();
    object["WithoutSlot"] = Json::array();
    for (const SlotContent& content : board.without_slot) object["WithoutSlot"].push_back(content_json(content));
    return object;
}

}  // namespace vpdd::cli
