// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace vpdd::daemon {

/// What vpdd tells its caller. The values are documented in its help and stay as they are.
constexpr int exit_ok = 0;
constexpr int exit_usage = 2;
constexpr int exit_no_platform = 3;
constexpr int exit_no_cache = 4;
constexpr int exit_no_socket = 5;

}  // namespace vpdd::daemon
