// SPDX-License-Identifier: Apache-2.0
// What the command line asks for.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace vpdd::daemon {

struct Options {
    std::string platform = "host";
    std::vector<std::pair<std::string, std::string>> platform_settings;
    std::string socket_path = "/tmp/vpdd.sock";
    uint32_t socket_mode = 0666;
    std::string socket_group;  ///< empty: the daemon's own
    std::chrono::milliseconds poll_interval{5000};
    std::chrono::milliseconds refresh_interval{300000};
    uint32_t most_clients = 256;
    bool real_time = false;  ///< pauses last also where the platform would skip them
    int log_level = 5;       ///< the least severe that is logged, of `syslog`
};

/// @return true with the options; false when the program has done what it was asked for, with its exit code
bool parse_options(int count, char** arguments, Options& options, int& exit_code);

}  // namespace vpdd::daemon
