// SPDX-License-Identifier: Apache-2.0
#include "host/property_tree.h"

#include "host/images/property_tlv.h"

namespace vpdd::host {

namespace {

using Place = Json::json_pointer;

constexpr std::size_t longest_path = images::longest_property_text;

Bytes value_tlv(const Json& value) {
    if (value.is_array()) return images::property_tlv(value.get<Bytes>());
    const auto text = value.get<std::string>();
    return text.empty() ? Bytes() : images::property_tlv(text);
}

void add_folder(const Json& folder, const std::string& path, const Place& place, PropertyTree& tree) {
    for (const auto& [name, value] : folder.items()) {
        const std::string inner_path = path + '/' + name;
        const Place inner_place = place / name;
        if (inner_path.size() > longest_path) throw DescriptionError(inner_place, "The path exceeds 127 characters.");
        if (value.is_object()) {
            add_folder(value, inner_path, inner_place, tree);
        } else {
            tree.values[inner_path] = value_tlv(value);
        }
    }
}

std::optional<uint8_t> byte_of(const Json& fault, const char* key) {
    if (!fault.contains(key)) return {};
    return bytes_of_hex(fault[key].get<std::string_view>().substr(2)).front();
}

PropertyFault fault_of(const Json& fault) {
    return {byte_of(fault, "completion_code"), byte_of(fault, "status"), fault.value("delay_ms", 0U),
            fault.value("page", 1U)};
}

}  // namespace

const PropertyFault* PropertyTree::fault(const std::string& path) const {
    const auto found = faults.find(path);
    return found != faults.end() ? &found->second : nullptr;
}

Bytes PropertyTree::below(const std::string& path) const {
    const std::string folder = path.ends_with('/') ? path : path + '/';
    Bytes pairs;
    for (auto entry = values.lower_bound(folder); entry != values.end() && entry->first.starts_with(folder); ++entry) {
        if (entry->second.empty()) continue;  // a pair has no room for no value
        images::append(pairs, images::property_tlv(entry->first));
        images::append(pairs, entry->second);
    }
    return pairs;
}

PropertyTree property_tree(const Json& document) {
    PropertyTree tree;
    add_folder(document.value("properties", Json::object()), "", Place("/properties"), tree);
    const Json access = document.value("property_access", Json::object());
    tree.page_size = access.value("page_size", largest_property_page);
    for (const Json& fault : access.value("faults", Json::array())) {
        const Place place = Place("/property_access/faults") / tree.faults.size();
        const std::string path = fault["path"];
        if (!tree.faults.emplace(path, fault_of(fault)).second)
            throw DescriptionError(place / "path", "\"" + path + "\" is there twice.");
    }
    return tree;
}

}  // namespace vpdd::host
