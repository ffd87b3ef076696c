// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "orva_vpdd.h"

namespace vpdd {

/// process_multirec() over an image whose end is known: no header at or behind `end` is looked at. The image's buffer
/// must be readable for one whole record (260 bytes) behind `end`.
int process_multirecords(const uint8_t* first_header, const uint8_t* end, ComponentVpdRecord* record);

}  // namespace vpdd
