// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include "base/heap.h"

namespace vpdd {

/// A FRU or SPD image in a zeroed buffer that is larger than the image, so that no decoder that follows the format's
/// own offsets reads outside it: nine bytes in front for the PPIN dump of a short image; behind it a product area at
/// 504, the 1024 bytes of a DDR5 image, and one whole field (64 bytes) or multirecord (260 bytes) that begins at the
/// image's end.
class FruImage {
public:
    /// Room for an image of `size` bytes. False without memory.
    bool allocate(uint32_t size);
    /// More room; what was read stays. False without memory.
    bool enlarge(uint32_t size);

    /// Where a read of the whole image ended.
    struct ReadEnd {
        int result;          // of the last request: 0 for a complete image
        uint32_t remaining;  // bytes that were still to read, the failed chunk included
        uint32_t offset;     // of the last chunk
    };
    /// Reads `size` bytes of a FRU, 128 a request. An empty image takes one empty request.
    ReadEnd read(uint8_t fru_id, uint32_t size);

    const uint8_t* bytes() const { return block_.get() + front; }
    const uint8_t* end() const { return bytes() + size_; }
    uint32_t size() const { return size_; }

    /// The buffer is never freed.
    void leave_allocated_for_good() { static_cast<void>(block_.release()); }

private:
    static constexpr std::size_t front = 16;
    static constexpr std::size_t longest_decoded = 1024;
    static constexpr std::size_t behind = 320;

    static std::size_t buffer_size(uint32_t size) {
        return front + (size > longest_decoded ? size : longest_decoded) + behind;
    }

    HeapBlock<uint8_t> block_;
    std::size_t capacity_ = 0;  // of the whole buffer
    uint32_t size_ = 0;         // of the image
};

}  // namespace vpdd
