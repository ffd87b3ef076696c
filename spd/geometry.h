// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace vpdd::spd {

/// Size in MB that an NVDIMM's hybrid area describes. At most 2^31.
uint32_t hybrid_size(const uint8_t* area);

}  // namespace vpdd::spd
