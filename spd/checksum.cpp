// SPDX-License-Identifier: Apache-2.0
#include <array>
#include <optional>

#include "base/log_line.h"
#include "orva_vpdd.h"
#include "spd/debug.h"
#include "spd/spd_bytes.h"

namespace {

using namespace vpdd;
using namespace vpdd::spd;

/// What each value of the upper byte brings into the register.
constexpr std::array<uint16_t, 256> make_crc_bytes() {
    constexpr uint32_t polynomial = 0x1021;
    std::array<uint16_t, 256> bytes{};
    for (uint32_t value = 0; value < 256; ++value) {
        uint32_t crc = value << 8U;
        for (int bit = 0; bit < 8; ++bit) crc = (crc & 0x8000U) != 0 ? crc << 1U ^ polynomial : crc << 1U;
        bytes[value] = static_cast<uint16_t>(crc);
    }
    return bytes;
}

constexpr std::array<uint16_t, 256> crc_bytes = make_crc_bytes();

// JEDEC 21-C Annex K, byte 0 bit 7: the CRC may leave out the bytes that a module maker writes later.
constexpr uint32_t covered_bytes = 126;
constexpr uint32_t covered_bytes_short = 117;

bool covers_less(const uint8_t* spd) { return bits(spd[first_byte], 7, 1) != 0; }

uint16_t crc_of(const uint8_t* spd, uint32_t length) { return __crc16(spd, static_cast<int32_t>(length)); }

/// The checksum that the image ought to carry; nothing when the buffer is too short for it.
std::optional<uint16_t> calculated_crc(const uint8_t* spd, uint32_t length) {
    switch (device_type(spd)) {
        case DeviceType::ddr3: {
            const uint32_t covered = covers_less(spd) ? covered_bytes_short : covered_bytes;
            if (length < covered) return std::nullopt;
            return crc_of(spd, covered);
        }
        case DeviceType::ddr4:
        case DeviceType::nvdimm:
            return crc_of(spd, covered_bytes);
        case DeviceType::ddr5:
            break;
    }
    return uint16_t{0};
}

}  // namespace

extern "C" uint16_t __crc16(const uint8_t* data, int32_t length) {
    uint32_t crc = 0;
    for (int32_t i = 0; i < length; ++i) crc = crc << 8U ^ crc_bytes[(crc >> 8U ^ data[i]) & 0xFFU];
    return static_cast<uint16_t>(crc);
}

extern "C" uint8_t __getlsb(uint16_t value) { return static_cast<uint8_t>(value & 0xFFU); }

extern "C" uint8_t __getmsb(uint16_t value) { return static_cast<uint8_t>(value >> 8U); }

extern "C" int check_spd_crc(const uint8_t* spd, uint32_t length, const int32_t* expected_crc) {
    const std::optional<uint16_t> crc = calculated_crc(spd, length);
    if (!crc) {
        log_line(log_warning, __func__, "Incorrect buffer size..\n");
        return -2;
    }

    const uint8_t low = spd[crc_byte];
    const uint8_t high = spd[crc_byte + 1];
    DBG_DIMM(debug_off, "--> %s: Calculated CRC = %X, CRC(Byte 126) = %X, CRC(Byte 127) = %X.\n", __func__, *crc, low,
             high);
    if (low != __getlsb(*crc) || high != __getmsb(*crc)) {
        log_line(log_warning, __func__, "either LSB or MSB CRC is wrong\n");
        return -1;
    }

    const auto expected = static_cast<uint16_t>(*expected_crc);  // the word's upper half does not count
    if (expected != *crc) {
        log_line(log_warning, __func__,
                 "fails to compare with the calculated CRC 0x%02x and the SPD info's CRC 0x%02x\n", *crc, expected);
        return 0;
    }
    return 1;
}
