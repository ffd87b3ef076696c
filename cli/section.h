// SPDX-License-Identifier: Apache-2.0
// What is shown under one heading.
#pragma once

#include <iosfwd>
#include <string>

#include "cli/table.h"

namespace vpdd::cli {

struct Section {
    std::string title;
    Table table{};
    ValueList values{};
    std::string note{};  ///< a sentence about what is shown

    bool empty() const { return table.empty() && values.empty(); }
    /// With an empty line in front.
    void print(std::ostream& out, const Style& style) const;
    /// Without the title.
    void write_html(std::ostream& out) const;
};

}  // namespace vpdd::cli
