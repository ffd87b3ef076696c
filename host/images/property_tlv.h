// SPDX-License-Identifier: Apache-2.0
// Property TLVs: a head byte with type and length, and the data. Paths and values of the controller's properties travel
// in this form.
#pragma once

#include "host/images/bytes.h"

namespace vpdd::images {

inline constexpr std::size_t longest_property_text = 127;  // characters
inline constexpr std::size_t longest_property_bytes = 16;

/// @throws std::length_error for an empty text and for one that is too long
Bytes property_tlv(std::string_view text);
/// @throws std::length_error for no bytes and for too many
Bytes property_tlv(std::span<const uint8_t> bytes);

}  // namespace vpdd::images
