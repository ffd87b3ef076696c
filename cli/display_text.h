// SPDX-License-Identifier: Apache-2.0
// Text that comes from devices and files, made fit for a terminal.
#pragma once

#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace vpdd::cli {

/// Printable UTF-8 as it stands, every byte of anything else as \xNN.
std::string displayable(std::string_view text);

/// Columns that a displayable text takes on a terminal.
std::size_t display_width(std::string_view text);

/// Lines of at most `width` columns, broken at blanks where there are any; at least one line.
std::vector<std::string> wrapped(std::string_view text, std::size_t width);

/// Whether the bytes are well-formed UTF-8.
bool is_utf8(std::string_view bytes);

/// Without the blanks around it.
std::string_view trimmed(std::string_view text);

/// The text of a fixed-size record field, without the blanks around it.
template <std::size_t Size>
std::string field_text(const char (&field)[Size]) {
    return std::string(trimmed({field, strnlen(field, Size)}));
}

/// "00 4F A3"
std::string hex_bytes(std::span<const uint8_t> bytes);

/// "0x4F", with at least `digits` digits.
std::string hex_number(uint32_t value, int digits = 2);

}  // namespace vpdd::cli
