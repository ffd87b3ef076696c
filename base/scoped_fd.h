// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <unistd.h>

namespace vpdd {

/// Closes a descriptor at the end of a scope.
class ScopedFd {
public:
    explicit ScopedFd(int fd) : fd_(fd) {}
    ~ScopedFd() {
        if (fd_ >= 0) close(fd_);
    }
    ScopedFd(const ScopedFd&) = delete;
    ScopedFd& operator=(const ScopedFd&) = delete;

    int get() const { return fd_; }

private:
    int fd_;
};

}  // namespace vpdd
