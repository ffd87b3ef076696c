// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <map>
#include <string_view>

#include "base/standard_files.h"
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

/// @param command the one that is asked for, or empty
ExitCode wrong_usage(const std::string& mistake, const std::string& command) {
    const std::string help = command.empty() ? "vpdctl --help" : "vpdctl " + command + " --help";
    std::cerr << "vpdctl: " << displayable(mistake) << "\nTry '" << help << "'.\n";
    return ExitCode::usage;
}

/// The command of this name, or none.
std::span<const Command> commands_called(std::string_view name) {
    const auto found = std::ranges::find(commands(), name, &Command::name);
    return found != commands().end() ? std::span(found, 1) : std::span<const Command>();
}

std::string empty_value(const std::string& value) { return value.empty() ? "must not be empty" : ""; }

bool is_flag(const CLI::Option& option) { return option.get_items_expected_max() == 0; }

/// The flag that is given a value, as in --json=3, which CLI11 would take for its opposite or for a count.
std::string flag_with_value(const CLI::App& verb, std::span<char*> arguments) {
    for (const std::string_view argument : arguments) {
        const std::size_t end = argument.find('=');
        if (!argument.starts_with("--") || end == std::string_view::npos) continue;
        std::string name(argument.substr(0, end));
        const CLI::Option* option = verb.get_option_no_throw(name);
        if (option != nullptr && is_flag(*option)) return name;
    }
    return "";
}

/// What the parser does not know comes before what it misses, perhaps for that reason.
std::string mistake_of(const CLI::App& app, const CLI::ParseError& error) {
    const std::vector<std::string> unknown = app.remaining(true);
    if (unknown.empty()) return error.what();
    const auto option = std::ranges::find_if(unknown, [](const auto& word) { return word.starts_with('-'); });
    return option != unknown.end() ? "unknown option " + *option : "unexpected argument " + unknown.front();
}

/// Declares a command with what holds for all of them.
Runner declare(CLI::App& verb, const Command& command) {
    verb.footer(command.details);
    Runner runner = command.declare(verb);
    for (CLI::Option* option : verb.get_options([](const CLI::Option* any) { return !is_flag(*any); })) {
        option->check(CLI::Validator(empty_value, ""));
    }
    return runner;
}

ExitCode parse_and_run(int count, char** arguments) {
    CLI::App app(description, "vpdctl");
    app.set_version_flag("--version", std::string("vpdctl ") + VPDCTL_VERSION);
    app.footer(footer);
    app.require_subcommand(0, 1);
    app.get_formatter()->label("SUBCOMMAND", "COMMAND");

    std::map<const CLI::App*, Runner> runners;
    const std::string first = count > 1 ? arguments[1] : "";
    const std::span<const Command> asked = commands_called(first);
    const bool is_word = count > 1 && !first.starts_with('-');
    if (asked.empty() && is_word) return wrong_usage("unknown command " + first, "");
    // Only the one: to declare all takes longer than to decode a memory module.
    for (const Command& command : asked.empty() ? commands() : asked) {
        CLI::App* verb = app.add_subcommand(command.name, command.summary)->group("Commands");
        runners[verb] = declare(*verb, command);
    }
    const std::string command = asked.empty() ? "" : first;
    if (!asked.empty()) {
        const std::span<char*> words(arguments, static_cast<std::size_t>(count));
        const std::string flag = flag_with_value(*runners.begin()->first, words.subspan(2));
        if (!flag.empty()) return wrong_usage(flag + " takes no value", command);
    }
    try {
        app.parse(count, arguments);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() != 0) return wrong_usage(mistake_of(app, error), command);
        app.exit(error);
        return ExitCode::ok;
    }
    if (app.get_subcommands().empty()) return wrong_usage("a command is missing", "");
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

int main(int count, char** arguments) {
    vpdd::open_missing_standard_files();
    return vpdd::cli::run(count, arguments);
}
