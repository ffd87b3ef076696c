// SPDX-License-Identifier: Apache-2.0
// What the component cache holds and what the library published, as the library's own interface hands them out.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "orva_vpdd.h"

namespace vpdd::cli {

/// A configuration variable that the library published.
struct PublishedVariable {
    std::string name;
    std::string value;
    bool is_number;
    int32_t number;
};

std::vector<PublishedVariable> published_variables();

/// The records of the cache, which stands, in its order.
std::vector<ComponentVpdRecord> cached_records(const std::vector<PublishedVariable>& published);

}  // namespace vpdd::cli
