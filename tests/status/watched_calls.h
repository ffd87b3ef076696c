// SPDX-License-Identifier: Apache-2.0
// Watches what the library does with the files of the log: the calls stand in the platform's journal, among the shell
// commands and the sleeps, and any of them can be made to fail.
//
// In the journal: "fopen LOG r", "fseek LOG", "fwrite LOG", "fflush LOG", "fsync LOG", "fclose LOG", "open BACKUP",
// "close BACKUP", "fsync FOLDER", "open LOCK", "lock LOCK", "unlock LOCK", "close LOCK".
#pragma once

#include <fcntl.h>

#include <cstddef>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

namespace vpdd::test {

struct WatchedCall {
    std::string text;             ///< as in the journal
    const void* bytes = nullptr;  ///< that fwrite() is to write
    std::size_t size = 0;
    FILE* stream = nullptr;
    const struct flock* lock = nullptr;
};

/// One at a time.
class WatchedCalls {
public:
    WatchedCalls();
    ~WatchedCalls();
    WatchedCalls(const WatchedCalls&) = delete;
    WatchedCalls& operator=(const WatchedCalls&) = delete;

    static constexpr int always = -1;

    /// Makes the calls that read like this fail, all of them or so many.
    void fail(const std::string& call, int times = always);
    /// Runs before each call.
    void before(std::function<void(const WatchedCall&)> hook);
    std::vector<struct flock> lock_requests() const;
};

/// What is wrong with a call that fails: nothing is done, or half of a writing and no error.
enum class CallFailure { nothing_done, half_written };

/// Which call fails, and how.
struct CallFault {
    std::size_t number = 0;  ///< counted from 1; 0: none
    bool from_then_on = false;
    int error = 5;  ///< EIO
    CallFailure failure = CallFailure::nothing_done;
};

/// Numbers the calls that come straight from the library's code, whatever they concern: open, fopen, fdopen, close,
/// fclose, access, fstat, fcntl, flock, fseek, fread, fwrite, fflush, fsync, write, rename, unlink. None of them stands
/// in the journal. One at a time.
class NumberedCalls {
public:
    explicit NumberedCalls(const CallFault& fault);
    ~NumberedCalls();
    NumberedCalls(const NumberedCalls&) = delete;
    NumberedCalls& operator=(const NumberedCalls&) = delete;

    /// For an interposed function that is called from there. Whether it is to fail.
    static bool take(const char* name, const void* caller);
    /// For what is no function of the C library.
    static bool take(const char* name);
    /// The name of the first call that failed; empty when none did.
    std::string failed() const;
};

/// Writes past the watch.
std::size_t unwatched_fwrite(const void* bytes, std::size_t size, FILE* stream);

}  // namespace vpdd::test
