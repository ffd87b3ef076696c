// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <syslog.h>
#include <unistd.h>

#include "base/file_handle.h"
#include "base/standard_files.h"
#include "daemon/exit_code.h"
#include "daemon/loading.h"
#include "daemon/messages.h"
#include "daemon/pauses.h"

namespace {

using namespace vpdd::daemon;

/// The VPD library prints traces there, some at each look at the components.
void drop_standard_output() {
    const vpdd::ScopedFd nowhere(open("/dev/null", O_WRONLY | O_CLOEXEC));
    if (nowhere.get() >= 0) dup2(nowhere.get(), STDOUT_FILENO);
}

int run(int count, char** arguments) {
    Options options;
    int exit_code = exit_ok;
    if (!parse_options(count, arguments, options, exit_code)) return exit_code;
    set_log_level(options.log_level);
    if (options.log_level < LOG_DEBUG) drop_standard_output();
    try {
        const VpddPlatformLibrary& platform = load_platform(options.platform);
        set_pauses_last(options.real_time || platform.waits_in_real_time != 0);
        return load_daemon()(options, platform, {end_pauses, write_message});
    } catch (const LoadError& error) {
        write_message(LOG_ERR, ("the platform \"" + options.platform + "\" cannot be loaded: " + error.what()).c_str());
        return exit_no_platform;
    }
}

}  // namespace

int main(int count, char** arguments) {
    vpdd::open_missing_standard_files();
    try {
        return run(count, arguments);
    } catch (const std::exception& error) {
        write_message(LOG_ERR, error.what());
        return exit_no_platform;
    }
}
