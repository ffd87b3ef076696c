// SPDX-License-Identifier: Apache-2.0
// What a program does before it opens anything.
#pragma once

#include <fcntl.h>
#include <unistd.h>

namespace vpdd {

/// Without a standard file the next one that is opened, a socket or a log, takes its number and receives what is
/// printed. Each missing one becomes a /dev/null that refuses its use, so that lost output is still noticed.
inline void open_missing_standard_files() {
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(fd, F_GETFD) >= 0) continue;
        // The lowest free number is taken: this one. It stays open for the life of the process.
        if (open("/dev/null", fd == STDIN_FILENO ? O_WRONLY : O_RDONLY) != fd) return;
    }
}

}  // namespace vpdd
