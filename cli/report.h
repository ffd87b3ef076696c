// SPDX-License-Identifier: Apache-2.0
// All that is known of a server, as one page.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

#include "cli/board.h"
#include "cli/change_sentences.h"
#include "cli/firmware.h"
#include "cli/inventory.h"
#include "cli/status.h"

namespace vpdd::cli {

struct Report {
    std::string server;
    int64_t time = 0;  ///< of the report, seconds since 1970
    Inventory inventory;
    std::optional<Board> board;  ///< none: the library has no map of the platform
    std::vector<Firmware> firmware;
    std::optional<ServerStatus> status;  ///< none, and no changes: nobody keeps them
    std::vector<Change> changes;

    /// Everything was read and decoded.
    bool is_complete() const;
};

/// An HTML document that needs nothing else.
void write_report_html(std::ostream& out, const Report& report);

}  // namespace vpdd::cli
