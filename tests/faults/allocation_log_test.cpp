// SPDX-License-Identifier: Apache-2.0
// Each allocation fails in what reads and rewrites the activity log. Whatever happens, an entry that was there stays.
#include <cstdlib>

#include "faults/each_allocation.h"
#include "platform/change_history.h"
#include "status/status_world.h"

using namespace vpdd::test;
using testing::AnyOf;
namespace fs = std::filesystem;

namespace {

/// What the change-history database holds.
Entries database_records;
int database_blocks = 0;

}  // namespace

extern "C" int chghist_read_components(ComponentVpdRecord** records, void*) {
    ++database_blocks;
    *records = database_records.data();
    return static_cast<int>(database_records.size());
}

extern "C" int chghist_release_components(ComponentVpdRecord*) {
    --database_blocks;
    return 77;
}

namespace {

constexpr int without_memory = -6, unreadable = -1, append = 0, replace = 1;
constexpr uint8_t component = 5, cpu_fru = 6, vanished = 9;

class LogAllocationFailure : public StatusTest {
protected:
    /// Runs `body` for each failing allocation, each time over a log of these entries.
    void for_each_fault(const Entries& entries, const std::function<void(FaultyRun&)>& body) {
        for_each_failing_allocation([&](FaultyRun& run) {
            for (const char* path : {log_path, backup_path, lock_path}) fs::remove_all(path);
            write_log(entries);
            body(run);
            EXPECT_TRUE(no_file_lock_is_held(lock_path));
            EXPECT_FALSE(fs::exists(backup_path));
        });
    }

    /// Whether the log holds the entries of before, and behind them at most what the update adds.
    static testing::AssertionResult log_holds(const Entries& before, std::size_t most_added) {
        const Entries after = log_on_flash();
        if (after.size() < before.size() || after.size() > before.size() + most_added) {
            return testing::AssertionFailure() << after.size() << " entries";
        }
        for (std::size_t i = 0; i < before.size(); ++i) {
            if (!is_same_entry(after[i], before[i])) return is_same_entry(after[i], before[i]) << ", entry " << i;
        }
        for (const ComponentVpdRecord& entry : after) {
            if (entry.crc != right_crc(entry)) return testing::AssertionFailure() << "an entry is torn";
        }
        return testing::AssertionSuccess();
    }

    const Entries five = make_entries(5);
};

TEST_F(LogAllocationFailure, EndsALoadAndLeavesWhatWasLoadedToTheCaller) {
    for_each_fault(five, [&](FaultyRun& run) {
        List list;
        int result = 77;
        run([&] { result = log_inventory(&list); });

        EXPECT_THAT(result, AnyOf(without_memory, unreadable, 5));
        EXPECT_TRUE(run.has_failed() || result == 5);
        const Entries loaded = list.entries();
        EXPECT_EQ(run.left(), loaded.size()) << "nodes of the list alone";
        ASSERT_LE(loaded.size(), five.size());
        for (std::size_t i = 0; i < loaded.size(); ++i) EXPECT_TRUE(is_same_entry(loaded[i], five[i]));
    });
}

TEST_F(LogAllocationFailure, LosesNoEntryInAnUpdate) {
    const ComponentVpdRecord added = make_entry(component, "NEW");
    for (const int mode : {append, replace}) {
        for_each_fault(five, [&](FaultyRun& run) {
            run([&] { log_update(&added, mode); });

            EXPECT_EQ(run.left(), 0U);
            EXPECT_TRUE(log_holds(five, 2));
            EXPECT_TRUE(run.has_failed() || log_on_flash().size() == (mode == append ? 6U : 7U));

            log_update(&added, append);
            EXPECT_EQ(serial_of(log_on_flash().back()), "NEW") << "the next update has memory again";
        });
    }
}

TEST_F(LogAllocationFailure, FailsTheReplacingOfAnEntry) {
    ComponentVpdRecord renewed = five[4];
    set_text(renewed.part_number, "RENEWED");
    renewed = with_right_crc(renewed);
    for_each_fault(five, [&](FaultyRun& run) {
        int result = 77;
        run([&] { result = UpdateHardwareActivityLog(&renewed); });

        EXPECT_THAT(result, AnyOf(0, -1));
        EXPECT_TRUE(run.has_failed() || result == 0);
        EXPECT_EQ(run.left(), 0U);
        Entries expected = five;
        if (result == 0) expected[4] = renewed;
        EXPECT_TRUE(log_holds(expected, 0));
    });
}

TEST_F(LogAllocationFailure, LosesNoEntryInAMergeWithTheChangeHistory) {
    database_records = {make_entry(7, "FROM DATABASE"), make_entry(8, "FROM DATABASE")};
    for_each_fault(five, [&](FaultyRun& run) {
        int result = 0;
        run([&] { result = UpdateExtendComponentStatus(nullptr, nullptr); });

        EXPECT_EQ(result, 77) << "what the database's release function returns";
        EXPECT_EQ(database_blocks, 0);
        EXPECT_EQ(run.left(), 0U);
        EXPECT_TRUE(log_holds(five, 2));
        EXPECT_TRUE(run.has_failed() || log_on_flash().size() == 7);
    });
}

TEST_F(LogAllocationFailure, CutsAClientsListOrYieldsNone) {
    for_each_fault(five, [&](FaultyRun& run) {
        StatusList* list = nullptr;
        int result = 77, freed = 77;
        std::size_t count = 0;
        run([&] {
            result = vpdd_serv_readlog(&list);
            const StatusNode* node = list != nullptr ? list->head : nullptr;
            for (; node != nullptr; node = node->next) ++count;
            freed = vpdd_serv_freelog(&list);
        });

        EXPECT_THAT(result, AnyOf(0, -1));
        EXPECT_EQ(freed, 0);
        EXPECT_TRUE(run.has_failed() || count == 5);
        EXPECT_EQ(list, nullptr);
        EXPECT_EQ(run.left(), 0U);
        EXPECT_TRUE(log_holds(five, 0));
    });
}

TEST_F(LogAllocationFailure, LeavesTheLogAsItIsWhenItCannotBeCleaned) {
    for_each_fault(five, [&](FaultyRun& run) {
        int result = 77;
        run([&] { result = vpdd_serv_cleanlog(); });

        EXPECT_EQ(result, 0) << "the result of unlocking";
        EXPECT_THAT(log_on_flash().size(), AnyOf(0U, 5U));
        EXPECT_TRUE(run.has_failed() || log_on_flash().empty());
        EXPECT_EQ(run.left(), 0U);
    });
}

TEST_F(LogAllocationFailure, LosesNoEntryInAStatusPassOverAllTransitions) {
    constexpr int log_not_created = -32;
    const ComponentVpdRecord fan = make_entry(component, "FAN"), cpu = make_cpu(cpu_fru, 1, "CPU"),
                             installed = make_entry(7, "INSTALLED", absent), removed = make_entry(8, "REMOVED");
    const Entries log{fan, cpu, installed, removed};
    for_each_fault(log, [&](FaultyRun& run) {
        cache({changed(fan), cpu, installed, removed});
        sensors({{cpu.name}});
        for (const uint8_t id : {component, uint8_t{7}}) insert(id);
        int result = 77;
        run([&] { result = UpdateComponentStatus(poll_mode); });

        EXPECT_THAT(result, AnyOf(0, log_not_created));
        EXPECT_EQ(run.left(), 0U);
        // A replacement adds two entries, an installation and a removal one each, a lost sensor one.
        EXPECT_TRUE(log_holds(log, 5));
        EXPECT_TRUE(run.has_failed() || log_on_flash().size() == 8);

        UpdateComponentStatus(poll_mode);
        EXPECT_EQ(cached(cpu_fru)->status, present) << "the sensors can be read again";
        EXPECT_EQ(cached(7)->status, present);
        EXPECT_EQ(cached(8)->status, absent);
    });
}

TEST_F(LogAllocationFailure, LosesNoEntryInARestore) {
    constexpr int log_not_created = -32;
    const Entries log{make_entry(component, "FAN", absent), make_cpu(cpu_fru, 1, "CPU"), make_entry(vanished, "GONE")};
    for_each_fault(log, [&](FaultyRun& run) {
        cache({make_entry(component, "CACHED"), make_cpu(cpu_fru, 1, "CPU", absent)});
        int result = 77;
        run([&] { result = UpdateComponentStatus(restore_mode); });

        EXPECT_THAT(result, AnyOf(0, log_not_created));
        EXPECT_EQ(run.left(), 0U);
        EXPECT_TRUE(log_holds(log, 1));
        EXPECT_TRUE(run.has_failed() || log_on_flash().size() == 4);

        EXPECT_EQ(UpdateComponentStatus(restore_mode), 0);
        EXPECT_EQ(cached(cpu_fru)->status, present) << "the next restore has memory again";
    });
}

/// An update was cut short: the log holds two of five entries, the backup all.
TEST_F(LogAllocationFailure, LosesNoEntryOfARewriteThatWasCutShort) {
    for_each_fault(Entries(five.begin(), five.begin() + 2), [&](FaultyRun& run) {
        cache({make_entry(component, "CACHED")});
        write_log(five, backup_path);
        run([&] { UpdateComponentStatus(restore_mode); });

        EXPECT_EQ(run.left(), 0U);
        UpdateComponentStatus(restore_mode);
        EXPECT_TRUE(log_holds(five, 0)) << "after the next restore";
    });
}

/// A backup was cut short: the log holds all five entries, the backup two.
TEST_F(LogAllocationFailure, PutsNoBackupBackThatIsNotWhole) {
    for_each_fault(five, [&](FaultyRun& run) {
        cache({make_entry(component, "CACHED")});
        write_log({five[0], five[1]}, backup_path);
        run([&] { UpdateComponentStatus(restore_mode); });

        EXPECT_EQ(run.left(), 0U);
        UpdateComponentStatus(restore_mode);
        EXPECT_TRUE(log_holds(five, 0)) << "after the next restore";
    });
}

}  // namespace
