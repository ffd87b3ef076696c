// SPDX-License-Identifier: Apache-2.0
#include "ipmi/fru_image.h"

#include <algorithm>
#include <cstring>

#include "orva_vpdd.h"

namespace {

constexpr uint32_t chunk_limit = 128;

}  // namespace

namespace vpdd {

bool FruImage::allocate(uint32_t size) {
    capacity_ = buffer_size(size);
    block_ = allocate_zeroed_bytes(capacity_);
    return block_ != nullptr;
}

bool FruImage::enlarge(uint32_t size) {
    const std::size_t wanted = std::max(buffer_size(size), capacity_);
    auto* grown = static_cast<uint8_t*>(std::realloc(block_.get(), wanted));
    if (grown == nullptr) return false;
    static_cast<void>(block_.release());
    block_.reset(grown);
    std::memset(grown + capacity_, 0, wanted - capacity_);
    capacity_ = wanted;
    return true;
}

FruImage::ReadEnd FruImage::read(uint8_t fru_id, uint32_t size) {
    size_ = size;
    ReadEnd at{0, size, 0};
    for (;;) {
        const uint32_t chunk = std::min(at.remaining, chunk_limit);
        at.result = read_fru(fru_id, static_cast<uint16_t>(at.offset), static_cast<uint8_t>(chunk),
                             block_.get() + front + at.offset);
        if (at.result != 0 || at.remaining == chunk) return at;
        at.remaining -= chunk;
        at.offset += chunk;
    }
}

}  // namespace vpdd
