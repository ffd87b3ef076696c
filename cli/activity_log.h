// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "orva_vpdd.h"

namespace vpdd::cli {

/// The entries of the activity log, oldest first. Throws std::runtime_error.
std::vector<ComponentVpdRecord> read_activity_log();
/// Throws std::runtime_error when the log is not empty afterwards.
void clean_activity_log();

/// "present", "absent" or "no sensor".
std::string presence_text(int32_t status);
/// What an entry says of its component at its time: "installed", "removed" or "no sensor".
std::string event_text(const ComponentVpdRecord& entry);

}  // namespace vpdd::cli
