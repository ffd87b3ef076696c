// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace vpdd::host {

/// Sleeps in real time, whatever the server's sleep factor. @return what is left when a signal ended it, in seconds
double sleep_really(double seconds);

}  // namespace vpdd::host
