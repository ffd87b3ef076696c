// SPDX-License-Identifier: Apache-2.0
// Where the library's messages go: to a sink, never to the machine's system log.
#pragma once

#include <filesystem>
#include <fstream>
#include <mutex>
#include <string>
#include <string_view>

#include "host/vpdd_host.h"

namespace vpdd::host {

struct MessageSink {
    VpddHostMessageSink function = nullptr;
    void* context = nullptr;
};

/// Trace files of a server with a state directory.
class TraceFiles {
public:
    /// @param folder empty: there are none
    explicit TraceFiles(std::filesystem::path folder) : folder_(std::move(folder)) {}

    /// @param path where the firmware would have it; only its last name counts
    /// @return whether the line was written
    bool append(const std::filesystem::path& path, std::string_view line);

private:
    std::mutex mutex_;
    std::filesystem::path folder_;
};

}  // namespace vpdd::host
