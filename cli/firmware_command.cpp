// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>

#include "cli/command.h"
#include "cli/common_options.h"
#include "cli/firmware.h"

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
    const std::vector<Firmware> images = read_firmware(session.log());
    if (arguments.json) {
        print_json(std::cout, firmware_json(images));
    } else {
        firmware_table(images).print(std::cout, output_style());
    }
    return is_complete(images) ? ExitCode::ok : ExitCode::incomplete;
}

}  // namespace

Runner declare_firmware(CLI::App& verb) {
    auto arguments = std::make_shared<Arguments>();
    add_server_option(verb, arguments->server);
    add_json_option(verb, arguments->json);
    add_session_options(verb, arguments->session);
    add_state_option(verb, arguments->session.state_directory, "Keep the configuration variables in DIR");
    return [arguments] { return run(*arguments); };
}

}  // namespace vpdd::cli
