// SPDX-License-Identifier: Apache-2.0
// Notes in the platform's journal when the library locks and unlocks its exported mutexes, as "lock NAME" and
// "unlock NAME" among the log lines and the requests, so that a test sees what happens under which lock.
#pragma once

#include <functional>
#include <string_view>

namespace vpdd::test {

class LockJournal {
public:
    LockJournal() : LockJournal(nullptr) {}
    /// Also calls `hook` with each of these lines: behind the locking, and before the unlocking.
    explicit LockJournal(std::function<void(std::string_view)> hook);
    ~LockJournal();
    LockJournal(const LockJournal&) = delete;
    LockJournal& operator=(const LockJournal&) = delete;
};

}  // namespace vpdd::test
