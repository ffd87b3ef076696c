// SPDX-License-Identifier: Apache-2.0
// The host platform as a platform library of vpdd: the server that a description plays.
#include <algorithm>
#include <array>
#include <cstring>
#include <filesystem>

#include "host/platform_library.h"
#include "host/server.h"

namespace vpdd::host {

namespace {

/// The open server as vpdd was told to play it.
struct Played {
    std::string path;
    std::string state_directory;
    const VpddPlatformReports* reports = nullptr;
    FruChanges changes;  ///< as they were when the server was opened
};

Played played;

int fail(const std::string& reason, char* error, std::size_t error_size) {
    if (error == nullptr || error_size == 0) return -1;
    error[reason.copy(error, error_size - 1)] = '\0';
    return -1;
}

/// A bare name stands for one of the servers that came with this library, unless there is such a file.
std::string server_path(const std::string& name) {
    std::error_code ignored;
    if (name.find('/') != std::string::npos || std::filesystem::exists(name, ignored)) return name;
    const std::filesystem::path shipped = std::filesystem::path(vpdd_host_server_folder()) / (name + ".json");
    return std::filesystem::exists(shipped, ignored) ? shipped.string() : name;
}

int open_played(char* error, std::size_t error_size) {
    const VpddHostOptions options{played.state_directory.empty() ? nullptr : played.state_directory.c_str(),
                                  0,
                                  nullptr,
                                  nullptr,
                                  nullptr,
                                  nullptr};
    if (vpdd_host_open_file(played.path.c_str(), &options, error, error_size) != 0) return -1;
    played.changes = current_server()->store.fru_changes();
    return 0;
}

int open_platform(const VpddPlatformSetting* settings, std::size_t count, const VpddPlatformReports* reports,
                  char* error, std::size_t error_size) {
    played = {};
    played.reports = reports;
    for (const VpddPlatformSetting& setting : std::span(settings, count)) {
        const std::string_view key(setting.key);
        if (key == "server") {
            played.path = server_path(setting.value);
        } else if (key == "state") {
            played.state_directory = setting.value;
        } else {
            return fail("the host platform has no setting \"" + std::string(key) + "\": it has server and state", error,
                        error_size);
        }
    }
    if (played.path.empty()) return fail("the host platform needs --server FILE", error, error_size);
    return open_played(error, error_size);
}

constexpr VpddPlatformLibrary library{VPDD_PLATFORM_VERSION, "host", 0, open_platform, nullptr, nullptr,
                                      vpdd_host_close};

}  // namespace

}  // namespace vpdd::host

extern "C" const VpddPlatformLibrary* vpdd_platform_library(void) { return &vpdd::host::library; }
