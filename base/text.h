// SPDX-License-Identifier: Apache-2.0
// Bounded text: every field of a record is filled through one of these.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace vpdd {

/// The text at `text` up to its terminator, at most `limit` bytes.
inline std::string_view bounded_view(const void* text, std::size_t limit) {
    const auto* characters = static_cast<const char*>(text);
    return {characters, strnlen(characters, limit)};
}

/// Fills a whole field: at most `limit` characters of `text`, zeros behind them.
template <std::size_t Size>
void assign_text(char (&field)[Size], std::string_view text, std::size_t limit = Size - 1) {
    if (limit > Size - 1) limit = Size - 1;
    const std::size_t length = text.size() < limit ? text.size() : limit;
    if (length > 0) std::memcpy(field, text.data(), length);  // an empty text may have no address
    std::memset(field + length, 0, Size - length);
}

/// A null text empties the field.
template <std::size_t Size>
void assign_text(char (&field)[Size], const char* text, std::size_t limit = Size - 1) {
    if (limit > Size - 1) limit = Size - 1;
    assign_text(field, text == nullptr ? std::string_view{} : bounded_view(text, limit), limit);
}

/// A copy of a field that may lack its terminator, as it does in an entry read from flash.
template <std::size_t Size>
struct Terminated {
    explicit Terminated(const char (&field)[Size]) { std::memcpy(text, field, Size); }
    const char* c_str() const { return text; }
    char text[Size + 1] = {};
};

/// Two decimal digits packed into a byte; nibbles above 9 are not rejected.
constexpr uint32_t bcd_value(uint8_t packed) { return (packed >> 4U) * 10U + (packed & 0x0FU); }

}  // namespace vpdd
