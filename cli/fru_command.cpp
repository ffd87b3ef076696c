// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>

#include "cli/command.h"
#include "cli/display_text.h"
#include "cli/fru_contents.h"
#include "cli/fru_report.h"
#include "cli/input_file.h"

namespace vpdd::cli {

namespace {

struct Arguments {
    std::string file;
    bool json = false;
};

ExitCode run(const Arguments& arguments) {
    const std::vector<uint8_t> image = without_hex_dump(read_image(arguments.file));
    if (image.size() < fru_common_header_size) {
        throw BadInput(displayable(arguments.file) + ": " + std::to_string(image.size()) +
                       " bytes are too few for a FRU image, whose header has 8");
    }
    if (!looks_like_fru(image)) {
        throw BadInput(displayable(arguments.file) + ": does not begin with a FRU common header");
    }
    const FruContents contents = take_apart(image);
    if (arguments.json) {
        print_json(std::cout, fru_json(contents, arguments.file));
    } else {
        print_fru(std::cout, contents, arguments.file, output_style());
    }
    return contents.faults.empty() ? ExitCode::ok : ExitCode::incomplete;
}

}  // namespace

Runner declare_fru(CLI::App& verb) {
    auto arguments = std::make_shared<Arguments>();
    verb.add_option("FILE", arguments->file, "The FRU image")->required()->type_name("");
    verb.add_flag("--json", arguments->json, "Print JSON instead of text");
    return [arguments] { return run(*arguments); };
}

}  // namespace vpdd::cli
