// SPDX-License-Identifier: Apache-2.0
// The status pass as such, and the carrying over of the logged statuses.
#include <sys/wait.h>
#include <unistd.h>

#include <utility>

#include "failing_allocator.h"
#include "status_world.h"

using namespace vpdd::test;

namespace {

class Restore : public StatusTest {};

class StatusPassEntry : public StatusTest {};

/// Another process that has truncated the log, and stays in the middle of its update until it is let go.
class UpdateElsewhere {
public:
    explicit UpdateElsewhere(const ComponentVpdRecord& added) {
        if (pipe(truncated_) != 0 || pipe(go_on_) != 0) return;
        process_ = fork();
        if (process_ == 0) run(added);
        close(truncated_[1]);
        close(go_on_[0]);
        char byte = 0;
        is_under_way_ = read(truncated_[0], &byte, 1) == 1;
    }
    ~UpdateElsewhere() {
        let_go();
        close(truncated_[0]);
        close(go_on_[1]);
    }
    UpdateElsewhere(const UpdateElsewhere&) = delete;
    UpdateElsewhere& operator=(const UpdateElsewhere&) = delete;

    bool is_under_way() const { return is_under_way_; }

    /// Returns when the update has come to its end.
    void let_go() {
        if (!is_under_way_) return;
        is_under_way_ = false;
        EXPECT_EQ(write(go_on_[1], "g", 1), 1);
        int status = -1;
        waitpid(process_, &status, 0);
        EXPECT_EQ(status, 0);
    }

private:
    [[noreturn]] void run(const ComponentVpdRecord& added) {
        bool is_first = true, was_let_go = false;
        WatchedCalls calls;
        calls.before([&](const WatchedCall& call) {
            if (call.text != "fwrite LOG" || !std::exchange(is_first, false)) return;
            char byte = 0;
            was_let_go = write(truncated_[1], "t", 1) == 1 && read(go_on_[0], &byte, 1) == 1;
        });
        log_update(&added, 0);
        _exit(was_let_go ? 0 : 1);
    }

    int truncated_[2] = {-1, -1}, go_on_[2] = {-1, -1};
    pid_t process_ = -1;
    bool is_under_way_ = false;
};

}  // namespace

// ---- what each pass begins with

TEST_F(StatusPassEntry, NeedsACache) {
    for (const int mode : {restore_mode, poll_mode}) {
        EXPECT_EQ(UpdateComponentStatus(mode), -4);
    }
    EXPECT_TRUE(platform.logged_located(info, "UpdateComponentStatus", "ERROR:Cache wasn't created(status: 0)\n"));
    EXPECT_FALSE(std::filesystem::exists(log_path));
}

TEST_F(StatusPassEntry, NeedsACacheThatWasNotDestroyed) {
    cache({make_entry(5, "A")});
    DestroyComponentVPDCache();
    EXPECT_EQ(UpdateComponentStatus(poll_mode), -4);
    EXPECT_TRUE(platform.logged_located(info, "UpdateComponentStatus", "ERROR:Cache wasn't created(status: 2)\n"));
}

TEST_F(StatusPassEntry, CreatesTheLog) {
    cache({});
    EXPECT_EQ(UpdateComponentStatus(restore_mode), 0);
    EXPECT_TRUE(file_holds(log_path, ""));
}

TEST_F(StatusPassEntry, LeavesAnExistingLogAlone) {
    cache({make_entry(5, "A")});
    write_log({make_entry(5, "A")});
    EXPECT_EQ(UpdateComponentStatus(restore_mode), 0);
    EXPECT_TRUE(file_holds(log_path, file_image({make_entry(5, "A")})));
}

TEST_F(StatusPassEntry, ReportsALogThatCannotBeCreated) {
    cache({make_entry(5, "A")});
    std::filesystem::create_directory(log_path);
    EXPECT_EQ(UpdateComponentStatus(poll_mode), -32);
    EXPECT_TRUE(platform.logged(info, pid_line("UpdateComponentStatus - ERROR:Create log file error.\n")));
    EXPECT_TRUE(is_free(compvpd_access_mutex));
    EXPECT_TRUE(platform.requests().empty());
}

TEST_F(StatusPassEntry, OpensTheLogForAppendingAndClosesItAtOnce) {
    cache({});
    const WatchedCalls calls;
    UpdateComponentStatus(poll_mode);
    EXPECT_EQ(platform.journal(), (Words{"fopen LOG a", "fclose LOG", "fopen LOG r", "fseek LOG", "fclose LOG"}));
}

TEST_F(StatusPassEntry, DoesNothingForAnEmptyCache) {
    cache({});
    write_log({make_entry(5, "A")});
    for (const int mode : {restore_mode, poll_mode}) {
        const AllocationWatch watch;
        EXPECT_EQ(UpdateComponentStatus(mode), 0);
        EXPECT_EQ(watch.live_blocks(), 0U);
        EXPECT_TRUE(is_free(compvpd_access_mutex));
    }
    EXPECT_TRUE(nothing_happened());
}

TEST_F(StatusPassEntry, GoesOnWithoutEntriesWhenTheLogCannotBeLoaded) {
    cache({make_entry(5, "A", absent)});
    insert(5);
    WatchedCalls calls;
    calls.fail("fseek LOG");
    EXPECT_EQ(UpdateComponentStatus(poll_mode), 0);
    EXPECT_EQ(cached(5)->status, present);
    EXPECT_EQ(announced(), (Words{"Fan 5"}));
}

TEST_F(StatusPassEntry, FreesTheLoadedLog) {
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer owns the allocator";
    cache({make_entry(5, "A"), make_cpu(6, 1, "B")});
    write_log({make_entry(5, "A"), make_entry(7, "C")});
    for (const int mode : {restore_mode, poll_mode}) {
        const AllocationWatch watch;
        UpdateComponentStatus(mode);
        EXPECT_EQ(watch.live_blocks(), 0U) << mode;
    }
}

TEST_F(StatusPassEntry, HoldsTheCacheMutex) {
    cache({make_entry(5, "A")});
    bool is_held = false;
    platform.ipmi.during([&](const IpmiCall&) { is_held = !is_free(compvpd_access_mutex); });
    UpdateComponentStatus(poll_mode);
    EXPECT_TRUE(is_held);
    EXPECT_TRUE(is_free(compvpd_access_mutex));
}

TEST_F(StatusPassEntry, RaisesTheEventOnceWithNothingLocked) {
    cache({make_entry(5, "A", absent), make_entry(6, "B", absent)});
    insert(5);
    insert(6);
    bool was_free = false;
    platform.event.during([&](const Event&) { was_free = is_free(compvpd_access_mutex); });
    EXPECT_EQ(UpdateComponentStatus(poll_mode), 0);
    EXPECT_EQ(announced().size(), 2U);
    EXPECT_EQ(platform.events(), state_event);
    EXPECT_TRUE(was_free);
    EXPECT_EQ(platform.journal().back(), "event compvpd_state_event");
}

// ---- restoring

TEST_F(Restore, CarriesSumStatusAndTimeOfAPresentComponentAndNothingElse) {
    ComponentVpdRecord record = make_entry(5, "IN CACHE", absent, 7);
    record.crc = 0;
    cache({record});
    const ComponentVpdRecord entry = make_entry(5, "LOGGED", present, 4321);
    write_log({entry});
    EXPECT_EQ(UpdateComponentStatus(restore_mode), 0);
    record.crc = entry.crc;
    record.status = present;
    record.timestamp = 4321;
    EXPECT_TRUE(is_same_entry(*cached(5), record));
    EXPECT_TRUE(nothing_happened());
}

TEST_F(Restore, CarriesAStatusOtherThanAbsentWithoutTheIdentity) {
    cache({make_entry(5, "IN CACHE")});
    for (const int32_t status : {no_sensor, 256, -1}) {
        write_log({make_entry(5, "LOGGED", status)});
        UpdateComponentStatus(restore_mode);
        EXPECT_EQ(cached(5)->status, status);
        EXPECT_EQ(serial_of(*cached(5)), "IN CACHE");
    }
}

TEST_F(Restore, GivesAnAbsentComponentItsWholeLoggedIdentityButNoAddress) {
    ComponentVpdRecord record = make_entry(5, "IN CACHE");
    cache({record});
    ComponentVpdRecord entry{};
    auto* const bytes = reinterpret_cast<uint8_t*>(&entry);
    for (std::size_t i = 0; i < entry_size; ++i) bytes[i] = static_cast<uint8_t>(i % 7 == 6 ? 0 : i);
    const ComponentVpdRecord texts = make_cpu(5, 2, "LOGGED");
    std::memcpy(bytes, &texts, crc_covered);
    set_text(entry.psu_fw.primary, "1.02");
    set_text(entry.psu_fw.secondary, "2.03");
    for (auto& text : entry.oem_cpu.text) set_text(text, "text");
    entry.oem_cpu.raw_length = sizeof entry.oem_cpu.raw;
    entry.status = absent;
    entry.ppin_dump = 0xDEADBEEF;
    entry = with_right_crc(entry);
    write_log({entry});
    UpdateComponentStatus(restore_mode);
    entry.ppin_dump = 0;
    EXPECT_TRUE(is_same_entry(*cached(5), entry));
}

TEST_F(Restore, TakesTheNewestEntryByItsPlaceAndNotByItsTime) {
    cache({make_entry(5, "A")});
    write_log({make_entry(5, "OLD", absent, 9000), make_entry(5, "NEW", present, 10)});
    UpdateComponentStatus(restore_mode);
    EXPECT_EQ(cached(5)->status, present);
    EXPECT_EQ(cached(5)->timestamp, 10);
}

TEST_F(Restore, HandlesEachFruIdOnce) {
    cache({make_entry(5, "A"), make_entry(6, "B")});
    write_log({make_entry(6, "B", present, 1), make_entry(5, "A", absent, 2), make_entry(5, "A", present, 3)});
    UpdateComponentStatus(restore_mode);
    EXPECT_EQ(cached(5)->timestamp, 3);
    EXPECT_EQ(cached(6)->timestamp, 1);
    EXPECT_EQ(platform.log().size(), 2U);
}

TEST_F(Restore, LogsWhatItRestored) {
    cache({make_entry(5, "A")});
    write_log({make_entry(5, "A", absent)});
    UpdateComponentStatus(restore_mode);
    EXPECT_EQ(platform.log(),
              (std::vector<LogLine>{{info, "UpdateComponentStatus: [UPDATE_F]FRU = Fan 5, FRUID = 5, status = 0.\n"}}));
}

TEST_F(Restore, LogsTheSlotOfAProcessor) {
    cache({make_cpu(5, 2, "A")});
    write_log({make_cpu(5, 2, "A")});
    UpdateComponentStatus(restore_mode);
    EXPECT_TRUE(platform.logged_at_line(info, "UpdateComponentStatus", ": CPU slot num:2, fru id:5"));
}

TEST_F(Restore, ReportsASlotAboveTheLimit) {
    for (const int slot : {33, 255}) {
        const ComponentVpdRecord cpu = make_cpu(5, static_cast<uint8_t>(slot), "A");
        if (slot == 33) cache({cpu});
        write_log({cpu});
        UpdateComponentStatus(restore_mode);
        EXPECT_TRUE(platform.logged_at_line(info, "UpdateComponentStatus",
                                            formatted(": CPU slot num %d is over limit 32", slot)));
    }
}

TEST_F(Restore, TakesTheHighestSlotWithoutAWord) {
    cache({make_cpu(5, 32, "A")});
    write_log({make_cpu(5, 32, "A")});
    UpdateComponentStatus(restore_mode);
    EXPECT_FALSE(platform.logged_containing(info, "over limit"));
}

TEST_F(Restore, ProbesNothing) {
    cache({make_entry(5, "A"), make_cpu(6, 1, "B")});
    UpdateComponentStatus(restore_mode);
    EXPECT_TRUE(platform.requests().empty());
    EXPECT_EQ(platform.sensor_read.count(), 0U);
}

TEST_F(Restore, LeavesAComponentWithoutAnEntryAlone) {
    const ComponentVpdRecord record = make_entry(5, "A", present, 77);
    cache({record});
    write_log({make_entry(6, "B", absent)});
    UpdateComponentStatus(restore_mode);
    EXPECT_TRUE(is_same_entry(*cached(5), record));
}

// ---- components that vanished while the daemon was down

TEST_F(Restore, ClosesTheEntryOfAVanishedComponent) {
    cache({make_entry(5, "A")});
    const ComponentVpdRecord entry = make_entry(6, "GONE", present, 10);
    write_log({entry});
    EXPECT_EQ(UpdateComponentStatus(restore_mode), 0);
    ComponentVpdRecord closed = entry;
    closed.status = absent;
    closed.timestamp = now;
    ASSERT_EQ(log_on_flash().size(), 2U);
    EXPECT_TRUE(is_same_entry(log_on_flash()[0], entry));
    EXPECT_TRUE(is_same_entry(log_on_flash()[1], closed));
    EXPECT_TRUE(platform.logged(info, update_line("UPDATE_3", closed)));
    EXPECT_EQ(platform.events(), state_event);
}

TEST_F(Restore, AnnouncesAVanishedComponentBeforeItIsLoggedAndKeepsItOutOfTheChangeHistory) {
    cache({make_entry(5, "A")});
    write_log({make_entry(6, "GONE")});
    UpdateComponentStatus(restore_mode);
    EXPECT_EQ(announced(), (Words{"Fan 6"}));
    EXPECT_TRUE(recorded().empty());
    const Words journal = platform.journal();
    EXPECT_EQ(journal.front(), "message 72");
    EXPECT_EQ(journal.back(), "event compvpd_state_event");
    EXPECT_TRUE(journal[journal.size() - 2].starts_with("log 14 UpdateComponentStatus: [UPDATE_3]"));
}

TEST_F(Restore, LeavesAVanishedComponentAloneThatWasNotPresent) {
    cache({make_entry(5, "A")});
    for (const int32_t status : {absent, no_sensor, 257, -1}) {
        write_log({make_entry(6, "GONE", present), make_entry(6, "GONE", status)});
        UpdateComponentStatus(restore_mode);
        EXPECT_TRUE(nothing_happened()) << status;
    }
}

TEST_F(Restore, LeavesAVanishedMemoryDeviceAlone) {
    cache({make_entry(5, "A")});
    write_log({make_dimm(6, "GONE")});
    UpdateComponentStatus(restore_mode);
    EXPECT_TRUE(nothing_happened());
    EXPECT_FALSE(platform.logged_containing(info, "UPDATE_3"));
}

TEST_F(Restore, ClosesEachVanishedComponentOnce) {
    cache({make_entry(5, "A")});
    write_log({make_entry(6, "B"), make_entry(7, "C"), make_entry(6, "D")});
    UpdateComponentStatus(restore_mode);
    EXPECT_EQ(summary(log_on_flash()), (Words{"B 1", "C 1", "D 1", "D 0", "C 0"}));
    EXPECT_EQ(platform.events(), state_event);
    UpdateComponentStatus(restore_mode);
    EXPECT_EQ(log_on_flash().size(), 5U) << "closed again";
}

// ---- a rewrite that a loss of power cut short

TEST_F(Restore, PutsABackupBackThatHoldsMoreEntries) {
    cache({make_entry(5, "A")});
    write_log(make_entries(2));
    write_log(make_entries(3), backup_path);
    UpdateComponentStatus(restore_mode);
    EXPECT_EQ(commands(), (Words{put_backup_back}));
    EXPECT_EQ(log_on_flash().size(), 3U);
    EXPECT_EQ(serial_of(log_on_flash().back()), "S3");
    EXPECT_EQ(cached(5)->timestamp, 1003) << "the recovered log was not the one that was restored from";
}

TEST_F(Restore, DiscardsABackupThatHoldsAsManyEntries) {
    cache({make_entry(5, "A")});
    write_log(make_entries(3));
    write_log(make_entries(3, 6), backup_path);
    UpdateComponentStatus(restore_mode);
    EXPECT_EQ(commands(), (Words{discard_backup}));
    EXPECT_TRUE(file_holds(log_path, file_image(make_entries(3))));
}

TEST_F(Restore, DiscardsABackupThatHoldsFewerEntries) {
    cache({make_entry(5, "A")});
    write_log(make_entries(3));
    write_log(make_entries(2), backup_path);
    UpdateComponentStatus(restore_mode);
    EXPECT_EQ(commands(), (Words{discard_backup}));
    EXPECT_TRUE(file_holds(log_path, file_image(make_entries(3))));
}

TEST_F(Restore, CountsOnlyTheRightEntriesOfABackup) {
    cache({make_entry(5, "A")});
    write_log(make_entries(3));
    Entries damaged = make_entries(5);
    for (auto& entry : damaged) entry.crc ^= 1U;
    write_log(damaged, backup_path);
    UpdateComponentStatus(restore_mode);
    EXPECT_EQ(commands(), (Words{discard_backup}));
}

TEST_F(Restore, CountsOnlyTheRightEntriesOfTheLog) {
    cache({make_entry(5, "A")});
    Entries damaged = make_entries(5);
    for (auto& entry : damaged) entry.crc ^= 1U;
    write_log(damaged);
    write_log(make_entries(1), backup_path);
    UpdateComponentStatus(restore_mode);
    EXPECT_EQ(commands(), (Words{put_backup_back}));
}

TEST_F(Restore, PutsABackupBackInPlaceOfAMissingLog) {
    cache({make_entry(5, "A")});
    write_log(make_entries(1), backup_path);
    UpdateComponentStatus(restore_mode);
    EXPECT_TRUE(file_holds(log_path, file_image(make_entries(1))));
}

TEST_F(Restore, LeavesLogAndBackupWhileOneOfThemCannotBeRead) {
    cache({make_entry(5, "A")});
    for (const char* step : {"fseek LOG", "fseek BACKUP"}) {
        forget();
        write_log(make_entries(2));
        write_log(make_entries(3), backup_path);
        WatchedCalls calls;
        calls.fail(step);
        UpdateComponentStatus(restore_mode);
        EXPECT_TRUE(platform.logged(
            warning, pid_line("log_inventory - ERROR:Fail to read log file(%s) or its backup.\n", log_path)))
            << step;
        EXPECT_TRUE(commands().empty()) << step;
        EXPECT_TRUE(file_holds(log_path, file_image(make_entries(2)))) << step;
        EXPECT_TRUE(file_holds(backup_path, file_image(make_entries(3)))) << step;
    }
}

TEST_F(Restore, TreatsABackupUnderTheCacheMutex) {
    cache({make_entry(5, "A")});
    write_log(make_entries(1), backup_path);
    bool is_held = false;
    platform.shell_command.during([&](const std::string&) { is_held = !is_free(compvpd_access_mutex); });
    UpdateComponentStatus(restore_mode);
    EXPECT_TRUE(is_held) << "the rewrite of another thread could be taken for one that was cut short";
}

TEST_F(Restore, LeavesABackupToTheRestoreMode) {
    cache({make_entry(5, "A", absent)});
    write_log(make_entries(2), backup_path);
    UpdateComponentStatus(poll_mode);
    EXPECT_TRUE(commands().empty());
    EXPECT_TRUE(std::filesystem::exists(backup_path));
}

TEST_F(Restore, RunsNoCommandWithoutABackup) {
    cache({make_entry(5, "A")});
    write_log({make_entry(5, "A")});
    UpdateComponentStatus(restore_mode);
    EXPECT_TRUE(commands().empty());
}

// ---- a rewrite that another process is at

TEST_F(Restore, WaitsForTheEndOfTheUpdateOfAnotherProcess) {
    cache({make_entry(5, "A")});
    write_log(make_entries(3));
    UpdateElsewhere update(make_entry(5, "NEW", present, 4321));
    ASSERT_TRUE(update.is_under_way());
    ASSERT_TRUE(file_holds(backup_path, file_image(make_entries(3))));
    platform.during_sleep([&](int64_t) { update.let_go(); });
    EXPECT_EQ(UpdateComponentStatus(restore_mode), 0);
    update.let_go();
    EXPECT_TRUE(commands().empty()) << "the backup of the other process was taken for one that was left";
    EXPECT_EQ(serials(log_on_flash()), (Words{"S1", "S2", "S3", "NEW"}));
    EXPECT_EQ(cached(5)->timestamp, 4321);
    EXPECT_FALSE(std::filesystem::exists(backup_path));
}

TEST_F(Restore, LeavesTheBackupOfAnUpdateThatDoesNotEndInThirtySeconds) {
    cache({make_entry(5, "A")});
    write_log(make_entries(3));
    UpdateElsewhere update(make_entry(5, "NEW"));
    ASSERT_TRUE(update.is_under_way());
    EXPECT_EQ(UpdateComponentStatus(restore_mode), 0);
    EXPECT_EQ(platform.sleeps(), std::vector<int64_t>(300, 100000));
    EXPECT_TRUE(commands().empty());
    EXPECT_TRUE(file_holds(backup_path, file_image(make_entries(3))));
    update.let_go();
    EXPECT_EQ(serials(log_on_flash()), (Words{"S1", "S2", "S3", "NEW"}));
}
