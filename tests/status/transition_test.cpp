// SPDX-License-Identifier: Apache-2.0
// What a probe makes of what it found: each row of the transitions, driven by FRU answers and processor sensors.
#include "failing_allocator.h"
#include "own_process.h"
#include "status_world.h"

using namespace vpdd::test;

namespace {

class Transition : public StatusTest {
protected:
    void poll() { EXPECT_EQ(UpdateComponentStatus(poll_mode), 0); }

    /// A cached and logged processor whose slot copy is the entry.
    void cache_logged_cpu(const ComponentVpdRecord& cpu) {
        write_log({cpu});
        cache({cpu});
        UpdateComponentStatus(restore_mode);
        forget();
        sensors({{cpu.name}});
    }

    /// A slot copy without a version lets the next change count as a replacement.
    void expect_slot_copy_without_version(const ComponentVpdRecord& cpu) {
        forget();
        sensors({{cpu.name}});
        set_text(cached(cpu.fru_id)->part_number, "00FC111");
        poll();
        EXPECT_EQ(told(), (Words{"rewrite", "message 72", "history 0", "history 1", "[UPDATE_2]",
                                 "event compvpd_state_event"}));
    }

    /// What the pass did to the files, told and logged, from the first software event on.
    Words told() const {
        Words words;
        for (const std::string& line : platform.journal()) {
            const bool is_update = line.find("[UPDATE_") != std::string::npos;
            if (line == "message 72" || line.starts_with("history ") || line.starts_with("event "))
                words.push_back(line);
            if (is_update) words.push_back(line.substr(line.find("[UPDATE_"), 10));
            if (line.starts_with("shell /bin/cp")) words.emplace_back("rewrite");
        }
        return words;
    }
};

}  // namespace

// ---- nothing changed

TEST_F(Transition, AbsentStaysAbsent) {
    const ComponentVpdRecord record = make_entry(5, "A", absent, 7);
    cache({record});
    poll();
    EXPECT_TRUE(is_same_entry(*cached(5), record));
    EXPECT_TRUE(nothing_happened());
    EXPECT_TRUE(platform.logged_nothing());
}

TEST_F(Transition, AMissingSensorStaysMissingWithoutBeingLoggedAgain) {
    const ComponentVpdRecord cpu = make_cpu(5, 1, "A", no_sensor, 7);
    cache({cpu});
    platform.sensor_read.fail_always();
    poll();
    poll();
    EXPECT_TRUE(is_same_entry(*cached(5), cpu));
    EXPECT_TRUE(nothing_happened());
}

TEST_F(Transition, PresentStaysPresentWithTheSameSum) {
    const ComponentVpdRecord record = make_entry(5, "A", present, 7);
    cache({record});
    insert(5);
    poll();
    EXPECT_TRUE(is_same_entry(*cached(5), record));
    EXPECT_TRUE(nothing_happened());
    EXPECT_TRUE(platform.logged_nothing());
}

TEST_F(Transition, PresentWithoutVpdIsOnlyReported) {
    ComponentVpdRecord record = changed(make_entry(5, "A", present, 7));
    record.is_cached = 0;
    cache({record});
    insert(5);
    poll();
    EXPECT_TRUE(is_same_entry(*cached(5), record));
    EXPECT_TRUE(nothing_happened());
    EXPECT_TRUE(platform.logged_at_line(info, "UpdateComponentStatus", ":FRU Name=Fan 5 isn't cached!!!\n"));
}

// ---- a processor with other VPD

TEST_F(Transition, TheSameProcessorIsUpdatedInPlace) {
    const ComponentVpdRecord logged = make_cpu(5, 3, "A", present, 7);
    cache_logged_cpu(logged);
    *cached(5) = changed(logged);
    poll();
    const ComponentVpdRecord updated = with_right_crc(changed(logged));
    EXPECT_TRUE(is_same_entry(*cached(5), updated)) << "its time stays";
    ASSERT_EQ(log_on_flash().size(), 1U);
    EXPECT_TRUE(is_same_entry(log_on_flash()[0], updated));
    EXPECT_TRUE(announced().empty());
    EXPECT_TRUE(recorded().empty());
    EXPECT_TRUE(platform.events().empty());
}

TEST_F(Transition, AnUpdateInPlaceIsLoggedWithBothSums) {
    const ComponentVpdRecord logged = make_cpu(5, 3, "A");
    cache_logged_cpu(logged);
    *cached(5) = changed(logged);
    poll();
    const ComponentVpdRecord updated = with_right_crc(changed(logged));
    EXPECT_TRUE(platform.logged(
        info,
        formatted("[UpdateComponentStatus]: FRU=CPU 3, FRUID=5, New_CRC=%x, Old_CRC=%x.\n", updated.crc, logged.crc)));
    EXPECT_TRUE(platform.logged(info, update_line("UPDATE_LOG", updated)));
    EXPECT_FALSE(platform.logged_containing(error, "FAIL"));
}

TEST_F(Transition, AnUpdateInPlaceThatFailsIsReportedAndGoesOn) {
    const ComponentVpdRecord logged = make_cpu(5, 3, "A");
    cache_logged_cpu(logged);
    *cached(5) = changed(logged);
    WatchedCalls calls;
    calls.fail("fopen LOG w+");
    poll();
    const ComponentVpdRecord updated = with_right_crc(changed(logged));
    EXPECT_TRUE(platform.logged(error, "[UpdateComponentStatus]: UpdateHardwareActivityLog FAIL!!!\n"));
    EXPECT_TRUE(platform.logged(info, update_line("UPDATE_LOG", updated)));
    EXPECT_EQ(cached(5)->crc, updated.crc);
}

TEST_F(Transition, AnUpdateInPlaceRenewsTheSlotCopy) {
    const ComponentVpdRecord logged = make_cpu(5, 3, "A");
    cache_logged_cpu(logged);
    set_text(cached(5)->product_version, "");
    poll();
    ASSERT_EQ(told(), (Words{"rewrite", "[UPDATE_LO"}));
    expect_slot_copy_without_version(logged);
}

TEST_F(Transition, AnUpdateInPlaceThatFailsRenewsTheSlotCopyToo) {
    const ComponentVpdRecord logged = make_cpu(5, 3, "A");
    cache_logged_cpu(logged);
    set_text(cached(5)->product_version, "");
    {
        WatchedCalls calls;
        calls.fail("fopen LOG w+");
        poll();
    }
    ASSERT_TRUE(platform.logged(error, "[UpdateComponentStatus]: UpdateHardwareActivityLog FAIL!!!\n"));
    expect_slot_copy_without_version(logged);
}

TEST_F(Transition, AProcessorWithAnotherPpinIsAReplacedPart) {
    const ComponentVpdRecord logged = make_cpu(5, 3, "A");
    cache_logged_cpu(logged);
    set_text(cached(5)->ppin, "99999999");
    poll();
    EXPECT_EQ(announced(), (Words{"CPU 3"}));
    EXPECT_EQ(summary(log_on_flash()), (Words{"A 1", "A 0", "A 1"}));
}

TEST_F(Transition, AProcessorWhoseSlotCopyHasNoVersionIsAReplacedPart) {
    ComponentVpdRecord logged = make_cpu(5, 3, "A");
    set_text(logged.product_version, "");
    cache_logged_cpu(with_right_crc(logged));
    *cached(5) = changed(*cached(5));
    poll();
    EXPECT_EQ(announced(), (Words{"CPU 3"}));
}

TEST_F(Transition, AProcessorWithoutASlotCopyIsAReplacedPart) {
    cache({changed(make_cpu(5, 3, "A"))});
    write_log({make_cpu(5, 3, "A")});
    sensors({{"CPU 3"}});
    poll();
    EXPECT_EQ(announced(), (Words{"CPU 3"}));
}

TEST_F(Transition, AReplacedProcessorRenewsItsSlotCopy) {
    const ComponentVpdRecord logged = make_cpu(5, 3, "A");
    cache_logged_cpu(logged);
    set_text(cached(5)->ppin, "99999999");
    poll();
    forget();
    sensors({{logged.name}});
    *cached(5) = changed(*cached(5));
    poll();
    EXPECT_EQ(told(), (Words{"rewrite", "[UPDATE_LO"})) << "the new part is not known in its slot";
}

TEST_F(Transition, SlotCopiesAreKeptForEachSlot) {
    const ComponentVpdRecord first = make_cpu(5, 0, "A"), last = make_cpu(6, 32, "B");
    write_log({first, last});
    cache({first, last});
    UpdateComponentStatus(restore_mode);
    forget();
    sensors({{"CPU 0"}, {"CPU 32"}});
    *cached(5) = changed(first);
    *cached(6) = changed(last);
    poll();
    EXPECT_EQ(told(), (Words{"rewrite", "[UPDATE_LO", "rewrite", "[UPDATE_LO"}));
}

TEST_F(Transition, AProcessorInASlotAboveTheLimitHasNoCopy) {
    const ComponentVpdRecord logged = make_cpu(5, 33, "A");
    cache_logged_cpu(logged);
    *cached(5) = changed(logged);
    poll();
    EXPECT_EQ(announced(), (Words{"CPU 33"}));
    EXPECT_TRUE(platform.logged_at_line(info, "UpdateComponentStatus", ": CPU slot num 33 is over limit 32"));
}

// ---- a replaced part

TEST_F(Transition, AReplacedPartGetsItsSumAndTime) {
    const ComponentVpdRecord logged = make_entry(5, "OLD", present, 7);
    ComponentVpdRecord record = make_entry(5, "NEW", present, 7);
    record.crc = logged.crc;
    cache({record});
    write_log({logged});
    insert(5);
    poll();
    record.crc = right_crc(record);
    record.timestamp = now;
    EXPECT_TRUE(is_same_entry(*cached(5), record));
}

TEST_F(Transition, AReplacedPartClosesTheOldEntryAndAppendsTheNewOneASecondLater) {
    const ComponentVpdRecord logged = make_entry(5, "OLD", present, 7);
    ComponentVpdRecord record = make_entry(5, "NEW");
    record.crc = logged.crc;
    cache({record});
    write_log({logged});
    insert(5);
    poll();
    const Entries entries = log_on_flash();
    EXPECT_EQ(summary(entries), (Words{"OLD 1", "OLD 0", "NEW 1"}));
    ASSERT_EQ(entries.size(), 3U);
    EXPECT_EQ(entries[1].timestamp, now);
    EXPECT_EQ(entries[2].timestamp, now + 1);
    EXPECT_EQ(entries[2].crc, right_crc(entries[2]));
}

TEST_F(Transition, AReplacedPartIsToldInOrder) {
    ComponentVpdRecord record = make_entry(5, "NEW");
    record.crc ^= 1U;
    cache({record});
    write_log({make_entry(5, "OLD")});
    insert(5);
    poll();
    EXPECT_EQ(told(),
              (Words{"rewrite", "message 72", "history 0", "history 1", "[UPDATE_2]", "event compvpd_state_event"}));
    EXPECT_EQ(recorded(), (Words{"OLD 0", "NEW 1"}));
    EXPECT_EQ(announced(), (Words{"Fan 5"}));
    EXPECT_TRUE(platform.logged_at_line(info, "UpdateComponentStatus", ": FRU Name=Fan 5,fru_serial=OLD\n"));
    EXPECT_TRUE(platform.logged(info, update_line("UPDATE_2", *cached(5))));
    EXPECT_EQ(platform.events(), state_event);
}

TEST_F(Transition, TheOldPartIsTheNewestEntryWhateverItsStatus) {
    ComponentVpdRecord record = make_entry(5, "NEW");
    record.crc ^= 1U;
    cache({record});
    write_log({make_entry(5, "OPEN", present), make_entry(5, "CLOSED", no_sensor, 55), make_entry(6, "OTHER")});
    insert(5);
    poll();
    EXPECT_EQ(recorded(), (Words{"CLOSED 0", "NEW 1"}));
    EXPECT_EQ(history.rows()[0].time, 55U) << "the old part's time stays";
    EXPECT_EQ(history.rows()[1].time, static_cast<uint32_t>(now));
}

TEST_F(Transition, TheOldPartIsLookedUpInTheLogAsItWasAtTheStart) {
    // The pass itself appends a closed copy and the new part.
    ComponentVpdRecord record = make_entry(5, "NEW");
    record.crc ^= 1U;
    cache({record});
    write_log({make_entry(5, "OLD", present, 55)});
    insert(5);
    poll();
    EXPECT_EQ(recorded(), (Words{"OLD 0", "NEW 1"}));
    EXPECT_EQ(history.rows()[0].time, 55U);
}

TEST_F(Transition, AReplacedPartLeavesTheProcessorInTheSlotOfItsNumberAlone) {
    const ComponentVpdRecord third_fan = make_entry(3, "FAN"), cpu = make_cpu(5, 3, "CPU");
    write_log({third_fan, cpu});
    cache({third_fan, cpu});
    UpdateComponentStatus(restore_mode);
    forget();
    insert(3);
    sensors({{cpu.name}});
    *cached(3) = changed(third_fan);
    *cached(5) = changed(cpu);
    poll();
    EXPECT_EQ(told(), (Words{"rewrite", "message 72", "history 0", "history 1", "[UPDATE_2]",  // the fan
                             "rewrite", "[UPDATE_LO",                                          // the processor
                             "event compvpd_state_event"}));
}

TEST_F(Transition, AReplacedPartThatWasNeverLoggedIsOnlyAdded) {
    ComponentVpdRecord record = make_entry(5, "NEW");
    record.crc ^= 1U;
    cache({record});
    insert(5);
    poll();
    EXPECT_EQ(summary(log_on_flash()), (Words{"NEW 1"}));
    EXPECT_EQ(recorded(), (Words{"NEW 1"}));
    EXPECT_FALSE(platform.logged_containing(info, "fru_serial="));
}

TEST_F(Transition, AReplacedMemoryDeviceIsOnlyCached) {
    ComponentVpdRecord record = make_dimm(5, "NEW");
    record.crc ^= 1U;
    cache({record});
    insert(5);
    poll();
    record.crc = right_crc(record);
    record.timestamp = now;
    EXPECT_TRUE(is_same_entry(*cached(5), record));
    EXPECT_TRUE(nothing_happened());
    EXPECT_TRUE(file_holds(log_path, ""));
    EXPECT_TRUE(platform.logged_nothing());
}

// ---- a removed part

TEST_F(Transition, ARemovedPartIsClosedInTheCache) {
    ComponentVpdRecord record = make_entry(5, "A", present, 7);
    record.crc = 0;
    cache({record});
    write_log({make_entry(5, "A")});
    poll();
    record.status = absent;
    record.timestamp = now;
    record.crc = right_crc(record);
    EXPECT_TRUE(is_same_entry(*cached(5), record));
}

TEST_F(Transition, ARemovedPartIsClosedWithWhatTheLogKnowsOfIt) {
    cache({make_entry(5, "IN CACHE")});
    const ComponentVpdRecord logged = make_entry(5, "LOGGED", present, 7);
    write_log({make_entry(5, "OLDER"), logged, make_entry(6, "OTHER")});
    poll();
    ComponentVpdRecord closed = logged;
    closed.status = absent;
    closed.timestamp = now;
    const Entries entries = log_on_flash();
    EXPECT_EQ(summary(entries), (Words{"OLDER 1", "LOGGED 1", "OTHER 1", "LOGGED 0"}));
    EXPECT_TRUE(is_same_entry(entries.back(), closed));
    EXPECT_EQ(recorded(), (Words{"LOGGED 0"}));
    EXPECT_TRUE(platform.logged(error, "Update from previous information\n"));
    EXPECT_TRUE(platform.logged(info, update_line("UPDATE_1", closed)));
}

TEST_F(Transition, ARemovedPartIsToldInOrder) {
    cache({make_entry(5, "A")});
    write_log({make_entry(5, "A")});
    poll();
    EXPECT_EQ(told(), (Words{"rewrite", "message 72", "history 0", "[UPDATE_1]", "event compvpd_state_event"}));
    EXPECT_EQ(announced(), (Words{"Fan 5"}));
    EXPECT_EQ(history.rows()[0].time, static_cast<uint32_t>(now));
}

TEST_F(Transition, ARemovedPartIsClosedAlsoWithoutVpd) {
    ComponentVpdRecord record = make_entry(5, "A");
    record.is_cached = 0;
    cache({record});
    write_log({make_entry(5, "A")});
    poll();
    EXPECT_EQ(cached(5)->status, absent);
    EXPECT_EQ(summary(log_on_flash()), (Words{"A 1", "A 0"}));
}

TEST_F(Transition, ARemovedPartThatWasNeverLoggedIsOnlyTold) {
    cache({make_entry(5, "A")});
    poll();
    EXPECT_TRUE(file_holds(log_path, ""));
    EXPECT_EQ(told(), (Words{"message 72", "history 0", "[UPDATE_1]", "event compvpd_state_event"}));
}

TEST_F(Transition, AProcessorWithoutASensorThatIsFoundAbsentIsClosed) {
    const ComponentVpdRecord cpu = make_cpu(5, 1, "A", no_sensor, 7);
    cache({cpu});
    write_log({cpu});
    sensors({{"CPU 1", 0}});
    poll();
    EXPECT_EQ(cached(5)->status, absent);
    EXPECT_EQ(cached(5)->timestamp, now);
    EXPECT_EQ(summary(log_on_flash()), (Words{"A 255", "A 0"}));
    EXPECT_EQ(told(), (Words{"rewrite", "message 72", "history 0", "[UPDATE_1]", "event compvpd_state_event"}));
}

TEST_F(Transition, ARemovedMemoryDeviceIsOnlyCached) {
    ComponentVpdRecord record = make_dimm(5, "A");
    record.crc = 0;
    cache({record});
    write_log({make_entry(6, "B")});
    poll();
    record.status = absent;
    record.timestamp = now;
    record.crc = right_crc(record);
    EXPECT_TRUE(is_same_entry(*cached(5), record));
    EXPECT_TRUE(nothing_happened());
    EXPECT_TRUE(platform.logged_nothing());
}

// ---- a processor whose sensor is missing

TEST_F(Transition, APresentProcessorWhoseSensorIsMissingGetsTheStatus255) {
    ComponentVpdRecord cpu = make_cpu(5, 1, "A", present, 7);
    cpu.crc = 0;
    cache({cpu});
    write_log({make_cpu(5, 1, "A")});
    platform.sensor_read.fail_always();
    poll();
    cpu.status = no_sensor;
    cpu.timestamp = now;
    cpu.crc = right_crc(cpu);
    EXPECT_TRUE(is_same_entry(*cached(5), cpu));
    EXPECT_EQ(summary(log_on_flash()), (Words{"A 1", "A 255"}));
    EXPECT_TRUE(is_same_entry(log_on_flash().back(), cpu));
    EXPECT_EQ(told(), (Words{"rewrite", "message 72", "history 255", "[UPDATE_1]", "event compvpd_state_event"}));
    EXPECT_TRUE(platform.logged(info, update_line("UPDATE_1", cpu)));
}

TEST_F(Transition, AnAbsentProcessorWhoseSensorIsMissingGetsTheStatus255) {
    cache({make_cpu(5, 1, "A", absent)});
    platform.sensor_read.fail_always();
    poll();
    EXPECT_EQ(cached(5)->status, no_sensor);
    EXPECT_EQ(summary(log_on_flash()), (Words{"A 255"}));
}

TEST_F(Transition, AMissingSensorIsLoggedOnce) {
    cache({make_cpu(5, 1, "A")});
    platform.sensor_read.fail_always();
    poll();
    poll();
    EXPECT_EQ(log_on_flash().size(), 1U);
    EXPECT_EQ(announced().size(), 1U);
    EXPECT_EQ(platform.events().size(), 1U);
}

// ---- an installed part

TEST_F(Transition, AnInstalledPartIsAppended) {
    ComponentVpdRecord record = make_entry(5, "A", absent, 7);
    record.crc = 0;
    cache({record});
    write_log({make_entry(6, "B")});
    insert(5);
    poll();
    record.status = present;
    record.timestamp = now;
    record.crc = right_crc(record);
    EXPECT_TRUE(is_same_entry(*cached(5), record));
    EXPECT_EQ(summary(log_on_flash()), (Words{"B 1", "A 1"}));
    EXPECT_TRUE(is_same_entry(log_on_flash().back(), record));
    EXPECT_EQ(told(), (Words{"rewrite", "message 72", "history 1", "[UPDATE_1]", "event compvpd_state_event"}));
    EXPECT_TRUE(platform.logged(info, update_line("UPDATE_1", record)));
    EXPECT_EQ(recorded(), (Words{"A 1"}));
}

TEST_F(Transition, AProcessorWhoseSensorIsBackIsAppended) {
    cache({make_cpu(5, 1, "A", no_sensor)});
    sensors({{"CPU 1"}});
    poll();
    EXPECT_EQ(cached(5)->status, present);
    EXPECT_EQ(summary(log_on_flash()), (Words{"A 1"}));
}

TEST_F(Transition, AnInstalledPartWithoutVpdIsOnlyReported) {
    ComponentVpdRecord record = make_entry(5, "A", absent, 7);
    record.is_cached = 0;
    cache({record});
    insert(5);
    poll();
    EXPECT_TRUE(is_same_entry(*cached(5), record));
    EXPECT_TRUE(nothing_happened());
    EXPECT_TRUE(platform.logged_at_line(info, "UpdateComponentStatus", ":FRU Name=Fan 5 isn't cached!!!\n"));
}

TEST_F(Transition, AProcessorWithoutVpdWhoseSensorIsBackIsOnlyReported) {
    ComponentVpdRecord cpu = make_cpu(5, 1, "A", no_sensor);
    cpu.is_cached = 0;
    cache({cpu});
    sensors({{"CPU 1"}});
    poll();
    EXPECT_TRUE(is_same_entry(*cached(5), cpu));
    EXPECT_TRUE(nothing_happened());
}

TEST_F(Transition, AnInstalledMemoryDeviceIsOnlyCached) {
    ComponentVpdRecord record = make_dimm(5, "A", absent);
    cache({record});
    insert(5);
    poll();
    record.status = present;
    record.timestamp = now;
    EXPECT_TRUE(is_same_entry(*cached(5), record));
    EXPECT_TRUE(nothing_happened());
    EXPECT_TRUE(platform.logged_nothing());
}

TEST_F(Transition, APartThatComesAndGoesLeavesItsHistory) {
    cache({make_entry(5, "A", absent)});
    insert(5);
    poll();
    platform.remove_fru(5);
    poll();
    insert(5);
    poll();
    EXPECT_EQ(summary(log_on_flash()), (Words{"A 1", "A 0", "A 1"}));
    EXPECT_EQ(platform.events().size(), 3U);
}

TEST_F(Transition, EveryModeButZeroProbes) {
    cache({make_entry(5, "A", absent)});
    insert(5);
    for (const int mode : {-1, 2, 1000}) UpdateComponentStatus(mode);
    EXPECT_EQ(platform.requests().size(), 3U);
    EXPECT_EQ(cached(5)->status, present);
}

TEST_F(Transition, TheWholeCacheIsProbedFromHeadToTail) {
    cache({make_entry(9, "A"), make_entry(5, "B"), make_entry(7, "C")});
    for (const int id : {5, 7, 9}) insert(static_cast<uint8_t>(id));
    poll();
    Words probed;
    for (const IpmiCall& call : platform.requests()) probed.push_back(std::to_string(call.data.at(0)));
    EXPECT_EQ(probed, (Words{"9", "5", "7"}));
}

TEST_F(Transition, AFailedRewriteDoesNotStopThePass) {
    cache({make_entry(5, "A", absent), make_entry(6, "B", absent)});
    insert(5);
    insert(6);
    WatchedCalls calls;
    calls.fail("fopen LOG w+");
    poll();
    EXPECT_EQ(announced(), (Words{"Fan 5", "Fan 6"}));
    EXPECT_EQ(cached(6)->status, present);
}

// ---- the cache goes away during the pass

namespace {

class VanishingCache : public Transition {
protected:
    /// Another thread gets at the mutex while the removal of a component is told, and destroys the cache.
    void destroy_when_told() {
        platform.software_message.during([this](const SoftwareMessage&) {
            if (is_destroyed_) return;
            is_destroyed_ = true;
            pthread_mutex_unlock(&compvpd_access_mutex);
            DestroyComponentVPDCache();
            pthread_mutex_lock(&compvpd_access_mutex);
        });
    }

private:
    bool is_destroyed_ = false;
};

}  // namespace

TEST_F(VanishingCache, EndsThePassWithTheMutexHeld) {
    cache({make_entry(5, "A"), make_entry(6, "B")});
    write_log({make_entry(5, "A"), make_entry(6, "B")});
    destroy_when_told();
    const LeaksOnPurpose loaded_log;
    EXPECT_EQ(UpdateComponentStatus(poll_mode), -1);
    EXPECT_TRUE(platform.logged_located(info, "UpdateComponentStatus", "ERROR:Cache wasn't created(status: 2)\n"));
    EXPECT_EQ(pthread_mutex_trylock(&compvpd_access_mutex), EBUSY);
    EXPECT_TRUE(platform.events().empty());
    EXPECT_EQ(announced(), (Words{"Fan 5"}));
}

TEST_F(VanishingCache, LeavesTheLoadedLogAllocated) {
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer owns the allocator";
    cache({make_entry(5, "A"), make_entry(6, "B")});
    write_log({make_entry(5, "A"), make_entry(6, "B")});
    destroy_when_told();
    const AllocationWatch watch;
    UpdateComponentStatus(poll_mode);
    EXPECT_EQ(watch.live_blocks(), 2U);
}

TEST_F(VanishingCache, IsNotNoticedBehindTheLastRecord) {
    cache({make_entry(5, "A")});
    write_log({make_entry(5, "A")});
    destroy_when_told();
    EXPECT_EQ(UpdateComponentStatus(poll_mode), 0);
    EXPECT_TRUE(is_free(compvpd_access_mutex));
    EXPECT_EQ(platform.events(), state_event);
}
