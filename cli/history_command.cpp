// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "cli/change_sentences.h"
#include "cli/command.h"
#include "cli/common_options.h"
#include "cli/display_text.h"
#include "cli/input_file.h"
#include "cli/json_output.h"
#include "cli/time_text.h"

namespace vpdd::cli {

namespace {

struct Arguments {
    bool json = false;
    std::string state_directory;
};

std::vector<Change> read_changes(const std::string& directory) {
    require_directory(directory);
    vpdd_chghist_use_directory(directory.c_str());
    auto changes = recorded_changes();
    if (!changes) throw std::runtime_error(displayable(directory) + ": " + unreadable_history());
    return *std::move(changes);
}

void print_changes(std::ostream& out, const std::vector<Change>& changes) {
    if (changes.empty()) out << "Nothing has changed.\n";
    for (const Change& change : changes) {
        out << local_minute_text(change.time) << ' ' << displayable(sentence(change)) << '\n';
    }
}

/// A processor's row has raw bytes in this place.
std::string part_number(const ChangeHistoryRecord& row) {
    std::string text = field_text(row.part_number);
    return text == displayable(text) ? text : "";
}

Json change_json(const Change& change) {
    const ChangeHistoryRecord& row = change.row;
    Json object{{"Time", utc_time_text(change.time)},
                {"Event", happening_name(change.happening)},
                {"Name", field_text(row.name)},
                {"EntityInstance", row.entity_instance}};
    const auto add = [&](const char* name, const std::string& text) {
        if (!text.empty()) object[name] = text;
    };
    add("SerialNumber", field_text(row.serial_number));
    add("PreviousSerialNumber", change.previous_serial);
    add("PartNumber", part_number(row));
    add("Manufacturer", field_text(row.mfg_id));
    add("BoardCustomField", field_text(row.board_extra));
    object["Text"] = sentence(change);
    return object;
}

Json changes_json(const std::vector<Change>& changes) {
    Json list = Json::array();
    for (const Change& change : changes) list.push_back(change_json(change));
    return {{"Changes", std::move(list)}};
}

ExitCode run(const Arguments& arguments) {
    const std::vector<Change> changes = read_changes(arguments.state_directory);
    if (arguments.json) {
        print_json(std::cout, changes_json(changes));
    } else {
        print_changes(std::cout, changes);
    }
    return ExitCode::ok;
}

}  // namespace

Runner declare_history(CLI::App& verb) {
    auto arguments = std::make_shared<Arguments>();
    add_state_option(verb, arguments->state_directory, "The state directory whose history is meant")->required();
    add_json_option(verb, arguments->json);
    return [arguments] { return run(*arguments); };
}

}  // namespace vpdd::cli
