// SPDX-License-Identifier: Apache-2.0
#include "host/ipmi/vpdd_ipmi.h"

#include <syslog.h>

#include "host/ipmi/remote_bmc.h"

namespace vpdd::host::ipmi {

namespace {

constexpr int wrong_file = -1;
constexpr int no_session = -2;

int fail(int result, const std::string& reason, char* error, std::size_t error_size) {
    if (error != nullptr && error_size > 0) error[reason.copy(error, error_size - 1)] = '\0';
    return result;
}

int open(const PlatformFile& file, const VpddHostOptions* options, char* error, std::size_t error_size) try {
    const auto report = [](const std::string& text) { vpdd_host_report(LOG_ERR, text.c_str()); };
    auto bmc = std::make_unique<RemoteBmc>(file.settings, report);
    const VpddHostBmc functions = bmc.release()->functions();
    return vpdd_host_open_bmc(&functions, file.description.data(), file.description.size(), file.folder.c_str(),
                              options, error, error_size);
} catch (const std::exception& reason) {
    return fail(no_session, reason.what(), error, error_size);
}

}  // namespace

}  // namespace vpdd::host::ipmi

extern "C" int vpdd_ipmi_open_file(const char* path, const VpddHostOptions* options, char* error,
                                   size_t error_size) try {
    using namespace vpdd::host::ipmi;
    vpdd_host_close();
    if (path == nullptr) return fail(wrong_file, "no file given", error, error_size);
    return open(read_platform_file(path), options, error, error_size);
} catch (const std::exception& reason) {
    return vpdd::host::ipmi::fail(vpdd::host::ipmi::wrong_file, reason.what(), error, error_size);
}
