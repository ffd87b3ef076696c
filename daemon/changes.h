// SPDX-License-Identifier: Apache-2.0
// What became of the components from one look at them to the next. Also part of vpdctl, which looks for itself what it
// missed while there was no daemon.
#pragma once

#include <cstdint>
#include <vector>

#include "daemon/vpdd_protocol.h"
#include "orva_vpdd.h"

namespace vpdd::daemon {

using Records = std::vector<ComponentVpdRecord>;
using Changes = std::vector<VpddChangeEntry>;

/// Without sequence numbers. @param time of the changes
Changes changes_between(const Records& former, const Records& now, int64_t time);

/// One that concerns no component.
VpddChangeEntry general_change(VpddChangeEvent event, int64_t time);

}  // namespace vpdd::daemon
