// SPDX-License-Identifier: Apache-2.0
#include "cli/terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace vpdd::cli {

namespace {

constexpr std::size_t narrowest = 60;
constexpr const char* to_line_start_and_clear = "\r\x1b[K";

bool understands_escapes(int file) {
    if (isatty(file) == 0) return false;
    const char* terminal = std::getenv("TERM");
    return terminal != nullptr && std::string_view(terminal) != "dumb";
}

/// The NO_COLOR convention: set to anything but an empty text.
bool colour_is_unwanted() {
    const char* value = std::getenv("NO_COLOR");
    return value != nullptr && *value != '\0';
}

std::size_t terminal_width() {
    winsize size{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0) return size.ws_col;
    const char* columns = std::getenv("COLUMNS");
    return columns == nullptr ? 0 : std::strtoul(columns, nullptr, 10);
}

}  // namespace

std::string Style::heading(std::string_view text) const {
    return bold ? "\x1b[1m" + std::string(text) + "\x1b[0m" : std::string(text);
}

Style output_style() {
    Style style;
    style.bold = understands_escapes(STDOUT_FILENO) && !colour_is_unwanted();
    const std::size_t width = terminal_width();
    if (width != 0) style.width = std::max(width, narrowest);
    return style;
}

ProgressLine::ProgressLine() : visible_(understands_escapes(STDERR_FILENO)) {}

ProgressLine::~ProgressLine() { erase(); }

void ProgressLine::show(std::string_view activity, uint32_t number, uint32_t total) {
    if (!visible_) return;
    std::fprintf(stderr, "%s%.*s %u/%u", to_line_start_and_clear, static_cast<int>(activity.size()), activity.data(),
                 number, total);
    std::fflush(stderr);
    shown_ = true;
}

void ProgressLine::erase() {
    if (!shown_) return;
    std::fputs(to_line_start_and_clear, stderr);
    std::fflush(stderr);
    shown_ = false;
}

}  // namespace vpdd::cli
