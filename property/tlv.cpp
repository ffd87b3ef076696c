// SPDX-License-Identifier: Apache-2.0
#include "property/tlv.h"

#include <algorithm>
#include <cstring>

#include "base/byte_view.h"
#include "base/heap.h"
#include "base/text.h"
#include "orva_vpdd.h"

namespace {

constexpr int bad_argument = -1;
constexpr int wrong_head = -2;
constexpr int no_memory = -3;
constexpr int wrong_count = -4;

constexpr std::size_t encoded_size = 1 + 128;  // head and room for the data, whatever the value
constexpr uint32_t most_bytes = 16;
constexpr uint32_t most_words = 8;
constexpr uint32_t most_of_other_type = 4;

// What the length bits of a head say; 0 is left to the caller.
constexpr uint32_t byte_count(uint8_t head) { return head & 0x0FU; }
constexpr uint32_t word_count(uint8_t head) { return head >> 1U & 0x07U; }
constexpr uint32_t other_count(uint8_t head) { return head >> 2U & 0x03U; }

constexpr int property_type(uint8_t head) {
    for (const int type : {vpdd::tlv_string, vpdd::tlv_bytes, vpdd::tlv_words}) {
        if ((head & type) != 0) return type;
    }
    return head & vpdd::tlv_other;
}

}  // namespace

extern "C" int vpdd_string2tlv(const char* text, uint8_t** out) {
    if (out != nullptr) *out = nullptr;
    if (text == nullptr || out == nullptr) return bad_argument;
    vpdd::HeapBlock<uint8_t> tlv = vpdd::allocate_zeroed_bytes(encoded_size);
    if (tlv == nullptr) return no_memory;

    // Deliberate: the head keeps the length modulo 128, so 128 characters give a head that no decoder takes.
    const std::size_t length = std::strlen(text);
    *tlv = static_cast<uint8_t>(vpdd::tlv_string | (length & vpdd::longest_string));
    std::memcpy(tlv.get() + 1, text, std::min<std::size_t>(length, vpdd::longest_string));
    *out = tlv.release();
    return 0;
}

extern "C" int vpdd_byte2tlv(const uint8_t* bytes, uint8_t** out, uint32_t count) {
    if (out != nullptr) *out = nullptr;
    if (bytes == nullptr || out == nullptr) return bad_argument;
    if (count < 1 || count > most_bytes) return wrong_count;
    vpdd::HeapBlock<uint8_t> tlv = vpdd::allocate_zeroed_bytes(encoded_size);
    if (tlv == nullptr) return no_memory;

    // Sixteen does not fit into the length bits: none of them is set.
    *tlv = static_cast<uint8_t>(vpdd::tlv_bytes | count % most_bytes);
    std::memcpy(tlv.get() + 1, bytes, count);
    *out = tlv.release();
    return 0;
}

extern "C" int vpdd_tlv2string(const uint8_t* tlv, char** out, uint32_t* length_out) {
    if (out != nullptr) *out = nullptr;
    if (tlv == nullptr || out == nullptr || length_out == nullptr) return bad_argument;
    const uint32_t length = vpdd::string_length(*tlv);
    if ((*tlv & vpdd::tlv_string) == 0 || length == 0) return wrong_head;
    vpdd::HeapBlock<uint8_t> text = vpdd::allocate_zeroed_bytes(length + 1);
    if (text == nullptr) return no_memory;

    const std::string_view characters = vpdd::bounded_view(tlv + 1, length);
    std::memcpy(text.get(), characters.data(), characters.size());
    *out = reinterpret_cast<char*>(text.release());
    *length_out = length;  // deliberate: also when a zero byte ends the text earlier
    return 0;
}

extern "C" int vpdd_tlv2byte(const uint8_t* tlv, uint8_t** out, uint32_t* length_out) {
    if (out != nullptr) *out = nullptr;
    if (tlv == nullptr || out == nullptr || length_out == nullptr) return bad_argument;
    if ((*tlv & vpdd::tlv_bytes) == 0) return wrong_head;  // deliberate: other type bits are not looked at
    const uint32_t length = byte_count(*tlv) != 0 ? byte_count(*tlv) : most_bytes;
    vpdd::HeapBlock<uint8_t> bytes = vpdd::allocate_zeroed_bytes(length + 1);
    if (bytes == nullptr) return no_memory;

    std::memcpy(bytes.get(), tlv + 1, length);
    *out = bytes.release();
    *length_out = length;
    return 0;
}

extern "C" int vpdd_tlv2word(const uint8_t* tlv, uint16_t** out, uint32_t* count_out) {
    if (out != nullptr) *out = nullptr;
    if (tlv == nullptr || out == nullptr || count_out == nullptr) return bad_argument;
    const uint32_t count = word_count(*tlv);
    if ((*tlv & vpdd::tlv_words) == 0 || count == 0) return wrong_head;  // deliberate: as for bytes
    vpdd::HeapBlock<uint16_t> words(static_cast<uint16_t*>(std::calloc(count, sizeof(uint16_t))));
    if (words == nullptr) return no_memory;

    for (uint32_t i = 0; i < count; ++i) words.get()[i] = vpdd::little_endian_16(tlv + 1 + i * sizeof(uint16_t));
    *out = words.release();
    *count_out = count;
    return 0;
}

extern "C" int check_property_type(const uint8_t* tlv) { return tlv == nullptr ? 0 : property_type(*tlv); }

extern "C" uint32_t vpdd_path_size(uint8_t head, uint32_t* type_out) {
    const auto or_most = [](uint32_t count, uint32_t most) { return count != 0 ? count : most; };
    if (type_out == nullptr) return 0;
    const int type = property_type(head);
    *type_out = static_cast<uint32_t>(type);
    switch (type) {
        case vpdd::tlv_string:
            return vpdd::string_length(head);
        case vpdd::tlv_bytes:
            return or_most(byte_count(head), most_bytes);
        case vpdd::tlv_words:
            return or_most(word_count(head), most_words);  // in words
        case vpdd::tlv_other:
            return or_most(other_count(head), most_of_other_type);
        default:
            return 0;
    }
}
