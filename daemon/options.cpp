// SPDX-License-Identifier: Apache-2.0
#include "daemon/options.h"

#include <CLI/CLI.hpp>

#include "daemon/exit_code.h"

namespace vpdd::daemon {

namespace {

constexpr const char* description = "Gathers a server's vital product data, keeps it, and serves it to other programs.";

constexpr const char* footer =
    "Signals:\n"
    "  TERM, INT  end: the socket is removed\n"
    "  HUP        read the configuration again, and look at once for what has changed\n"
    "\n"
    "Examples:\n"
    "  vpdd --server ddr5-2s --state DIR             a described server (docs/host-platform.md)\n"
    "  vpdd --platform ipmi --set bmc=FILE           a BMC that is reached by IPMI\n"
    "\n"
    "Exit codes:\n"
    "  0  ended by a signal          2  wrong usage\n"
    "  3  the platform cannot be loaded or opened\n"
    "  4  the component cache cannot be created\n"
    "  5  the socket cannot be taken: another vpdd serves it, or something else is in its place\n"
    "\n"
    "vpdctl asks it: vpdctl inventory, vpdctl watch.\n";

/// Settings in the order given; the later one of a key counts.
void add_setting(Options& options, const std::string& text) {
    const std::size_t sign = text.find('=');
    if (sign == std::string::npos || sign == 0) throw CLI::ValidationError("--set", "needs KEY=VALUE");
    options.platform_settings.emplace_back(text.substr(0, sign), text.substr(sign + 1));
}

void declare_platform(CLI::App& app, Options& options) {
    app.add_option("--platform", options.platform, "The platform library: host, ipmi, or a file with / in its name")
        ->type_name("NAME")
        ->capture_default_str();
    const auto stands_for = [&options](const std::string& key) {
        return [&options, key](const std::string& value) { options.platform_settings.emplace_back(key, value); };
    };
    app.add_option_function<std::string>("--server", stands_for("server"),
                                         "Description of the server, or the name of one that came with vpdd; stands "
                                         "for --set server=FILE")
        ->type_name("FILE");
    app.add_option_function<std::string>("--state", stands_for("state"),
                                         "Where the platform keeps what it keeps; stands for --set state=DIR")
        ->type_name("DIR")
        ->envname("VPDD_STATE_DIRECTORY");
    app.add_option_function<std::vector<std::string>>(
           "--set",
           [&options](const std::vector<std::string>& settings) {
               for (const std::string& setting : settings) add_setting(options, setting);
           },
           "A setting of the platform; may come more than once")
        ->type_name("KEY=VALUE")
        ->take_all();
    app.add_flag("--real-time", options.real_time, "Pause as long as the firmware does, on every platform");
}

void declare_serving(CLI::App& app, Options& options) {
    const auto seconds_into = [](std::chrono::milliseconds& interval) {
        return
            [&interval](double seconds) { interval = std::chrono::milliseconds(static_cast<int64_t>(seconds * 1000)); };
    };
    app.add_option_function<double>("--poll", seconds_into(options.poll_interval),
                                    "How often it looks which components are there; the default is 5")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.05, 86400.0).description(""));
    app.add_option_function<double>("--refresh", seconds_into(options.refresh_interval),
                                    "How often it reads every FRU again though none is reported as changed; the "
                                    "default is 300")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.05, 864000.0).description(""));
    app.add_option("--socket-mode", options.socket_mode, "Who may connect: the socket's mode, in octal (0666)")
        ->type_name("MODE")
        ->transform(CLI::Validator(
            [](std::string& text) {
                std::size_t used = 0;
                if (text.empty() || text.find_first_not_of("01234567") != std::string::npos || text.size() > 4) {
                    return std::string("is no mode such as 0660");
                }
                text = std::to_string(std::stoul(text, &used, 8));
                return text.size() > 3 || std::stoul(text) > 0777U ? std::string("is no mode such as 0660")
                                                                   : std::string();
            },
            ""));
    app.add_option("--socket-group", options.socket_group, "The socket's group")->type_name("NAME");
    app.add_option("--clients", options.most_clients, "Clients that are served at once")
        ->check(CLI::Range(1, 900).description(""))
        ->type_name("NUMBER")
        ->capture_default_str();
    app.add_option("--log-level", options.log_level, "Least severe messages that are logged: 3 errors ... 7 everything")
        ->check(CLI::Range(0, 7).description(""))
        ->type_name("LEVEL")
        ->capture_default_str();
}

}  // namespace

bool parse_options(int count, char** arguments, Options& options, int& exit_code) {
    CLI::App app(description, "vpdd");
    app.set_version_flag("--version", std::string("vpdd ") + VPDD_VERSION);
    app.footer(footer);
    app.failure_message([](const CLI::App*, const CLI::Error& error) {
        return std::string("vpdd: ") + error.what() + "\nTry 'vpdd --help'.\n";
    });
    declare_platform(app, options);
    declare_serving(app, options);
    try {
        app.parse(count, arguments);
        return true;
    } catch (const CLI::ParseError& error) {
        exit_code = app.exit(error) == 0 ? exit_ok : exit_usage;
        return false;
    }
}

}  // namespace vpdd::daemon
