// SPDX-License-Identifier: Apache-2.0
// Makes checksums right that would keep a fuzzer out.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <span>

#include "fuzz/platform.h"
#include "host/images/bytes.h"

namespace vpdd::fuzz {

/// Both checksums of each multirecord (IPMI FRU 16.1), to the list's or the image's end.
inline void seal_multirecords(std::span<uint8_t> list) {
    constexpr std::size_t header_size = 5;
    while (list.size() >= header_size) {
        const auto data = list.subspan(header_size, std::min<std::size_t>(list[2], list.size() - header_size));
        list[3] = images::zero_checksum(data);
        list[4] = images::zero_checksum(list.first(header_size - 1));
        if ((list[1] & 0x80) != 0) return;
        list = list.subspan(header_size + data.size());
    }
}

/// The multirecords of a whole FRU image.
inline void seal_fru_image(std::span<uint8_t> image) {
    if (image.size() < 8 || image[5] == 0 || image[5] * 8U >= image.size()) return;
    seal_multirecords(image.subspan(image[5] * 8U));
}

/// SPD bytes 126 and 127.
inline void seal_spd(std::span<uint8_t> spd) {
    if (spd.size() < 128) return;
    const uint16_t crc = __crc16(spd.data(), (spd[0] & 0x80) != 0 ? 117 : 126);
    spd[126] = __getlsb(crc);
    spd[127] = __getmsb(crc);
}

/// The checksum of each whole entry of an activity log.
inline void seal_log(std::span<uint8_t> log) {
    for (; log.size() >= sizeof(ComponentVpdRecord); log = log.subspan(sizeof(ComponentVpdRecord))) {
        const uint32_t crc = calc_crc(log.data(), offsetof(ComponentVpdRecord, crc));
        std::memcpy(log.data() + offsetof(ComponentVpdRecord, crc), &crc, sizeof crc);
    }
}

}  // namespace vpdd::fuzz
