// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>

namespace vpdd::cli {

/// "2026-11-20 10:31:05", local time.
std::string local_time_text(int64_t seconds);
/// "2026-11-20 10:31", local time.
std::string local_minute_text(int64_t seconds);
/// "2026-11-20T10:31:05Z"
std::string utc_time_text(int64_t seconds);

}  // namespace vpdd::cli
