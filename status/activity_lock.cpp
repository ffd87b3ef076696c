// SPDX-License-Identifier: Apache-2.0
#include "status/activity_lock.h"

#include <pthread.h>

#include "base/file_lock.h"
#include "orva_vpdd.h"

namespace {

pthread_mutex_t threads_mutex = PTHREAD_MUTEX_INITIALIZER;

}  // namespace

namespace vpdd {

bool ActivityLogLock::take() {
    pthread_mutex_lock(&threads_mutex);
    is_held_ = vpdd_file_lock_wait(&fd_) >= 0;
    if (!is_held_) pthread_mutex_unlock(&threads_mutex);
    return is_held_;
}

int ActivityLogLock::release() {
    if (!is_held_) return 0;
    is_held_ = false;
    const int result = vpdd_file_unlock(fd_);
    pthread_mutex_unlock(&threads_mutex);
    return result;
}

}  // namespace vpdd

extern "C" int vpdd_file_lock_wait(int* fd_out) { return vpdd::lock_file("/tmp/vpdd_lock", fd_out); }

extern "C" int vpdd_file_unlock(int fd) { return vpdd::unlock_file(fd); }
