// SPDX-License-Identifier: Apache-2.0
#include "daemon/pauses.h"

#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace vpdd::daemon {

namespace {

std::mutex pauses_mutex;
std::condition_variable ended;
bool pauses_last = false;

void pause_for(std::chrono::microseconds duration) {
    std::unique_lock lock(pauses_mutex);
    ended.wait_for(lock, duration, [] { return !pauses_last; });
}

}  // namespace

void set_pauses_last(bool last) {
    const std::scoped_lock lock(pauses_mutex);
    pauses_last = last;
}

void end_pauses() {
    set_pauses_last(false);
    ended.notify_all();
}

}  // namespace vpdd::daemon

extern "C" unsigned sleep(unsigned seconds) {
    vpdd::daemon::pause_for(std::chrono::seconds(seconds));
    return 0;
}

// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name): the C library's name is reserved
extern "C" int usleep(useconds_t microseconds) {
    vpdd::daemon::pause_for(std::chrono::microseconds(microseconds));
    return 0;
}
