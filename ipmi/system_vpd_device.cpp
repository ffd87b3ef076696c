// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <array>
#include <cstring>

#include "base/heap.h"
#include "orva_vpdd.h"
#include "platform/ipmi_stack.h"
#include "platform/system_vpd.h"

namespace {

constexpr uint32_t system_vpd = 0;  // device instance
constexpr uint32_t chunk_limit = 244;
constexpr uint32_t answer_capacity = 256;

/// Reads one chunk; `answer_length` receives the bytes returned, completion code included.
int read_chunk(uint16_t offset, uint32_t count, std::array<uint8_t, answer_capacity>& answer, uint32_t& answer_length) {
    // Target address, OEM network function, LUN, OEM system-VPD read, offset, device, count.
    const std::array<uint8_t, 8> frame{0x20,
                                       0x3A,
                                       0x00,
                                       0x0B,
                                       static_cast<uint8_t>(offset),
                                       static_cast<uint8_t>(offset >> 8U),
                                       0x10,
                                       static_cast<uint8_t>(count)};
    uint32_t frame_length = frame.size();
    answer_length = answer_capacity;
    const int result = send_ipmi_cmd(frame.data(), &frame_length, answer.data(), &answer_length);
    answer_length = std::min(answer_length, answer_capacity);
    return result;
}

}  // namespace

extern "C" int readvpd_from_ipmi(uint32_t length, uint8_t* dest) {
    if (dest == nullptr) return -1;
    std::memset(dest, 0, length);

    // Every chunk may append a whole answer, and the text begins at scratch byte 1.
    const std::size_t chunks = std::max<std::size_t>(1, length / chunk_limit + (length % chunk_limit != 0 ? 1 : 0));
    std::size_t scratch_size = 0;
    if (__builtin_mul_overflow(chunks, std::size_t{answer_capacity}, &scratch_size)) return -1;
    const auto scratch = vpdd::allocate_zeroed_bytes(scratch_size);
    if (scratch == nullptr) return -1;

    std::size_t used = 0;
    uint16_t offset = 0;
    uint32_t remaining = length;
    do {
        std::array<uint8_t, answer_capacity> answer{};
        uint32_t answer_length = 0;
        const uint32_t chunk = std::min(remaining, chunk_limit);
        const int result = read_chunk(offset, chunk, answer, answer_length);
        if (result != 0) return result;
        if (chunk > answer_length) return -1;

        // Deliberate: each chunk's completion code stays in the data.
        std::memcpy(scratch.get() + used, answer.data(), answer_length);
        used += answer_length;
        offset = static_cast<uint16_t>(offset + chunk);
        remaining -= chunk;
    } while (remaining > 0);

    std::memcpy(dest, scratch.get() + 1, length);
    return 0;
}

extern "C" uint8_t* sysvpd_read(uint32_t offset, uint32_t length, uint8_t* buf) {
    if (buf == nullptr) return nullptr;
    return c_vpd_read(system_vpd, offset, length, buf);
}

extern "C" int sysvpd_write(uint32_t offset, uint32_t length, uint8_t* buf) {
    if (buf == nullptr) return 0;
    return c_vpd_write(system_vpd, offset, length, buf, 1);
}
