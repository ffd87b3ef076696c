// SPDX-License-Identifier: Apache-2.0
// The activity log for client programs: reading, freeing and cleaning it under its lock.
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <future>

#include "failing_allocator.h"
#include "status/log_world.h"
#include "status/watched_calls.h"

using namespace vpdd::test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

constexpr int read_code = 51, reserved_code = 52, free_code = 53, clean_code = 54;
constexpr char lock_failure[] = "vpdd_serv_freelog : fail to lock.\n";

Entries entries_of(const StatusList* list) {
    Entries copies;
    for (const StatusNode* node = list->head; node != nullptr; node = node->next) copies.push_back(node->entry);
    return copies;
}

class LogReaderTest : public LogTest {
protected:
    ~LogReaderTest() override {
        const CaptureStdout silence;
        access_vpd_log(free_code, &handle);
    }

    /// Runs an operation; what it prints is kept.
    template <class Operation>
    int run(const Operation& operation) {
        const CaptureStderr errors;
        const CaptureStdout output;
        const int result = operation();
        printed = output.text();
        printed_as_error = errors.text();
        return result;
    }
    int access(int code) {
        return run([&] { return access_vpd_log(code, &handle); });
    }
    int read() {
        return run([&] { return vpdd_serv_readlog(&handle); });
    }

    std::string created() const { return line("Created", handle); }
    static std::string line(const char* what, const void* address) {
        return formatted("--> vpdd:access_vpd_log - %s log buffer %p\n", what, address);
    }
    static void make_the_lock_fail() { std::filesystem::create_directory(lock_path); }

    StatusList* handle = nullptr;
    std::string printed, printed_as_error;
};

// ---- operation codes

TEST_F(LogReaderTest, Code51HandsOutTheLoadedLog) {
    const Entries entries = make_entries(3);
    write_log(entries);

    EXPECT_EQ(access(read_code), 0);

    ASSERT_NE(handle, nullptr);
    const Entries loaded = entries_of(handle);
    ASSERT_THAT(loaded, SizeIs(3));
    for (std::size_t i = 0; i < 3; ++i) EXPECT_TRUE(is_same_entry(loaded[i], entries[i]));
    EXPECT_EQ(serial_of(handle->tail->entry), "S3");
    EXPECT_EQ(printed, created());
    EXPECT_EQ(printed_as_error, "");
}

TEST_F(LogReaderTest, Code51HandsOutAnEmptyListWhenThereIsNoLog) {
    EXPECT_EQ(access(read_code), 0);

    ASSERT_NE(handle, nullptr);
    EXPECT_EQ(handle->head, nullptr);
    EXPECT_EQ(handle->tail, nullptr);
    EXPECT_EQ(printed, created());
    EXPECT_FALSE(std::filesystem::exists(log_path)) << "reading creates nothing";
}

TEST_F(LogReaderTest, Code51HandsOutAnEmptyListForAFolderInPlaceOfTheLog) {
    std::filesystem::create_directory(log_path);

    EXPECT_EQ(access(read_code), 0);

    ASSERT_NE(handle, nullptr);
    EXPECT_EQ(handle->head, nullptr);
}

TEST_F(LogReaderTest, Code51NeedsAPlaceForTheHandle) {
    EXPECT_EQ(run([] { return access_vpd_log(read_code, nullptr); }), -1);

    EXPECT_EQ(printed, "");
}

TEST_F(LogReaderTest, Code51TakesNoLock) {
    const WatchedCalls calls;
    access(read_code);

    EXPECT_THAT(calls.lock_requests(), IsEmpty());
}

TEST_F(LogReaderTest, Code52DoesNothing) {
    write_log(make_entries(2));
    StatusList list{};
    handle = &list;

    EXPECT_EQ(access(reserved_code), 0);
    EXPECT_EQ(access_vpd_log(reserved_code, nullptr), 0);

    EXPECT_EQ(handle, &list);
    handle = nullptr;
    EXPECT_EQ(printed, "");
    EXPECT_THAT(log_on_flash(), SizeIs(2));
}

TEST_F(LogReaderTest, Code53FreesTheListAndClearsTheHandle) {
    write_log(make_entries(3));
    const AllocationWatch watch;
    access(read_code);
    const StatusList* const list = handle;
    ASSERT_EQ(watch.live_blocks(), allocator_can_fail ? 4U : 0U) << "header and nodes";

    EXPECT_EQ(access(free_code), 0);

    EXPECT_EQ(handle, nullptr);
    EXPECT_EQ(watch.live_blocks(), 0U);
    EXPECT_EQ(printed, line("Delete", list));
    EXPECT_EQ(printed_as_error, "");
    EXPECT_THAT(log_on_flash(), SizeIs(3)) << "the log itself stays";
}

TEST_F(LogReaderTest, Code53FreesAnEmptyList) {
    const AllocationWatch watch;
    access(read_code);

    EXPECT_EQ(access(free_code), 0);

    EXPECT_EQ(watch.live_blocks(), 0U);
}

TEST_F(LogReaderTest, Code53RefusesANullHandleAndAPointerToOne) {
    EXPECT_EQ(access(free_code), -1);
    EXPECT_EQ(printed, "");
    EXPECT_EQ(run([] { return access_vpd_log(free_code, nullptr); }), -1);
    EXPECT_EQ(printed, "");
}

TEST_F(LogReaderTest, Code53RefusesASecondTime) {
    access(read_code);

    EXPECT_EQ(access(free_code), 0);
    EXPECT_EQ(access(free_code), -1);
}

TEST_F(LogReaderTest, Code54EmptiesTheLog) {
    write_log(make_entries(3));

    EXPECT_EQ(access(clean_code), 0);

    EXPECT_EQ(std::filesystem::file_size(log_path), 0U);
    EXPECT_EQ(printed, "");
    EXPECT_EQ(handle, nullptr);
}

TEST_F(LogReaderTest, Code54CreatesALogThatIsNotThere) {
    EXPECT_EQ(run([] { return access_vpd_log(clean_code, nullptr); }), 0);

    EXPECT_EQ(std::filesystem::file_size(log_path), 0U);
}

TEST_F(LogReaderTest, Code54OpensForWritingAndClosesAndThatIsAll) {
    write_log(make_entries(1));
    const WatchedCalls calls;
    access(clean_code);

    EXPECT_THAT(platform.journal(), ElementsAre("fopen LOG w+", "fclose LOG"));
}

TEST_F(LogReaderTest, Code54FailsOnALogThatCannotBeOpened) {
    std::filesystem::create_directory(log_path);

    EXPECT_EQ(access(clean_code), -1);

    EXPECT_EQ(printed, "");
    EXPECT_EQ(printed_as_error, "");
}

TEST_F(LogReaderTest, RefusesOtherCodes) {
    write_log(make_entries(2));
    for (const int code : {55, 50, 0, -1, 56, 307, -205, INT32_MAX, INT32_MIN}) {
        EXPECT_EQ(access(code), -2) << code;
        EXPECT_EQ(handle, nullptr);
        EXPECT_EQ(printed, "");
    }
    EXPECT_THAT(log_on_flash(), SizeIs(2));
}

// ---- under the lock

TEST_F(LogReaderTest, ReadsTheLogUnderItsLock) {
    write_log(make_entries(3));
    const WatchedCalls calls;

    EXPECT_EQ(read(), 0);

    EXPECT_EQ(serials(entries_of(handle)), (std::vector<std::string>{"S1", "S2", "S3"}));
    EXPECT_EQ(printed, created()) << "the line names the operation below";
    const auto journal = platform.journal();
    const auto at = [&](const char* what) { return std::find(journal.begin(), journal.end(), what) - journal.begin(); };
    EXPECT_LT(at("lock LOCK"), at("fopen LOG r"));
    EXPECT_LT(at("fclose LOG"), at("unlock LOCK"));
    EXPECT_EQ(journal.back(), "close LOCK");
    EXPECT_EQ(platform.sleeps(), std::vector<int64_t>{100000});
}

/// Whether another process finds the log locked.
bool is_locked_for_others() {
    const pid_t child = fork();
    if (child == 0) {
        struct flock wanted {};
        wanted.l_type = F_WRLCK;
        wanted.l_whence = SEEK_SET;
        const int fd = open(lock_path, O_RDWR | O_CLOEXEC);
        const bool is_known = fd >= 0 && fcntl(fd, F_GETLK, &wanted) == 0;
        _exit(is_known && wanted.l_type == F_WRLCK && wanted.l_pid == getppid() ? 1 : 0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 1;
}

TEST_F(LogReaderTest, AnotherProcessSeesTheLockWhileTheLogIsReadAndNotAfterwards) {
    write_log(make_entries(3));
    std::vector<bool> seen;
    {
        WatchedCalls calls;
        calls.before([&](const WatchedCall& call) {
            if (call.text == "fopen LOG r" || call.text == "fclose LOG") seen.push_back(is_locked_for_others());
        });
        read();
    }

    EXPECT_THAT(seen, ElementsAre(true, true));
    EXPECT_FALSE(is_locked_for_others());
}

TEST_F(LogReaderTest, AnotherProcessSeesTheLockWhileTheLogIsCleaned) {
    write_log(make_entries(3));
    std::vector<bool> seen;
    {
        WatchedCalls calls;
        calls.before([&](const WatchedCall& call) {
            if (call.text == "fopen LOG w+" || call.text == "fclose LOG") seen.push_back(is_locked_for_others());
        });
        EXPECT_EQ(vpdd_serv_cleanlog(), 0);
    }

    EXPECT_THAT(seen, ElementsAre(true, true));
    EXPECT_FALSE(is_locked_for_others());
}

TEST_F(LogReaderTest, ReadsAMissingLogAsAnEmptyHandle) {
    EXPECT_EQ(read(), 0);

    ASSERT_NE(handle, nullptr);
    EXPECT_EQ(handle->head, nullptr);
    EXPECT_EQ(handle->tail, nullptr);
}

TEST_F(LogReaderTest, ReadsACleanedLogAsAnEmptyHandle) {
    write_log(make_entries(3));

    EXPECT_EQ(run([] { return vpdd_serv_cleanlog(); }), 0);
    EXPECT_EQ(printed + printed_as_error, "");
    EXPECT_EQ(read(), 0);

    ASSERT_NE(handle, nullptr);
    EXPECT_EQ(handle->head, nullptr);
}

TEST_F(LogReaderTest, CleansALeftOverBackupTooSoThatNoUpdateBringsTheLogBack) {
    write_log(make_entries(3));
    std::filesystem::copy_file(log_path, backup_path);

    EXPECT_EQ(run([] { return vpdd_serv_cleanlog(); }), 0);

    EXPECT_FALSE(std::filesystem::exists(backup_path));
}

TEST_F(LogReaderTest, KeepsALeftOverBackupWhereTheLogCannotBeCleaned) {
    write_log(make_entries(2));
    write_log(make_entries(3), backup_path);
    WatchedCalls calls;
    calls.fail("fopen LOG w+");

    EXPECT_EQ(access(clean_code), -1);
    EXPECT_EQ(run([] { return vpdd_serv_cleanlog(); }), 0) << "the result of unlocking";

    EXPECT_TRUE(file_holds(log_path, file_image(make_entries(2))));
    EXPECT_TRUE(file_holds(backup_path, file_image(make_entries(3))));
}

TEST_F(LogReaderTest, ReadsEachTimeIntoANewHandle) {
    write_log(make_entries(1));
    StatusList* second = nullptr;
    read();
    const CaptureStdout silence;

    EXPECT_EQ(vpdd_serv_readlog(&second), 0);

    EXPECT_NE(second, handle);
    EXPECT_EQ(vpdd_serv_freelog(&second), 0);
    EXPECT_THAT(entries_of(handle), SizeIs(1));
}

TEST_F(LogReaderTest, FreesAHandleUnderTheLock) {
    write_log(make_entries(2));
    const AllocationWatch watch;
    read();
    const StatusList* const list = handle;
    std::vector<bool> is_there;
    {
        WatchedCalls calls;
        calls.before([&](const WatchedCall& call) {
            if (call.text == "lock LOCK" || call.text == "unlock LOCK") is_there.push_back(handle != nullptr);
        });
        EXPECT_EQ(run([&] { return vpdd_serv_freelog(&handle); }), 0);
    }

    EXPECT_THAT(is_there, ElementsAre(true, false));
    EXPECT_EQ(printed, line("Delete", list));
    EXPECT_EQ(watch.live_blocks(), 0U);
}

TEST_F(LogReaderTest, FreeingNothingGivesTheResultOfUnlocking) {
    EXPECT_EQ(run([&] { return vpdd_serv_freelog(&handle); }), 0);
    EXPECT_EQ(run([] { return vpdd_serv_freelog(nullptr); }), 0);

    EXPECT_EQ(printed + printed_as_error, "");
    EXPECT_FALSE(is_locked_for_others());
}

TEST_F(LogReaderTest, CleaningALogThatCannotBeOpenedGivesTheResultOfUnlocking) {
    std::filesystem::create_directory(log_path);

    EXPECT_EQ(vpdd_serv_cleanlog(), 0);

    EXPECT_FALSE(is_locked_for_others());
}

TEST_F(LogReaderTest, FreeingAndCleaningGiveAFailureOfUnlocking) {
    WatchedCalls calls;
    calls.fail("close LOCK");

    EXPECT_EQ(vpdd_serv_freelog(&handle), -1);
    EXPECT_EQ(vpdd_serv_cleanlog(), -1);
}

TEST_F(LogReaderTest, ReadingSucceedsWhenOnlyUnlockingFails) {
    WatchedCalls calls;
    calls.fail("close LOCK");

    EXPECT_EQ(read(), 0);

    EXPECT_NE(handle, nullptr);
}

TEST_F(LogReaderTest, ReadingNeedsAPlaceForTheHandle) {
    EXPECT_EQ(run([] { return vpdd_serv_readlog(nullptr); }), -1);

    EXPECT_FALSE(is_locked_for_others());
}

// ---- no lock

TEST_F(LogReaderTest, ReadingWithoutTheLockSaysSoOnStandardOutput) {
    write_log(make_entries(2));
    make_the_lock_fail();

    EXPECT_EQ(read(), -1);

    EXPECT_EQ(printed, "vpdd_serv_readlog : fail to lock.") << "without a newline";
    EXPECT_EQ(printed_as_error, "");
    EXPECT_EQ(handle, nullptr);
}

TEST_F(LogReaderTest, FreeingWithoutTheLockSaysSoOnStandardErrorAndReturnsItsLength) {
    write_log(make_entries(2));
    read();
    const StatusList* const list = handle;
    std::filesystem::remove(lock_path);
    make_the_lock_fail();

    EXPECT_EQ(run([&] { return vpdd_serv_freelog(&handle); }), 34);

    EXPECT_EQ(printed_as_error, lock_failure);
    EXPECT_EQ(printed, "");
    EXPECT_EQ(handle, list);
    EXPECT_THAT(entries_of(handle), SizeIs(2)) << "nothing is freed";
}

TEST_F(LogReaderTest, CleaningWithoutTheLockUsesTheTextOfFreeing) {
    write_log(make_entries(2));
    make_the_lock_fail();

    EXPECT_EQ(run([] { return vpdd_serv_cleanlog(); }), 34);

    EXPECT_EQ(printed_as_error, lock_failure);
    EXPECT_EQ(printed, "");
    EXPECT_THAT(log_on_flash(), SizeIs(2));
}

TEST_F(LogReaderTest, ALockRequestThatFailsIsAFailureToLock) {
    WatchedCalls calls;
    calls.fail("lock LOCK");

    EXPECT_EQ(read(), -1);
    EXPECT_EQ(printed, "vpdd_serv_readlog : fail to lock.");
    EXPECT_EQ(run([&] { return vpdd_serv_freelog(&handle); }), 34);
    EXPECT_EQ(run([] { return vpdd_serv_cleanlog(); }), 34);
    EXPECT_EQ(printed_as_error, lock_failure);
}

// ---- memory

TEST_F(LogReaderTest, FailsWithoutMemoryForTheHeader) {
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer's allocator is in the way";
    write_log(make_entries(2));
    const AllocationWatch failing(1);

    EXPECT_EQ(read(), -1);

    EXPECT_EQ(handle, nullptr);
    EXPECT_EQ(printed, "");
    EXPECT_EQ(failing.live_blocks(), 0U);
    EXPECT_FALSE(is_locked_for_others());
}

TEST_F(LogReaderTest, HandsOutWhatWasLoadedBeforeMemoryRanOut) {
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer's allocator is in the way";
    write_log(make_entries(5));
    constexpr std::size_t header = 1;
    const AllocationWatch failing(header + 3, Failing::from_then_on);

    EXPECT_EQ(read(), 0);

    ASSERT_NE(handle, nullptr);
    EXPECT_EQ(serials(entries_of(handle)), (std::vector<std::string>{"S1", "S2"}));
    access(free_code);
    EXPECT_EQ(failing.live_blocks(), 0U);
}

// ---- several threads of one process

TEST_F(LogReaderTest, KeepsItsLockWhileAnotherThreadReadsToo) {
    // The kernel would release the lock of the whole process when the other thread closes the lock file.
    write_log(make_entries(2));
    std::future<int> other;
    bool other_has_finished = true;
    WatchedCalls calls;
    calls.before([&](const WatchedCall& call) {
        if (call.text != "fseek LOG" || other.valid()) return;
        other = std::async(std::launch::async, [] { return vpdd_serv_cleanlog(); });
        other_has_finished = other.wait_for(std::chrono::milliseconds(50)) == std::future_status::ready;
    });

    EXPECT_EQ(read(), 0);

    EXPECT_FALSE(other_has_finished);
    EXPECT_EQ(entries_of(handle).size(), 2U);
    EXPECT_EQ(other.get(), 0);
    EXPECT_TRUE(log_on_flash().empty());
}

}  // namespace
