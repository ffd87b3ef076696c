// SPDX-License-Identifier: Apache-2.0
// Which components of the open server are there, and what has changed since somebody looked last.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "cli/component.h"
#include "cli/json_output.h"
#include "cli/server_session.h"
#include "cli/table.h"
#include "cli/terminal.h"

namespace vpdd::cli {

struct ComponentStatus {
    ComponentVpdRecord record;  ///< as the cache has it after the poll
    Identity who;               ///< of a part that is gone: as the activity log has it
    std::string change;         ///< since the last time; empty for what is not logged
    std::string remark;         ///< why the component was not read
    bool is_logged = true;
    bool is_looked_at = true;  ///< false: the record's status means nothing
};

struct ServerStatus {
    std::vector<ComponentStatus> components;
    bool is_complete = true;  ///< every FRU that is there was read
    std::string trouble;      ///< what vpdd could not do, for people; empty: nothing
};

/// Restores, updates and polls. The server is open, in a private root, and its cache stands. Throws std::runtime_error.
ServerStatus take_status(std::ostream* log);

/// From what the daemon has: it does not tell what has changed.
/// @param daemon_status the lines of its answer to VPDD_REQUEST_STATUS
ServerStatus served_status(const std::vector<ComponentVpdRecord>& components,
                           const std::vector<ComponentVpdRecord>& log, const std::string& daemon_status);

/// "6 components: 5 present, 1 absent; 0 changed"
std::string summary(const ServerStatus& status);
/// @param only_changes leave out what is as it was
Table status_table(const ServerStatus& status, bool only_changes);

/// @param only_changes leave out what is as it was
void print_status(std::ostream& out, const ServerStatus& status, bool only_changes, const Style& style);
Json status_json(const ServerStatus& status, bool only_changes);

}  // namespace vpdd::cli
