// SPDX-License-Identifier: Apache-2.0
#include "cli/display_text.h"

#include <algorithm>
#include <clocale>
#include <cwchar>

namespace vpdd::cli {

namespace {

constexpr int unprintable = -1;

struct Character {
    std::size_t length;  ///< bytes
    int width;           ///< columns, or `unprintable`
    bool well_formed;
};

/// Characters that reorder or hide their neighbours can make one text look like another.
bool rearranges_text(wchar_t character) {
    return (character >= 0x200B && character <= 0x200F) || (character >= 0x2028 && character <= 0x202E) ||
           (character >= 0x2060 && character <= 0x206F) || character == 0xFEFF;
}

/// Only for a text that needs it: to load a locale takes as long as to print a page.
void use_utf8_text() { [[maybe_unused]] static const char* const locale = std::setlocale(LC_CTYPE, "C.UTF-8"); }

constexpr bool is_ascii(char byte) { return static_cast<uint8_t>(byte) < 0x80; }
constexpr bool is_control(char byte) { return static_cast<uint8_t>(byte) < 0x20 || byte == 0x7F; }

/// The first character of a text that is not empty.
Character first_character(std::string_view text) {
    if (is_ascii(text.front())) return {1, is_control(text.front()) ? unprintable : 1, true};
    use_utf8_text();
    wchar_t wide = 0;
    std::mbstate_t state{};
    const std::size_t length = std::mbrtowc(&wide, text.data(), text.size(), &state);
    if (length > text.size()) return {1, unprintable, false};
    if (rearranges_text(wide)) return {length, unprintable, true};
    return {length, wcwidth(wide), true};
}

void append_escaped(std::string& out, std::string_view bytes) {
    static constexpr char digits[] = "0123456789ABCDEF";
    for (const char byte : bytes) {
        const auto value = static_cast<uint8_t>(byte);
        out += {'\\', 'x', digits[value >> 4U], digits[value & 0x0FU]};
    }
}

/// Bytes of `text` that fit into `width` columns, at least one character.
std::size_t fitting_prefix(std::string_view text, std::size_t width) {
    std::size_t length = 0;
    std::size_t used = 0;
    while (length < text.size()) {
        const Character character = first_character(text.substr(length));
        used += static_cast<std::size_t>(std::max(character.width, 0));
        if (used > width && length > 0) break;
        length += character.length;
    }
    return length;
}

}  // namespace

std::string displayable(std::string_view text) {
    std::string out;
    while (!text.empty()) {
        const Character character = first_character(text);
        const std::string_view bytes = text.substr(0, character.length);
        if (character.width == unprintable) {
            append_escaped(out, bytes);
        } else {
            out += bytes;
        }
        text.remove_prefix(character.length);
    }
    return out;
}

std::size_t display_width(std::string_view text) {
    std::size_t width = 0;
    while (!text.empty()) {
        const Character character = first_character(text);
        width += static_cast<std::size_t>(std::max(character.width, 0));
        text.remove_prefix(character.length);
    }
    return width;
}

std::vector<std::string> wrapped(std::string_view text, std::size_t width) {
    std::vector<std::string> lines;
    while (display_width(text) > width) {
        std::size_t length = fitting_prefix(text, width);
        // A blank right behind the fitting part is as good a place to break as one inside it.
        const std::size_t blank = text.substr(0, length + 1).rfind(' ');
        if (blank != std::string_view::npos && blank > 0) length = blank;
        lines.emplace_back(text.substr(0, length));
        text.remove_prefix(length);
        text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
    }
    if (!text.empty() || lines.empty()) lines.emplace_back(text);
    return lines;
}

bool is_utf8(std::string_view bytes) {
    while (!bytes.empty()) {
        const Character character = first_character(bytes);
        if (!character.well_formed) return false;
        bytes.remove_prefix(character.length);
    }
    return true;
}

std::string_view trimmed(std::string_view text) {
    const std::size_t first = text.find_first_not_of(' ');
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

std::string hex_bytes(std::span<const uint8_t> bytes) {
    static constexpr char digits[] = "0123456789ABCDEF";
    std::string out;
    for (const uint8_t byte : bytes) {
        if (!out.empty()) out += ' ';
        out += {digits[byte >> 4U], digits[byte & 0x0FU]};
    }
    return out;
}

std::string hex_number(uint32_t value, int digits) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%0*X", digits, value);
    return text;
}

}  // namespace vpdd::cli
