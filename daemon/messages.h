// SPDX-License-Identifier: Apache-2.0
// Messages of the daemon and of the VPD library, on standard error: for a person, or for the journal where that is at
// the other end. syslog() and its relatives stand in the program and so before those of the C library.
#pragma once

namespace vpdd::daemon {

/// @param least_severe what is logged, of `syslog`
void set_log_level(int least_severe);

/// @param priority facility and severity, as for syslog()
/// @param text with or without a line end; what is not printable is written as '?'
void write_message(int priority, const char* text);

}  // namespace vpdd::daemon
