// SPDX-License-Identifier: Apache-2.0
// How a BMC is reached: the "bmc" of a platform file.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <string>

#include "host/document.h"

namespace vpdd::host::ipmi {

enum class Transport {
    lan,       ///< IPMI 1.5
    lan_plus,  ///< IPMI 2.0, RMCP+
    local      ///< the machine's own, by the kernel's driver
};

struct Settings {
    Transport transport = Transport::lan_plus;
    std::string host;
    uint16_t port = 623;
    std::string device;  ///< of Transport::local
    std::string user;
    std::string password;
    std::string authentication;  ///< of Transport::lan
    std::string privilege;
    uint8_t cipher_suite = 3;  ///< of Transport::lan_plus
    std::chrono::milliseconds timeout{5000};

    /// For people: "127.0.0.1:623", or the device.
    std::string name() const;
};

/// A platform file, taken apart.
struct PlatformFile {
    Settings settings;
    std::string description;  ///< of the rest of the server: the file without "bmc", and without FRUs
    std::filesystem::path folder;
};

/// @throws DescriptionError, std::runtime_error
PlatformFile read_platform_file(const std::filesystem::path& path);

}  // namespace vpdd::host::ipmi
