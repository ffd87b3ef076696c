// SPDX-License-Identifier: Apache-2.0
// Notes in the platform's journal when the library locks and unlocks its exported mutexes, as "lock NAME" and
// "unlock NAME" among the log lines and the requests, so that a test sees what happens under which lock.
#pragma once

namespace vpdd::test {

class LockJournal {
public:
    LockJournal();
    ~LockJournal();
    LockJournal(const LockJournal&) = delete;
    LockJournal& operator=(const LockJournal&) = delete;
};

}  // namespace vpdd::test
