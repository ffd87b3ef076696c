// SPDX-License-Identifier: Apache-2.0
// Each call into the C library fails in what reads and rewrites the activity log, and each shell command. Whatever
// happens: once the failing has ended, every entry that was acknowledged is there, or comes back with the next restore.
#include <sys/resource.h>

#include <csignal>
#include <optional>
#include <set>

#include "faults/each_system_call.h"
#include "status/status_world.h"

using namespace vpdd::test;
using testing::AnyOf;
namespace fs = std::filesystem;

namespace {

constexpr int append = 0, replace = 1;
constexpr uint8_t component = 5, cpu_fru = 6, vanished = 9;

/// A shell whose commands take part in the numbering. One that fails may have done half of its work.
int numbered_shell(const std::string& command) {
    if (NumberedCalls::take("shell command")) {
        const std::string log = read_file(log_path);
        if (command == back_up) write_file(backup_path, log.substr(0, log.size() / 2));
        return 1;
    }
    return run_command(command);
}

class LogCallFailure : public StatusTest {
protected:
    void for_each_fault(const Entries& entries, const std::function<void(RunOfCalls&)>& body) {
        for_each_failing_call([&](RunOfCalls& run) {
            start_with(entries);
            body(run);
            EXPECT_TRUE(no_file_lock_is_held(lock_path));
        });
    }

    void start_with(const Entries& entries) {
        for (const char* path : {log_path, backup_path, lock_path}) fs::remove_all(path);
        write_log(entries);
        platform.shell_command.model(numbered_shell);
    }

    void cache_of(const Entries& records) {
        cache(records);
        platform.shell_command.model(numbered_shell);
    }

    /// Whether the log begins with the entries of before and holds no torn one.
    static testing::AssertionResult log_begins_with(const Entries& before) {
        const Entries after = log_on_flash();
        if (after.size() < before.size()) return testing::AssertionFailure() << after.size() << " entries";
        for (std::size_t i = 0; i < before.size(); ++i) {
            if (!is_same_entry(after[i], before[i])) return is_same_entry(after[i], before[i]) << ", entry " << i;
        }
        for (std::size_t i = before.size(); i < after.size(); ++i) {
            if (after[i].crc != right_crc(after[i])) return testing::AssertionFailure() << "entry " << i << " is torn";
        }
        return testing::AssertionSuccess();
    }

    /// A new process restores what it finds, and the next update works.
    void expect_nothing_lost(const Entries& before) {
        if (!has_cache()) cache_of({make_entry(component, "CACHED", absent)});
        EXPECT_EQ(UpdateComponentStatus(restore_mode), 0);
        EXPECT_TRUE(log_begins_with(before));
        EXPECT_FALSE(fs::exists(backup_path));
        const ComponentVpdRecord next = make_entry(component, "NEXT");
        const std::size_t count = log_on_flash().size();
        log_update(&next, append);
        EXPECT_EQ(log_on_flash().size(), count + 1);
        EXPECT_TRUE(log_begins_with(before));
    }

    /// The same without a restore.
    static void expect_next_update_to_lose_nothing(const Entries& before) {
        const ComponentVpdRecord next = make_entry(component, "NEXT");
        log_update(&next, append);
        EXPECT_TRUE(log_begins_with(before));
        EXPECT_EQ(serial_of(log_on_flash().back()), "NEXT");
    }

    static bool has_cache() {
        constexpr int not_created = -4;
        const CaptureStdout silence;
        ComponentVpdRecord* record = nullptr;
        return FindFRURecord(component, &record) != not_created;
    }

    const Entries five = make_entries(5);
    const ComponentVpdRecord added = make_entry(component, "NEW");
};

// ---- updates of the log

TEST_F(LogCallFailure, LosesNoEntryInAnUpdate) {
    for (const int mode : {append, replace}) {
        for_each_fault(five, [&](RunOfCalls& run) {
            run([&] { log_update(&added, mode); });
            expect_nothing_lost(five);
        });
    }
}

TEST_F(LogCallFailure, LosesNoEntryInTheUpdateBehindTheOneThatFailed) {
    for_each_fault(five, [&](RunOfCalls& run) {
        run([&] { log_update(&added, append); });
        expect_next_update_to_lose_nothing(five);
    });
}

TEST_F(LogCallFailure, LosesNoEntryInTheUpdateBehindOneThatWasCutShort) {
    for_each_fault(Entries(five.begin(), five.begin() + 2), [&](RunOfCalls& run) {
        write_log(five, backup_path);
        run([&] { log_update(&added, append); });
        expect_nothing_lost(five);
    });
}

TEST_F(LogCallFailure, IsReportedByTheReplacingOfAnEntry) {
    ComponentVpdRecord renewed = five[4];
    set_text(renewed.part_number, "RENEWED");
    renewed = with_right_crc(renewed);
    Entries replaced = five;
    replaced[4] = renewed;
    for_each_fault(five, [&](RunOfCalls& run) {
        int result = 77;
        run([&] { result = UpdateHardwareActivityLog(&renewed); });

        EXPECT_THAT(result, AnyOf(0, -1));
        EXPECT_TRUE(run.has_failed() || result == 0);
        // One that failed may have come to its end all the same.
        if (result == -1 && log_begins_with(five)) return expect_nothing_lost(five);
        expect_nothing_lost(result == 0 || log_begins_with(replaced) ? replaced : five);
    });
}

TEST_F(LogCallFailure, LosesNoAcknowledgedReplacementInAFullLog) {
    const Entries full = make_entries(250);
    ComponentVpdRecord renewed = full.back();
    set_text(renewed.part_number, "RENEWED");
    renewed = with_right_crc(renewed);
    // One update has hundreds of writes: only the shell's commands, which end it, fail here.
    for (const std::size_t failing : {1U, 2U}) {
        start_with(full);
        platform.shell_command.model(run_command);
        platform.shell_command.fail_at(failing);
        ASSERT_EQ(UpdateHardwareActivityLog(&renewed), 0);
        if (!has_cache()) cache({make_entry(component, "CACHED", absent)});
        EXPECT_EQ(UpdateComponentStatus(restore_mode), 0);
        EXPECT_STREQ(log_on_flash().back().part_number, "RENEWED") << "command " << failing;
    }
}

TEST_F(LogCallFailure, LosesNoAcknowledgedReplacementInAFullLogWhoseBackupCannotBeRemoved) {
    const Entries full = make_entries(250);
    ComponentVpdRecord renewed = full.back();
    set_text(renewed.part_number, "RENEWED");
    renewed = with_right_crc(renewed);
    cache({make_entry(component, "CACHED", absent)});
    start_with(full);
    std::optional<NumberedCalls> calls;
    platform.shell_command.model([&](const std::string& command) {
        if (command != discard_backup) return run_command(command);
        calls.emplace(CallFault{2});  // behind the look whether the backup is still there
        return 1;
    });
    ASSERT_EQ(UpdateHardwareActivityLog(&renewed), 0);
    ASSERT_EQ(calls->failed(), "unlink");
    calls.reset();
    platform.shell_command.reset();
    EXPECT_EQ(UpdateComponentStatus(restore_mode), 0);
    EXPECT_STREQ(log_on_flash().back().part_number, "RENEWED");
}

// ---- restores

TEST_F(LogCallFailure, LosesNoEntryInARestoreBehindACutRewrite) {
    for_each_fault(Entries(five.begin(), five.begin() + 2), [&](RunOfCalls& run) {
        cache_of({make_entry(component, "CACHED", absent)});
        write_log(five, backup_path);
        run([&] { UpdateComponentStatus(restore_mode); });
        expect_nothing_lost(five);
    });
}

TEST_F(LogCallFailure, LosesNoEntryInARestoreBehindACutBackup) {
    for_each_fault(five, [&](RunOfCalls& run) {
        cache_of({make_entry(component, "CACHED", absent)});
        write_log({five[0], five[1]}, backup_path);
        run([&] { UpdateComponentStatus(restore_mode); });
        expect_nothing_lost(five);
    });
}

TEST_F(LogCallFailure, LosesNoEntryInARestoreThatClosesOne) {
    constexpr int log_not_created = -32;
    const Entries log{make_entry(component, "FAN", absent), make_cpu(cpu_fru, 1, "CPU"), make_entry(vanished, "GONE")};
    for_each_fault(log, [&](RunOfCalls& run) {
        cache_of({make_entry(component, "CACHED"), make_cpu(cpu_fru, 1, "CPU", absent)});
        int result = 77;
        run([&] { result = UpdateComponentStatus(restore_mode); });

        EXPECT_THAT(result, AnyOf(0, log_not_created));
        expect_nothing_lost(log);
    });
}

// ---- status passes

TEST_F(LogCallFailure, LosesNoEntryInAStatusPassOverAllTransitions) {
    constexpr int log_not_created = -32;
    const ComponentVpdRecord fan = make_entry(component, "FAN"), cpu = make_cpu(cpu_fru, 1, "CPU"),
                             installed = make_entry(7, "INSTALLED", absent), removed = make_entry(8, "REMOVED");
    const Entries log{fan, cpu, installed, removed};
    for_each_fault(log, [&](RunOfCalls& run) {
        cache_of({changed(fan), cpu, installed, removed});
        sensors({{cpu.name}});
        for (const uint8_t id : {component, uint8_t{7}}) insert(id);
        int result = 77;
        run([&] { result = UpdateComponentStatus(poll_mode); });

        EXPECT_THAT(result, AnyOf(0, log_not_created));
        EXPECT_TRUE(run.has_failed() || log_on_flash().size() == 8);
        expect_nothing_lost(log);
    });
}

// ---- clients of the log

TEST_F(LogCallFailure, CutsAClientsListOrYieldsNone) {
    for_each_fault(five, [&](RunOfCalls& run) {
        StatusList* list = nullptr;
        int result = 77;
        run([&] { result = vpdd_serv_readlog(&list); });

        EXPECT_THAT(result, AnyOf(0, -1));
        EXPECT_EQ(result == 0, list != nullptr);
        if (list != nullptr) {
            std::size_t i = 0;
            for (const StatusNode* node = list->head; node != nullptr; node = node->next, ++i) {
                EXPECT_TRUE(is_same_entry(node->entry, five[i]));
            }
            EXPECT_TRUE(run.has_failed() || i == five.size());
        }
        const CaptureStdout silence;
        vpdd_serv_freelog(&list);
        EXPECT_TRUE(log_begins_with(five));
    });
}

TEST_F(LogCallFailure, LeavesTheLogWholeOrCleaned) {
    for_each_fault(five, [&](RunOfCalls& run) {
        run([&] { vpdd_serv_cleanlog(); });
        EXPECT_THAT(log_on_flash().size(), AnyOf(0U, 5U));
        EXPECT_TRUE(run.has_failed() || log_on_flash().empty());
    });
}

TEST_F(LogCallFailure, IsTheResultOfWaitingForTheLock) {
    for_each_fault(five, [&](RunOfCalls& run) {
        constexpr int untouched = 0x5EAD;
        int fd = untouched, result = 77;
        run([&] {
            result = vpdd_file_lock_wait(&fd);
            if (result >= 0) vpdd_file_unlock(fd);
        });
        EXPECT_EQ(result, run.has_failed() && fd < 0 ? -1 : result);
        EXPECT_TRUE(result < 0 ? fd == -1 || fd == untouched : fd >= 0);
    });
}

// ---- the kernel itself says no

class FullFlash : public LogCallFailure {
protected:
    /// Runs an operation while no file may grow beyond so many bytes.
    template <class Operation>
    static void with_room_for(rlim_t bytes, const Operation& operation) {
        std::signal(SIGXFSZ, SIG_IGN);
        const rlimit limited{bytes, RLIM_INFINITY}, unlimited{RLIM_INFINITY, RLIM_INFINITY};
        std::fflush(nullptr);
        setrlimit(RLIMIT_FSIZE, &limited);
        operation();
        setrlimit(RLIMIT_FSIZE, &unlimited);
    }
};

// Five entries fit into the stream's buffer and meet a full flash at the end only; the longer logs meet it while
// entries are written. With the most that a replacement and one more update can add, 247 are what a log holds without a
// drop.
class FullFlashOfLength : public FullFlash, public testing::WithParamInterface<std::size_t> {
protected:
    void SetUp() override {
        FullFlash::SetUp();
        cache({make_entry(component, "CACHED", absent)});
    }

    /// All around a short log; around the first, a middle and the last writing of a long one's buffer, and its end.
    std::vector<rlim_t> rooms() const {
        constexpr rlim_t step = entry_size / 4, buffer = 16384;
        std::vector<rlim_t> rooms;
        if (before.size() <= 5) {
            for (rlim_t room = 0; room <= (before.size() + 2) * entry_size; room += step) rooms.push_back(room);
            return rooms;
        }
        const rlim_t buffers = before.size() * entry_size / buffer;
        for (const rlim_t number : std::set<rlim_t>{0, 1, buffers / 2, buffers}) {
            for (const rlim_t bytes : {rlim_t{0}, rlim_t{1}, buffer - 1}) rooms.push_back(number * buffer + bytes);
        }
        for (std::size_t count = before.size(); count <= before.size() + 2; ++count) {
            for (const rlim_t missing : {1, 0}) rooms.push_back(count * entry_size - missing);
        }
        return rooms;
    }

    const Entries before = make_entries(GetParam());
    const std::size_t appended = before.size() + 1;
};

TEST_P(FullFlashOfLength, LosesNoEntryWhateverRoomThereIs) {
    for (const rlim_t room : rooms()) {
        for (const int mode : {append, replace}) {
            start_with(before);
            with_room_for(room, [&] { log_update(&added, mode); });
            EXPECT_TRUE(log_begins_with(before)) << "room for " << room << " bytes";
            const std::size_t complete = mode == append ? appended : appended + 1;  // a closed copy too
            EXPECT_EQ(log_on_flash().size(), room >= complete * entry_size ? complete : before.size()) << room;
            expect_nothing_lost(before);
        }
    }
}

TEST_P(FullFlashOfLength, LosesNoEntryWithoutAShell) {
    for (const rlim_t room : rooms()) {
        start_with(before);
        platform.shell_command.fail_always();
        with_room_for(room, [&] { log_update(&added, append); });
        EXPECT_TRUE(log_begins_with(before)) << "room for " << room << " bytes";
        EXPECT_EQ(log_on_flash().size(), room >= appended * entry_size ? appended : before.size()) << room;
        EXPECT_FALSE(fs::exists(backup_path));
        platform.shell_command.reset();
    }
}

TEST_P(FullFlashOfLength, LosesNoEntryWhereThereIsRoomAgainBeforeTheEnd) {
    for (const int mode : {append, replace}) {
        for (const std::size_t full_until : {before.size() / 2, before.size() - 1, before.size()}) {
            start_with(before);
            std::size_t written = 0;
            WatchedCalls calls;
            calls.before([&](const WatchedCall& call) {
                constexpr rlimit unlimited{RLIM_INFINITY, RLIM_INFINITY};
                if (call.text == "fwrite LOG" && written++ == full_until) setrlimit(RLIMIT_FSIZE, &unlimited);
            });
            with_room_for(entry_size, [&] { log_update(&added, mode); });
            EXPECT_TRUE(log_begins_with(before)) << "full until entry " << full_until;
            expect_nothing_lost(before);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Entries, FullFlashOfLength, testing::Values(5, 30, 247));

TEST_F(LogCallFailure, LosesNoEntryWhateverDescriptorsThereAre) {
    cache({make_entry(component, "CACHED", absent)});
    for (rlim_t spare = 0; spare < 6; ++spare) {
        start_with(five);
        rlimit usual{};
        getrlimit(RLIMIT_NOFILE, &usual);
        const rlimit few{open_descriptors() - 1 + spare, usual.rlim_max};
        setrlimit(RLIMIT_NOFILE, &few);
        log_update(&added, append);
        setrlimit(RLIMIT_NOFILE, &usual);
        EXPECT_TRUE(log_begins_with(five)) << spare << " to spare";
        EXPECT_TRUE(spare < 4 || log_on_flash().size() == 6) << spare << " to spare";
        expect_nothing_lost(five);
    }
}

}  // namespace
