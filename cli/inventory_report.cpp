// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <nlohmann/json.hpp>
#include <optional>
#include <ostream>

#include "cli/component.h"
#include "cli/display_text.h"
#include "cli/entity_names.h"
#include "cli/inventory.h"
#include "cli/machine.h"
#include "cli/memory_module.h"
#include "cli/table.h"

namespace vpdd::cli {

namespace {

using Records = std::vector<ComponentVpdRecord>;

std::string id_text(const ComponentVpdRecord& record) { return std::to_string(record.fru_id); }

std::string counted(std::size_t count, const char* noun) {
    return std::to_string(count) + ' ' + noun + (count == 1 ? "" : "s");
}

void print_identity(std::ostream& out, const MachineVpdRecord& machine, const Style& style) {
    for (const std::string& line : identity_lines(machine)) {
        for (const std::string& part : wrapped(displayable(line), style.width - 2)) out << "  " << part << '\n';
    }
}

std::string title(const char* name, std::size_t count) {
    return std::string(name) + " (" + std::to_string(count) + ')';
}

/// The library also hands out the version of a product as its part number; once is enough for people.
std::string part_number_text(const ComponentVpdRecord& record, const Identity& who) {
    return who.part_number == field_text(record.product_version) ? std::string() : who.part_number;
}

ValueList oem_processor_values(const Records& records) {
    ValueList list;
    for (const ComponentVpdRecord& record : records) {
        if (!has_oem_processor_record(record)) continue;
        std::string texts;
        for (const std::string& text : oem_processor_texts(record.oem_cpu)) {
            texts += (texts.empty() ? "" : " | ") + text;
        }
        list.add(field_text(record.name) + ", OEM record " + std::to_string(record.oem_cpu.index),
                 texts.empty() ? "(no texts)" : texts);
        const std::string bytes = hex_bytes(oem_processor_bytes(record.oem_cpu));
        if (!bytes.empty()) list.add("", "bytes " + bytes);
    }
    return list;
}

Section processors_section(const Records& records) {
    Table table({{"FRU", Align::right},
                 {"Name"},
                 {"Version"},
                 {"Maker"},
                 {"Part number"},
                 {"Serial number"},
                 {"Made"},
                 {"PPIN"},
                 {"Custom"}},
                2);
    for (const ComponentVpdRecord& record : records) {
        const Identity who = identity(record);
        table.add({id_text(record), field_text(record.name), field_text(record.product_version), who.manufacturer,
                   part_number_text(record, who), who.serial_number, who.manufactured, field_text(record.ppin),
                   field_text(record.board_extra)});
    }
    return {title("Processors", records.size()), table, oem_processor_values(records)};
}

bool has_extended_sizes(const Records& records) {
    return std::any_of(records.begin(), records.end(), [](const ComponentVpdRecord& record) {
        return compare_with_smbios(record.spd_info).size_is_extended;
    });
}

Section memory_section(const Records& records) {
    Table table({{"FRU", Align::right},
                 {"Slot"},
                 {"Size", Align::right},
                 {"Type"},
                 {"MT/s", Align::right},
                 {"Ranks", Align::right},
                 {"ECC", Align::right},
                 {"SMBIOS"},
                 {"Maker", Align::left, true},
                 {"Part number"},
                 {"Serial number"},
                 {"Made"}},
                2);
    for (const ComponentVpdRecord& record : records) {
        const Identity who = identity(record);
        std::vector<std::string> row{id_text(record), field_text(record.name)};
        if (is_decoded(record.spd_info)) {
            const SpdInfo& spd = record.spd_info;
            const auto size = capacity_mib(spd);
            const auto rate = data_rate(spd);
            const auto ranks = geometry_of(spd).ranks;
            row.insert(row.end(), {size ? capacity_text(*size) : "unknown", type_text(spd),
                                   rate ? std::to_string(*rate) : "unknown", ranks ? std::to_string(*ranks) : "unknown",
                                   ecc_text(spd), smbios_text(compare_with_smbios(spd))});
        } else {
            row.insert(row.end(), {"", "no SPD", "", "", "", ""});
        }
        row.insert(row.end(), {who.manufacturer, who.part_number, who.serial_number, who.manufactured});
        table.add(row);
    }
    Section section{title("Memory", records.size()), table};
    if (has_extended_sizes(records)) {
        section.note =
            "SMBIOS keeps sizes of 32 GiB and more in a field that the library does not read: of those modules only "
            "the "
            "speeds are compared.";
    }
    return section;
}

std::string firmware_text(const PsuFwVersion& firmware) {
    const std::string primary = field_text(firmware.primary);
    const std::string secondary = field_text(firmware.secondary);
    return secondary.empty() ? primary : primary + " / " + secondary;
}

/// Power supplies and boards of all kinds, which have the same fields. Records of one kind stand together.
Section boards_section(const char* name, const Records& records, bool with_kinds) {
    Table table({{"FRU", Align::right},
                 {"Name"},
                 {"Maker"},
                 {"Part number"},
                 {"Serial number"},
                 {"Version"},
                 {"Firmware"},
                 {"Made"},
                 {"Custom"},
                 {"PPIN"}},
                2);
    std::optional<uint8_t> kind;
    for (const ComponentVpdRecord& record : records) {
        if (with_kinds && kind != record.entity_id) table.add_group(entity_name(record.entity_id));
        kind = record.entity_id;
        const Identity who = identity(record);
        table.add({id_text(record), field_text(record.name), who.manufacturer, part_number_text(record, who),
                   who.serial_number, field_text(record.product_version), firmware_text(record.psu_fw),
                   who.manufactured, field_text(record.board_extra), field_text(record.ppin)});
    }
    return {title(name, records.size()), table};
}

Records by_kind(Records records) {
    const auto comes_first = [](const ComponentVpdRecord& left, const ComponentVpdRecord& right) {
        return left.entity_id < right.entity_id;
    };
    std::stable_sort(records.begin(), records.end(), comes_first);
    return records;
}

Section unread_section(const std::vector<UnreadComponent>& components) {
    Table table({{"FRU", Align::right}, {"Name"}, {"Kind"}, {"Reason"}}, 2);
    for (const UnreadComponent& component : components) {
        table.add({id_text(component.record), field_text(component.record.name), entity_text(component.record),
                   component.reason});
    }
    return {title("Could not be read", components.size()), table};
}

Section totals_section(const Inventory& inventory) {
    ValueList totals;
    const uint32_t threads = inventory.logical_processor_count();
    totals.add("Processors", std::to_string(inventory.processors.size()) +
                                 (threads == 0 ? "" : " with " + counted(threads, "logical processor")));
    totals.add("Memory", counted(inventory.memory.size(), "module") + ", " + capacity_text(inventory.memory_mib()));
    totals.add("Power supplies", std::to_string(inventory.power_supplies.size()));
    totals.add("Drive backplanes", std::to_string(inventory.drive_backplanes.size()));
    totals.add("Others", std::to_string(inventory.others.size()));
    totals.add("Could not be read", std::to_string(inventory.unread.size()));
    return {"Totals", {}, totals};
}

Section published_section(const std::vector<PublishedVariable>& variables) {
    ValueList list;
    for (const PublishedVariable& variable : variables) {
        list.add(variable.name, variable.value.empty() ? "(empty)" : variable.value);
    }
    return {"Published configuration variables", {}, list};
}

Json group_json(const Records& records) {
    Json group = Json::array();
    for (const ComponentVpdRecord& record : records) group.push_back(component_json(record));
    return group;
}

Json unread_json(const UnreadComponent& component) {
    const ComponentVpdRecord& record = component.record;
    return {{"FruId", record.fru_id},
            {"Name", field_text(record.name)},
            {"EntityId", record.entity_id},
            {"EntityName", entity_name(record.entity_id)},
            {"EntityInstance", record.entity_instance},
            {"Reason", component.reason}};
}

}  // namespace

std::vector<Section> inventory_sections(const Inventory& inventory) {
    std::vector<Section> sections{processors_section(inventory.processors),
                                  memory_section(inventory.memory),
                                  boards_section("Power supplies", inventory.power_supplies, false),
                                  boards_section("Drive backplanes", inventory.drive_backplanes, false),
                                  boards_section("Adapters and other components", by_kind(inventory.others), true),
                                  unread_section(inventory.unread),
                                  totals_section(inventory),
                                  published_section(inventory.published)};
    std::erase_if(sections, [](const Section& section) { return section.empty(); });
    return sections;
}

void print_inventory(std::ostream& out, const Inventory& inventory, const std::string& server, const Style& style) {
    const std::size_t read = inventory.component_count() - inventory.unread.size();
    out << style.heading("Inventory of " + displayable(server)) << '\n';
    print_identity(out, inventory.machine, style);
    out << "  " << counted(inventory.component_count(), "component") << ", " << read << " read\n";
    for (const Section& section : inventory_sections(inventory)) section.print(out, style);
}

Json inventory_json(const Inventory& inventory, const std::string& server) {
    Json document;
    document["Server"] = server;
    document["Machine"] = machine_json(inventory.machine);
    document["Processors"] = group_json(inventory.processors);
    document["Memory"] = group_json(inventory.memory);
    document["PowerSupplies"] = group_json(inventory.power_supplies);
    document["DriveBackplanes"] = group_json(inventory.drive_backplanes);
    document["Others"] = group_json(inventory.others);
    document["NotRead"] = Json::array();
    for (const UnreadComponent& component : inventory.unread) document["NotRead"].push_back(unread_json(component));
    document["Totals"] = {{"Components", inventory.component_count()},
                          {"NotRead", inventory.unread.size()},
                          {"Processors", inventory.processors.size()},
                          {"LogicalProcessors", inventory.logical_processor_count()},
                          {"MemoryModules", inventory.memory.size()},
                          {"MemoryMiB", inventory.memory_mib()},
                          {"PowerSupplies", inventory.power_supplies.size()},
                          {"DriveBackplanes", inventory.drive_backplanes.size()},
                          {"Others", inventory.others.size()}};
    Json variables = Json::object();
    for (const PublishedVariable& variable : inventory.published) {
        variables[variable.name] = variable.is_number ? Json(variable.number) : Json(variable.value);
    }
    document["PublishedVariables"] = variables;
    return document;
}

}  // namespace vpdd::cli
