// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>

#include "cli/command.h"
#include "cli/common_options.h"
#include "cli/daemon_client.h"
#include "cli/inventory.h"

namespace vpdd::cli {

namespace {

struct Arguments {
    ServerChoice choice;
    bool json = false;
    SessionOptions session;
};

Inventory inventory_of(ServerSession& session, const Arguments& arguments) {
    if (!arguments.choice.is_made()) return DaemonClient(session.log(), arguments.session.patience).inventory();
    session.open(arguments.choice);
    session.create_cache();
    return take_inventory();
}

ExitCode run(const Arguments& arguments) {
    ServerSession session(arguments.session);
    const Inventory inventory = inventory_of(session, arguments);
    const std::string server = arguments.choice.is_made() ? arguments.choice.name() : "this machine";
    if (arguments.json) {
        print_json(std::cout, inventory_json(inventory, server));
    } else {
        print_inventory(std::cout, inventory, server, output_style());
    }
    session.require_bmc();
    return inventory.unread.empty() ? ExitCode::ok : ExitCode::incomplete;
}

}  // namespace

Runner declare_inventory(CLI::App& verb) {
    auto arguments = std::make_shared<Arguments>();
    add_server_choice(verb, arguments->choice);
    add_json_option(verb, arguments->json);
    add_wait_option(verb, arguments->session.patience);
    add_session_options(verb, arguments->session);
    add_state_option(verb, arguments->session.state_directory, "Keep the configuration variables in DIR");
    return [arguments] { return run(*arguments); };
}

}  // namespace vpdd::cli
