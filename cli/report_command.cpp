// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <ctime>
#include <memory>
#include <sstream>
#include <stdexcept>

#include "cli/command.h"
#include "cli/common_options.h"
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
    if (!changes) throw std::runtime_error("the change history cannot be read");
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

ExitCode run(const Arguments& arguments) {
    ServerSession session(arguments.session);
    // Held before its path may lead into the private root.
    OutputFile file(arguments.html);
    const Report report = report_of(session, arguments);
    session.require_bmc();
    std::ostringstream page;
    write_report_html(page, report);
    file.write(page.str());
    return report.is_complete() ? ExitCode::ok : ExitCode::incomplete;
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
