// SPDX-License-Identifier: Apache-2.0
#include <sys/stat.h>
#include <unistd.h>

#include "failing_allocator.h"
#include "log_world.h"
#include "watched_calls.h"

using namespace vpdd::test;

namespace {

class LogInventory : public LogTest {
protected:
    std::string dropped_line(const ComponentVpdRecord& entry) const {
        return pid_line("log_inventory - Invalid CRC(FRU ID=0x%X, crc=%u), current crc=%u. Drop.\n", entry.fru_id,
                        entry.crc, right_crc(entry));
    }
};

}  // namespace

TEST_F(LogInventory, NeedsAList) {
    write_log(make_entries(1));
    EXPECT_EQ(log_inventory(nullptr), -1);
}

TEST_F(LogInventory, ReportsAMissingLog) {
    List list;
    EXPECT_EQ(log_inventory(&list), -1);
    EXPECT_EQ(list.head, nullptr);
    EXPECT_TRUE(platform.logged_nothing());
}

TEST_F(LogInventory, LoadsNothingFromAnEmptyLog) {
    write_log({});
    List list;
    EXPECT_EQ(log_inventory(&list), 0);
    EXPECT_EQ(list.head, nullptr);
}

TEST_F(LogInventory, LoadsEveryByteOfEveryEntryOldestFirst) {
    Entries entries = make_entries(3);
    uint8_t fill = 0;
    for (ComponentVpdRecord& entry : entries) {
        auto* const bytes = reinterpret_cast<uint8_t*>(&entry);
        for (std::size_t i = 0; i < entry_size; ++i) bytes[i] = static_cast<uint8_t>(i * 7 + fill);
        ++fill;
        entry = with_right_crc(entry);
    }
    write_log(entries);
    List list;
    EXPECT_EQ(log_inventory(&list), 3);
    EXPECT_TRUE(file_image(list.entries()) == file_image(entries));
}

TEST_F(LogInventory, LoadsALogLongerThanItsCapacity) {
    write_log(make_entries(300));
    List list;
    EXPECT_EQ(log_inventory(&list), 300);
}

TEST_F(LogInventory, IgnoresAPartialEntryAtTheEnd) {
    for (const std::size_t tail : {std::size_t{1}, crc_covered, entry_size - 1}) {
        write_file(log_path, file_image(make_entries(2)) + file_image(make_entries(1)).substr(0, tail));
        List list;
        EXPECT_EQ(log_inventory(&list), 2) << tail;
    }
    EXPECT_TRUE(platform.logged_nothing());
}

TEST_F(LogInventory, DropsAnEntryWithAWrongSumAndSaysSo) {
    Entries entries = make_entries(3);
    entries[1].crc ^= 1U;
    write_log(entries);
    List list;
    EXPECT_EQ(log_inventory(&list), 2);
    EXPECT_EQ(serials(list.entries()), (std::vector<std::string>{"S1", "S3"}));
    EXPECT_EQ(platform.log(), (std::vector<LogLine>{{warning, dropped_line(entries[1])}}));
}

TEST_F(LogInventory, DropsAnEntryOfWhichAnyByteUpToTheSumWasAltered) {
    for (const std::size_t byte : {std::size_t{0}, std::size_t{1}, std::size_t{340}, crc_covered - 1}) {
        ComponentVpdRecord entry = make_entry(5, "S1");
        reinterpret_cast<uint8_t*>(&entry)[byte] ^= 0x10U;
        write_log({entry});
        List list;
        EXPECT_EQ(log_inventory(&list), 0) << byte;
    }
}

TEST_F(LogInventory, KeepsAnEntryOfWhichBytesBehindTheSumWereAltered) {
    ComponentVpdRecord entry = make_entry(5, "S1");
    entry.status = 0x7FFFFFFF;
    entry.timestamp = -5;
    entry.is_cached = 9;
    entry.ppin_dump = 0x12345678;
    write_log({entry});
    List list;
    ASSERT_EQ(log_inventory(&list), 1);
    EXPECT_TRUE(is_same_entry(list.head->entry, entry));
}

TEST_F(LogInventory, AppendsToWhatTheListHolds) {
    write_log(make_entries(2));
    List list;
    log_inventory(&list);
    EXPECT_EQ(log_inventory(&list), 2);
    EXPECT_EQ(serials(list.entries()), (std::vector<std::string>{"S1", "S2", "S1", "S2"}));
}

TEST_F(LogInventory, EndsAtAFolderInPlaceOfTheLog) {
    std::filesystem::create_directory(log_path);
    List list;
    EXPECT_EQ(log_inventory(&list), 0);
}

TEST_F(LogInventory, ReportsAFileThatCannotSeek) {
    ASSERT_EQ(mkfifo(log_path, 0600), 0);
    const int writer = open(log_path, O_RDWR | O_CLOEXEC);
    List list;
    EXPECT_EQ(log_inventory(&list), -32);
    EXPECT_EQ(platform.log(), (std::vector<LogLine>{{warning, pid_line("log_inventory - fseek failed\n")}}));
    close(writer);
}

TEST_F(LogInventory, ClosesTheFileWhateverHappens) {
    write_log(make_entries(2));
    WatchedCalls calls;
    List list;
    log_inventory(&list);
    EXPECT_EQ(platform.journal(), (std::vector<std::string>{"fopen LOG r", "fseek LOG", "fclose LOG"}));
}

TEST_F(LogInventory, ClosesAFileThatCannotSeek) {
    write_log(make_entries(2));
    WatchedCalls calls;
    calls.fail("fseek LOG");
    List list;
    EXPECT_EQ(log_inventory(&list), -32);
    EXPECT_EQ(platform.journal().back(), "fclose LOG");
    EXPECT_EQ(list.head, nullptr);
}

TEST_F(LogInventory, KeepsWhatWasLoadedWhenMemoryRunsOut) {
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer owns the allocator";
    write_log(make_entries(5));
    WatchedCalls calls;
    List list;
    {
        const AllocationWatch watch(3);
        EXPECT_EQ(log_inventory(&list), -6);
    }
    EXPECT_EQ(serials(list.entries()), (std::vector<std::string>{"S1", "S2"}));
    EXPECT_EQ(platform.journal().back(), "fclose LOG");
}

TEST_F(LogInventory, AllocatesOneBlockForEachEntry) {
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer owns the allocator";
    write_log(make_entries(4));
    List list;
    const AllocationWatch watch;
    log_inventory(&list);
    EXPECT_EQ(watch.live_blocks(), 4U);
}
