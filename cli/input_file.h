// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace vpdd::cli {

/// The input is not usable; the text says why and names the file.
class BadInput : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The whole content of a file of 1 byte to 64 KiB. Throws BadInput.
std::vector<uint8_t> read_image(const std::string& path);

/// The bytes of a dump written by `xxd`, `hexdump -C` or a plain list of hexadecimal bytes; any other content is
/// returned as it is.
std::vector<uint8_t> without_hex_dump(std::vector<uint8_t> content);

}  // namespace vpdd::cli
