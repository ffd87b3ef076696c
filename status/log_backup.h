// SPDX-License-Identifier: Apache-2.0
// The copy of the activity log that is there while it is rewritten. The platform's shell makes it, puts it back and
// removes it; where the shell fails, or has not done what it says, the files are handled directly: no failure may cost
// the log its entries.
#pragma once

#include "orva_vpdd.h"

namespace vpdd {

bool backup_exists();

/// Copies the log, of which `list` holds the valid entries. False when the copy did not reach the device.
bool make_backup(const StatusList& list);

/// Moves the backup over the log.
bool put_backup_back();

void discard_backup();

}  // namespace vpdd
