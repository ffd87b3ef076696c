// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace vpdd::cli {

/// How standard output wants to be written to.
struct Style {
    bool bold = false;  ///< headings stand out: only on a terminal, and not with NO_COLOR set
    std::size_t width = 100;

    std::string heading(std::string_view text) const;
};

/// The style for standard output as it is connected now.
Style output_style();

/// One line on standard error that says how far a long operation is; nothing at all when that is not a terminal.
class ProgressLine {
public:
    ProgressLine();
    ~ProgressLine();
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;

    void show(std::string_view activity, uint32_t number, uint32_t total);
    void erase();

private:
    bool visible_;
    bool shown_ = false;
};

}  // namespace vpdd::cli
