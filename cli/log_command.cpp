// SPDX-License-Identifier: Apache-2.0
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>

#include "cli/activity_log.h"
#include "cli/command.h"
#include "cli/common_options.h"
#include "cli/component.h"
#include "cli/daemon_client.h"
#include "cli/display_text.h"
#include "cli/input_file.h"
#include "cli/library_output.h"
#include "cli/table.h"
#include "cli/time_text.h"

namespace vpdd::cli {

namespace {

using Entries = std::vector<ComponentVpdRecord>;

struct Arguments {
    bool json = false;
    bool clean = false;
    bool yes = false;
    bool offline = false;
    SessionOptions session;
};

void print_entries(std::ostream& out, const Entries& entries, const Style& style) {
    if (entries.empty()) {
        out << "The activity log is empty.\n";
        return;
    }
    Table table({{"Time"}, {"FRU", Align::right}, {"Name"}, {"Event"}, {"Serial number"}, {"Part number"}, {"Maker"}},
                3);
    for (const ComponentVpdRecord& entry : entries) {
        const Identity who = identity(entry);
        table.add({local_time_text(entry.timestamp), std::to_string(entry.fru_id), field_text(entry.name),
                   event_text(entry), who.serial_number, who.part_number, who.manufacturer});
    }
    table.print(out, style);
}

Json entries_json(const Entries& entries) {
    Json list = Json::array();
    for (const ComponentVpdRecord& entry : entries) {
        Json item = component_json(entry);
        item["Event"] = event_text(entry);
        item["Status"] = entry.status;
        item["Timestamp"] = utc_time_text(entry.timestamp);
        item["Crc"] = entry.crc;
        list.push_back(std::move(item));
    }
    return {{"Entries", std::move(list)}};
}

/// Asks on the terminal; somebody who is not there cannot answer.
bool is_confirmed(const Arguments& arguments, std::size_t entries) {
    if (arguments.yes) return true;
    if (isatty(STDIN_FILENO) == 0) throw WrongUsage("--clean without a terminal to ask on needs --yes");
    std::cerr << "Remove all " << entries << " entries of the activity log for good? [y/N] ";
    std::string answer;
    std::getline(std::cin, answer);
    return answer == "y" || answer == "Y" || answer == "yes";
}

bool is_asked_of_daemon(const Arguments& arguments) {
    return !arguments.offline && arguments.session.state_directory.empty();
}

void remove_entries(const ServerSession& session, const Arguments& arguments) {
    if (is_asked_of_daemon(arguments)) return DaemonClient(session.log(), arguments.session.patience).clean_log();
    const LibraryOutput kept_apart(session.log());
    clean_activity_log();
}

void clean(ServerSession& session, const Arguments& arguments, std::size_t entries) {
    if (!is_confirmed(arguments, entries)) {
        std::cerr << "Nothing was removed.\n";
        return;
    }
    remove_entries(session, arguments);
    std::cout << "The activity log was emptied of " << entries << (entries == 1 ? " entry.\n" : " entries.\n");
}

Entries entries_of(ServerSession& session, const Arguments& arguments) {
    if (is_asked_of_daemon(arguments)) return DaemonClient(session.log(), arguments.session.patience).log();
    const LibraryOutput kept_apart(session.log());
    return read_activity_log();
}

ExitCode run(const Arguments& arguments) {
    const std::string& state_directory = arguments.session.state_directory;
    if (!state_directory.empty()) require_directory(state_directory);
    ServerSession session(arguments.session);
    if (!state_directory.empty()) session.enter_private_root();
    const Entries entries = entries_of(session, arguments);
    if (arguments.clean) {
        clean(session, arguments, entries.size());
    } else if (arguments.json) {
        print_json(std::cout, entries_json(entries));
    } else {
        print_entries(std::cout, entries, output_style());
    }
    return ExitCode::ok;
}

}  // namespace

Runner declare_log(CLI::App& verb) {
    auto arguments = std::make_shared<Arguments>();
    CLI::Option* state = add_state_option(verb, arguments->session.state_directory,
                                          "Do without vpdd and read the log in the state directory DIR");
    verb.add_flag("--offline", arguments->offline, "Read the log of this machine without asking vpdd")->excludes(state);
    add_json_option(verb, arguments->json);
    CLI::Option* clean =
        verb.add_flag("--clean", arguments->clean, "Remove all entries, after a question")->excludes("--json");
    verb.add_flag("--yes", arguments->yes, "Do not ask")->needs(clean);
    add_wait_option(verb, arguments->session.patience);
    add_log_option(verb, arguments->session.log);
    return [arguments] { return run(*arguments); };
}

}  // namespace vpdd::cli
