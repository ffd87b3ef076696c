// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace vpdd::cli {

/// What vpdctl tells its caller. The values are documented in its help and stay as they are.
enum class ExitCode : int {
    ok = 0,
    incomplete = 1,  ///< something could not be read or decoded; the rest was shown
    usage = 2,
    bad_input = 3,  ///< a file cannot be opened, or is not what the command reads
    failure = 4     ///< the platform or the library failed, or the output could not be written
};

}  // namespace vpdd::cli
