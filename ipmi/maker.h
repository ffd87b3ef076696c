// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace vpdd {

/// IANA enterprise number of the maker, three bytes in OEM records and requests, least significant first.
inline constexpr uint32_t maker_iana = VPDD_MAKER_IANA;
inline constexpr uint32_t maker_iana_size = 3;

}  // namespace vpdd
