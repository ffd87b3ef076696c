// SPDX-License-Identifier: Apache-2.0
// The rewriting of the log: its order of events, what it writes, and what happens when a step fails.
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include "failing_allocator.h"
#include "full_device.h"
#include "log_world.h"
#include "watched_calls.h"

using namespace vpdd::test;

namespace {

constexpr int append = 0, replace = 1;

using Words = std::vector<std::string>;

/// S`first` to S`last`, then more.
Words numbered(int first, int last, const Words& more = {}) {
    Words words;
    for (int i = first; i <= last; ++i) words.push_back("S" + std::to_string(i));
    words.insert(words.end(), more.begin(), more.end());
    return words;
}

class LogUpdate : public LogTest {
protected:
    /// What was written behind `count` entries.
    static Entries written_behind(std::size_t count) {
        Entries entries = log_on_flash();
        entries.erase(entries.begin(), entries.begin() + static_cast<std::ptrdiff_t>(std::min(count, entries.size())));
        return entries;
    }

    /// The journal without log lines.
    Words events() const {
        Words lines = platform.journal();
        std::erase_if(lines, [](const std::string& line) { return line.starts_with("log "); });
        return lines;
    }

    ComponentVpdRecord added = make_entry(9, "NEW", present, 5000);
};

class LogUpdateOfLength : public LogUpdate, public testing::WithParamInterface<std::size_t> {};

}  // namespace

// ---- what is written

TEST_P(LogUpdateOfLength, AppendsAndKeepsTheNewestEntries) {
    const auto count = static_cast<int>(GetParam());
    const Entries old = make_entries(GetParam());
    write_log(old);
    log_update(&added, append);
    const int first = count < 250 ? 1 : count - 249 + 1;  // the oldest go, so that 249 are left
    EXPECT_EQ(serials(log_on_flash()), numbered(first, count, {"NEW"}));
    EXPECT_EQ(read_file(log_path).size() % entry_size, 0U);
    const Entries now_there = log_on_flash();
    for (std::size_t i = 0; i + 1 < now_there.size(); ++i) {
        ASSERT_TRUE(is_same_entry(now_there[i], old[static_cast<std::size_t>(first) - 1 + i])) << i;
    }
    EXPECT_TRUE(is_same_entry(now_there.back(), added));
}

TEST_P(LogUpdateOfLength, ReplacesAndKeepsTheNewestEntries) {
    const auto count = static_cast<int>(GetParam());
    write_log(make_entries(GetParam()));
    ComponentVpdRecord record = make_entry(5, "NEW");
    log_update(&record, replace);
    const int first = count < 250 ? 1 : count - 249 + 1;
    const int newest_open = count % 2 == 1 ? count : count - 1;  // odd entries are open
    const Words closed_copy = count > 0 ? Words{"S" + std::to_string(newest_open)} : Words{};
    Words expected = numbered(first, count, closed_copy);
    expected.emplace_back("NEW");
    EXPECT_EQ(serials(log_on_flash()), expected);
}

INSTANTIATE_TEST_SUITE_P(Entries, LogUpdateOfLength, testing::Values(0, 1, 249, 250, 251, 300));

TEST_F(LogUpdate, DropsTheOldestOfExactly250AndKeeps250) {
    write_log(make_entries(250));
    log_update(&added, append);
    EXPECT_EQ(log_on_flash().size(), 250U);
    EXPECT_EQ(serial_of(log_on_flash().front()), "S2");
}

TEST_F(LogUpdate, DropsNothingOf249) {
    write_log(make_entries(249));
    log_update(&added, append);
    EXPECT_EQ(log_on_flash().size(), 250U);
    EXPECT_EQ(serial_of(log_on_flash().front()), "S1");
}

TEST_F(LogUpdate, DropsThe51OldestOf300) {
    write_log(make_entries(300));
    log_update(&added, append);
    EXPECT_EQ(log_on_flash().size(), 250U);
    EXPECT_EQ(serial_of(log_on_flash().front()), "S52");
}

TEST_F(LogUpdate, MayLeave251EntriesAfterAReplacement) {
    write_log(make_entries(250));
    ComponentVpdRecord record = make_entry(5, "NEW");
    log_update(&record, replace);
    EXPECT_EQ(log_on_flash().size(), 251U);
}

TEST_F(LogUpdate, LosesADamagedEntryForGood) {
    Entries entries = make_entries(3);
    entries[1].name[0] ^= 1;
    write_log(entries);
    log_update(&added, append);
    EXPECT_EQ(serials(log_on_flash()), (Words{"S1", "S3", "NEW"}));
}

TEST_F(LogUpdate, CountsOnlyRightEntriesTowardsTheCapacity) {
    Entries entries = make_entries(250);
    entries[100].crc ^= 1U;
    write_log(entries);
    log_update(&added, append);
    EXPECT_EQ(log_on_flash().size(), 250U);
    EXPECT_EQ(serial_of(log_on_flash().front()), "S1");
}

TEST_F(LogUpdate, WritesARecordAsItIsEvenWithAWrongSum) {
    write_log({});
    added.crc ^= 1U;
    log_update(&added, append);
    EXPECT_TRUE(file_holds(log_path, bytes_of_entry(added)));
}

TEST_F(LogUpdate, LeavesTheOldEntryOpenAndClosesACopyWithTheCurrentTime) {
    const ComponentVpdRecord open_entry = make_entry(5, "OLD", present, 1000);
    write_log({make_entry(4, "OTHER"), open_entry});
    const ComponentVpdRecord record = make_entry(5, "NEW", present, 7);
    log_update(&record, replace);

    ComponentVpdRecord closed = open_entry;
    closed.status = absent;
    closed.timestamp = now;
    ComponentVpdRecord installed = record;
    installed.timestamp = now + 1;
    const Entries entries = log_on_flash();
    ASSERT_EQ(entries.size(), 4U);
    EXPECT_TRUE(is_same_entry(entries[1], open_entry));
    EXPECT_TRUE(is_same_entry(entries[2], closed));
    EXPECT_TRUE(is_same_entry(entries[3], installed));
    EXPECT_EQ(record.timestamp, 7) << "the caller's record was written to";
}

TEST_F(LogUpdate, ClosesTheNewestOfSeveralOpenEntries) {
    write_log({make_entry(5, "A"), make_entry(5, "B"), make_entry(5, "C", absent)});
    const ComponentVpdRecord record = make_entry(5, "NEW");
    log_update(&record, replace);
    EXPECT_EQ(summary(written_behind(3)), (Words{"B 0", "NEW 1"}));
}

TEST_F(LogUpdate, TakesAnOpenEntryByItsFruIdAlone) {
    ComponentVpdRecord renamed = make_entry(5, "A");
    set_text(renamed.name, "Another name");
    write_log({with_right_crc(renamed), make_entry(6, "B")});
    const ComponentVpdRecord record = make_entry(5, "NEW");
    log_update(&record, replace);
    EXPECT_EQ(summary(written_behind(2)), (Words{"A 0", "NEW 1"}));
}

TEST_F(LogUpdate, TakesOnlyTheStatusOneForOpenInAll32Bits) {
    for (const int32_t status : {absent, no_sensor, 257, 0x01000001, -1}) {
        write_log({make_entry(5, "A", status)});
        const ComponentVpdRecord record = make_entry(5, "NEW", present, 77);
        log_update(&record, replace);
        EXPECT_EQ(serials(log_on_flash()), (Words{"A", "NEW"})) << status;
        EXPECT_EQ(log_on_flash().back().timestamp, 77) << "an appended entry keeps its time";
    }
}

TEST_F(LogUpdate, AppendsAReplacementOfAComponentWithoutAnEntry) {
    write_log({make_entry(4, "A")});
    log_update(&added, replace);
    EXPECT_EQ(serials(log_on_flash()), (Words{"A", "NEW"}));
    EXPECT_TRUE(is_same_entry(log_on_flash().back(), added));
}

TEST_F(LogUpdate, OverlooksAnOpenEntryThatTheCapacityDropped) {
    Entries entries = make_entries(250, 4);
    entries.front() = make_entry(5, "OLD");
    write_log(entries);
    const ComponentVpdRecord record = make_entry(5, "NEW");
    log_update(&record, replace);
    EXPECT_EQ(log_on_flash().size(), 250U);
    EXPECT_EQ(serials(written_behind(249)), (Words{"NEW"}));
}

TEST_F(LogUpdate, WritesNothingWithoutALog) {
    WatchedCalls calls;
    log_update(&added, append);
    EXPECT_FALSE(std::filesystem::exists(log_path));
    EXPECT_EQ(events(), (Words{"fopen LOG r"}));
}

TEST_F(LogUpdate, WritesNothingWhenTheLogCannotSeek) {
    write_log(make_entries(2));
    const std::string before = read_file(log_path);
    WatchedCalls calls;
    calls.fail("fseek LOG");
    log_update(&added, append);
    EXPECT_EQ(events(), (Words{"fopen LOG r", "fseek LOG", "fclose LOG"}));
    EXPECT_TRUE(file_holds(log_path, before));
}

TEST_F(LogUpdate, WritesNothingWhenMemoryRunsOut) {
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer owns the allocator";
    write_log(make_entries(4));
    const std::string before = read_file(log_path);
    const AllocationWatch watch(3);
    log_update(&added, append);
    EXPECT_TRUE(watch.has_failed());
    EXPECT_EQ(watch.live_blocks(), 0U);
    EXPECT_TRUE(commands().empty());
    EXPECT_TRUE(file_holds(log_path, before));
}

TEST_F(LogUpdate, FreesEveryNode) {
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer owns the allocator";
    write_log(make_entries(4));
    const AllocationWatch watch;
    log_update(&added, append);
    EXPECT_EQ(watch.live_blocks(), 0U);
}

// ---- in which order

TEST_F(LogUpdate, LoadsBacksUpTruncatesAndOnlyThenLocks) {
    write_log(make_entries(1));
    // In a process of its own, so that its calls are not seen.
    platform.shell_command.model([](const std::string& command) { return std::system(command.c_str()); });
    const WatchedCalls calls;
    log_update(&added, append);
    EXPECT_EQ(events(), (Words{
                            "fopen LOG r",  "fseek LOG",
                            "fclose LOG",   std::string("shell ") + back_up,
                            "open BACKUP",  "fsync BACKUP",
                            "close BACKUP", "fsync FOLDER",
                            "fopen LOG w+", "open LOCK",
                            "open LOCK",  // the second creates it
                            "lock LOCK",    "fwrite LOG",
                            "fwrite LOG",   "fflush LOG",
                            "fsync LOG",    "fclose LOG",
                            "unlock LOCK",  "sleep 100000",
                            "close LOCK",   std::string("shell ") + discard_backup,
                            "fsync FOLDER",
                        }));
}

TEST_F(LogUpdate, BacksUpTheLogAsItWas) {
    write_log(make_entries(250));
    const std::string before = read_file(log_path);
    std::string backup;
    WatchedCalls calls;
    calls.before([&](const WatchedCall& call) {
        if (call.text == "fopen LOG w+") backup = read_file(backup_path);
    });
    log_update(&added, append);
    EXPECT_TRUE(backup == before);
}

TEST_F(LogUpdate, HasTruncatedTheLogWhenItAsksForTheLock) {
    write_log(make_entries(3));
    std::size_t size = 1;
    WatchedCalls calls;
    calls.before([&](const WatchedCall& call) {
        if (call.text == "lock LOCK") size = std::filesystem::file_size(log_path);
    });
    log_update(&added, append);
    EXPECT_EQ(size, 0U);
}

TEST_F(LogUpdate, HasWrittenEverythingWhenItUnlocks) {
    write_log(make_entries(3));
    std::size_t size = 0;
    WatchedCalls calls;
    calls.before([&](const WatchedCall& call) {
        if (call.text == "unlock LOCK") size = std::filesystem::file_size(log_path);
    });
    log_update(&added, append);
    EXPECT_EQ(size, 4 * entry_size);
}

TEST_F(LogUpdate, LeavesNoBackup) {
    write_log(make_entries(3));
    log_update(&added, append);
    EXPECT_FALSE(std::filesystem::exists(backup_path));
}

TEST_F(LogUpdate, LogsNothingButItsCommands) {
    write_log(make_entries(3));
    log_update(&added, append);
    EXPECT_EQ(platform.log(), (std::vector<LogLine>{
                                  {info, pid_line("log_handle - Run command:%s.\n", back_up)},
                                  {info, pid_line("log_handle - Run command:%s.\n", discard_backup)},
                              }));
}

// ---- when a step fails

TEST_F(LogUpdate, PutsTheBackupBackWhenTheLogCannotBeOpened) {
    write_log(make_entries(2));
    const std::string before = read_file(log_path);
    WatchedCalls calls;
    calls.fail("fopen LOG w+");
    log_update(&added, append);
    EXPECT_EQ(commands(), (Words{back_up, put_backup_back}));
    EXPECT_TRUE(platform.logged(info, pid_line("log_update - ERROR:Fail to create/open log file(%s).\n", log_path)));
    EXPECT_TRUE(file_holds(log_path, before));
    EXPECT_FALSE(std::filesystem::exists(backup_path));
    EXPECT_TRUE(calls.lock_requests().empty());
}

TEST_F(LogUpdate, SaysThatAFolderInPlaceOfTheLogCannotBeOpened) {
    std::filesystem::create_directory(log_path);
    log_update(&added, append);
    ASSERT_FALSE(commands().empty());
    EXPECT_EQ(commands().front(), back_up);
    EXPECT_TRUE(platform.logged(info, pid_line("log_update - ERROR:Fail to create/open log file(%s).\n", log_path)));
}

TEST_F(LogUpdate, PutsTheBackupBackWhenTheLockFails) {
    write_log(make_entries(2));
    const std::string before = read_file(log_path);
    WatchedCalls calls;
    calls.fail("lock LOCK");
    log_update(&added, append);
    EXPECT_EQ(commands(), (Words{back_up, put_backup_back}));
    EXPECT_TRUE(platform.logged(info, pid_line("log_update - ERROR:Fail to operate file lock.\n")));
    EXPECT_TRUE(file_holds(log_path, before));
    EXPECT_FALSE(std::filesystem::exists(backup_path));
}

TEST_F(LogUpdate, ClosesTheLogBeforeItPutsTheBackupBack) {
    write_log(make_entries(2));
    WatchedCalls calls;
    calls.fail("lock LOCK");
    log_update(&added, append);
    Words last = events();
    last.erase(last.begin(), last.end() - 5);
    EXPECT_EQ(last, (Words{"lock LOCK", "close LOCK", "fclose LOG", std::string("shell ") + put_backup_back,
                           "fsync FOLDER"}));
}

TEST_F(LogUpdate, PutsTheBackupBackWhenTheLockFileCannotBeOpened) {
    write_log(make_entries(2));
    const std::string before = read_file(log_path);
    WatchedCalls calls;
    calls.fail("open LOCK");
    log_update(&added, append);
    EXPECT_TRUE(platform.logged(info, pid_line("log_update - ERROR:Fail to operate file lock.\n")));
    EXPECT_TRUE(file_holds(log_path, before));
}

TEST_F(LogUpdate, FreesEveryNodeWhenAStepFails) {
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer owns the allocator";
    for (const char* step : {"fopen LOG w+", "lock LOCK", "fflush LOG", "fsync LOG"}) {
        write_log(make_entries(4));
        WatchedCalls calls;
        calls.fail(step);
        const AllocationWatch watch;
        log_update(&added, append);
        EXPECT_EQ(watch.live_blocks(), 0U) << step;
    }
}

TEST_F(LogUpdate, PutsTheBackupBackWhenTheLogDoesNotReachTheDevice) {
    for (const char* step : {"fflush LOG", "fsync LOG"}) {
        write_log(make_entries(2));
        const std::string before = read_file(log_path);
        WatchedCalls calls;
        calls.fail(step);
        log_update(&added, append);
        EXPECT_EQ(commands().back(), put_backup_back) << step;
        EXPECT_TRUE(file_holds(log_path, before)) << step;
        EXPECT_FALSE(std::filesystem::exists(backup_path)) << step;
    }
}

TEST_F(LogUpdate, UnlocksBeforeItPutsTheBackupBack) {
    write_log(make_entries(2));
    WatchedCalls calls;
    calls.fail("fsync LOG");
    log_update(&added, append);
    Words last = events();
    last.erase(last.begin(), last.end() - 7);
    EXPECT_EQ(last, (Words{"fsync LOG", "fclose LOG", "unlock LOCK", "sleep 100000", "close LOCK",
                           std::string("shell ") + put_backup_back, "fsync FOLDER"}));
}

TEST_F(LogUpdate, GoesOnAfterAShortWriteAndDeletesTheBackup) {
    write_log(make_entries(3));
    WatchedCalls calls;
    calls.fail("fwrite LOG", 1);
    log_update(&added, append);
    EXPECT_TRUE(platform.logged(warning, pid_line("log_write_node - Incompleted component data(Name=Fan 5, ID=5).\n")));
    EXPECT_EQ(serials(log_on_flash()), (Words{"S2", "S3", "NEW"}));
    EXPECT_EQ(commands(), (Words{back_up, discard_backup}));
}

TEST_F(LogUpdate, PutsTheBackupBackOnAFullDevice) {
    for (const std::size_t entries : {1U, 2U, 8U, 30U, 249U}) {
        platform.reset();
        write_log(make_entries(entries));
        const std::string before = read_file(log_path);
        {
            const FullDevice device(platform, entries / 2);
            log_update(&added, append);
        }
        EXPECT_TRUE(platform.logged_containing(warning, "log_write_node - Incompleted component data(Name=Fan"))
            << entries;
        EXPECT_EQ(commands(), (Words{back_up, put_backup_back})) << entries;
        EXPECT_TRUE(file_holds(log_path, before)) << entries;
    }
}

TEST_F(LogUpdate, NamesTheNewEntryWhereOnlyItFindsTheDeviceFull) {
    write_log(make_entries(3));
    const FullDevice device(platform, 3);
    log_update(&added, append);
    EXPECT_TRUE(platform.logged(warning, pid_line("log_write_node - Incompleted component data(Name=Fan 9, ID=9).\n")));
    EXPECT_EQ(commands(), (Words{back_up, put_backup_back}));
}

TEST_F(LogUpdate, GoesOnWithoutABackup) {
    // The platform's shell may be out of order; an update is still made.
    platform.shell_command.fail_always();
    write_log(make_entries(2));
    log_update(&added, append);
    EXPECT_EQ(serials(log_on_flash()), (Words{"S1", "S2", "NEW"}));
}

TEST_F(LogUpdate, WorksWithTheRealShell) {
    write_log(make_entries(2));
    std::string backup;
    platform.shell_command.model([&](const std::string& command) {
        backup = read_file(backup_path);
        return std::system(command.c_str());
    });
    log_update(&added, append);
    EXPECT_TRUE(backup == file_image(make_entries(2)));
    EXPECT_FALSE(std::filesystem::exists(backup_path));

    WatchedCalls calls;
    calls.fail("lock LOCK");
    log_update(&added, append);
    EXPECT_EQ(serials(log_on_flash()), (Words{"S1", "S2", "NEW"}));
    EXPECT_FALSE(std::filesystem::exists(backup_path));
}

// The other rewrite may have truncated the log: its entries are in the backup alone, which must not be overwritten.
TEST_F(LogUpdate, TouchesNothingAfterThirtySecondsOfAnotherRewrite) {
    write_file(log_path, "");
    write_file(backup_path, file_image(make_entries(5)));
    const int folder = open("/flash/data0", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_EQ(flock(folder, LOCK_EX | LOCK_NB), 0);

    log_update(&added, append);

    close(folder);
    EXPECT_EQ(platform.sleeps().size(), 300U);
    EXPECT_TRUE(commands().empty());
    EXPECT_TRUE(file_holds(log_path, ""));
    EXPECT_TRUE(file_holds(backup_path, file_image(make_entries(5))));
    EXPECT_TRUE(platform.logged(info, pid_line("log_update - ERROR:Fail to operate file lock.\n")));
}

TEST_F(LogUpdate, DoesNotBelieveAShellThatOnlyClaimsToHaveMadeTheBackup) {
    write_log(make_entries(3));
    const std::string before = read_file(log_path);
    platform.shell_command.model([](const std::string&) { return 0; });
    WatchedCalls calls;
    calls.fail("lock LOCK");
    log_update(&added, append);
    EXPECT_TRUE(file_holds(log_path, before));
    EXPECT_FALSE(std::filesystem::exists(backup_path));
}

TEST_F(LogUpdate, RemovesABackupThatTheShellOnlyClaimsToHaveRemoved) {
    write_log(make_entries(3));
    platform.shell_command.model([](const std::string&) { return 0; });
    log_update(&added, append);
    EXPECT_EQ(serials(log_on_flash()), (Words{"S1", "S2", "S3", "NEW"}));
    EXPECT_FALSE(std::filesystem::exists(backup_path));
}

TEST_F(LogUpdate, WritesNothingWhileTheBackupIsNoFile) {
    write_log(make_entries(3));
    const std::string before = read_file(log_path);
    std::filesystem::create_directory(backup_path);
    log_update(&added, append);
    EXPECT_TRUE(file_holds(log_path, before));
}

TEST_F(LogUpdate, NeedsAnEntry) {
    write_log(make_entries(2));
    log_update(nullptr, append);
    EXPECT_EQ(serials(log_on_flash()), (Words{"S1", "S2"}));
}

// ---- one entry

TEST(LogWriteNode, NeedsAStream) {
    const ComponentVpdRecord entry = make_entry(5, "A");
    log_write_node(nullptr, &entry);
    EXPECT_TRUE(FakePlatform::instance().logged_nothing());
}

TEST(LogWriteNode, NeedsAnEntry) {
    char written[8] = "nothing";
    FILE* const stream = fmemopen(written, sizeof written, "r+");
    ASSERT_NE(stream, nullptr);

    log_write_node(stream, nullptr);

    EXPECT_EQ(std::ftell(stream), 0);
    std::fclose(stream);
    EXPECT_STREQ(written, "nothing");
    EXPECT_TRUE(FakePlatform::instance().logged_nothing());
}

TEST_F(LogTest, OneEntryIsWrittenByteForByte) {
    ComponentVpdRecord entry{};
    auto* const bytes = reinterpret_cast<uint8_t*>(&entry);
    for (std::size_t i = 0; i < entry_size; ++i) bytes[i] = static_cast<uint8_t>(i * 3);
    FILE* const stream = std::fopen(log_path, "w");
    log_write_node(stream, &entry);
    std::fclose(stream);
    EXPECT_TRUE(file_holds(log_path, bytes_of_entry(entry)));
    EXPECT_TRUE(platform.logged_nothing());
}

TEST_F(LogTest, AShortWriteIsReported) {
    const ComponentVpdRecord entry = make_entry(0xAB, "A");
    FILE* const stream = std::fopen("/dev/full", "w");
    std::setvbuf(stream, nullptr, _IONBF, 0);
    log_write_node(stream, &entry);
    std::fclose(stream);
    EXPECT_EQ(platform.log(),
              (std::vector<LogLine>{
                  {warning, pid_line("log_write_node - Incompleted component data(Name=Fan 171, ID=ab).\n")}}));
}

// ---- backup and recovery

namespace {

class LogHandle : public LogTest {};

}  // namespace

TEST_F(LogHandle, BacksUp) {
    platform.shell_command.always(7);
    EXPECT_EQ(log_handle(0), 7);
    EXPECT_EQ(commands(), (Words{"/bin/cp -f /flash/data0/component_activity.log "
                                 "/flash/data0/component_activity.log.backup"}));
    EXPECT_EQ(platform.log(), (std::vector<LogLine>{{info, pid_line("log_handle - Run command:%s.\n", back_up)}}));
}

TEST_F(LogHandle, DiscardsTheBackup) {
    platform.shell_command.always(8);
    EXPECT_EQ(log_handle(1), 8);
    EXPECT_EQ(commands(), (Words{"/bin/rm -f /flash/data0/component_activity.log.backup"}));
    EXPECT_EQ(platform.log(),
              (std::vector<LogLine>{{info, pid_line("log_handle - Run command:%s.\n", discard_backup)}}));
}

TEST_F(LogHandle, PutsTheBackupBack) {
    write_file(backup_path, "");
    platform.shell_command.always(9);
    EXPECT_EQ(log_handle(2), 9);
    EXPECT_EQ(commands(), (Words{"/bin/mv /flash/data0/component_activity.log.backup "
                                 "/flash/data0/component_activity.log"}));
    EXPECT_EQ(platform.log(), (std::vector<LogLine>{
                                  {info, pid_line("log_handle - INFO:Recover hardware activity log(%s).\n", log_path)},
                                  {info, pid_line("log_handle - Run command:%s.\n", put_backup_back)},
                              }));
}

TEST_F(LogHandle, RunsNothingWithoutABackup) {
    EXPECT_EQ(log_handle(2), -1);
    EXPECT_TRUE(commands().empty());
    EXPECT_EQ(platform.log(),
              (std::vector<LogLine>{{info, pid_line("log_handle - There is no backup hardware activity log.")}}));
}

TEST_F(LogHandle, KnowsNoOtherFlag) {
    write_file(backup_path, "");
    for (const int flag : {-1, 3, 4, 1000}) EXPECT_EQ(log_handle(flag), -1) << flag;
    EXPECT_TRUE(commands().empty());
    EXPECT_TRUE(platform.logged_nothing());
}

TEST_F(LogHandle, LogsBeforeItRuns) {
    log_handle(0);
    EXPECT_EQ(platform.journal(),
              (Words{formatted("log 14 %s", pid_line("log_handle - Run command:%s.\n", back_up).c_str()),
                     std::string("shell ") + back_up}));
}
