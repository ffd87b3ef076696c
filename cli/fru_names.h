// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>

namespace vpdd::cli {

/// "Rack Mount Chassis"; empty for a type without a name.
std::string chassis_type_name(uint8_t type);

/// "Power supply information", "OEM record".
std::string multirecord_name(uint8_t type);

}  // namespace vpdd::cli
