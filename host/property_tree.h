// SPDX-License-Identifier: Apache-2.0
// The controller's properties: values addressed by paths, and how they are handed out.
#pragma once

#include <map>
#include <optional>
#include <string>

#include "host/document.h"

namespace vpdd::host {

/// What goes wrong on purpose when a path is asked for.
struct PropertyFault {
    std::optional<uint8_t> completion_code;
    std::optional<uint8_t> status;
    uint32_t delay = 0;  ///< milliseconds before the answer, in the server's time
    uint32_t page = 1;   ///< of a transfer of all properties below the path: the one that goes wrong, counted from 1
};

inline constexpr uint32_t largest_property_page = 251;  // bytes of data in a response of 256

struct PropertyTree {
    std::map<std::string, Bytes> values;  ///< property TLVs by path; an empty text has none
    std::map<std::string, PropertyFault> faults;
    uint32_t page_size = largest_property_page;  ///< bytes

    const PropertyFault* fault(const std::string& path) const;
    /// Pairs of path and value below the path, as TLVs without padding, in the order of the paths.
    Bytes below(const std::string& path) const;
};

/// @param document agrees with the schema
/// @throws DescriptionError
PropertyTree property_tree(const Json& document);

}  // namespace vpdd::host
