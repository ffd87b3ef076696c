// SPDX-License-Identifier: Apache-2.0
#include "base/file_lock.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace {

constexpr unsigned lock_file_mode = 0700;
constexpr int unlock_attempts = 3;
constexpr useconds_t unlock_pause = 100000;  // microseconds
constexpr int deadlock_attempts = 3000;
constexpr useconds_t deadlock_pause = 10000;  // microseconds
constexpr int bounded_attempts = 11;
constexpr useconds_t bounded_pause = 100000;  // microseconds; ten of them between the attempts

int set_whole_file_lock(int fd, int command, short type) {
    struct flock whole_file {};
    whole_file.l_type = type;
    whole_file.l_whence = SEEK_SET;
    whole_file.l_start = 0;
    whole_file.l_len = 0;
    whole_file.l_pid = getpid();
    return fcntl(fd, command, &whole_file);
}

/// Waits for the lock. The kernel counts processes, not threads: it takes two of them for a deadlock that wait for each
/// other's locks in threads of their own. That wait goes on, with a bound for a deadlock that is one.
int wait_for_lock(int fd) {
    for (int attempt = 1;; ++attempt) {
        const int result = set_whole_file_lock(fd, F_SETLKW, F_WRLCK);
        if (result >= 0 || errno != EDEADLK || attempt == deadlock_attempts) return result;
        usleep(deadlock_pause);
    }
}

/// Waits a second at most for whoever holds the lock.
int wait_for_lock_bounded(int fd) {
    for (int attempt = 1;; ++attempt) {
        const int result = set_whole_file_lock(fd, F_SETLK, F_WRLCK);
        if (result >= 0 || (errno != EAGAIN && errno != EACCES) || attempt == bounded_attempts) return result;
        usleep(bounded_pause);
    }
}

constexpr int never_follow_or_wait = O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;

/// The descriptor if it is a regular file's, else -1.
int only_plain_file(int fd) {
    struct stat status {};
    if (fd < 0 || (fstat(fd, &status) == 0 && S_ISREG(status.st_mode))) return fd;
    close(fd);
    errno = EINVAL;
    return -1;
}

/// Two steps, because a kernel with protected_regular refuses O_CREAT on somebody else's existing file.
int open_or_create(const char* path) {
    const int fd = vpdd::open_plain_file(path, O_RDWR);
    if (fd >= 0 || errno != ENOENT) return fd;
    return only_plain_file(open(path, O_RDWR | O_CREAT | never_follow_or_wait, lock_file_mode));
}

int open_and_lock(const char* path, int* fd, int (*lock)(int)) {
    const int opened = open_or_create(path);
    if (opened < 0) return -1;
    const int result = lock(opened);
    if (result < 0) close(opened);
    *fd = result < 0 ? -1 : opened;
    return result;
}

}  // namespace

namespace vpdd {

int open_plain_file(const char* path, int flags) { return only_plain_file(open(path, flags | never_follow_or_wait)); }

int lock_file(const char* path, int* fd) { return open_and_lock(path, fd, wait_for_lock); }

int lock_file_bounded(const char* path, int* fd) { return open_and_lock(path, fd, wait_for_lock_bounded); }

int unlock_file(int fd) {
    for (int attempt = 0; attempt < unlock_attempts; ++attempt) {
        const bool unlocked = set_whole_file_lock(fd, F_SETLK, F_UNLCK) >= 0;
        usleep(unlock_pause);  // deliberate: also after the attempt that succeeded
        if (unlocked) break;
    }
    return close(fd);
}

}  // namespace vpdd
