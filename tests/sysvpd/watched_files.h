// SPDX-License-Identifier: Apache-2.0
// Watches how the library opens and locks files, and makes either fail.
#pragma once

#include <fcntl.h>

#include <functional>
#include <string>
#include <vector>

namespace vpdd::test {

struct LockRequest {
    int command;
    struct flock lock;

    bool is_unlock() const { return lock.l_type == F_UNLCK; }
};

/// Watches open() and the lock requests of fcntl() while it lives. One at a time.
class WatchedFiles {
public:
    using OpenPredicate = std::function<bool(const std::string& path)>;
    using LockPredicate = std::function<bool(const LockRequest& request)>;

    WatchedFiles();
    ~WatchedFiles();
    WatchedFiles(const WatchedFiles&) = delete;
    WatchedFiles& operator=(const WatchedFiles&) = delete;

    void fail_open(OpenPredicate fails);
    void fail_lock(LockPredicate fails);

    std::vector<std::string> opened() const;
    std::vector<LockRequest> requests() const;
    /// "open PATH", "lock", "unlock", in order.
    std::vector<std::string> events() const;
};

}  // namespace vpdd::test
