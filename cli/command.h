// SPDX-License-Identifier: Apache-2.0
// The verbs of vpdctl. A new verb is a file with a `declare_*` function, declared here and listed in commands.cpp.
#pragma once

#include <functional>
#include <span>
#include <stdexcept>

#include "cli/exit_code.h"

namespace CLI {
class App;
}

namespace vpdd::cli {

/// The arguments ask for what cannot be done; the text says why.
class WrongUsage : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

using Runner = std::function<ExitCode()>;

struct Command {
    const char* name;
    const char* summary;
    const char* details;           ///< stands at the end of the verb's help: what it shows, and examples
    Runner (*declare)(CLI::App&);  ///< adds the verb's arguments and returns what carries it out
};

/// All verbs, in the order of the help.
std::span<const Command> commands();

Runner declare_inventory(CLI::App& verb);
Runner declare_firmware(CLI::App& verb);
Runner declare_property(CLI::App& verb);
Runner declare_slots(CLI::App& verb);
Runner declare_report(CLI::App& verb);
Runner declare_spd(CLI::App& verb);
Runner declare_fru(CLI::App& verb);
Runner declare_machine(CLI::App& verb);
Runner declare_status(CLI::App& verb);
Runner declare_log(CLI::App& verb);
Runner declare_history(CLI::App& verb);
Runner declare_watch(CLI::App& verb);
Runner declare_simulate(CLI::App& verb);

}  // namespace vpdd::cli
