// SPDX-License-Identifier: Apache-2.0
// The messages of the SMBIOS look-ups, which have a prefix of their own and are mostly silent.
#pragma once

namespace vpdd {

/// Logs "pid=%d, %s() - ERROR:" and the text.
void lookup_error(int priority, const char* function, const char* format, ...) __attribute__((format(printf, 3, 4)));

/// The same for debugging: silent unless `vpdd_smbios_debug` is set.
void lookup_debug(const char* function, const char* format, ...) __attribute__((format(printf, 2, 3)));

}  // namespace vpdd
