// SPDX-License-Identifier: Apache-2.0
// Options that several verbs have, with the same words in the help of each.
#pragma once

#include <string>

#include "cli/server_session.h"

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace vpdd::cli {

/// --server, which has to be given.
CLI::Option* add_server_option(CLI::App& verb, std::string& server);
/// --server, or --platform and --bmc; without them the verb asks the daemon.
void add_server_choice(CLI::App& verb, ServerChoice& choice);
void add_json_option(CLI::App& verb, bool& json);
void add_log_option(CLI::App& verb, std::string& log);
/// --real-time and --log.
void add_session_options(CLI::App& verb, SessionOptions& session);
/// --wait, of the verbs that ask the daemon.
void add_wait_option(CLI::App& verb, DaemonPatience& patience);
/// --state, which may also come from the environment.
CLI::Option* add_state_option(CLI::App& verb, std::string& state_directory, const std::string& meaning);

}  // namespace vpdd::cli
