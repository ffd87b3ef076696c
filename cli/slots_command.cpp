// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>

#include "cli/board.h"
#include "cli/command.h"
#include "cli/common_options.h"
#include "cli/display_text.h"
#include "cli/machine.h"
#include "cli/output_file.h"

namespace vpdd::cli {

namespace {

struct Arguments {
    std::string server;
    std::string platform;
    std::string svg;
    bool json = false;
    SessionOptions session;
};

uint32_t platform_id_of(const std::string& text) {
    const std::string digits = text.starts_with("0x") || text.starts_with("0X") ? text.substr(2) : text;
    uint32_t id = 0;
    const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), id, 16);
    if (digits.size() != 8 || result.ec != std::errc() || result.ptr != digits.data() + digits.size()) {
        throw WrongUsage(displayable(text) + " is no platform id: eight hexadecimal digits, as in 0x00500085");
    }
    return id;
}

std::string known_platforms() {
    std::string list;
    for (const PlatMemSlot& row : platMemSlots) list += (list.empty() ? "" : " ") + platform_text(row.platform_id);
    return list;
}

/// The library knows the platform and takes another for it that it does not know: one that the environment makes of it.
std::string variant_text(uint32_t id) {
    constexpr uint32_t six_sockets = 0x06500076;
    const bool is_known =
        std::ranges::any_of(platMemSlots, [&](const PlatMemSlot& row) { return row.platform_id == id; });
    return is_known ? ", which the environment variable VSK_NUM_SOCKETS makes " + platform_text(six_sockets) : "";
}

/// The board of a platform whatever the server is, as it would find it.
Board board_of(const std::string& platform, const SessionOptions& options) {
    SessionOptions nothing_kept = options;
    nothing_kept.state_directory.clear();
    ServerSession session(nothing_kept);
    const uint32_t id = platform_id_of(platform);
    const Json machine = {{"vpd_id", hex_number(id >> 16U, 4)}, {"pos_id", hex_number(id & 0xFFFFU, 4)}};
    session.open_text(Json{{"name", "board"}, {"machine", machine}, {"frus", Json::array()}}.dump());
    read_machine();  // publishes the platform id
    if (GetMemSlot() == nullptr) {
        throw WrongUsage("there is no slot map of platform " + displayable(platform) + variant_text(id) +
                         "; known are " + known_platforms());
    }
    return board_of_platform();
}

/// The server's board, or that of the given platform, with the server's modules.
Board populated_board(const Arguments& arguments) {
    std::vector<SlotContent> contents;
    std::optional<Board> board;
    {
        ServerSession session(arguments.session);
        session.open_file(arguments.server);
        session.create_cache();
        contents = memory_contents();
        read_machine();  // publishes the platform id
        if (arguments.platform.empty()) board = board_of_platform();
    }
    if (!board) board = board_of(arguments.platform, arguments.session);
    board->server = arguments.server;
    populate(*board, contents);
    return *std::move(board);
}

void write_svg(const Board& board, const std::string& path) {
    OutputFile file(path);
    std::ostringstream picture;
    write_board_svg(picture, board);
    file.write(picture.str());
}

ExitCode run(const Arguments& arguments) {
    if (arguments.server.empty() && arguments.platform.empty()) {
        throw WrongUsage("a server or a platform is needed: --server FILE, --platform ID");
    }
    const Board board =
        arguments.server.empty() ? board_of(arguments.platform, arguments.session) : populated_board(arguments);
    if (!arguments.svg.empty()) write_svg(board, arguments.svg);
    if (arguments.json) {
        print_json(std::cout, board_json(board));
    } else {
        print_board(std::cout, board, output_style());
    }
    return board.is_complete() ? ExitCode::ok : ExitCode::incomplete;
}

}  // namespace

Runner declare_slots(CLI::App& verb) {
    auto arguments = std::make_shared<Arguments>();
    add_server_option(verb, arguments->server)->required(false);
    verb.add_option("--platform", arguments->platform, "Draw the board of this platform instead of the server's")
        ->type_name("ID");
    verb.add_option("--svg", arguments->svg, "Write the board to FILE, as an SVG picture")->type_name("FILE");
    add_json_option(verb, arguments->json);
    add_session_options(verb, arguments->session);
    add_state_option(verb, arguments->session.state_directory, "Keep the configuration variables in DIR");
    return [arguments] { return run(*arguments); };
}

}  // namespace vpdd::cli
