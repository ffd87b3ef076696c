// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cstring>

#include "base/log_line.h"
#include "orva_vpdd.h"
#include "platform/system_vpd.h"

using namespace vpdd;

namespace {

constexpr uint32_t system_vpd = 0;  // device instance

constexpr uint32_t oem_field_size = 32;
constexpr uint32_t field_size_limit = 1024;  // a field of this size is refused

struct PaddedField {
    uint32_t id;
    void (*justify)(char* text);
};

/// Fields whose padding is normalised; all others are handed on as read.
constexpr PaddedField padded_fields[] = {
    {9, right_justified},   // serial number, 7-digit form
    {10, left_justified},   // asset id
    {11, left_justified},   // card part number
    {12, left_justified},   // card FRU number
    {13, left_justified},   // card serial number
    {14, right_justified},  // manufacturer id
    {46, right_justified},  // sub-manufacturer
    {48, left_justified},   // product name
    {49, left_justified},   // not used here
    {50, left_justified},   // EC level
    {51, left_justified},   // second part number
    {52, left_justified},   // second serial number
    {53, left_justified},   // full manufacturer name
    {54, left_justified},   // ISMP name
    {57, right_justified},  // serial number, 10-digit form
    {58, left_justified},   // not used here
    {60, oem_justified},    // OEM machine type/model
    {61, oem_justified},    // OEM serial number
    {62, oem_justified},    // OEM card part number
    {63, oem_justified},    // OEM card serial number
    {65, oem_justified},    // OEM manufacturer id; 64 deliberately has no rule
};

void normalise_padding(uint32_t id, char* text) {
    for (const PaddedField& field : padded_fields) {
        if (field.id == id) field.justify(text);
    }
}

}  // namespace

extern "C" int sysvpd_read_field(uint32_t id, uint32_t max_length, uint8_t* dest) {
    const uint32_t size = c_vpd_read_field_size(system_vpd, id);
    if (size >= field_size_limit) {
        trace_line(TraceLevel::failure, __func__, "UNSUPPORT FIELD[%08x] SIZE[%d]", id, static_cast<int>(size));
        return 0;
    }
    uint8_t field[field_size_limit] = {};
    const int result = c_vpd_read_field(system_vpd, id, size, field);
    if (result == 0) {
        trace_line(TraceLevel::failure, __func__, "c_vpd_read_field FAIL, offset[%08x]", id);
        return 0;
    }

    // The rule sees what the caller gets, ended by zeros, but in a buffer whose end is known.
    const uint32_t length = std::min(size, max_length);
    std::memset(field + length, 0, sizeof field - length);
    normalise_padding(id, reinterpret_cast<char*>(field));
    std::memcpy(dest, field, length);
    return result;
}

extern "C" void left_justified(char* text) {
    if (text == nullptr) return;
    for (std::size_t length = std::strlen(text); length > 0 && text[length - 1] == ' '; --length) {
        text[length - 1] = '\0';
    }
}

extern "C" void right_justified(char* text) {
    if (text == nullptr) return;
    const std::size_t length = std::strlen(text);
    const std::size_t leading = std::strspn(text, " ");
    if (leading == length) return;  // deliberate: an all-space text stays, unlike in left_justified()
    std::memmove(text, text + leading, length - leading + 1);
}

extern "C" void oem_justified(char* text) {
    if (text == nullptr) return;
    const std::size_t first_zero = strnlen(text, oem_field_size - 1);
    if (first_zero == oem_field_size - 1) return;

    // Deliberate: a text that starts at byte 0 is dropped, and nothing ends a text that reaches the last byte.
    const char* behind = text + first_zero + 1;
    const std::size_t room = oem_field_size - first_zero - 1;
    const std::size_t length = strnlen(behind, room);
    std::memmove(text, behind, std::min(length + 1, room));
}
