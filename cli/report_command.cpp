// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <ctime>
#include <iostream>
#include <memory>
#include <sstream>
#include <stdexcept>

#include "cli/command.h"
#include "cli/common_options.h"
#include "cli/display_text.h"
#include "cli/output_file.h"
#include "cli/report.h"

namespace vpdd::cli {

namespace {

struct Arguments {
    ServerChoice choice;
    std::string html;
    SessionOptions session;
};

/// The platform id is published.
std::optional<Board> populated_board(const std::string& server) {
    if (GetMemSlot() == nullptr) return std::nullopt;
    Board board = board_of_platform();
    board.server = server;
    populate(board, memory_contents());
    return board;
}

/// As `vpdctl status` takes them; the server is open, in a private root, and its cache stands.
void add_status(Report& report, std::ostream* log) {
    report.status = take_status(log);
    auto changes = recorded_changes();
    if (!changes) throw std::runtime_error(unreadable_history());
    report.changes = *std::move(changes);
}

Report report_of(ServerSession& session, const Arguments& arguments) {
    const bool keeps_state = !arguments.session.state_directory.empty();
    session.open(arguments.choice);
    if (keeps_state) session.enter_private_root();
    session.create_cache();

    Report report;
    report.server = arguments.choice.name();
    report.time = std::time(nullptr);
    if (keeps_state) add_status(report, session.log());
    report.inventory = take_inventory();
    report.board = populated_board(report.server);
    report.firmware = read_firmware(session.log());
    return report;
}

/// What the page says in several places, in one line: "2 components, 1 module without a slot, firmware".
std::string gaps(const Report& report) {
    const auto counted = [](std::size_t count, const std::string& singular, const std::string& plural) {
        return count == 0 ? "" : std::to_string(count) + ' ' + (count == 1 ? singular : plural);
    };
    std::string list;
    const auto add = [&](const std::string& text) { list += (list.empty() || text.empty() ? "" : ", ") + text; };
    add(counted(report.inventory.unread.size(), "component", "components"));
    if (report.board)
        add(counted(report.board->without_slot.size(), "module without a slot", "modules without a slot"));
    add(cli::is_complete(report.firmware) ? "" : "firmware");
    return list.empty() ? "status" : list;
}

ExitCode run(const Arguments& arguments) {
    ServerSession session(arguments.session);
    // Held before its path may lead into the private root.
    OutputFile file(arguments.html);
    const Report report = report_of(session, arguments);
    session.require_bmc();
    std::ostringstream page;
    write_report_html(page, report);
    file.write(page.str());
    if (report.is_complete()) return ExitCode::ok;
    std::cerr << "vpdctl: " << displayable(arguments.html) << " was written; could not be read: " << gaps(report)
              << '\n';
    return ExitCode::incomplete;
}

}  // namespace

Runner declare_report(CLI::App& verb) {
    auto arguments = std::make_shared<Arguments>();
    add_server_choice(verb, arguments->choice);
    verb.add_option("--html", arguments->html, "Write the page to FILE")->required()->type_name("FILE");
    add_session_options(verb, arguments->session);
    add_state_option(verb, arguments->session.state_directory,
                     "Show also status and history, and keep them and the configuration variables in DIR");
    return [arguments] { return run(*arguments); };
}

}  // namespace vpdd::cli
