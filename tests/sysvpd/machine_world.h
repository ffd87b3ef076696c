// SPDX-License-Identifier: Apache-2.0
// The machine that the tests of the machine records look at.
#pragma once

#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "fake_platform.h"
#include "host/images/fru_image.h"
#include "orva_vpdd.h"

namespace vpdd::test {

constexpr int warning = 12;
constexpr int info = 14;
constexpr int progress = 2;
constexpr int failure = 4;

inline uint8_t* bytes(MachineVpdRecord& record) { return reinterpret_cast<uint8_t*>(&record); }
inline uint8_t* bytes(OemMachineRecord& record) { return reinterpret_cast<uint8_t*>(&record); }
inline uint8_t* bytes(MachineFieldsRecord& record) { return reinterpret_cast<uint8_t*>(&record); }

/// A record in which every byte that nobody wrote is seen.
template <class Record>
Record unwritten() {
    Record record;
    std::memset(&record, 0xEE, sizeof record);
    return record;
}

template <class Record>
Bytes content(const Record& record) {
    const auto* first = reinterpret_cast<const uint8_t*>(&record);
    return Bytes(first, first + sizeof record);
}

/// Whether a field holds the text and zeros behind it.
template <std::size_t Size>
testing::AssertionResult holds(const char (&field)[Size], std::string_view text) {
    std::string expected(text);
    expected.resize(Size, '\0');
    const std::string actual(field, Size);
    if (text.size() < Size && actual == expected) return testing::AssertionSuccess();
    return testing::AssertionFailure() << "holds " << testing::PrintToString(actual) << " instead of "
                                       << testing::PrintToString(expected);
}

/// Fills every field of the system VPD that the records are made of; also those that only other kinds of machine read.
inline void set_system_vpd(FakePlatform& platform) {
    using namespace std::string_view_literals;
    platform.field(1, Bytes{0x03, 0x00});
    platform.field(4, Bytes{0x02});
    platform.field(5, Bytes{0x12, 0x34});
    platform.field(6, Bytes{0x00, 0x00});
    platform.field(7, Bytes{0x56, 0x78});
    platform.field(8, "7X06AC1"sv);
    platform.field(9, "  J30A123"sv);
    platform.field(10, "ASSET-0042  "sv);
    platform.field(11, "SB27A12345  "sv);
    platform.field(12, "01PE123     "sv);
    platform.field(13, "Y010UF12345  "sv);
    platform.field(14, "    ACME"sv);
    platform.field(18, "1021      "sv);
    for (uint8_t n = 1; n <= 8; ++n) platform.field(18U + n, Bytes{0x02, 0x00, 0x5E, 0x10, 0xAB, n, 0xFF, 0xFF});
    platform.field(
        27, Bytes{0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88, 0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF,
                  0x01, 0x01, 0x01, 0x01, 0x01, 0x01, 0x01, 0x01, 0x01, 0x01, 0x01, 0x01, 0x01, 0x01, 0x01, 0x01});
    platform.field(40, Bytes{0x00, 0x00, 0x7E, 0xD9});
    platform.field(46, "  LX"sv);
    platform.field(48, "Rack server, two sockets   "sv);
    platform.field(50, "EC01234   "sv);
    platform.field(51, "PN2-00001   "sv);
    platform.field(52, "SN2-00001   "sv);
    platform.field(53, "Example Works                   "sv);
    platform.field(54, "ISMP-A          "sv);
    platform.field(56, "7X06A01234"sv);
    platform.field(57, "  0123456789"sv);
    platform.field(60, "hidden\0OEM-MTM\0"sv);
    platform.field(61, "\0OEM-SERIAL\0"sv);
    platform.field(62, "\0OEM-CARD-PART\0"sv);
    platform.field(63, "\0OEM-CARD-SERIAL\0"sv);
    platform.field(65, "\0OEM-MAKER\0"sv);
    for (uint32_t level = 1; level <= 6; ++level) platform.field(80 + level, "LEVEL-" + std::to_string(level));
    Bytes ports;
    for (unsigned i = 0; i < 64; ++i) ports.push_back(static_cast<uint8_t>(0xA0 + i));
    platform.field(108, ports);
}

inline void make_oem(FakePlatform& platform) { platform.field(6, Bytes{0xFF, 0xEE}); }
inline void set_version(FakePlatform& platform, uint16_t version) {
    platform.field(1, Bytes{static_cast<uint8_t>(version >> 8), static_cast<uint8_t>(version)});
}
inline void set_format(FakePlatform& platform, uint8_t format) { platform.field(4, Bytes{format}); }

/// The two bytes that the machine is classified by.
inline void set_posid(FakePlatform& platform, uint8_t first, uint8_t second) {
    Bytes device(16);
    device[0x0A] = first;
    device[0x0B] = second;
    platform.device(device);
}

inline Bytes machine_fru(const std::vector<images::Field>& custom) {
    return images::FruImage()
        .product({.manufacturer = "Maker",
                  .name = "Product",
                  .part = "Part",
                  .version = "Version",
                  .serial = "Serial",
                  .asset_tag = "Tag",
                  .custom = custom})
        .build();
}

/// Seven pairs whose texts show their number.
inline Bytes seven_pairs() {
    std::vector<images::Field> custom;
    for (int pair = 0; pair < 7; ++pair) {
        custom.emplace_back("LABEL-" + std::to_string(pair));
        custom.emplace_back("VALUE-" + std::to_string(pair));
    }
    return machine_fru(custom);
}

/// The host MACs of an earlier test are forgotten.
class MachineTest : public PlatformTest {
protected:
    MachineTest() {
        isHostMacCache = 0;
        std::memset(host_mac_cache, 0, sizeof host_mac_cache);
    }
};

}  // namespace vpdd::test
