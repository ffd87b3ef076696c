// SPDX-License-Identifier: Apache-2.0
// What the tests of the SPD decoders share.
#pragma once

#include <memory>

#include "fake_platform.h"
#include "host/images/spd_image.h"

namespace vpdd::test {

using images::Ddr3Image;
using images::Ddr4Image;
using images::Ddr5Image;

inline constexpr uint8_t ddr3 = 0x0B, ddr4 = 0x0C, nvdimm = 0x0D, ddr5 = 0x12;

/// 1024 zeros but for the device type.
inline Bytes blank_image(uint8_t type) {
    Bytes image(1024);
    image[2] = type;
    return image;
}

/// A blank image with a few bytes set.
inline Bytes image_with(uint8_t type, std::initializer_list<std::pair<std::size_t, uint8_t>> bytes) {
    Bytes image = blank_image(type);
    for (const auto& [offset, value] : bytes) image.at(offset) = value;
    return image;
}

/// A record of which every byte is `value`, in a block of exactly its size.
inline std::unique_ptr<SpdInfo> record_full_of(uint8_t value) {
    auto record = std::make_unique<SpdInfo>();
    memset(record.get(), value, sizeof *record);
    return record;
}

struct Free {
    void operator()(char* text) const { free(text); }
};
using OwnedText = std::unique_ptr<char, Free>;

}  // namespace vpdd::test
