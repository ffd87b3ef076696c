// SPDX-License-Identifier: Apache-2.0
// sleep() and usleep() of this process. They stand in the program and so before those of the C library: a shutdown need
// not wait for a retry of the VPD library, and a platform that plays a server need not wait at all.
#pragma once

namespace vpdd::daemon {

/// Pauses are skipped until this is called with true.
void set_pauses_last(bool last);

/// Wakes who sleeps; nobody sleeps afterwards.
void end_pauses();

}  // namespace vpdd::daemon
