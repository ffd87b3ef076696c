// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "orva_vpdd.h"

namespace vpdd {

/// Hands a component's status to the change-history database, when its library is loaded.
void record_change(const ComponentVpdRecord& record);

}  // namespace vpdd
