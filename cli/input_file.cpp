// SPDX-License-Identifier: Apache-2.0
#include "cli/input_file.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string_view>

#include "cli/display_text.h"
#include "cli/hex_dump.h"

namespace vpdd::cli {

namespace {

constexpr std::size_t largest_image = std::size_t{64} * 1024;
/// That of an image with a line of 16 characters for each byte.
constexpr std::size_t largest_dump = largest_image * 16;

std::string_view text_of(const std::vector<uint8_t>& content) {
    return {reinterpret_cast<const char*>(content.data()), content.size()};
}

/// No image is a text: both formats have control characters among their first bytes.
bool is_text(std::string_view content) {
    const auto is_binary = [](char character) {
        const bool blank = character == '\t' || character == '\n' || character == '\r';
        return !blank && (static_cast<uint8_t>(character) < 0x20 || character == 0x7F);
    };
    return std::ranges::none_of(content, is_binary) && is_utf8(content);
}

std::vector<uint8_t> content_of(const std::string& path) {
    const std::string name = displayable(path);
    std::error_code ignored;
    if (std::filesystem::is_directory(path, ignored)) throw BadInput(name + ": is a directory, not an image");
    std::ifstream file(path, std::ios::binary);
    if (!file) throw BadInput(name + ": cannot open: " + std::strerror(errno));
    std::vector<uint8_t> content(largest_dump + 1);
    file.read(reinterpret_cast<char*>(content.data()), static_cast<std::streamsize>(content.size()));
    if (file.bad()) throw BadInput(name + ": cannot read: " + std::strerror(errno));
    content.resize(static_cast<std::size_t>(file.gcount()));
    return content;
}

}  // namespace

void require_directory(const std::string& path) {
    std::error_code ignored;
    if (!std::filesystem::is_directory(path, ignored)) throw BadInput(displayable(path) + ": is no directory");
}

std::vector<uint8_t> read_image(const std::string& path) {
    const std::string name = displayable(path);
    std::vector<uint8_t> content = content_of(path);
    if (content.empty()) throw BadInput(name + ": the file is empty");
    const bool is_dump = is_text(text_of(content));
    if (content.size() > (is_dump ? largest_dump : largest_image)) {
        throw BadInput(name + ": larger than 64 KiB, which no SPD or FRU image is");
    }
    if (!is_dump) return content;
    try {
        return read_hex_dump(text_of(content), largest_image);
    } catch (const UnreadableDump& error) {
        throw BadInput(name + ": no hex dump that can be read: " + error.what());
    }
}

}  // namespace vpdd::cli
