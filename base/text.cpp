// SPDX-License-Identifier: Apache-2.0
#include "base/text.h"

#include "orva_vpdd.h"

namespace {

// Carriage return and vertical tab are deliberately not in this set.
bool is_trailing_blank(char character) {
    return character == '\t' || character == '\n' || character == '\f' || character == ' ';
}

// Deliberately another set than at the end: every control character counts. Plain char may be signed.
bool is_leading_blank(char character) { return static_cast<unsigned char>(character) <= ' '; }

}  // namespace

extern "C" void trim_string(char* text) {
    if (text == nullptr) return;
    const std::size_t initial_length = std::strlen(text);
    std::size_t length = initial_length;
    while (length > 0 && is_trailing_blank(text[length - 1])) text[--length] = '\0';

    std::size_t leading = 0;
    while (leading < length && is_leading_blank(text[leading])) ++leading;
    if (leading > 0) std::memmove(text, text + leading, length - leading + 1);
}

extern "C" int hex_to_string(char* dest, uint32_t dest_size, const uint8_t* src, uint32_t count) {
    static constexpr char digits[] = "0123456789ABCDEF";
    if (count == 0 || dest_size == 0 || src == nullptr || dest == nullptr) return -2;
    if (dest_size / 2 < count) return -3;  // 2 * count may wrap in 32 bits

    std::memset(dest, 0, dest_size);
    for (uint32_t i = 0; i < count; ++i) {
        *dest++ = digits[src[i] >> 4U];
        *dest++ = digits[src[i] & 0x0FU];
    }
    return 0;
}
