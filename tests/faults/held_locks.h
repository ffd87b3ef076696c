// SPDX-License-Identifier: Apache-2.0
// What an operation that failed may have left behind: locks and descriptors.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <iterator>
#include <utility>

#include "orva_vpdd.h"

namespace vpdd::test {

/// Whether each exported mutex can be taken. The failure message names those that cannot.
inline testing::AssertionResult no_exported_mutex_is_held() {
    const std::pair<const char*, pthread_mutex_t*> mutexes[] = {
        {"compvpd_access_mutex", &compvpd_access_mutex},
        {"g_list_access_mutex", &g_list_access_mutex},
        {"compvpd_readonly_mutex", &compvpd_readonly_mutex},
        {"compvpd_kiva_readonly_mutex", &compvpd_kiva_readonly_mutex},
        {"g_fru_changed_flag_mutex", &g_fru_changed_flag_mutex},
        {"compvpd_getproperty_mutex", &compvpd_getproperty_mutex},
        {"compvpd_getstringproperty_mutex", &compvpd_getstringproperty_mutex},
        {"compvpd_getbyteproperty_mutex", &compvpd_getbyteproperty_mutex},
        {"fwvpd_access_mutex", &fwvpd_access_mutex},
        {"sysvpd_access_mutex", &sysvpd_access_mutex},
    };
    auto result = testing::AssertionSuccess();
    for (const auto& [name, mutex] : mutexes) {
        if (pthread_mutex_trylock(mutex) == 0) {
            pthread_mutex_unlock(mutex);
        } else {
            result = testing::AssertionFailure() << result.message() << name << " is held ";
        }
    }
    return result;
}

/// Whether nobody holds a lock on the file, this process included. An open-file lock, unlike a process's own, is in the
/// way of both kinds.
inline testing::AssertionResult no_file_lock_is_held(const char* path) {
    const int fd = open(path, O_RDWR | O_CLOEXEC);
    if (fd < 0) return testing::AssertionSuccess();
    struct flock whole_file {};
    whole_file.l_type = F_WRLCK;
    whole_file.l_whence = SEEK_SET;
    const int result = fcntl(fd, F_OFD_GETLK, &whole_file);
    close(fd);
    if (result == 0 && whole_file.l_type == F_UNLCK) return testing::AssertionSuccess();
    return testing::AssertionFailure() << path << " is locked";
}

inline std::size_t open_descriptors() {
    const std::filesystem::directory_iterator descriptors("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(descriptors), end(descriptors)));
}

}  // namespace vpdd::test
