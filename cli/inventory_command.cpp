// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>

#include "cli/command.h"
#include "cli/inventory.h"
#include "cli/server_session.h"

namespace vpdd::cli {

namespace {

struct Arguments {
    std::string server;
    bool json = false;
    SessionOptions session;
};

ExitCode run(const Arguments& arguments) {
    ServerSession session(arguments.session);
    session.open_file(arguments.server);
    session.create_cache();
    const Inventory inventory = take_inventory();
    if (arguments.json) {
        print_json(std::cout, inventory_json(inventory, arguments.server));
    } else {
        print_inventory(std::cout, inventory, arguments.server, output_style());
    }
    return inventory.unread.empty() ? ExitCode::ok : ExitCode::incomplete;
}

}  // namespace

Runner declare_inventory(CLI::App& verb) {
    auto arguments = std::make_shared<Arguments>();
    verb.add_option("--server", arguments->server,
                    "Description of the server, or the name of one that came with vpdctl")
        ->required()
        ->type_name("FILE");
    verb.add_flag("--json", arguments->json, "Print JSON instead of tables");
    verb.add_flag("--real-time", arguments->session.real_time,
                  "Wait as long as the firmware does between its attempts");
    verb.add_option("--log", arguments->session.log, "Write the library's messages to FILE; - is standard error")
        ->type_name("FILE");
    verb.add_option("--state", arguments->session.state_directory, "Keep the configuration variables in DIR")
        ->type_name("DIR");
    return [arguments] { return run(*arguments); };
}

}  // namespace vpdd::cli
