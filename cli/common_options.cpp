// SPDX-License-Identifier: Apache-2.0
#include "cli/common_options.h"

#include <CLI/CLI.hpp>

namespace vpdd::cli {

CLI::Option* add_server_option(CLI::App& verb, std::string& server) {
    return verb.add_option("--server", server, "Description of the server, or the name of one that came with vpdctl")
        ->required()
        ->type_name("FILE");
}

void add_server_choice(CLI::App& verb, ServerChoice& choice) {
    CLI::Option* server = verb.add_option("--server", choice.server,
                                          "Do without vpdd and read the server that FILE describes, or one that came "
                                          "with vpdctl")
                              ->type_name("FILE");
    verb.add_option("--platform", choice.platform, "\"ipmi\": a real BMC is asked; \"host\": the server is described")
        ->type_name("NAME")
        ->check(CLI::IsMember({"host", "ipmi"}).description(""));
    verb.add_option("--bmc", choice.bmc, "How the BMC is reached, a platform file; implies --platform ipmi")
        ->type_name("FILE")
        ->excludes(server);
}

void add_json_option(CLI::App& verb, bool& json) { verb.add_flag("--json", json, "Print JSON instead of tables"); }

void add_log_option(CLI::App& verb, std::string& log) {
    verb.add_option("--log", log, "Write the library's messages to FILE; - is standard error")->type_name("FILE");
}

void add_session_options(CLI::App& verb, SessionOptions& session) {
    verb.add_flag("--real-time", session.real_time, "Wait as long as the firmware does between its attempts");
    add_log_option(verb, session.log);
}

void add_wait_option(CLI::App& verb, DaemonPatience& patience) {
    constexpr unsigned longest = 3600;
    verb.add_option_function<unsigned>(
            "--wait",
            [&patience](unsigned seconds) {
                patience = {seconds, true};
            },
            "Wait so long for vpdd to run and to have read the components; without it 30 seconds for one that runs")
        ->type_name("SECONDS")
        ->check(CLI::Range(0U, longest).description(""));
}

CLI::Option* add_state_option(CLI::App& verb, std::string& state_directory, const std::string& meaning) {
    return verb.add_option("--state", state_directory, meaning)->type_name("DIR")->envname("VPDD_STATE_DIRECTORY");
}

}  // namespace vpdd::cli
