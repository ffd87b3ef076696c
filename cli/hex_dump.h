// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string_view>
#include <vector>

namespace vpdd::cli {

/// The text cannot be read as a hex dump; says which line is wrong, and why.
class UnreadableDump : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The bytes of a dump written by `xxd`, `xxd -p`, `hexdump -C` or `od -A x -t x1`, or of a plain list of hexadecimal
/// bytes; `#` begins a comment. Offsets must begin with 0 and follow each other, and a `*` repeats the row before it up
/// to the next offset. Throws UnreadableDump, also for more than `most` bytes.
std::vector<uint8_t> read_hex_dump(std::string_view text, std::size_t most);

}  // namespace vpdd::cli
