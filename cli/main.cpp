// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <map>
#include <string_view>

#include "cli/command.h"
#include "cli/display_text.h"
#include "cli/input_file.h"

namespace vpdd::cli {

namespace {

constexpr const char* description =
    "Vital product data of a managed server: what is inside, who made it, and its serial numbers.";

constexpr const char* footer =
    "Examples:\n"
    "  vpdctl inventory                          what this machine is made of, from vpdd\n"
    "  vpdctl watch                              what changes\n"
    "  vpdctl inventory --server ddr5-2s         what a described server is made of, without vpdd\n"
    "  vpdctl slots --server ddr5-2s             its DIMM slots, drawn\n"
    "  vpdctl report --server ddr5-2s --html R   all of it as a web page, R\n"
    "  vpdctl spd dimm.bin                       a saved SPD image\n"
    "  vpdctl fru board.bin --json               a saved FRU image, for a program\n"
    "  vpdctl COMMAND --help                     more about one command\n"
    "\n"
    "Exit codes:\n"
    "  0  everything was read and decoded\n"
    "  1  something could not be read or decoded; the rest is shown\n"
    "  2  wrong usage\n"
    "  3  an input file cannot be read or is not what the command expects\n"
    "  4  vpdd does not answer within 90 seconds, or the BMC not at all; the platform or the\n"
    "     library failed, or the output could not be written\n"
    "\n"
    "Environment:\n"
    "  NO_COLOR  no bold headings      COLUMNS  width of tables that do not go to a terminal\n"
    "  VPDD_STATE_DIRECTORY            stands for --state DIR\n"
    "  VPDD_BMC_PASSWORD               stands before a platform file's password_file\n";

int exit_with(ExitCode code) { return static_cast<int>(code); }

int report(ExitCode code, const char* reason) {
    std::cerr << "vpdctl: " << reason << '\n';
    return exit_with(code);
}

std::string usage_text(const std::string& mistake) {
    return "vpdctl: " + displayable(mistake) + "\nTry 'vpdctl --help'.\n";
}

std::string parse_failure(const CLI::App* /*app*/, const CLI::Error& error) { return usage_text(error.what()); }

/// The command that is asked for, else all: to declare them takes longer than to decode a memory module.
std::span<const Command> declared_for(std::string_view first_argument) {
    const auto asked = std::ranges::find(commands(), first_argument, &Command::name);
    return asked != commands().end() ? std::span(asked, 1) : commands();
}

ExitCode parse_and_run(int count, char** arguments) {
    CLI::App app(description, "vpdctl");
    app.set_version_flag("--version", std::string("vpdctl ") + VPDCTL_VERSION);
    app.footer(footer);
    app.require_subcommand(0, 1);
    app.get_formatter()->label("SUBCOMMAND", "COMMAND");
    app.failure_message(parse_failure);

    std::map<const CLI::App*, Runner> runners;
    const std::string_view first = count > 1 ? arguments[1] : "";
    for (const Command& command : declared_for(first)) {
        CLI::App* verb = app.add_subcommand(command.name, command.summary)->group("Commands");
        verb->footer(command.details);
        runners[verb] = command.declare(*verb);
    }
    try {
        app.parse(count, arguments);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? ExitCode::ok : ExitCode::usage;
    }
    if (app.get_subcommands().empty()) {
        std::cerr << usage_text("a command is missing");
        return ExitCode::usage;
    }
    return runners.at(app.get_subcommands().front())();
}

int run(int count, char** arguments) {
    try {
        const ExitCode code = parse_and_run(count, arguments);
        std::cout.flush();
        if (!std::cout) return report(ExitCode::failure, "cannot write the output");
        return exit_with(code);
    } catch (const WrongUsage& error) {
        return report(ExitCode::usage, error.what());
    } catch (const BadInput& error) {
        return report(ExitCode::bad_input, error.what());
    } catch (const std::exception& error) {
        return report(ExitCode::failure, error.what());
    }
}

}  // namespace

}  // namespace vpdd::cli

int main(int count, char** arguments) { return vpdd::cli::run(count, arguments); }
