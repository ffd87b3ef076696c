// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>

#include "cli/command.h"
#include "cli/common_options.h"
#include "cli/display_text.h"
#include "cli/library_output.h"
#include "cli/property.h"

namespace vpdd::cli {

namespace {

struct Arguments {
    std::string server;
    std::string path;
    bool tree = false;
    bool json = false;
    SessionOptions session;
};

ExitCode report_nothing(const std::string& what) {
    std::cerr << "vpdctl: " << what << '\n';
    return ExitCode::incomplete;
}

ExitCode show_property(const Arguments& arguments, std::ostream* log) {
    std::optional<Property> property;
    {
        const LibraryOutput kept_apart(log);
        property = read_property(arguments.path);
    }
    if (!property) return report_nothing("there is no property " + displayable(arguments.path) + " with a value");
    if (arguments.json) {
        print_json(std::cout, property_json(*property));
    } else {
        std::cout << value_text(*property) << '\n';
    }
    return ExitCode::ok;
}

ExitCode show_tree(const Arguments& arguments, std::ostream* log) {
    std::vector<Property> properties;
    {
        const LibraryOutput kept_apart(log);
        properties = read_properties(arguments.path);
    }
    if (properties.empty()) return report_nothing("there is no property below " + displayable(arguments.path));
    if (!arguments.json) {
        print_property_tree(std::cout, arguments.path, properties);
        return ExitCode::ok;
    }
    Json list = Json::array();
    for (const Property& property : properties) list.push_back(property_json(property));
    print_json(std::cout, {{"Path", arguments.path}, {"Properties", std::move(list)}});
    return ExitCode::ok;
}

ExitCode run(const Arguments& arguments) {
    check_path(arguments.path);
    ServerSession session(arguments.session);
    session.open_file(arguments.server);
    return arguments.tree ? show_tree(arguments, session.log()) : show_property(arguments, session.log());
}

}  // namespace

Runner declare_property(CLI::App& verb) {
    auto arguments = std::make_shared<Arguments>();
    verb.add_option("PATH", arguments->path, "Path of the property")->required();
    verb.add_flag("--tree", arguments->tree, "Show all properties below PATH");
    add_server_option(verb, arguments->server);
    add_json_option(verb, arguments->json);
    add_session_options(verb, arguments->session);
    add_state_option(verb, arguments->session.state_directory, "Keep the configuration variables in DIR");
    return [arguments] { return run(*arguments); };
}

}  // namespace vpdd::cli
