// SPDX-License-Identifier: Apache-2.0
// sleep() and usleep() in the server's time: they stand before those of the C library.
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <ctime>

#include "host/server.h"

namespace vpdd::host {

namespace {

/// In real time, whatever the server's sleep factor. @return what is left when a signal ended it, in seconds
double sleep_really(double seconds) {
    double whole = 0;
    const double fraction = std::modf(seconds, &whole);
    const timespec duration{static_cast<time_t>(whole), static_cast<long>(fraction * 1e9)};
    timespec left{};
    if (clock_nanosleep(CLOCK_MONOTONIC, 0, &duration, &left) != EINTR) return 0;
    return static_cast<double>(left.tv_sec) + static_cast<double>(left.tv_nsec) / 1e9;
}

/// Seconds left of those asked for, when a signal ended the sleep.
double sleep_scaled(double seconds) {
    const auto server = current_server();
    const double factor = server ? server->options.sleep_factor : 1;
    return factor > 0 ? sleep_really(seconds * factor) / factor : 0;
}

}  // namespace

}  // namespace vpdd::host

extern "C" unsigned sleep(unsigned seconds) {
    return static_cast<unsigned>(std::ceil(vpdd::host::sleep_scaled(seconds)));
}

// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name): the C library's name is reserved
extern "C" int usleep(useconds_t microseconds) {
    if (vpdd::host::sleep_scaled(static_cast<double>(microseconds) / 1e6) <= 0) return 0;
    errno = EINTR;
    return -1;
}
