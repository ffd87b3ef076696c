// SPDX-License-Identifier: Apache-2.0
// The IPMI platform as a platform library of vpdd.
#include <cstring>
#include <span>
#include <string>
#include <string_view>

#include "host/ipmi/vpdd_ipmi.h"
#include "host/platform_library.h"

namespace vpdd::host::ipmi {

namespace {

/// What vpdd was told.
struct Chosen {
    std::string file;
    std::string state_directory;
    const VpddPlatformReports* reports = nullptr;
};

Chosen chosen;

int fail(const std::string& reason, char* error, std::size_t error_size) {
    if (error != nullptr && error_size > 0) error[reason.copy(error, error_size - 1)] = '\0';
    return -1;
}

void pass_on(void*, VpddHostMessageKind kind, int level, const char* text) {
    if (kind == VPDD_HOST_PLATFORM) chosen.reports->message(chosen.reports->context, level, text);
}

int open_bmc(char* error, std::size_t error_size) {
    VpddHostOptions options{};
    options.state_directory = chosen.state_directory.empty() ? nullptr : chosen.state_directory.c_str();
    options.sleep_factor = 1;
    options.message = pass_on;
    return vpdd_ipmi_open_file(chosen.file.c_str(), &options, error, error_size) == 0 ? 0 : -1;
}

int open_platform(const VpddPlatformSetting* settings, std::size_t count, const VpddPlatformReports* reports,
                  char* error, std::size_t error_size) {
    chosen = {{}, {}, reports};
    for (const VpddPlatformSetting& setting : std::span(settings, count)) {
        const std::string_view key(setting.key);
        if (key == "bmc") {
            chosen.file = setting.value;
        } else if (key == "state") {
            chosen.state_directory = setting.value;
        } else {
            return fail("the ipmi platform has no setting \"" + std::string(key) + "\": it has bmc and state", error,
                        error_size);
        }
    }
    if (chosen.file.empty()) return fail("the ipmi platform needs --set bmc=FILE", error, error_size);
    return open_bmc(error, error_size);
}

constexpr int pauses_last = 1;
constexpr VpddPlatformLibrary library{VPDD_PLATFORM_VERSION, "ipmi", pauses_last, open_platform, nullptr, nullptr,
                                      vpdd_host_close};

}  // namespace

}  // namespace vpdd::host::ipmi

extern "C" const VpddPlatformLibrary* vpdd_platform_library(void) { return &vpdd::host::ipmi::library; }
