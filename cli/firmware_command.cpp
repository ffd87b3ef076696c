// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>

#include "cli/command.h"
#include "cli/common_options.h"
#include "cli/display_text.h"
#include "cli/json_output.h"
#include "cli/library_output.h"
#include "cli/table.h"
#include "orva_vpdd.h"

namespace vpdd::cli {

namespace {

struct Arguments {
    std::string server;
    bool json = false;
    SessionOptions session;
};

/// What the library can be asked for, names of older generations included.
constexpr auto image_names = std::to_array<const char*>(
    {"orva_primary", "orva2_primary", "orva3_primary", "orva", "orva2", "orva3", "orva_backup", "orva2_backup",
     "orva3_backup", "orva3_primary_pending", "uefi", "uefi_pending", "qsv", "drvwn", "drvln", "nexol"});

/// The library's word for what cannot be read.
constexpr const char* unreadable = "*";

struct Firmware {
    std::string image;
    std::string name;
    std::array<std::string, 3> build;  ///< id, date, version

    std::size_t unreadable_fields() const { return static_cast<std::size_t>(std::ranges::count(build, unreadable)); }
    /// Most images need not be there: a pending update, for one.
    bool is_there() const { return unreadable_fields() < build.size(); }
    bool is_in_part() const { return is_there() && unreadable_fields() > 0; }
};

Firmware read_firmware(const char* image) {
    FirmwareVpd record{};
    uint32_t size = 0;
    GetFirmwareVPD(&size, 0, image, &record);
    return {image,
            field_text(record.name),
            {field_text(record.build_id), field_text(record.build_date), field_text(record.build_version)}};
}

Json text_or_null(const std::string& text) { return text == unreadable ? Json(nullptr) : Json(text); }

Json firmware_json(const std::vector<Firmware>& images) {
    Json list = Json::array();
    for (const Firmware& image : images) {
        list.push_back({{"Id", image.image},
                        {"Name", image.name},
                        {"SoftwareId", text_or_null(image.build[0])},
                        {"ReleaseDate", text_or_null(image.build[1])},
                        {"Version", text_or_null(image.build[2])}});
    }
    return {{"Firmware", std::move(list)}};
}

void print_firmware(std::ostream& out, const std::vector<Firmware>& images, const Style& style) {
    Table table({{"Image"}, {"Name"}, {"Build id"}, {"Date"}, {"Version"}}, 1);
    for (const Firmware& image : images) {
        table.add({image.image, image.name, image.build[0], image.build[1], image.build[2]});
    }
    table.print(out, style);
}

ExitCode run(const Arguments& arguments) {
    ServerSession session(arguments.session);
    session.open_file(arguments.server);
    std::vector<Firmware> images;
    {
        const LibraryOutput kept_apart(session.log());
        std::ranges::transform(image_names, std::back_inserter(images), read_firmware);
    }
    if (arguments.json) {
        print_json(std::cout, firmware_json(images));
    } else {
        print_firmware(std::cout, images, output_style());
    }
    const bool complete =
        std::ranges::any_of(images, &Firmware::is_there) && std::ranges::none_of(images, &Firmware::is_in_part);
    return complete ? ExitCode::ok : ExitCode::incomplete;
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
