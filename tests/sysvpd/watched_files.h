// SPDX-License-Identifier: Apache-2.0
// Watches how the library opens, locks, closes and renames files, and makes any but the last fail.
#pragma once

#include <fcntl.h>

#include <cerrno>
#include <functional>
#include <string>
#include <vector>

namespace vpdd::test {

struct LockRequest {
    int command;
    struct flock lock;

    bool is_unlock() const { return lock.l_type == F_UNLCK; }
};

/// Watches open(), close(), rename() and the lock requests of fcntl() while it lives. One at a time.
class WatchedFiles {
public:
    using OpenPredicate = std::function<bool(const std::string& path)>;
    using LockPredicate = std::function<bool(const LockRequest& request)>;
    using ClosePredicate = std::function<bool(const std::string& path)>;

    WatchedFiles();
    ~WatchedFiles();
    WatchedFiles(const WatchedFiles&) = delete;
    WatchedFiles& operator=(const WatchedFiles&) = delete;

    void fail_open(OpenPredicate fails);
    void fail_lock(LockPredicate fails, int error = ENOLCK);
    /// The file is closed all the same, as the kernel does it.
    void fail_close(ClosePredicate fails);

    std::vector<std::string> opened() const;
    std::vector<LockRequest> requests() const;
    /// Those that were opened in such a way that a program started at that moment would inherit them.
    std::vector<std::string> inherited() const;
    /// "open PATH", "lock", "unlock", "rename PATH" with the new name, in order.
    std::vector<std::string> events() const;
};

}  // namespace vpdd::test
