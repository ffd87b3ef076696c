// SPDX-License-Identifier: Apache-2.0
// A root of this process's own, for what the library keeps at fixed paths below /flash and /tmp.
#pragma once

#include <filesystem>

namespace vpdd::host {

/**
 * Moves the process into a mount namespace whose /flash and /tmp are directories of the state directory; all else is
 * the machine's. The state directory keeps its path. There is no way back.
 * @param state_directory exists and has no symbolic links in its path; empty: /flash and /tmp are in memory
 * @throws std::runtime_error where the machine allows no namespaces
 */
void enter_private_root(const std::filesystem::path& state_directory);

}  // namespace vpdd::host
