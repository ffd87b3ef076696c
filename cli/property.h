// SPDX-License-Identifier: Apache-2.0
// Properties of the open server's management controller.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "cli/json_output.h"

namespace vpdd::cli {

enum class PropertyKind {
    unknown,  ///< a single property does not tell
    text,
    bytes
};

struct Property {
    std::string path;
    PropertyKind kind = PropertyKind::unknown;
    std::string value;  ///< its bytes
};

/// Throws WrongUsage for a path that no request has room for.
void check_path(const std::string& path);

/// None: there is no such property, or it has no value. Throws std::runtime_error.
std::optional<Property> read_property(const std::string& path);
/// All properties below a path, in the controller's order. Throws std::runtime_error.
std::vector<Property> read_properties(const std::string& path);

/// A text as it stands, all else in hexadecimal.
std::string value_text(const Property& property);
Json property_json(const Property& property);

/// The properties as the folders of their paths, one below the other.
void print_property_tree(std::ostream& out, const std::string& path, const std::vector<Property>& properties);

}  // namespace vpdd::cli
