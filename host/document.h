// SPDX-License-Identifier: Apache-2.0
// A JSON document: read, parsed and checked against its schema.
#pragma once

#include <cstdint>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace vpdd::host {

using Json = nlohmann::json;
using Bytes = std::vector<uint8_t>;

/// Why a description cannot be played, with the place in it.
class DescriptionError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
    DescriptionError(const Json::json_pointer& place, const std::string& reason)
        : std::runtime_error((place.empty() ? "/" : place.to_string()) + ": " + reason) {}
};

/// The parsed text, which agrees with the JSON Schema. @throws DescriptionError
Json checked_document(std::string_view text, std::string_view schema);

/// nlohmann's text without its exception number in front.
std::string reason_of(const Json::exception& error);

constexpr std::size_t largest_description = std::size_t{16} << 20U;  // bytes, far beyond any server's

/// The whole file, which must be a regular one. @throws std::runtime_error also for more than `most` bytes; the text
/// names the file
Bytes file_content(const std::filesystem::path& path, std::size_t most);

/// Pairs of digits, as the schema lets them through.
Bytes bytes_of_hex(std::string_view digits);

}  // namespace vpdd::host
