// SPDX-License-Identifier: Apache-2.0
#include "host/images/property_tlv.h"

#include <stdexcept>

namespace vpdd::images {

namespace {

Bytes tlv(uint8_t head, std::span<const uint8_t> data) {
    Bytes bytes;
    bytes.reserve(1 + data.size());
    bytes.push_back(head);
    append(bytes, data);
    return bytes;
}

}  // namespace

Bytes property_tlv(std::string_view text) {
    constexpr uint8_t string_head = 0x80;
    if (text.empty() || text.size() > longest_property_text) throw std::length_error("a property text of this length");
    return tlv(static_cast<uint8_t>(string_head | text.size()), text_bytes(text));
}

Bytes property_tlv(std::span<const uint8_t> bytes) {
    constexpr uint8_t bytes_head = 0x10, length_bits = 0x0F;  // 16 bytes have the length bits 0
    if (bytes.empty() || bytes.size() > longest_property_bytes) throw std::length_error("so many property bytes");
    return tlv(static_cast<uint8_t>(bytes_head | (bytes.size() & length_bits)), bytes);
}

}  // namespace vpdd::images
