// SPDX-License-Identifier: Apache-2.0
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <thread>

#include "log_world.h"
#include "own_process.h"
#include "watched_calls.h"

using namespace vpdd::test;

namespace {

using Words = std::vector<std::string>;

class FileLock : public LogTest {
protected:
    static int mode_of(const char* path) {
        struct stat status {};
        return stat(path, &status) == 0 ? static_cast<int>(status.st_mode & 07777U) : -1;
    }
};

/// The lock that another process finds in the way of its own.
struct flock seen_from_outside() {
    struct flock wanted {};
    wanted.l_type = F_WRLCK;
    wanted.l_whence = SEEK_SET;
    int pipe_ends[2] = {};
    if (pipe(pipe_ends) != 0) return wanted;
    if (const pid_t child = fork(); child == 0) {
        const int fd = open(lock_path, O_RDWR | O_CLOEXEC);
        fcntl(fd, F_GETLK, &wanted);
        const bool sent = write(pipe_ends[1], &wanted, sizeof wanted) == sizeof wanted;
        _exit(sent ? 0 : 1);
    } else {
        if (read(pipe_ends[0], &wanted, sizeof wanted) != sizeof wanted) wanted = {};
        waitpid(child, nullptr, 0);
    }
    close(pipe_ends[0]);
    close(pipe_ends[1]);
    return wanted;
}

}  // namespace

TEST_F(FileLock, IsSeenByOtherProcessesAsAWriteLockOfTheWholeFile) {
    int fd = -1;
    ASSERT_GE(vpdd_file_lock_wait(&fd), 0);
    const struct flock seen = seen_from_outside();
    EXPECT_EQ(seen.l_type, F_WRLCK);
    EXPECT_EQ(seen.l_pid, getpid());
    EXPECT_EQ(seen.l_start, 0);
    EXPECT_EQ(seen.l_len, 0);
    vpdd_file_unlock(fd);
}

TEST_F(FileLock, IsGoneAfterUnlocking) {
    int fd = -1;
    ASSERT_GE(vpdd_file_lock_wait(&fd), 0);
    EXPECT_EQ(vpdd_file_unlock(fd), 0);
    EXPECT_EQ(seen_from_outside().l_type, F_UNLCK);
    EXPECT_EQ(fcntl(fd, F_GETFD), -1) << "the descriptor is still open";
}

TEST_F(FileLock, CreatesItsFileForTheOwnerAlone) {
    umask(0);
    int fd = -1;
    ASSERT_GE(vpdd_file_lock_wait(&fd), 0);
    vpdd_file_unlock(fd);
    EXPECT_EQ(mode_of(lock_path), 0700);
    EXPECT_EQ(std::filesystem::file_size(lock_path), 0U);
}

TEST_F(FileLock, LeavesTheContentOfItsFileAlone) {
    write_file(lock_path, "content");
    int fd = -1;
    ASSERT_GE(vpdd_file_lock_wait(&fd), 0);
    vpdd_file_unlock(fd);
    EXPECT_EQ(read_file(lock_path), "content");
}

TEST_F(FileLock, AsksForTheWholeFileInTheNameOfTheProcess) {
    const WatchedCalls calls;
    int fd = -1;
    vpdd_file_lock_wait(&fd);
    vpdd_file_unlock(fd);
    const auto requests = calls.lock_requests();
    ASSERT_EQ(requests.size(), 2U);
    for (const struct flock& request : requests) {
        EXPECT_EQ(request.l_whence, SEEK_SET);
        EXPECT_EQ(request.l_start, 0);
        EXPECT_EQ(request.l_len, 0);
        EXPECT_EQ(request.l_pid, getpid());
    }
    EXPECT_EQ(requests[0].l_type, F_WRLCK);
    EXPECT_EQ(requests[1].l_type, F_UNLCK);
}

TEST_F(FileLock, WaitsForAnotherProcess) {
    write_file(lock_path, "");
    int ready[2] = {}, release[2] = {};
    ASSERT_EQ(pipe(ready), 0);
    ASSERT_EQ(pipe(release), 0);
    const pid_t holder = fork();
    char byte = 0;
    if (holder == 0) {
        int fd = -1;
        const bool works =
            vpdd_file_lock_wait(&fd) >= 0 && write(ready[1], "r", 1) == 1 && read(release[0], &byte, 1) == 1;
        _exit(works ? 0 : 1);
    }
    ASSERT_EQ(read(ready[0], &byte, 1), 1);
    WatchedCalls calls;
    calls.before([&](const WatchedCall& call) {
        // The holder lets go only once the request is about to be made: a request that did not wait would fail now.
        if (call.text != "lock LOCK") return;
        EXPECT_EQ(write(release[1], "g", 1), 1);
    });
    int fd = -1;
    EXPECT_EQ(vpdd_file_lock_wait(&fd), 0);
    int status = -1;
    waitpid(holder, &status, 0);
    EXPECT_EQ(status, 0);
    vpdd_file_unlock(fd);
}

/// Whether the kernel has this process in a queue for a lock.
bool waits_for_a_lock(pid_t process) {
    std::ifstream locks("/proc/locks");
    for (std::string line; std::getline(locks, line);) {
        if (line.find("-> POSIX") != std::string::npos &&
            line.find(' ' + std::to_string(process) + ' ') != std::string::npos) {
            return true;
        }
    }
    return false;
}

TEST_F(FileLock, IsWaitedForWhereAnotherProcessWaitsForALockOfThisOne) {
    int log_fd = -1;
    ASSERT_EQ(vpdd_file_lock_wait(&log_fd), 0);
    const pid_t other = fork();
    if (other == 0) {
        int32_t machine_fd = -1;
        int fd = -1;
        const bool holds_both = vpdd_machine_cache_file_lock_wait(&machine_fd) == 0 && vpdd_file_lock_wait(&fd) == 0;
        _exit(holds_both ? 0 : 1);
    }
    for (int look = 0; look < 100000 && !waits_for_a_lock(other); ++look) std::this_thread::yield();
    ASSERT_TRUE(waits_for_a_lock(other));
    // What another thread would do, as soon as the kernel has called this a deadlock.
    platform.during_sleep([&](int64_t) {
        if (log_fd >= 0) close(log_fd);
        log_fd = -1;
    });

    int32_t machine_fd = -1;
    EXPECT_EQ(vpdd_machine_cache_file_lock_wait(&machine_fd), 0);

    if (log_fd >= 0) close(log_fd);
    int status = -1;
    waitpid(other, &status, 0);
    EXPECT_EQ(status, 0);
    close(machine_fd);
}

TEST_F(FileLock, LeavesTheDescriptorUntouchedWhenItsFileCannotBeOpened) {
    std::filesystem::create_directory(lock_path);
    int fd = 1234;
    EXPECT_EQ(vpdd_file_lock_wait(&fd), -1);
    EXPECT_EQ(fd, 1234);
}

TEST_F(FileLock, ClosesItsFileAndStoresMinusOneWhenTheRequestFails) {
    WatchedCalls calls;
    calls.fail("lock LOCK");
    int fd = 1234;
    EXPECT_LT(vpdd_file_lock_wait(&fd), 0);
    EXPECT_EQ(fd, -1);
    EXPECT_EQ(platform.journal().back(), "close LOCK");
}

TEST_F(FileLock, SleepsATenthOfASecondAlsoAfterASuccessfulUnlock) {
    const WatchedCalls calls;
    int fd = -1;
    vpdd_file_lock_wait(&fd);
    EXPECT_TRUE(platform.sleeps().empty());
    EXPECT_EQ(vpdd_file_unlock(fd), 0);
    const Words journal = platform.journal();
    EXPECT_EQ(Words(journal.end() - 3, journal.end()), (Words{"unlock LOCK", "sleep 100000", "close LOCK"}));
}

TEST_F(FileLock, TriesToUnlockThreeTimes) {
    WatchedCalls calls;
    calls.fail("unlock LOCK");
    int fd = -1;
    vpdd_file_lock_wait(&fd);
    EXPECT_EQ(vpdd_file_unlock(fd), 0) << "the result is that of closing";
    const Words journal = platform.journal();
    EXPECT_EQ(Words(journal.end() - 7, journal.end()),
              (Words{"unlock LOCK", "sleep 100000", "unlock LOCK", "sleep 100000", "unlock LOCK", "sleep 100000",
                     "close LOCK"}));
    EXPECT_EQ(seen_from_outside().l_type, F_UNLCK) << "closing releases the lock in any case";
}

TEST_F(FileLock, StopsAtTheFirstUnlockThatSucceeds) {
    WatchedCalls calls;
    calls.fail("unlock LOCK", 1);
    int fd = -1;
    vpdd_file_lock_wait(&fd);
    vpdd_file_unlock(fd);
    EXPECT_EQ(platform.sleeps(), (std::vector<int64_t>{100000, 100000}));
}

TEST_F(FileLock, GivesTheResultOfClosing) {
    WatchedCalls calls;
    int fd = -1;
    vpdd_file_lock_wait(&fd);
    calls.fail("close LOCK");
    EXPECT_EQ(vpdd_file_unlock(fd), -1);
}

TEST_F(FileLock, ReportsADescriptorThatIsNotOpen) { EXPECT_EQ(vpdd_file_unlock(-1), -1); }
