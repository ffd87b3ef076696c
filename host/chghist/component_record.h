// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "orva_vpdd.h"

namespace vpdd::host {

/// What a row says of its component, as a record of the component cache with the right checksum. A row names no FRU.
ComponentVpdRecord component_record(const ChangeHistoryRecord& row);

}  // namespace vpdd::host
