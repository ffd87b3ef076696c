// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>

#include "cli/command.h"
#include "cli/common_options.h"
#include "cli/display_text.h"
#include "cli/fru_contents.h"
#include "cli/fru_report.h"
#include "cli/input_file.h"

namespace vpdd::cli {

namespace {

struct Arguments {
    std::string file;
    ServerChoice choice;
    std::optional<uint8_t> fru_id;
    bool json = false;
    SessionOptions session;

    std::string name() const {
        return file.empty() ? "FRU " + std::to_string(fru_id.value_or(0)) + " of " + choice.name() : file;
    }
};

/// The image that a server's FRU has.
std::vector<uint8_t> read_server(const Arguments& arguments) {
    constexpr uint32_t chunk_size = 128;
    ServerSession session(arguments.session);
    session.open(arguments.choice);
    uint32_t size = 0;
    const int size_result = read_fru_size(*arguments.fru_id, &size);
    session.require_bmc();
    if (size_result != 0) throw std::runtime_error(displayable(arguments.name()) + ": not present, or not readable");

    std::vector<uint8_t> image(size + chunk_size);
    for (uint32_t offset = 0; offset < size; offset += chunk_size) {
        const auto count = static_cast<uint8_t>(std::min(size - offset, chunk_size));
        const int result = read_fru(*arguments.fru_id, static_cast<uint16_t>(offset), count, &image[offset]);
        session.require_bmc();
        if (result != 0) {
            throw std::runtime_error(displayable(arguments.name()) + ": reading fails at byte " +
                                     std::to_string(offset) + " of " + std::to_string(size));
        }
    }
    image.resize(size);
    return image;
}

std::vector<uint8_t> image_of(const Arguments& arguments) {
    if (arguments.file.empty() && !arguments.fru_id) throw WrongUsage("FILE is required, or --fru-id");
    if (!arguments.file.empty()) return read_image(arguments.file);
    return read_server(arguments);
}

ExitCode run(const Arguments& arguments) {
    const std::vector<uint8_t> image = image_of(arguments);
    const std::string name = arguments.name();
    if (image.size() < fru_common_header_size) {
        throw BadInput(displayable(name) + ": " + std::to_string(image.size()) +
                       " bytes are too few for a FRU image, whose header has 8");
    }
    if (!looks_like_fru(image)) {
        throw BadInput(displayable(name) + ": does not begin with a FRU common header");
    }
    const FruContents contents = take_apart(image);
    if (arguments.json) {
        print_json(std::cout, fru_json(contents, name));
    } else {
        print_fru(std::cout, contents, name, output_style());
    }
    return contents.faults.empty() ? ExitCode::ok : ExitCode::incomplete;
}

}  // namespace

Runner declare_fru(CLI::App& verb) {
    auto arguments = std::make_shared<Arguments>();
    CLI::Option* file = verb.add_option("FILE", arguments->file, "The FRU image")->type_name("");
    verb.add_option("--fru-id", arguments->fru_id, "Read the FRU with this id, from --server or --bmc")
        ->type_name("ID")
        ->excludes(file);
    add_server_choice(verb, arguments->choice);
    verb.add_flag("--json", arguments->json, "Print JSON instead of text");
    add_session_options(verb, arguments->session);
    return [arguments] { return run(*arguments); };
}

}  // namespace vpdd::cli
