// SPDX-License-Identifier: Apache-2.0
// The component cache lives as long as the process and cannot be taken back to its first state, and some failures leave
// a mutex locked for good. A test program whose tests need a fresh library runs each of them in a child of its own:
//
//     int main(int argc, char** argv) { return vpdd::test::run_tests_in_own_processes(argc, argv); }
//
// The children are forked before anything has used the library, so each finds it as it was loaded, at the price of a
// fork. They leave by exit(), so that sanitizers report as usual. A child that blocks is killed and counts as failed.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <string_view>

extern "C" {
// Only there in a program built with a leak checker.
void __lsan_disable(void) __attribute__((weak));
void __lsan_enable(void) __attribute__((weak));
}

namespace vpdd::test {

/// What is allocated while this lives may leak: for the cases in which the library leaves blocks behind on purpose.
class LeaksOnPurpose {
public:
    LeaksOnPurpose() {
        if (__lsan_disable != nullptr) __lsan_disable();
    }
    ~LeaksOnPurpose() {
        if (__lsan_enable != nullptr) __lsan_enable();
    }
    LeaksOnPurpose(const LeaksOnPurpose&) = delete;
    LeaksOnPurpose& operator=(const LeaksOnPurpose&) = delete;
};

/// Runs `body` in a child and tells how that ended; its result is the child's exit status.
inline testing::AssertionResult succeeds_in_own_process(const std::function<int()>& body) {
    constexpr unsigned seconds_to_live = 120;
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child < 0) return testing::AssertionFailure() << "no child could be started";
    if (child == 0) {
        alarm(seconds_to_live);
        std::exit(body());
    }
    int status = 0;
    waitpid(child, &status, 0);
    if (WIFSIGNALED(status)) {
        const int signal = WTERMSIG(status);
        return testing::AssertionFailure() << (signal == SIGALRM ? "blocked for good" : "ended by signal ") << signal;
    }
    if (WEXITSTATUS(status) != 0) return testing::AssertionFailure() << "exit status " << WEXITSTATUS(status);
    return testing::AssertionSuccess();
}

/// The result file that --gtest_output=xml asks for. Each child writes it anew: their test suites are put together.
class MergedResults {
public:
    explicit MergedResults(std::string_view output) {
        constexpr std::string_view xml = "xml:";
        if (output.starts_with(xml)) path_ = output.substr(xml.size());
    }

    /// Takes over what the child wrote. A child that died without a word becomes a failed case of this name.
    void add(const std::string& name, bool succeeded) {
        if (path_.empty()) return;
        std::stringstream text;
        text << std::ifstream(path_).rdbuf();
        std::remove(path_.c_str());
        const std::string results = text.str();
        const auto first = results.find("<testsuite ");
        const auto last = results.rfind("</testsuites>");
        if (first != std::string::npos && last != std::string::npos) {
            suites_ += results.substr(first, last - first);
        } else if (!succeeded) {
            suites_ += "<testsuite name=\"died\"><testcase name=\"" + name + "\"><failure/></testcase></testsuite>\n";
        }
    }

    void write() const {
        if (path_.empty()) return;
        std::ofstream(path_) << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuites>\n"
                             << suites_ << "</testsuites>\n";
    }

private:
    std::string path_;
    std::string suites_;
};

/// For main(): runs every test that the command line selects, each in its own process. A test that --gtest_filter names
/// alone runs right here, for a debugger.
inline int run_tests_in_own_processes(int argc, char** argv) {
    testing::InitGoogleMock(&argc, argv);
    const int tests = testing::UnitTest::GetInstance()->total_test_count();
    const bool is_single = GTEST_FLAG_GET(filter).find_first_of("*?:-") == std::string::npos;
    if (GTEST_FLAG_GET(list_tests) || is_single) return RUN_ALL_TESTS();

    // One shard a test; shards beyond the selected tests are empty.
    setenv("GTEST_TOTAL_SHARDS", std::to_string(tests).c_str(), 1);
    MergedResults results(GTEST_FLAG_GET(output));
    int failures = 0;
    for (int shard = 0; shard < tests; ++shard) {
        setenv("GTEST_SHARD_INDEX", std::to_string(shard).c_str(), 1);
        const auto result = succeeds_in_own_process([] { return RUN_ALL_TESTS(); });
        const std::string name = "shard " + std::to_string(shard);
        results.add(name, result);
        if (result) continue;
        ++failures;
        std::printf("%s: %s\n", name.c_str(), result.message());
    }
    results.write();
    std::printf("%d of at most %d tests failed\n", failures, tests);
    return failures == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace vpdd::test
