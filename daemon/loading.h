// SPDX-License-Identifier: Apache-2.0
// Loads the platform and, when that stands, the daemon: the VPD library's undefined functions are bound as it is
// loaded.
#pragma once

#include <stdexcept>
#include <string>

#include "daemon/program.h"

namespace vpdd::daemon {

class LoadError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/**
 * @param name "host" stands for libvpdd_host.so; a name with a slash is the library's file
 * @throws LoadError
 */
const VpddPlatformLibrary& load_platform(const std::string& name);

/// Only after load_platform(). @throws LoadError
Run& load_daemon();

}  // namespace vpdd::daemon
