// SPDX-License-Identifier: Apache-2.0
#include "host/document.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <fstream>
#include <iterator>
#include <system_error>

#include "host/schema_check.h"

namespace vpdd::host {

namespace {

/// nlohmann's text without its exception number in front.
std::string without_number(const std::string& text) {
    const auto end = text.find("] ");
    return end == std::string::npos ? text : text.substr(end + 2);
}

/// The checks and the destruction of a document recurse.
bool limit_depth(int depth, Json::parse_event_t, const Json&) {
    constexpr int deepest = 64;
    if (depth > deepest) throw DescriptionError(Json::json_pointer(), "nested more than 64 deep");
    return true;
}

}  // namespace

Json checked_document(std::string_view text, std::string_view schema) try {
    Json document = Json::parse(text, limit_depth);
    if (const auto problem = schema_problem(document, Json::parse(schema)))
        throw DescriptionError(problem->place, problem->reason);
    return document;
} catch (const Json::parse_error& error) {
    throw DescriptionError(without_number(error.what()));
}

Bytes file_content(const std::filesystem::path& path) {
    errno = 0;
    std::ifstream file(path, std::ios::binary);
    Bytes content{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    if (!file.is_open() || file.bad() || std::filesystem::is_directory(path))
        throw std::system_error(errno, std::generic_category(), path.string());
    return content;
}

Bytes bytes_of_hex(std::string_view digits) {
    Bytes bytes;
    for (std::size_t position = 0; position + 1 < digits.size(); position += 2) {
        uint8_t byte = 0;
        std::from_chars(&digits[position], &digits[position] + 2, byte, 16);
        bytes.push_back(byte);
    }
    return bytes;
}

}  // namespace vpdd::host
