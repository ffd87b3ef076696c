// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <array>
#include <iostream>
#include <map>
#include <memory>

#include "cli/command.h"
#include "cli/common_options.h"
#include "cli/display_text.h"

namespace vpdd::cli {

namespace {

struct Arguments {
    std::string action;
    std::string fru;
    std::string server;
    std::string serial_number;
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

ExitCode run(const Arguments& arguments) {
    const VpddHostChange change = actions().at(arguments.action);
    const bool has_serial = !arguments.serial_number.empty();
    if (has_serial && change != VPDD_HOST_SWAP) throw WrongUsage("--serial is for swap only");

    ServerSession session(arguments.session);
    session.open_file(arguments.server);
    const VpddHostChangedFru fru =
        session.change_fru(change, arguments.fru, has_serial ? arguments.serial_number.c_str() : nullptr);
    std::cout << displayable(std::string(fru.name) + ": " + what_happened(change, fru)) << '\n';
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
    add_state_option(verb, arguments->session.state_directory, "Where the change is kept")->required();
    verb.add_option("--serial", arguments->serial_number,
                    "Serial number of the part that swap brings; without it the one that follows")
        ->type_name("TEXT");
    return [arguments] { return run(*arguments); };
}

}  // namespace vpdd::cli
