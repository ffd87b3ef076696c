// SPDX-License-Identifier: Apache-2.0
// Lets each call of an operation into the C library fail, in turn, in several ways. Each run has a process of its own.
#pragma once

#include <cerrno>
#include <functional>
#include <iterator>
#include <string>
#include <string_view>

#include "failing_allocator.h"
#include "fake_platform.h"
#include "faults/held_locks.h"
#include "own_process.h"
#include "status/watched_calls.h"
#include "stride.h"

namespace vpdd::test {

/// How the call with a number fails.
inline constexpr CallFault call_failures[] = {
    {0, false, EIO},   {0, true, EIO},    {0, false, ENOSPC},
    {0, false, EINTR}, {0, true, EMFILE}, {0, false, 0, CallFailure::half_written},
};

/// The operation with its fault.
class RunOfCalls {
public:
    explicit RunOfCalls(const CallFault& fault) : fault_(fault) {}

    /// Runs the operation, whose output is swallowed.
    template <class Operation>
    void operator()(const Operation& operation) {
        const std::size_t descriptors = open_descriptors();
        {
            const CaptureStdout silence;
            const CaptureStderr silent_errors;
            const NumberedCalls calls(fault_);
            operation();
            failed_ = calls.failed();
        }
        EXPECT_EQ(open_descriptors(), descriptors) << "a descriptor was left open";
    }

    bool has_failed() const { return !failed_.empty(); }
    /// The first call that failed.
    const std::string& failed() const { return failed_; }
    bool fails_from_then_on() const { return fault_.from_then_on; }

private:
    CallFault fault_;
    std::string failed_;
};

/// `body` arranges, hands the operation to the run, and asserts.
inline void for_each_failing_call(const std::function<void(RunOfCalls&)>& body) {
    constexpr int no_fault_met = 2;
    constexpr std::size_t most = 5000;
    // A sanitizer makes a run many times as slow: it sees some of the calls only.
    const std::size_t stride = allocator_can_fail ? stride_of_runs() : 5;
    std::size_t runs = 0;
    for (CallFault fault : call_failures) {
        bool reached_the_end = false;
        for (fault.number = 1; !reached_the_end; fault.number += stride, ++runs) {
            ASSERT_LT(fault.number, most) << "the operation never ends";
            const auto result = succeeds_in_own_process([&] {
                RunOfCalls run(fault);
                body(run);
                EXPECT_TRUE(no_exported_mutex_is_held());
                if (!testing::Test::HasFailure()) return run.has_failed() ? 0 : no_fault_met;
                std::printf("%s, call %zu%s, error %d\n", run.failed().c_str(), fault.number,
                            fault.from_then_on ? " and all from it on" : "", fault.error);
                return 1;
            });
            reached_the_end = std::string_view(result.message()) == "exit status 2";
            ASSERT_TRUE(result || reached_the_end) << result.message();
        }
    }
    std::printf("%zu failing runs\n", runs - std::size(call_failures));
}

}  // namespace vpdd::test
