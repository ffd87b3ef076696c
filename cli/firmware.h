// SPDX-License-Identifier: Apache-2.0
// The firmware images of the open server.
#pragma once

#include <array>
#include <cstddef>
#include <iosfwd>
#include <string>
#include <vector>

#include "cli/json_output.h"
#include "cli/table.h"

namespace vpdd::cli {

struct Firmware {
    std::string image;
    std::string name;
    std::array<std::string, 3> build;  ///< id, date, version; "*" for what cannot be read

    std::size_t unreadable_fields() const;
    /// Most images need not be there: a pending update, for one.
    bool is_there() const { return unreadable_fields() < build.size(); }
    bool is_in_part() const { return is_there() && unreadable_fields() > 0; }
};

/// Every image that the library knows. @param log where its traces go; null: nowhere
std::vector<Firmware> read_firmware(std::ostream* log);
/// There are images, and none was read only in part.
bool is_complete(const std::vector<Firmware>& images);

Table firmware_table(const std::vector<Firmware>& images);
Json firmware_json(const std::vector<Firmware>& images);

}  // namespace vpdd::cli
