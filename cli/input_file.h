// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace vpdd::cli {

/// The input is not usable; the text says why and names the file.
class BadInput : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Throws BadInput unless there is such a directory.
void require_directory(const std::string& path);

/// The image of 1 byte to 64 KiB in a file, raw or as the text of a hex dump. Throws BadInput; what is a text is never
/// taken for a raw image.
std::vector<uint8_t> read_image(const std::string& path);

}  // namespace vpdd::cli
