// SPDX-License-Identifier: Apache-2.0
// The replacement of one entry of the log in place.
#include "failing_allocator.h"
#include "full_device.h"
#include "log_world.h"
#include "watched_calls.h"

using namespace vpdd::test;

namespace {

using Words = std::vector<std::string>;

class ReplaceEntry : public LogTest {
protected:
    /// The same component and status, other VPD.
    static ComponentVpdRecord renewed(ComponentVpdRecord entry) {
        set_text(entry.part_number, "RENEWED");
        entry.timestamp = 9999;
        return with_right_crc(entry);
    }

    Words part_numbers() const {
        Words words;
        for (const auto& entry : log_on_flash()) words.emplace_back(entry.part_number);
        return words;
    }
};

}  // namespace

TEST_F(ReplaceEntry, NeedsARecord) {
    EXPECT_EQ(UpdateHardwareActivityLog(nullptr), -1);
    EXPECT_EQ(platform.log(), (std::vector<LogLine>{{info, "[UpdateHardwareActivityLog]: INPUT BUFFER IS EMPTY!!\n"}}));
}

TEST_F(ReplaceEntry, NeedsALog) {
    const ComponentVpdRecord record = make_entry(5, "A");
    EXPECT_EQ(UpdateHardwareActivityLog(&record), -1);
    EXPECT_EQ(platform.log(), (std::vector<LogLine>{{info, "[UpdateHardwareActivityLog]: log_inventory FAILED!!\n"}}));
    EXPECT_FALSE(std::filesystem::exists(log_path));
}

TEST_F(ReplaceEntry, CopiesTheWholeRecordOverTheNewestMatch) {
    const ComponentVpdRecord entry = make_entry(5, "A");
    write_log({entry, entry, make_entry(6, "B")});
    const ComponentVpdRecord record = renewed(entry);
    EXPECT_EQ(UpdateHardwareActivityLog(&record), 0);
    ASSERT_EQ(log_on_flash().size(), 3U);
    EXPECT_TRUE(is_same_entry(log_on_flash()[0], entry));
    EXPECT_TRUE(is_same_entry(log_on_flash()[1], record));
    EXPECT_TRUE(is_same_entry(log_on_flash()[2], make_entry(6, "B")));
}

TEST_F(ReplaceEntry, RewritesAnUnchangedLogWithoutAMatch) {
    const ComponentVpdRecord entry = make_entry(5, "A");
    ComponentVpdRecord other_id = renewed(entry), other_name = renewed(entry), other_serial = renewed(entry),
                       other_case = renewed(entry), other_status = renewed(entry), other_high_byte = renewed(entry);
    other_id.fru_id = 6;
    set_text(other_name.name, "Fan 55");
    set_text(other_serial.serial_number, "A1");
    set_text(other_case.serial_number, "a");
    other_status.status = absent;
    other_high_byte.status = 0x101;
    for (const auto& record : {other_id, other_name, other_serial, other_case, other_status, other_high_byte}) {
        write_log({entry});
        EXPECT_EQ(UpdateHardwareActivityLog(&record), 0);
        EXPECT_TRUE(file_holds(log_path, file_image({entry})));
    }
    EXPECT_EQ(commands().size(), 12U);
}

TEST_F(ReplaceEntry, ComparesTextsUpToTheirTerminator) {
    ComponentVpdRecord entry = make_entry(5, "A");
    entry.serial_number[10] = 'x';  // behind the terminator
    write_log({with_right_crc(entry)});
    const ComponentVpdRecord record = renewed(make_entry(5, "A"));
    UpdateHardwareActivityLog(&record);
    EXPECT_EQ(part_numbers(), (Words{"RENEWED"}));
}

TEST_F(ReplaceEntry, AppendsNothing) {
    write_log(make_entries(3));
    const ComponentVpdRecord record = make_entry(99, "X");
    UpdateHardwareActivityLog(&record);
    EXPECT_EQ(log_on_flash().size(), 3U);
}

TEST_F(ReplaceEntry, MakesRoomLikeEachRewrite) {
    for (const auto& [before, after] : {std::pair{249, 249}, {250, 249}, {300, 249}}) {
        write_log(make_entries(static_cast<std::size_t>(before)));
        const ComponentVpdRecord record = make_entry(99, "X");
        EXPECT_EQ(UpdateHardwareActivityLog(&record), 0);
        EXPECT_EQ(log_on_flash().size(), static_cast<std::size_t>(after)) << before;
        EXPECT_EQ(serial_of(log_on_flash().back()), "S" + std::to_string(before));
    }
}

TEST_F(ReplaceEntry, GoesThroughTheStepsOfARewrite) {
    write_log({make_entry(5, "A")});
    write_file(lock_path, "");
    platform.shell_command.model([](const std::string& command) { return std::system(command.c_str()); });
    const ComponentVpdRecord record = renewed(make_entry(5, "A"));
    const WatchedCalls calls;
    UpdateHardwareActivityLog(&record);
    Words events = platform.journal();
    std::erase_if(events, [](const std::string& line) { return line.starts_with("log "); });
    EXPECT_EQ(events, (Words{
                          "fopen LOG r",
                          "fseek LOG",
                          "fclose LOG",
                          std::string("shell ") + back_up,
                          "open BACKUP",
                          "fsync BACKUP",
                          "close BACKUP",
                          "fsync FOLDER",
                          "fopen LOG w+",
                          "open LOCK",
                          "lock LOCK",
                          "fwrite LOG",
                          "fflush LOG",
                          "fsync LOG",
                          "fclose LOG",
                          "unlock LOCK",
                          "sleep 100000",
                          "close LOCK",
                          std::string("shell ") + discard_backup,
                          "fsync FOLDER",
                      }));
}

TEST_F(ReplaceEntry, FailsAndPutsTheBackupBackWhenTheLogCannotBeOpened) {
    write_log({make_entry(5, "A")});
    WatchedCalls calls;
    calls.fail("fopen LOG w+");
    const ComponentVpdRecord record = renewed(make_entry(5, "A"));
    EXPECT_EQ(UpdateHardwareActivityLog(&record), -1);
    EXPECT_TRUE(platform.logged(
        info, pid_line("UpdateHardwareActivityLog - ERROR:Fail to create/open log file(%s).\n", log_path)));
    EXPECT_TRUE(file_holds(log_path, file_image({make_entry(5, "A")})));
    EXPECT_EQ(commands(), (Words{back_up, put_backup_back}));
}

TEST_F(ReplaceEntry, FailsAndPutsTheBackupBackWhenTheLockFails) {
    write_log({make_entry(5, "A")});
    WatchedCalls calls;
    calls.fail("lock LOCK");
    const ComponentVpdRecord record = renewed(make_entry(5, "A"));
    EXPECT_EQ(UpdateHardwareActivityLog(&record), -1);
    EXPECT_TRUE(platform.logged(info, pid_line("UpdateHardwareActivityLog - ERROR:Fail to operate file lock.\n")));
    EXPECT_TRUE(file_holds(log_path, file_image({make_entry(5, "A")})));
}

TEST_F(ReplaceEntry, FailsAndPutsTheBackupBackWhenTheLogDoesNotReachTheDevice) {
    write_log({make_entry(5, "A")});
    WatchedCalls calls;
    calls.fail("fsync LOG");
    const ComponentVpdRecord record = renewed(make_entry(5, "A"));
    EXPECT_EQ(UpdateHardwareActivityLog(&record), -1);
    EXPECT_TRUE(file_holds(log_path, file_image({make_entry(5, "A")})));
    EXPECT_EQ(commands(), (Words{back_up, put_backup_back}));
}

TEST_F(ReplaceEntry, FailsWhileTheBackupIsAFolderIntoWhichTheShellCopiesTheLog) {
    write_log({make_entry(5, "A")});
    std::filesystem::create_directory(backup_path);
    platform.shell_command.model([](const std::string& command) { return std::system(command.c_str()); });
    const ComponentVpdRecord record = renewed(make_entry(5, "A"));
    EXPECT_EQ(UpdateHardwareActivityLog(&record), -1);
    EXPECT_TRUE(file_holds(log_path, file_image({make_entry(5, "A")})));
}

TEST_F(ReplaceEntry, FailsAndPutsTheBackupBackOnAFullDevice) {
    for (const std::size_t count : {1U, 2U, 8U, 30U, 249U}) {
        platform.reset();
        Entries entries = make_entries(count);
        entries.back() = make_entry(9, "LAST");
        write_log(entries);
        const ComponentVpdRecord record = renewed(entries.back());
        {
            const FullDevice device(platform, count / 2);
            EXPECT_EQ(UpdateHardwareActivityLog(&record), -1) << count;
        }
        EXPECT_TRUE(platform.logged_containing(warning, "log_write_node - Incompleted component data(Name=Fan"))
            << count;
        EXPECT_EQ(commands(), (Words{back_up, put_backup_back})) << count;
        EXPECT_TRUE(file_holds(log_path, file_image(entries))) << count;
        EXPECT_FALSE(std::filesystem::exists(backup_path)) << count;
    }
}

TEST_F(ReplaceEntry, NamesTheLastEntryWhereOnlyTheEndFindsTheDeviceFull) {
    write_log({make_entry(5, "A"), make_entry(5, "B"), make_entry(9, "LAST")});
    const ComponentVpdRecord record = renewed(make_entry(5, "A"));
    const FullDevice device(platform, 2);
    EXPECT_EQ(UpdateHardwareActivityLog(&record), -1);
    EXPECT_EQ(platform.log(warning), (std::vector<LogLine>{{warning, pid_line("log_write_node - Incompleted component "
                                                                              "data(Name=Fan 9, ID=9).\n")}}));
}

TEST_F(ReplaceEntry, FreesEveryNode) {
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer owns the allocator";
    write_log(make_entries(4));
    const ComponentVpdRecord record = renewed(make_entry(5, "S1"));
    const AllocationWatch watch;
    UpdateHardwareActivityLog(&record);
    EXPECT_EQ(watch.live_blocks(), 0U);
}
