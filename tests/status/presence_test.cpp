// SPDX-License-Identifier: Apache-2.0
// How the probe finds out whether a component is there.
#include "failing_allocator.h"
#include "status_world.h"

using namespace vpdd::test;

namespace {

constexpr uint8_t not_there = 0xCB, busy = 0x81, unspecified = 0xFF;

const std::vector<int64_t> three_pauses{300000, 300000, 300000};

class Probe : public StatusTest {
protected:
    /// The lines of the trace file without their line numbers.
    Words trace() const {
        Words texts;
        for (const TraceLine& line : platform.trace()) {
            EXPECT_EQ(line.path, "/tmp/vpdd_trace.log");
            EXPECT_EQ(line.level, 2);
            const auto open = line.text.find('('), close = line.text.find(')', open);
            texts.push_back(line.text.substr(0, open + 1) + line.text.substr(close));
        }
        return texts;
    }
};

/// A fan that was absent: present is what the probe says.
class FruProbe : public Probe {
protected:
    void SetUp() override {
        StatusTest::SetUp();
        cache({make_entry(5, "A", absent)});
    }

    bool finds_it_present() {
        EXPECT_EQ(UpdateComponentStatus(poll_mode), 0);
        return cached(5)->status == present;
    }

    /// Between the attempts; the log's unlocking sleeps too.
    std::vector<int64_t> pauses() const {
        std::vector<int64_t> sleeps = platform.sleeps();
        std::erase(sleeps, 100000);
        return sleeps;
    }
    std::size_t attempts() const { return platform.requests().size(); }
};

class CpuProbe : public Probe {
protected:
    void SetUp() override {
        StatusTest::SetUp();
        cache({make_cpu(5, 1, "A", present)});
    }

    void two_processors() {
        ASSERT_EQ(DestroyComponentVPDCache(), 0);
        cache({make_cpu(5, 1, "A", present), make_cpu(6, 2, "A", present)});
    }

    int32_t poll() {
        EXPECT_EQ(UpdateComponentStatus(poll_mode), 0);
        return cached(5)->status;
    }
};

}  // namespace

// ---- FRUs

TEST_F(FruProbe, ReadsTheFirstEightBytes) {
    insert(5);
    EXPECT_TRUE(finds_it_present());
    EXPECT_EQ(platform.requests(), (std::vector<IpmiCall>{{0x0A, 0x11, {5, 0, 0, 8}}}));
    EXPECT_TRUE(pauses().empty());
}

TEST_F(FruProbe, TakesACompletionCodeAloneForAnAnswer) {
    platform.ipmi.always(ipmi_completion(0x00));
    EXPECT_TRUE(finds_it_present());
    EXPECT_EQ(attempts(), 1U);
}

TEST_F(FruProbe, AcceptsNotPresentAtOnceAndTakesItForAbsent) {
    platform.ipmi.always(ipmi_completion(not_there));
    EXPECT_FALSE(finds_it_present());
    EXPECT_EQ(attempts(), 1U);
    EXPECT_TRUE(pauses().empty());
}

TEST_F(FruProbe, TakesABusyFruForPresentAfterThreeAttempts) {
    platform.ipmi.always(ipmi_completion(busy));
    EXPECT_TRUE(finds_it_present());
    EXPECT_EQ(attempts(), 3U);
    EXPECT_EQ(pauses(), three_pauses);
}

TEST_F(FruProbe, TakesAnyOtherCodeForAbsentAfterThreeAttempts) {
    for (const uint8_t code : {unspecified, uint8_t{0x01}, uint8_t{0x80}, uint8_t{0x82}, uint8_t{0xC3}}) {
        forget();
        platform.ipmi.always(ipmi_completion(code));
        EXPECT_FALSE(finds_it_present()) << int{code};
        EXPECT_EQ(attempts(), 3U) << int{code};
        EXPECT_EQ(pauses(), three_pauses) << int{code};
    }
}

TEST_F(FruProbe, TakesADeadStackForAbsent) {
    platform.ipmi.fail_always();
    EXPECT_FALSE(finds_it_present());
    EXPECT_EQ(attempts(), 3U);
    EXPECT_EQ(pauses(), three_pauses);
}

TEST_F(FruProbe, NeverTakesTheZerosOfAnUnansweredRequestForPresent) {
    platform.ipmi.always({-1, Bytes(16)});
    EXPECT_FALSE(finds_it_present());
    EXPECT_EQ(attempts(), 3U);
}

TEST_F(FruProbe, RejectsAnEmptyAnswer) {
    for (const int64_t length : {0, -1}) {
        forget();
        platform.ipmi.always({0, Bytes(16), length});
        EXPECT_FALSE(finds_it_present()) << length;
        EXPECT_EQ(attempts(), 3U) << length;
    }
}

TEST_F(FruProbe, TakesTheFirstAcceptedAnswer) {
    platform.ipmi.then(ipmi_dead());
    platform.ipmi.then(ipmi_completion(unspecified));
    platform.ipmi.then(ipmi_completion(0x00));
    EXPECT_TRUE(finds_it_present());
    EXPECT_EQ(pauses(), (std::vector<int64_t>{300000, 300000}));
}

TEST_F(FruProbe, StopsRetryingAtNotPresent) {
    platform.ipmi.then(ipmi_completion(busy));
    platform.ipmi.then(ipmi_completion(not_there));
    EXPECT_FALSE(finds_it_present());
    EXPECT_EQ(attempts(), 2U);
}

TEST_F(FruProbe, JudgesByTheLastCompletionCode) {
    platform.ipmi.then(ipmi_completion(busy));
    platform.ipmi.then(ipmi_completion(busy));
    platform.ipmi.then(ipmi_completion(unspecified));
    EXPECT_FALSE(finds_it_present());
}

TEST_F(FruProbe, KeepsTheLastCompletionCodeThatCame) {
    platform.ipmi.then(ipmi_completion(busy));
    platform.ipmi.then(ipmi_completion(busy));
    platform.ipmi.then(ipmi_dead());
    EXPECT_TRUE(finds_it_present());
}

TEST_F(FruProbe, TracesTheStatusThatTheRecordHasNotTheCompletionCode) {
    for (const int32_t status : {present, absent, no_sensor}) {
        for (const uint8_t code : {uint8_t{0x00}, not_there, busy}) {
            forget();
            platform.ipmi.always(ipmi_completion(code));
            cached(5)->status = status;
            UpdateComponentStatus(poll_mode);
            EXPECT_EQ(trace(), (Words{formatted("[UpdateComponentStatus]:() - fruName:[Fan 5] entityId(comp):[0x1d] "
                                                "cur_status:%d\n",
                                                status)}))
                << int{code};
        }
    }
}

// ---- processors

TEST_F(CpuProbe, AsksForTheProcessorSensorsOnceForEachProcessor) {
    sensors({{"CPU 1"}});
    EXPECT_EQ(poll(), present);
    ASSERT_EQ(platform.sensor_read.count(), 1U);
    const SensorCall call = platform.sensor_read.calls()[0];
    EXPECT_EQ(call.sensor_type, 7);
    EXPECT_EQ(call.buffer_size, 1145856U);
    EXPECT_EQ(call.size, 1U);
    EXPECT_TRUE(platform.requests().empty()) << "a processor's FRU is not read";
}

TEST_F(CpuProbe, TakesBit7OfTheStateForItsPresence) {
    for (const auto& [state, status] : {std::pair{0x0080, present},
                                        {0x007F, absent},
                                        {0xFF7F, absent},
                                        {0x8080, present},
                                        {0xFFFF, present},
                                        {0x8000, absent}}) {
        sensors({{"CPU 1", static_cast<uint16_t>(state)}});
        EXPECT_EQ(poll(), status) << state;
    }
}

TEST_F(CpuProbe, FindsItsSensorByAPartOfTheSensorsName) {
    sensors({{"Fan 1", 0}, {"Status CPU 1 x"}});
    EXPECT_EQ(poll(), present);
}

TEST_F(CpuProbe, TakesTheFirstMatchingSensor) {
    sensors({{"CPU 1", 0}, {"CPU 1"}});
    EXPECT_EQ(poll(), absent);
}

TEST_F(CpuProbe, PassesOverSensorsThatAreNotValid) {
    sensors({{"CPU 1", 0, "", 0}, {"CPU 1"}});
    EXPECT_EQ(poll(), present);
}

TEST_F(CpuProbe, TakesBothBytesOfTheValidity) {
    sensors({{"CPU 1", presence_bit, "", 0x0100}, {"CPU 1", 0}});
    EXPECT_EQ(poll(), present);
}

TEST_F(CpuProbe, TakesAProcessorWithoutAMatchingSensorForAbsent) {
    sensors({{"CPU 2"}, {"cpu 1"}, {"PU 1"}});
    EXPECT_EQ(poll(), absent);
    EXPECT_FALSE(platform.logged_containing(info, "Can't found"));
}

TEST_F(CpuProbe, LeavesAComponentAloneWhoseStateIsUnavailable) {
    for (const char* text : {"Unavailable", "State Unavailable now"}) {
        const ComponentVpdRecord before = *cached(5);
        sensors({{"CPU 1", 0, text}});
        poll();
        EXPECT_TRUE(is_same_entry(*cached(5), before));
    }
    EXPECT_TRUE(nothing_happened());
    EXPECT_TRUE(
        platform.logged_at_line(info, "UpdateComponentStatus",
                                ": Sensor State Unavailable CPU 1 status=0, cur_status=1, is_cached=1, stateValue=0, "
                                "szState=Unavailable\n"));
}

TEST_F(CpuProbe, LogsTheStateOfAnUnavailableSensor) {
    sensors({{"CPU 1", 0x0181, "Unavailable"}});
    poll();
    EXPECT_TRUE(
        platform.logged_at_line(info, "UpdateComponentStatus",
                                ": Sensor State Unavailable CPU 1 status=1, cur_status=1, is_cached=1, stateValue=385, "
                                "szState=Unavailable\n"));
}

TEST_F(CpuProbe, HeedsTheCaseOfUnavailable) {
    sensors({{"CPU 1", 0, "unavailable"}});
    EXPECT_EQ(poll(), absent);
}

TEST_F(CpuProbe, HasNoSensorWhenTheCallFails) {
    platform.sensor_read.always({-9});
    EXPECT_EQ(poll(), no_sensor);
    EXPECT_TRUE(platform.logged_at_line(info, "get_sensor_reading_by_fruname", ": Get sensor info fail, return=-9\n"));
    EXPECT_TRUE(platform.logged_at_line(info, "UpdateComponentStatus", ": Can't found the CPU 1's sensor\n"));
}

TEST_F(CpuProbe, HasNoSensorWhenTheCallFailsPositively) {
    platform.sensor_read.always({1});
    EXPECT_EQ(poll(), no_sensor);
}

TEST_F(CpuProbe, HasNoSensorWhenLessThanAnEntryCameBack) {
    platform.sensor_read.always({0, sensor_entries({{"CPU 1"}}), 1491});
    EXPECT_EQ(poll(), no_sensor);
    EXPECT_TRUE(platform.logged_at_line(info, "get_sensor_reading_by_fruname", ": No sensor info for type 7\n"));
    EXPECT_TRUE(platform.logged_at_line(info, "UpdateComponentStatus", ": Can't found the CPU 1's sensor\n"));
}

TEST_F(CpuProbe, HasNoSensorWithoutMemory) {
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer owns the allocator";
    sensors({{"CPU 1"}});
    const AllocationWatch watch(1, Failing::from_then_on);
    EXPECT_EQ(poll(), no_sensor);
    EXPECT_TRUE(watch.has_failed());
    EXPECT_EQ(platform.sensor_read.count(), 0U);
    EXPECT_TRUE(platform.logged_at_line(info, "UpdateComponentStatus", ": Can't found the CPU 1's sensor\n"));
}

TEST_F(CpuProbe, IsContentWithExactlyOneEntry) {
    platform.sensor_read.always({0, sensor_entries({{"CPU 1"}}), 1492});
    EXPECT_EQ(poll(), present);
}

TEST_F(CpuProbe, ReportsAMissingSensorInEachPass) {
    platform.sensor_read.fail_always();
    poll();
    poll();
    std::size_t reports = 0;
    for (const LogLine& line : platform.log(info))
        reports += line.text.ends_with("Can't found the CPU 1's sensor\n") ? 1 : 0;
    EXPECT_EQ(reports, 2U);
}

TEST_F(CpuProbe, FindsTheLastOf768Sensors) {
    std::vector<Sensor> all(768, Sensor{"Other"});
    all.back().name = "CPU 1";
    sensors(all);
    EXPECT_EQ(poll(), present);
}

TEST_F(CpuProbe, ReadsNothingBehindTheBufferWhenMoreSensorsAreReported) {
    platform.sensor_read.always({0, sensor_entries(std::vector<Sensor>(768, Sensor{"Other"})), 0xFFFFFFFF});
    EXPECT_EQ(poll(), absent);
    platform.sensor_read.always({0, {}, 769 * 1492});
    EXPECT_EQ(poll(), absent);
}

TEST_F(CpuProbe, CopesWithTextsThatFillTheirFields) {
    Sensor sensor{std::string(192, 'N'), 0xFFFF, std::string(1290, 'T')};
    sensors({sensor});
    EXPECT_EQ(poll(), absent);
    sensor.name = std::string(187, 'N') + "CPU 1";
    sensors({sensor});
    EXPECT_EQ(poll(), present);
    sensor.text = std::string(1279, 'T') + "Unavailable";
    sensor.state = 0;
    sensors({sensor});
    EXPECT_EQ(poll(), present);
}

TEST_F(CpuProbe, TracesEachComparedSensorAndWhatItFound) {
    sensors({{"Other"}, {"Not valid", 0, "", 0}, {"CPU 1", 0x80}, {"Behind"}});
    poll();
    EXPECT_EQ(trace(),
              (Words{
                  "[get_sensor_reading_by_fruname]:() - fruName:[CPU 1] saTheSensorInstance[0].szName:[Other] \n",
                  "[get_sensor_reading_by_fruname]:() - fruName:[CPU 1] saTheSensorInstance[2].szName:[CPU 1] \n",
                  "[UpdateComponentStatus]:() - fruName:[CPU 1] entityId(comp):[0x3] status:[0x1] (sensor name: CPU "
                  "1, stateValue:128)\n",
              }));
}

TEST_F(CpuProbe, ShowsThePlatformAClearedBufferForEachProcessor) {
    two_processors();
    platform.sensor_read.then({0, sensor_entries({{"CPU 1"}, {"CPU 2"}})});
    platform.sensor_read.then({0, sensor_entries({{"Other"}}), 2 * 1492});
    EXPECT_EQ(poll(), present);
    EXPECT_EQ(cached(6)->status, absent);
}

TEST_F(CpuProbe, AllocatesTheSensorsOfAPassOnce) {
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer owns the allocator";
    two_processors();
    sensors({{"CPU 1"}, {"CPU 2"}});
    const AllocationWatch watch;
    poll();
    EXPECT_EQ(watch.allocations(), 1U);
    EXPECT_EQ(watch.live_blocks(), 0U);
}

TEST_F(CpuProbe, ReleasesTheSensors) {
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer owns the allocator";
    sensors({{"CPU 1"}});
    const AllocationWatch watch;
    poll();
    EXPECT_EQ(watch.allocations(), 1U);
    EXPECT_EQ(watch.live_blocks(), 0U);
}
