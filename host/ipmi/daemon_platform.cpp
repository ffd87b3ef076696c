// SPDX-License-Identifier: Apache-2.0
// The IPMI platform as a platform library of vpdd.
#include <algorithm>
#include <array>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "host/ipmi/vpdd_ipmi.h"
#include "host/platform_library.h"
#include "platform/ipmi_stack.h"

namespace vpdd::host::ipmi {

namespace {

/// When records of the SDR repository were last added and erased.
using RepositoryTimes = std::array<uint8_t, 8>;

/// What vpdd was told, and what the BMC had when it was last looked at.
struct Chosen {
    std::string file;
    std::string state_directory;
    const VpddPlatformReports* reports = nullptr;
    std::optional<RepositoryTimes> times{};
};

Chosen chosen;

int fail(const std::string& reason, char* error, std::size_t error_size) {
    if (error != nullptr && error_size > 0) error[reason.copy(error, error_size - 1)] = '\0';
    return -1;
}

void pass_on(void*, VpddHostMessageKind kind, int level, const char* text) {
    if (kind == VPDD_HOST_PLATFORM) chosen.reports->message(chosen.reports->context, level, text);
}

/// None when the BMC does not say.
std::optional<RepositoryTimes> repository_times() {
    constexpr uint8_t netfn_storage = 0x0A, get_sdr_repository_info = 0x20;
    constexpr int first_time = 6;  // byte of the answer behind the completion code, IPMI 2.0 section 33.9
    std::array<uint8_t, 256> answer{};
    int32_t length = answer.size();
    RepositoryTimes times{};
    const int result = IPMI_DoIPMICmd(netfn_storage, get_sdr_repository_info, nullptr, 0, answer.data(), &length);
    if (result != 0 || answer[0] != 0 || length < first_time + static_cast<int>(times.size())) return {};
    std::copy_n(answer.begin() + first_time, times.size(), times.begin());
    return times;
}

void check() {
    const auto times = repository_times();
    if (!times || times == chosen.times) return;
    chosen.times = times;
    chosen.reports->sdr_changed(chosen.reports->context);
}

int open_bmc(char* error, std::size_t error_size) {
    VpddHostOptions options{};
    options.state_directory = chosen.state_directory.empty() ? nullptr : chosen.state_directory.c_str();
    options.sleep_factor = 1;
    options.message = pass_on;
    if (vpdd_ipmi_open_file(chosen.file.c_str(), &options, error, error_size) != 0) return -1;
    chosen.times = repository_times();
    return 0;
}

int open_platform(const VpddPlatformSetting* settings, std::size_t count, const VpddPlatformReports* reports,
                  char* error, std::size_t error_size) {
    chosen = {};
    chosen.reports = reports;
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
constexpr VpddPlatformLibrary library{VPDD_PLATFORM_VERSION, "ipmi", pauses_last, open_platform, check, nullptr,
                                      vpdd_host_close};

}  // namespace

}  // namespace vpdd::host::ipmi

extern "C" const VpddPlatformLibrary* vpdd_platform_library(void) { return &vpdd::host::ipmi::library; }
