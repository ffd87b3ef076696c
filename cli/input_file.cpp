// SPDX-License-Identifier: Apache-2.0
#include "cli/input_file.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>

#include "cli/display_text.h"

namespace vpdd::cli {

namespace {

constexpr std::size_t largest_image = std::size_t{64} * 1024;

int hex_digit(char character) {
    if (character >= '0' && character <= '9') return character - '0';
    if (character >= 'a' && character <= 'f') return character - 'a' + 10;
    if (character >= 'A' && character <= 'F') return character - 'A' + 10;
    return -1;
}

bool is_text(const std::vector<uint8_t>& content) {
    for (const uint8_t byte : content) {
        const bool blank = byte == '\t' || byte == '\n' || byte == '\r';
        if (!blank && (byte < 0x20 || byte > 0x7E)) return false;
    }
    return true;
}

/// "00000010:", or the colonless "00000010" of `hexdump -C`.
bool is_offset(const std::string& word) { return word.back() == ':' || word.size() >= 7; }

bool append_hex_word(std::vector<uint8_t>& out, const std::string& word) {
    if (word.size() % 2 != 0) return false;
    for (std::size_t position = 0; position < word.size(); position += 2) {
        const int high = hex_digit(word[position]);
        const int low = hex_digit(word[position + 1]);
        if (high < 0 || low < 0) return false;
        out.push_back(static_cast<uint8_t>(high << 4 | low));
    }
    return true;
}

/// The part of a line that holds bytes: no comment, and no column of characters at the end.
std::string bytes_part(std::string line) {
    line.erase(std::min(line.find_first_of("#|"), line.size()));
    const std::size_t colon = line.find(": ");
    const std::size_t bytes = colon == std::string::npos ? 0 : colon + 2;
    if (colon != std::string::npos) line.erase(std::min(line.find("  ", bytes), line.size()));
    return line;
}

std::optional<std::vector<uint8_t>> parse_hex_dump(const std::vector<uint8_t>& content) {
    std::vector<uint8_t> out;
    std::istringstream lines(std::string(content.begin(), content.end()));
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(bytes_part(line));
        bool first = true;
        for (std::string word; words >> word; first = false) {
            if (first && is_offset(word)) continue;
            if (!append_hex_word(out, word)) return std::nullopt;
        }
    }
    return out;
}

}  // namespace

std::vector<uint8_t> read_image(const std::string& path) {
    const std::string name = displayable(path);
    std::error_code ignored;
    if (std::filesystem::is_directory(path, ignored)) throw BadInput(name + ": is a directory, not an image");
    std::ifstream file(path, std::ios::binary);
    if (!file) throw BadInput(name + ": cannot open: " + std::strerror(errno));
    std::vector<uint8_t> content(largest_image + 1);
    file.read(reinterpret_cast<char*>(content.data()), static_cast<std::streamsize>(content.size()));
    if (file.bad()) throw BadInput(name + ": cannot read: " + std::strerror(errno));
    content.resize(static_cast<std::size_t>(file.gcount()));
    if (content.empty()) throw BadInput(name + ": the file is empty");
    if (content.size() > largest_image) throw BadInput(name + ": larger than 64 KiB, which no SPD or FRU image is");
    return content;
}

std::vector<uint8_t> without_hex_dump(std::vector<uint8_t> content) {
    if (!is_text(content)) return content;
    std::optional<std::vector<uint8_t>> bytes = parse_hex_dump(content);
    return bytes.has_value() && !bytes->empty() ? *std::move(bytes) : content;
}

}  // namespace vpdd::cli
