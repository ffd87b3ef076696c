// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <pthread.h>

namespace vpdd {

/// Holds a mutex for a scope. Locks of one scope are released in the reverse order of their construction.
class ScopedLock {
public:
    explicit ScopedLock(pthread_mutex_t& mutex) : mutex_(&mutex) { pthread_mutex_lock(mutex_); }
    ~ScopedLock() { unlock(); }
    ScopedLock(const ScopedLock&) = delete;
    ScopedLock& operator=(const ScopedLock&) = delete;

    void unlock() {
        if (mutex_ != nullptr) pthread_mutex_unlock(mutex_);
        mutex_ = nullptr;
    }

    /// The mutex stays locked when the scope ends.
    void leave_locked_for_good() { mutex_ = nullptr; }

private:
    pthread_mutex_t* mutex_;
};

}  // namespace vpdd
