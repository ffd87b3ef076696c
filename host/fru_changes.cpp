// SPDX-License-Identifier: Apache-2.0
#include "host/fru_changes.h"

#include <algorithm>
#include <array>

namespace vpdd::host {

namespace {

constexpr int processor = 3;                  // IPMI 2.0 table 43-13
constexpr int processor_sensor = 7;           // IPMI 2.0 table 42-3
constexpr uint16_t presence_detected = 0x80;  // processor sensor, offset 7

/// Counts a text on in its last place, and in the one before when that begins anew.
std::string counted_on(std::string text, std::span<const std::string_view> alphabets) {
    for (auto place = text.rbegin(); place != text.rend(); ++place) {
        const auto knows = [&](std::string_view alphabet) { return alphabet.find(*place) != std::string_view::npos; };
        const auto alphabet = std::ranges::find_if(alphabets, knows);
        if (alphabet == alphabets.end()) continue;
        const std::size_t next = alphabet->find(*place) + 1;
        const bool begins_anew = next == alphabet->size();
        *place = (*alphabet)[begins_anew ? 0 : next];
        if (!begins_anew) break;
    }
    return text;
}

std::string next_hex_serial_number(std::string digits) {
    constexpr std::array<std::string_view, 1> alphabet{"0123456789ABCDEF"};
    std::ranges::transform(digits, digits.begin(), [](unsigned char digit) { return std::toupper(digit); });
    return counted_on(std::move(digits), alphabet);
}

bool is_absent(const Json& content) { return content.contains("absent"); }

/// The area whose serial number the component cache takes: the board area before the product area.
const char* leading_area(const Json& areas) {
    if (areas.contains("board")) return "board";
    return areas.contains("product") ? "product" : nullptr;
}

std::string serial_number_of(const Json& content) {
    if (content.contains("dimm")) return content["dimm"]["serial_number"];
    if (!content.contains("areas")) return {};
    const Json& areas = content["areas"];
    const char* leading = leading_area(areas);
    return leading != nullptr ? areas[leading].value("serial_number", "") : "";
}

/// All serial numbers of a part change with it, and so does a processor's PPIN.
void swap_areas(Json& areas, const std::optional<std::string>& serial_number) {
    for (const char* name : {"chassis", "board", "product"}) {
        if (!areas.contains(name) || !areas[name].contains("serial_number")) continue;
        areas[name]["serial_number"] = next_serial_number(areas[name]["serial_number"]);
    }
    if (areas.contains("ppin")) areas["ppin"] = next_serial_number(areas["ppin"]);
    const char* leading = leading_area(areas);
    if (serial_number && leading != nullptr) areas[leading]["serial_number"] = *serial_number;
}

Json swapped(Json content, const std::string& name, const std::optional<std::string>& serial_number) {
    if (content.contains("raw")) throw ImpossibleChange(name + " cannot be swapped: its image is a file of its own");
    if (content.contains("dimm")) {
        Json& serial = content["dimm"]["serial_number"];
        serial = serial_number.value_or(next_hex_serial_number(serial));
        return content;
    }
    const std::string former = serial_number_of(content);
    swap_areas(content["areas"], serial_number);
    if (serial_number_of(content) == former) {
        throw ImpossibleChange(name + " cannot be swapped: the part that comes in needs another serial number");
    }
    return content;
}

/// Whether the text is the FRU's name or its id.
bool is_called(const Json& fru, const std::string& text) { return fru["name"] == text || fru["fru_id"].dump() == text; }

const Json& find_fru(const Json& document, const std::string& text) {
    const Json& frus = document["frus"];
    const auto found = std::ranges::find_if(frus, [&](const Json& fru) { return is_called(fru, text); });
    if (found == frus.end()) throw ImpossibleChange("the server has no FRU of the name or id \"" + text + '"');
    return *found;
}

/// As the library looks for it: the first processor sensor whose name contains the FRU's.
void clear_presence(Json& document, const std::string& name) {
    if (!document.contains("sensors")) return;
    for (Json& sensor : document["sensors"]) {
        const bool is_its = sensor["name"].get<std::string_view>().find(name) != std::string_view::npos;
        if (sensor["type"] != processor_sensor || !is_its) continue;
        sensor["state"] = sensor.value("state", 0U) & ~unsigned{presence_detected};
        sensor.erase("text");
        return;
    }
}

void pull(Json& fru, Json& document) {
    // The locator in the SDR repository stays what it is.
    if (fru["content"].contains("dimm") && !fru.contains("modifier")) fru["modifier"] = 1;
    fru["content"] = {{"absent", true}};
    if (fru["entity"] == "processor" || fru["entity"] == processor) clear_presence(document, fru["name"]);
}

/// Whether a JSON document can keep it.
bool is_utf8(const std::string& text) try { return !Json(text).dump().empty(); } catch (const Json::type_error&) {
    return false;
}

}  // namespace

std::string next_serial_number(std::string text) {
    constexpr std::array<std::string_view, 3> alphabets{"0123456789", "ABCDEFGHIJKLMNOPQRSTUVWXYZ",
                                                        "abcdefghijklmnopqrstuvwxyz"};
    return counted_on(std::move(text), alphabets);
}

void apply_changes(const FruChanges& changes, Json& document) {
    for (Json& fru : document["frus"]) {
        const auto found = changes.find(fru["fru_id"].get<uint8_t>());
        if (found == changes.end()) continue;
        if (!found->second.content.empty()) fru["content"] = Json::parse(found->second.content);
        if (found->second.is_pulled) pull(fru, document);
    }
}

ChangedFru changed_fru(const Json& document, const FruChanges& changes, VpddHostChange change, const std::string& fru,
                       const std::optional<std::string>& serial_number) {
    if (serial_number && !is_utf8(*serial_number)) throw ImpossibleChange("the serial number is no UTF-8 text");
    const Json& described = find_fru(document, fru);
    ChangedFru changed{described["fru_id"], described["name"], {}, {}, {}};
    const auto former = changes.find(changed.fru_id);
    if (former != changes.end()) changed.change = former->second;
    FruChange& state = changed.change;
    const Json content = state.content.empty() ? described["content"] : Json::parse(state.content);
    const bool is_there = !is_absent(content) && !state.is_pulled;

    if (change == VPDD_HOST_INSERT) {
        if (is_absent(content)) throw ImpossibleChange("the description has no part for " + changed.name);
        if (is_there) throw ImpossibleChange(changed.name + " is there already");
        state.is_pulled = false;
        changed.new_serial_number = serial_number_of(content);
        return changed;
    }
    if (!is_there) throw ImpossibleChange(changed.name + " is not there");
    changed.old_serial_number = serial_number_of(content);
    if (change == VPDD_HOST_PULL) {
        state.is_pulled = true;
        return changed;
    }
    const Json next = swapped(content, changed.name, serial_number);
    changed.new_serial_number = serial_number_of(next);
    state.content = next.dump();
    return changed;
}

}  // namespace vpdd::host
