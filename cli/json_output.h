// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <iosfwd>
#include <nlohmann/json_fwd.hpp>

namespace vpdd::cli {

/// Properties keep the order in which they were added: people read JSON, too.
using Json = nlohmann::ordered_json;

/// ASCII only, so that no byte of a device can drive a terminal; what is not UTF-8 becomes U+FFFD.
void print_json(std::ostream& out, const Json& document);

}  // namespace vpdd::cli
