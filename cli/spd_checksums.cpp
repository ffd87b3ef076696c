// SPDX-License-Identifier: Apache-2.0
#include "cli/spd_checksums.h"

#include "cli/spd_layout.h"
#include "orva_vpdd.h"

namespace vpdd::cli {

namespace {

/// The CRC of bytes `first` to `last` stands in the two bytes at `position`, low byte first.
struct Rule {
    std::size_t first;
    std::size_t last;
    std::size_t position;
};

// Where the specifications of the generations put their checksums: JEDEC 21-C annexes K and L, JESD400-5.
constexpr Rule ddr3_short{0, 116, 126};
constexpr Rule base_block{0, 125, 126};
constexpr Rule ddr4_module_block{128, 253, 254};
constexpr Rule ddr5_base{0, 509, 510};

std::vector<Rule> rules(std::span<const uint8_t> image) {
    const bool covers_117_bytes = (image[0] & 0x80U) != 0;
    switch (image[spd_memory_type]) {
        case memory_ddr3:
            return {covers_117_bytes ? ddr3_short : base_block};
        case memory_ddr4:
            return {base_block, ddr4_module_block};
        case memory_nvdimm:
            return {image[0] == nvdimm_ddr5_layout ? ddr5_base : base_block};
        case memory_ddr5:
            return {ddr5_base};
        default:
            return {};
    }
}

SpdChecksum evaluate(const Rule& rule, std::span<const uint8_t> image) {
    SpdChecksum checksum{};
    checksum.covers = "bytes " + std::to_string(rule.first) + '-' + std::to_string(rule.last);
    if (rule.position + 1 >= image.size()) {
        checksum.state = ChecksumState::missing;
        return checksum;
    }
    checksum.stored = static_cast<uint16_t>(image[rule.position] | image[rule.position + 1] << 8);
    checksum.calculated = __crc16(image.data() + rule.first, static_cast<int32_t>(rule.last - rule.first + 1));
    checksum.state = checksum.stored == checksum.calculated ? ChecksumState::right : ChecksumState::wrong;
    return checksum;
}

}  // namespace

const char* checksum_name(ChecksumState state) {
    switch (state) {
        case ChecksumState::right:
            return "Ok";
        case ChecksumState::wrong:
            return "Bad";
        case ChecksumState::missing:
            break;
    }
    return "Missing";
}

std::vector<SpdChecksum> spd_checksums(std::span<const uint8_t> image) {
    std::vector<SpdChecksum> checksums;
    for (const Rule& rule : rules(image)) checksums.push_back(evaluate(rule, image));
    return checksums;
}

}  // namespace vpdd::cli
