// SPDX-License-Identifier: Apache-2.0
// The rows of the change history, put together into what happened.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/chghist/vpdd_chghist.h"

namespace vpdd::cli {

enum class Happening { installed, installed_again, removed, replaced, data_changed, sensor_missing, unknown };

struct Change {
    int64_t time = 0;
    Happening happening = Happening::unknown;
    ChangeHistoryRecord row{};      ///< of the part that came, or went
    std::string previous_serial{};  ///< of the part before, where it is another one
};

/// @param rows oldest first
std::vector<Change> changes_in(const std::vector<VpddChange>& rows);

/// What the change history in use holds; nothing when it cannot be read.
std::optional<std::vector<Change>> recorded_changes();
/// Why not.
std::string unreadable_history();

/// "DIMM 3: serial 1234 replaced by 5678"
std::string sentence(const Change& change);

/// "Replaced"
std::string happening_name(Happening happening);

}  // namespace vpdd::cli
