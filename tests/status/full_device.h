// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/resource.h>

#include <csignal>

#include "log_world.h"

namespace vpdd::test {

/// No file of this process grows beyond some entries while this lives. The backup is made by a process of its own, with
/// no such limit.
class FullDevice {
public:
    FullDevice(FakePlatform& platform, rlim_t entries) : limit_{entries * entry_size, RLIM_INFINITY} {
        platform.shell_command.model([this](const std::string& command) {
            setrlimit(RLIMIT_FSIZE, &none_);
            const int result = run_command(command);
            setrlimit(RLIMIT_FSIZE, &limit_);
            return result;
        });
        std::signal(SIGXFSZ, SIG_IGN);
    }
    ~FullDevice() { setrlimit(RLIMIT_FSIZE, &none_); }
    FullDevice(const FullDevice&) = delete;
    FullDevice& operator=(const FullDevice&) = delete;

private:
    rlimit none_{RLIM_INFINITY, RLIM_INFINITY};
    rlimit limit_;
};

}  // namespace vpdd::test
