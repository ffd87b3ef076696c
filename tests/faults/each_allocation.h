// SPDX-License-Identifier: Apache-2.0
// Lets each allocation of an operation fail: the n-th one alone, and all from the n-th on, for every n until the
// operation asks for no more. Each run has a process of its own, so that it finds the library as it was loaded.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <string>
#include <string_view>

#include "failing_allocator.h"
#include "fake_platform.h"
#include "faults/held_locks.h"
#include "own_process.h"

namespace vpdd::test {

/// One run: which allocation fails.
struct AllocationFault {
    std::size_t number;
    Failing how;
    Allocating who;
};

/// The operation with its fault. The allocator is watched from the first line of the operation to its last.
class FaultyRun {
public:
    explicit FaultyRun(const AllocationFault& fault) : fault_(fault) {}

    /// Runs the operation, whose output is swallowed; nothing that a test asserts belongs into it.
    template <class Operation>
    void operator()(const Operation& operation) {
        const std::size_t descriptors = open_descriptors();
        {
            const CaptureStdout silence;
            const CaptureStderr silent_errors;
            const AllocationWatch watch(fault_.number, fault_.how, fault_.who);
            operation();
            has_failed_ = watch.has_failed();
            left_ = watch.live_blocks();
        }
        EXPECT_EQ(open_descriptors(), descriptors) << "a descriptor was left open";
    }

    bool has_failed() const { return has_failed_; }
    /// Blocks that were not given back.
    std::size_t left() const { return left_; }

private:
    AllocationFault fault_;
    bool has_failed_ = false;
    std::size_t left_ = 0;
};

/// What the C library allocates once and keeps is allocated before anything is counted.
inline void settle_c_library() {
    tzset();
    const time_t epoch = 0;
    tm local{};
    localtime_r(&epoch, &local);
    std::fputs("", stdout);
    std::printf("%s", "\n");
    std::fprintf(stderr, "%s", "");
    std::fflush(nullptr);
}

/// `body` arranges, hands the operation to the run, and asserts. It is called once for each fault.
inline void for_each_failing_allocation(Allocating who, const std::function<void(FaultyRun&)>& body) {
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer owns the allocator";
    constexpr int no_fault_met = 2;
    constexpr std::size_t most = 2000;
    std::size_t runs = 0;
    for (const Failing how : {Failing::once, Failing::from_then_on}) {
        bool reached_the_end = false;
        for (std::size_t number = 1; !reached_the_end; ++number, ++runs) {
            ASSERT_LT(number, most) << "the operation never succeeds";
            const auto result = succeeds_in_own_process([&] {
                settle_c_library();
                FaultyRun run({number, how, who});
                body(run);
                EXPECT_TRUE(no_exported_mutex_is_held());
                if (testing::Test::HasFailure()) return 1;
                return run.has_failed() ? 0 : no_fault_met;
            });
            reached_the_end = std::string_view(result.message()) == "exit status 2";
            ASSERT_TRUE(result || reached_the_end)
                << (how == Failing::once ? "allocation " : "from allocation ") << number << " on: " << result.message();
        }
    }
    std::printf("%zu failing runs\n", runs - 2);
}

/// Of the library and of the C library for it.
inline void for_each_failing_allocation(const std::function<void(FaultyRun&)>& body) {
    for_each_failing_allocation(Allocating::library_and_c_library, body);
}

}  // namespace vpdd::test
