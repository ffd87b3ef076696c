// SPDX-License-Identifier: Apache-2.0
// calc_crc() over so many bytes, so many times: on armhf the difference of two counts is what the bytes cost.
// usage: checksum_loop BYTES TIMES
#include <cstdlib>
#include <vector>

#include "orva_vpdd.h"

static volatile uint32_t sink;  // what nobody reads

int main(int argc, char** argv) {
    if (argc != 3) return EXIT_FAILURE;
    const std::vector<uint8_t> bytes(std::strtoul(argv[1], nullptr, 10), 0x5A);
    for (long times = std::strtol(argv[2], nullptr, 10); times > 0; --times) {
        sink = calc_crc(bytes.data(), static_cast<uint32_t>(bytes.size()));
    }
    return EXIT_SUCCESS;
}
