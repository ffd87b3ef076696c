// SPDX-License-Identifier: Apache-2.0
#include "cli/time_text.h"

#include <ctime>

namespace vpdd::cli {

namespace {

using Converter = std::tm* (*)(const std::time_t*, std::tm*);

/// The number itself for a time that has no calendar date.
std::string formatted(int64_t seconds, Converter convert, const char* format) {
    const auto time = static_cast<std::time_t>(seconds);
    std::tm calendar{};
    char text[64];
    if (convert(&time, &calendar) == nullptr) return std::to_string(seconds);
    return {text, std::strftime(text, sizeof text, format, &calendar)};
}

}  // namespace

std::string local_time_text(int64_t seconds) { return formatted(seconds, localtime_r, "%Y-%m-%d %H:%M:%S"); }

std::string local_minute_text(int64_t seconds) {
    constexpr std::size_t length = std::string_view("2026-11-20 10:31").size();
    return local_time_text(seconds).substr(0, length);
}

std::string utc_time_text(int64_t seconds) { return formatted(seconds, gmtime_r, "%Y-%m-%dT%H:%M:%SZ"); }

}  // namespace vpdd::cli
