// SPDX-License-Identifier: Apache-2.0
#include <syslog.h>

#include <array>

#include "daemon/exit_code.h"
#include "daemon/program.h"
#include "orva_vpdd.h"

namespace vpdd::daemon {

namespace {

int run(const Options& options, const VpddPlatformLibrary& platform, const Program& program) {
    std::vector<VpddPlatformSetting> settings;
    for (const auto& [key, value] : options.platform_settings) settings.push_back({key.c_str(), value.c_str()});
    const VpddPlatformReports reports{};
    std::array<char, 1024> error{};
    if (platform.open(settings.data(), settings.size(), &reports, error.data(), error.size()) != 0) {
        program.write_message(LOG_ERR, error.data());
        return exit_no_platform;
    }
    const int created = CreateComponentVPDCache();
    program.write_message(LOG_NOTICE, created == 0 ? "the component cache stands" : "no component cache");
    DestroyComponentVPDCache();
    platform.close();
    return created == 0 ? exit_ok : exit_no_cache;
}

}  // namespace

}  // namespace vpdd::daemon

extern "C" int vpdd_daemon_run(const vpdd::daemon::Options& options, const VpddPlatformLibrary& platform,
                               const vpdd::daemon::Program& program) {
    return vpdd::daemon::run(options, platform, program);
}
