// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "bench/platform.h"

namespace vpdd::bench {

/// Takes an image apart with libfreeipmi, every area and field of it, and makes texts of the fields that a record of
/// this library carries too.
void decode_with_freeipmi(const Bytes& image);

}  // namespace vpdd::bench
