// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace vpdd::cli {

enum class ChecksumState { right, wrong, missing };

/// One CRC of an SPD image.
struct SpdChecksum {
    std::string covers;   ///< "bytes 0-125"
    ChecksumState state;  ///< missing: the image ends before it
    uint16_t stored;
    uint16_t calculated;
};

const char* checksum_name(ChecksumState state);

/// The checksums of a DDR3, DDR4, NVDIMM or DDR5 image, by the library's CRC; none for other memory.
std::vector<SpdChecksum> spd_checksums(std::span<const uint8_t> image);

}  // namespace vpdd::cli
