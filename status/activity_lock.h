// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace vpdd {

/// The activity log's lock, held for a scope. It also keeps the threads of this process from each other: the file lock
/// alone does not, and a thread that closes the lock file would release it for all of them.
class ActivityLogLock {
public:
    ActivityLogLock() = default;
    ~ActivityLogLock() { release(); }
    ActivityLogLock(const ActivityLogLock&) = delete;
    ActivityLogLock& operator=(const ActivityLogLock&) = delete;

    /// Waits for the lock. False when the file lock cannot be had.
    bool take();
    /// The result of unlocking; 0 when the lock is not held.
    int release();

private:
    bool is_held_ = false;
    int fd_ = -1;
};

}  // namespace vpdd
