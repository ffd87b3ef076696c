// SPDX-License-Identifier: Apache-2.0
// The border between the program `vpdd`, which is small and links neither the VPD library nor a platform, and
// libvpdd_daemon.so, which it loads when the platform stands.
#pragma once

#include "daemon/options.h"
#include "host/platform_library.h"

namespace vpdd::daemon {

/// What the program does for the daemon.
struct Program {
    void (*end_pauses)();  ///< from now on nobody in this process sleeps; who sleeps is woken
    void (*write_message)(int priority, const char* text);
};

using Run = int(const Options& options, const VpddPlatformLibrary& platform, const Program& program);

}  // namespace vpdd::daemon

/// The one function of libvpdd_daemon.so. @return the exit code
extern "C" __attribute__((visibility("default"))) vpdd::daemon::Run vpdd_daemon_run;
