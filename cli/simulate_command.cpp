// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <array>
#include <iostream>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>

#include "cli/command.h"
#include "cli/common_options.h"
#include "cli/display_text.h"
#include "cli/json_output.h"

namespace vpdd::cli {

namespace {

struct Arguments {
    std::string action;
    std::string fru;
    std::string server;
    std::string serial_number;
    bool json = false;
    SessionOptions session;
};

const std::map<std::string, VpddHostChange>& actions() {
    static const std::map<std::string, VpddHostChange> all = {
        {"pull", VPDD_HOST_PULL}, {"insert", VPDD_HOST_INSERT}, {"swap", VPDD_HOST_SWAP}};
    return all;
}

std::string serial_text(const char* serial_number) {
    return *serial_number == '\0' ? "no serial number" : std::string("serial ") + serial_number;
}

std::string what_happened(VpddHostChange change, const VpddHostChangedFru& fru) {
    switch (change) {
        case VPDD_HOST_PULL:
            return "pulled (" + serial_text(fru.old_serial_number) + ')';
        case VPDD_HOST_INSERT:
            return "inserted (" + serial_text(fru.new_serial_number) + ')';
        default:
            return "swapped, " + serial_text(fru.old_serial_number) + " for " + fru.new_serial_number;
    }
}

const char* change_name(VpddHostChange change) {
    switch (change) {
        case VPDD_HOST_PULL:
            return "Pulled";
        case VPDD_HOST_INSERT:
            return "Inserted";
        default:
            return "Swapped";
    }
}

Json change_json(VpddHostChange change, const VpddHostChangedFru& fru) {
    Json object{{"Event", change_name(change)}, {"FruId", fru.fru_id}, {"Name", fru.name}};
    const auto add = [&](const char* name, const char* serial_number) {
        if (*serial_number != '\0') object[name] = serial_number;
    };
    add("SerialNumber", fru.new_serial_number);
    add("PreviousSerialNumber", fru.old_serial_number);
    return object;
}

ExitCode run(const Arguments& arguments) {
    const VpddHostChange change = actions().at(arguments.action);
    const bool has_serial = !arguments.serial_number.empty();
    if (has_serial && change != VPDD_HOST_SWAP) throw WrongUsage("--serial is for swap only");

    ServerSession session(arguments.session);
    session.open_file(arguments.server);
    const VpddHostChangedFru fru =
        session.change_fru(change, arguments.fru, has_serial ? arguments.serial_number.c_str() : nullptr);
    if (arguments.json) {
        print_json(std::cout, change_json(change, fru));
    } else {
        std::cout << displayable(std::string(fru.name) + ": " + what_happened(change, fru)) << '\n';
    }
    return ExitCode::ok;
}

}  // namespace

Runner declare_simulate(CLI::App& verb) {
    auto arguments = std::make_shared<Arguments>();
    verb.add_option("ACTION", arguments->action, "pull, insert or swap")
        ->required()
        ->type_name("")
        ->check(CLI::IsMember(&actions()).description(""));
    verb.add_option("FRU", arguments->fru, "Name or id of the FRU")->required()->type_name("");
    add_server_option(verb, arguments->server);
    verb.add_flag("--json", arguments->json, "Print JSON instead of text");
    add_state_option(verb, arguments->session.state_directory, "Where the change is kept")->required();
    verb.add_option("--serial", arguments->serial_number,
                    "Serial number of the part that swap brings; without it the one that follows")
        ->type_name("TEXT");
    return [arguments] { return run(*arguments); };
}

}  // namespace vpdd::cli
