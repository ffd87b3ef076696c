// SPDX-License-Identifier: Apache-2.0
// SMBIOS structures through the look-ups.
// Input: options, count, serial number up to a zero, table. Options: bit 0 sets the groups' counts to `count`, bit 1
// logs debug messages, bits 2 to 7 the room for a string.
#include <cstring>
#include <deque>
#include <memory>
#include <string>

#include "fuzz/input.h"
#include "fuzz/platform.h"
#include "host/images/smbios_image.h"

using namespace vpdd::fuzz;

namespace {

/// Formatted area and strings with the two zeros behind them; the parser has made sure that they are there.
std::span<const uint8_t> structure_at(const uint8_t* raw) {
    const uint8_t* end = raw + raw[1];
    while (end[0] != 0 || end[1] != 0) ++end;
    return {raw, end + 2};
}

/// Each structure in a block of exactly its size.
class ApartTable {
public:
    ApartTable(SmbiosTable* table, std::optional<uint8_t> count) {
        for (SmbiosTypeGroup* group = table->groups; group != nullptr; group = group->next) {
            if (count) group->count = *count;
            for (SmbiosEntry* entry = group->entries; entry != nullptr; entry = entry->next) {
                const auto bytes = structure_at(entry->raw);
                blocks_.emplace_back(bytes.begin(), bytes.end()).shrink_to_fit();
                entry->raw = blocks_.back().data();
            }
        }
    }

private:
    std::deque<Bytes> blocks_;
};

std::string text_of(Input& input) {
    std::string text;
    while (!input.is_empty()) {
        const uint8_t character = input.byte();
        if (character == 0) break;
        text.push_back(static_cast<char>(character));
    }
    return text;
}

void get_strings(SmbiosTypeGroup* group, uint32_t room) {
    const auto text = std::make_unique<char[]>(room);
    for (const SmbiosEntry* entry = group->entries; entry != nullptr; entry = entry->next) {
        for (int index = -1; index < 9; ++index) {
            if (getStringFromDimmSmbiosEntry(entry, index, text.get(), room) != 0) continue;
            require(strnlen(text.get(), room) < room, "a string's end");
        }
    }
}

void look_up(SmbiosTable* table, const std::string& key, uint32_t room) {
    for (SmbiosTypeGroup* group = table->groups; group != nullptr; group = group->next) get_strings(group, room);

    const auto text = std::make_unique<char[]>(room);
    vpdd_get_serial_num_from_smbios_by_serial_number(table, key.c_str(), text.get(), room);
    uint32_t size = 0;
    uint32_t speed = 0;
    vpdd_get_config_speed_from_smbios_by_serial_number(table, key.c_str(), &speed);
    vpdd_get_size_speed_from_smbios_by_serial_number(table, key.c_str(), &size, &speed);
    vpdd_get_size_speed_from_smbios_by_device_locator(table, key.c_str(), &size, &speed);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    Input input({data, size});
    const uint8_t options = input.byte();
    const uint8_t count = input.byte();
    const std::string key = text_of(input);
    const auto table = vpdd::images::parse_smbios_table(input.rest());
    if (table == nullptr) return 0;

    const Round round;
    const ApartTable apart(table->get(), (options & 1U) != 0 ? std::optional(count) : std::nullopt);
    vpdd_smbios_debug = (options & 2U) != 0 ? 1 : 0;
    look_up(table->get(), key, options >> 2U);
    vpdd_smbios_debug = 0;
    return 0;
}
