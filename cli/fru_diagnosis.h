// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "orva_vpdd.h"

namespace vpdd::cli {

/// Why a component was not decoded, as far as asking its FRU once more can tell: the cache keeps no reason.
std::string why_unread(const ComponentVpdRecord& record);

/// Why the library does not decode an SPD image of at least 128 bytes; empty when nothing speaks against it.
std::string why_module_not_decoded(std::span<const uint8_t> image);

/// A DDR5 image that states no size ends the creation of the cache for good, with the library's lock held.
bool ends_cache_creation(std::span<const uint8_t> image);

}  // namespace vpdd::cli
