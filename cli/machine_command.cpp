// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>

#include "cli/command.h"
#include "cli/common_options.h"
#include "cli/daemon_client.h"
#include "cli/library_output.h"
#include "cli/machine.h"

namespace vpdd::cli {

namespace {

struct Arguments {
    ServerChoice choice;
    bool oem = false;
    bool from_cache = false;
    bool offline = false;
    bool json = false;
    SessionOptions session;
};

/// Reads with one of two functions, the second one from the cache file, and keeps the library's traces apart.
template <class Record>
Record read(ServerSession& session, bool from_cache, Record (*from_device)(), Record (*from_file)()) {
    if (from_cache) session.enter_private_root();
    const LibraryOutput kept_apart(session.log());
    if (!from_cache) return from_device();
    build_machine_cache();
    return from_file();
}

template <class Record>
void show(const Record& record, bool json, Json (*to_json)(const Record&),
          void (*print)(std::ostream&, const Record&, const Style&)) {
    if (json) return print_json(std::cout, to_json(record));
    print(std::cout, record, output_style());
}

/// What this machine's daemon has, or has left in its cache files.
ExitCode run_without_server(const Arguments& arguments) {
    if (arguments.from_cache)
        throw WrongUsage("--from-cache builds the files of a described server: it needs --server");
    const ServerSession session(arguments.session);
    const DaemonClient client(session.log(), arguments.session.patience);
    if (arguments.oem) {
        show(arguments.offline ? read_cached_oem_machine() : client.oem_machine(), arguments.json, oem_machine_json,
             print_oem_machine);
    } else {
        show(arguments.offline ? read_cached_machine() : client.machine(), arguments.json, machine_json, print_machine);
    }
    return ExitCode::ok;
}

ExitCode run(const Arguments& arguments) {
    if (!arguments.choice.is_made()) return run_without_server(arguments);
    ServerSession session(arguments.session);
    session.open(arguments.choice);
    if (arguments.oem) {
        show(read(session, arguments.from_cache, read_oem_machine, read_cached_oem_machine), arguments.json,
             oem_machine_json, print_oem_machine);
    } else {
        show(read(session, arguments.from_cache, read_machine, read_cached_machine), arguments.json, machine_json,
             print_machine);
    }
    return ExitCode::ok;
}

}  // namespace

Runner declare_machine(CLI::App& verb) {
    auto arguments = std::make_shared<Arguments>();
    add_server_choice(verb, arguments->choice);
    verb.add_flag("--offline", arguments->offline, "Read the cache files that vpdd has written, without asking it")
        ->excludes("--server")
        ->excludes("--bmc");
    verb.add_flag("--oem", arguments->oem, "Show the OEM machine record");
    verb.add_flag("--from-cache", arguments->from_cache, "Build the cache files and read them");
    add_json_option(verb, arguments->json);
    add_wait_option(verb, arguments->session.patience);
    add_session_options(verb, arguments->session);
    add_state_option(verb, arguments->session.state_directory,
                     "Keep the configuration variables and the cache files in DIR");
    return [arguments] { return run(*arguments); };
}

}  // namespace vpdd::cli
