// SPDX-License-Identifier: Apache-2.0
#include "ipmi/fru_format.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "base/heap.h"

extern "C" const char fru_bcd_array[17] = "0123456789 -.???";

namespace {

constexpr std::size_t area_unit = 8;  // area offsets count multiples of 8 bytes

/// The area at an offset byte of the common header, null outside its accepted range.
const uint8_t* area_at(const uint8_t* image, uint8_t offset, uint8_t highest) {
    return offset >= 1 && offset <= highest ? image + area_unit * offset : nullptr;
}

}  // namespace

namespace vpdd {

void decode_field_data(const uint8_t* field, const FieldHead& head, uint8_t* dest) {
    const uint8_t* data = field + 1;
    if (head.type != field_bcd_plus) {
        std::memcpy(dest, data, head.length);  // 6-bit ASCII stays packed
        return;
    }
    // Deliberate: one character a byte, not one a digit.
    for (uint32_t i = 0; i < head.length; ++i) {
        dest[i] = static_cast<uint8_t>(data[i] <= 15 ? fru_bcd_array[data[i]] : '?');
    }
}

}  // namespace vpdd

extern "C" int parse_fru_header(const uint8_t* image, FruAreaPointers* out) {
    if (image == nullptr || out == nullptr) return -1;
    // IPMI FRU 8: common header. Deliberate: only the product area's offset may reach 63.
    out->chassis = area_at(image, image[2], 31);
    out->board = area_at(image, image[3], 31);
    out->product = area_at(image, image[4], 63);
    out->multirecord = area_at(image, image[5], 31);
    return 0;
}

extern "C" int fru_tlv2raw(const uint8_t* field, FruField* out, const uint8_t** next, const uint8_t* end) {
    if (field == nullptr || out == nullptr || next == nullptr || end == nullptr) return -1;

    const vpdd::FieldHead head = vpdd::read_field_head(field, end);
    if (head.length == 0) {
        out->data = nullptr;
        out->length = 0;
        *next = head.next;
        return 0;
    }

    auto data = vpdd::allocate_zeroed_bytes(std::size_t{head.length} + 1);
    if (data == nullptr) {
        const int error = errno;
        out->data = nullptr;
        perror("malloc");
        return error;
    }
    vpdd::decode_field_data(field, head, data.get());
    out->type = head.type;
    out->length = head.length;
    out->data = data.release();
    *next = head.next;
    return 0;
}

extern "C" int ipmi_fru_get_checksum(const uint8_t* bytes, int32_t count) {
    uint8_t sum = 0;
    for (int32_t i = 0; i < count; ++i) sum = static_cast<uint8_t>(sum + bytes[i]);
    return sum;
}
