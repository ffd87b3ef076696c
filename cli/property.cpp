// SPDX-License-Identifier: Apache-2.0
#include "cli/property.h"

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <nlohmann/json.hpp>
#include <ostream>
#include <stdexcept>

#include "cli/command.h"
#include "cli/display_text.h"
#include "orva_vpdd.h"

namespace vpdd::cli {

namespace {

constexpr std::size_t longest_path = 127;  // characters

struct Free {
    void operator()(void* block) const { std::free(block); }
    void operator()(VpddAllProperties* list) const { freeVpddAllProperites(&list); }
};
template <class Type>
using Owned = std::unique_ptr<Type, Free>;

// The results of vpdd_get_single_property().
constexpr int controller_failed = -2;
constexpr int no_value = -3;

std::string why_not(int result) {
    return result == controller_failed ? "the controller does not answer" : "the value has a form of its own";
}

/// Whether a terminal can show it as it stands.
bool is_printable(const std::string& value) { return !value.empty() && displayable(value) == value; }

bool is_shown_as_text(const Property& property) {
    return property.kind != PropertyKind::bytes && is_printable(property.value);
}

std::string hex_text(const std::string& value) {
    return hex_bytes({reinterpret_cast<const uint8_t*>(value.data()), value.size()});
}

Property property_of(const VpddAllProperties& node) {
    constexpr uint32_t string_type = 128;
    const std::size_t length = std::min<std::size_t>(node.length, sizeof node.value);
    return {std::string(node.path, strnlen(node.path, sizeof node.path)),
            node.type == string_type ? PropertyKind::text : PropertyKind::bytes,
            std::string(reinterpret_cast<const char*>(node.value), length)};
}

/// A folder or, without parts, a property.
struct Branch {
    std::string name;
    const Property* property = nullptr;
    std::vector<Branch> parts{};
};

void grow(Branch& branch, std::string_view path, const Property& property) {
    const std::size_t slash = path.find('/');
    const std::string name(path.substr(0, slash));
    if (slash == std::string_view::npos) {
        branch.parts.push_back({name, &property});
        return;
    }
    const auto is_folder = [&](const Branch& part) { return part.property == nullptr && part.name == name; };
    auto part = std::ranges::find_if(branch.parts, is_folder);
    if (part == branch.parts.end()) part = branch.parts.insert(part, Branch{name});
    grow(*part, path.substr(slash + 1), property);
}

void print_parts(std::ostream& out, const Branch& branch, const std::string& indentation) {
    std::size_t width = 0;
    for (const Branch& part : branch.parts) {
        if (part.property != nullptr) width = std::max(width, display_width(displayable(part.name)));
    }
    for (const Branch& part : branch.parts) {
        const bool is_last = &part == &branch.parts.back();
        const std::string name = displayable(part.name);
        out << indentation << (is_last ? "└─ " : "├─ ") << name;
        if (part.property != nullptr) {
            out << std::string(width - display_width(name) + 2, ' ') << value_text(*part.property);
        }
        out << '\n';
        print_parts(out, part, indentation + (is_last ? "   " : "│  "));
    }
}

}  // namespace

void check_path(const std::string& path) {
    if (path.empty() || path.size() > longest_path) throw WrongUsage("a path has 1 to 127 characters");
}

std::optional<Property> read_property(const std::string& path) {
    uint8_t* tlv = nullptr;
    if (vpdd_string2tlv(path.c_str(), &tlv) != 0) throw std::runtime_error("no memory for the path");
    const Owned<uint8_t> request(tlv);
    void* block = nullptr;
    uint32_t length = 0;
    const int result = vpdd_get_single_property(tlv, &block, &length);
    const Owned<void> value(block);
    if (result == no_value) return {};
    if (result != 0) throw std::runtime_error(displayable(path) + " cannot be read: " + why_not(result));
    return Property{path, PropertyKind::unknown, std::string(static_cast<const char*>(block), length)};
}

std::vector<Property> read_properties(const std::string& path) {
    uint8_t* block = nullptr;
    uint32_t length = 0;
    if (vpdd_get_properties(path.c_str(), &block, &length) != 0) {
        throw std::runtime_error("what is below " + displayable(path) + " cannot be read");
    }
    const Owned<uint8_t> pairs(block);
    if (length == 0) return {};
    VpddAllProperties* list = nullptr;
    const int result = vpdd_format_all_properties(block, length, &list);
    const Owned<VpddAllProperties> nodes(list);
    if (result != 0) {
        throw std::runtime_error("what is below " + displayable(path) + " is malformed: result " +
                                 std::to_string(result));
    }
    std::vector<Property> properties;
    for (const VpddAllProperties* node = list; node != nullptr; node = node->next) {
        properties.push_back(property_of(*node));
    }
    return properties;
}

std::string value_text(const Property& property) {
    return is_shown_as_text(property) ? property.value : hex_text(property.value);
}

Json property_json(const Property& property) {
    Json object{{"Path", property.path}};
    object[is_shown_as_text(property) ? "Value" : "Bytes"] = value_text(property);
    return object;
}

void print_property_tree(std::ostream& out, const std::string& path, const std::vector<Property>& properties) {
    const std::string folder = path.ends_with('/') ? path : path + '/';
    Branch root;
    for (const Property& property : properties) {
        const std::string_view whole(property.path);
        grow(root, whole.starts_with(folder) ? whole.substr(folder.size()) : whole, property);
    }
    out << displayable(path) << '\n';
    print_parts(out, root, "");
}

}  // namespace vpdd::cli
