// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>

#include "cli/command.h"
#include "cli/common_options.h"
#include "cli/daemon_client.h"
#include "cli/display_text.h"
#include "cli/status.h"

namespace vpdd::cli {

namespace {

struct Arguments {
    ServerChoice choice;
    bool json = false;
    bool only_changes = false;
    bool refresh = false;
    SessionOptions session;
};

ServerStatus ask_daemon(const ServerSession& session, const Arguments& arguments) {
    if (arguments.only_changes) throw WrongUsage("--changed needs --server; `vpdctl watch` shows what vpdd notices");
    const DaemonClient client(session.log(), arguments.session.patience);
    if (arguments.refresh) client.refresh();
    return client.status();
}

ServerStatus status_of(ServerSession& session, const Arguments& arguments) {
    if (!arguments.choice.is_made()) return ask_daemon(session, arguments);
    if (arguments.session.state_directory.empty()) throw WrongUsage("without vpdd it needs --state DIR");
    session.open(arguments.choice);
    session.enter_private_root();
    session.create_cache();
    return take_status(session.log());
}

ExitCode run(const Arguments& arguments) {
    ServerSession session(arguments.session);
    const ServerStatus status = status_of(session, arguments);
    if (arguments.json) {
        print_json(std::cout, status_json(status, arguments.only_changes));
    } else {
        print_status(std::cout, status, arguments.only_changes, output_style());
    }
    session.require_bmc();
    if (!status.trouble.empty()) std::cerr << "vpdctl: " << displayable(status.trouble) << '\n';
    return status.is_complete ? ExitCode::ok : ExitCode::incomplete;
}

}  // namespace

Runner declare_status(CLI::App& verb) {
    auto arguments = std::make_shared<Arguments>();
    add_server_choice(verb, arguments->choice);
    add_state_option(verb, arguments->session.state_directory,
                     "Without vpdd: where the activity log and the change history are kept");
    verb.add_flag("--refresh", arguments->refresh, "Let vpdd read every FRU again first; only for root and its user")
        ->excludes("--server")
        ->excludes("--bmc");
    verb.add_flag("--changed", arguments->only_changes, "Show only what has changed since the last time");
    add_json_option(verb, arguments->json);
    add_wait_option(verb, arguments->session.patience);
    add_session_options(verb, arguments->session);
    return [arguments] { return run(*arguments); };
}

}  // namespace vpdd::cli
