// SPDX-License-Identifier: Apache-2.0
// The run that builds the cache: waiting, guard, SDR scan, counts, and the reading of the images.
#include "cache_fixture.h"
#include "failing_allocator.h"
#include "lock_journal.h"
#include "node_among.h"
#include "own_process.h"

using namespace vpdd::test;
using testing::Contains;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using vpdd::images::FruLocator;
using vpdd::images::full_sensor_record;
using vpdd::images::numbered;

namespace {

constexpr int64_t second = 1000000;
constexpr int64_t ipmi_pause = 300000;

std::string create_line(const char* text) { return pid_line("CreateComponentVPDCache - %s", text); }

std::string not_ready() { return create_line("IPMI stack isn't ready yet.."); }
std::string timed_out() { return create_line("Wait IPMI stack timeout.. ,execute anyway.."); }

using CreationWaitTest = ComponentCacheTest;

/// Three failed requests, each with its pause, make one failed probe.
constexpr std::size_t requests_of_a_probe = 3;

/// The sleeps of this many failed probes: the pauses of the requests, and the wait before the next probe.
std::vector<int64_t> sleeps_of(std::size_t failed_probes, bool gives_up) {
    std::vector<int64_t> sleeps{5 * second};
    for (std::size_t probe = 0; probe < failed_probes; ++probe) {
        sleeps.insert(sleeps.end(), requests_of_a_probe, ipmi_pause);
        if (!gives_up || probe + 1 < failed_probes) sleeps.push_back(10 * second);
    }
    return sleeps;
}

bool is_device_id_request(const IpmiCall& call) { return call.is(0x06, 0x01); }

class FailingProbes : public CreationWaitTest {
protected:
    /// Creation with a stack that does not answer its first probes.
    void create_behind(std::size_t failing_probes) {
        repository({});
        for (std::size_t i = 0; i < failing_probes * requests_of_a_probe; ++i) {
            platform.ipmi.nth_when(1, is_device_id_request, ipmi_dead());
        }
        // FRU 0 is there, so that nothing else sleeps.
        platform.fru(0, vpdd::images::FruImage().build());
        create();
    }
};

TEST_F(FailingProbes, WaitsFiveSecondsForAStackThatIsReady) {
    create_behind(0);

    EXPECT_THAT(platform.sleeps(), ElementsAre(5 * second));
    EXPECT_THAT(platform.log(warning), IsEmpty());
    EXPECT_TRUE(platform.journal().at(0).starts_with("sleep"));
    EXPECT_EQ(platform.journal().at(1), "ipmi 06/01");
}

TEST_F(FailingProbes, RetriesAfterTenSeconds) {
    create_behind(1);

    EXPECT_EQ(platform.sleeps(), sleeps_of(1, false));
    EXPECT_THAT(platform.log(warning), ElementsAre(LogLine{warning, not_ready()}));
}

TEST_F(FailingProbes, ComplainsBetweenTheWaitAndTheNextProbe) {
    create_behind(1);

    const auto lines = platform.journal();
    const auto complaint = std::find(lines.begin(), lines.end(), "log 12 " + not_ready());
    ASSERT_NE(complaint, lines.end());
    EXPECT_EQ(*(complaint - 1), "sleep 10000000");
    EXPECT_EQ(*(complaint + 1), "ipmi 06/01");
}

TEST_F(FailingProbes, GoesOnQuietlyWhenTheSecondRetryFindsTheStackReady) {
    create_behind(2);

    EXPECT_EQ(platform.sleeps(), sleeps_of(2, false));
    EXPECT_EQ(platform.times_logged(warning, not_ready()), 2U);
    EXPECT_EQ(platform.times_logged(warning, timed_out()), 0U);
}

TEST_F(FailingProbes, ReportsATimeoutAlsoWhenTheThirdRetryFindsTheStackReady) {
    create_behind(3);

    EXPECT_EQ(platform.sleeps(), sleeps_of(3, false));
    EXPECT_THAT(platform.log(warning), ElementsAre(LogLine{warning, not_ready()}, LogLine{warning, not_ready()},
                                                   LogLine{warning, not_ready()}, LogLine{warning, timed_out()}));
}

TEST_F(FailingProbes, GoesOnWithoutAStackAfterThreeRetries) {
    create_behind(4);

    EXPECT_EQ(platform.sleeps(), sleeps_of(4, true));
    EXPECT_EQ(platform.times_logged(warning, not_ready()), 3U);
    EXPECT_EQ(platform.times_logged(warning, timed_out()), 1U);
    EXPECT_THAT(records(), IsEmpty());
}

TEST_F(CreationWaitTest, WaitsOutsideTheLock) {
    repository({});
    platform.ipmi.nth_when(1, is_device_id_request, ipmi_dead());
    std::vector<bool> free_in_sleep;
    platform.during_sleep([&](int64_t) { free_in_sleep.push_back(is_free(compvpd_access_mutex)); });
    std::vector<bool> free_in_probe;
    platform.ipmi.during([&](const IpmiCall& call) {
        if (is_device_id_request(call)) free_in_probe.push_back(is_free(compvpd_access_mutex));
    });

    create();

    EXPECT_THAT(free_in_sleep, ElementsAre(true, true));
    EXPECT_THAT(free_in_probe, ElementsAre(true, true));
}

using CreationGuardTest = ComponentCacheTest;

TEST_F(CreationGuardTest, ASecondCallTouchesNothing) {
    create({FruLocator(5, "FRU 5")});
    ComponentVpdRecord* record = cached(5);
    record->status = 1;
    const std::size_t sdr_reads = platform.sdr_read.count();
    const std::size_t writes = platform.configuration().size();
    const std::size_t requests = platform.requests().size();

    EXPECT_EQ(CreateComponentVPDCache(), 0);

    EXPECT_EQ(platform.log().back(), (LogLine{warning, create_line("Cache was created already.")}));
    EXPECT_EQ(platform.sdr_read.count(), sdr_reads);
    EXPECT_EQ(platform.configuration().size(), writes);
    EXPECT_EQ(platform.requests().size(), requests + 1) << "the probe alone";
    EXPECT_THAT(records(), SizeIs(1));
    EXPECT_EQ(cached(5), record);
    EXPECT_EQ(record->status, 1);
    EXPECT_TRUE(all_locks_are_free());
}

TEST_F(CreationGuardTest, ASecondCallWaitsAndProbesBeforeItLooksAtTheStatus) {
    create({});
    const std::size_t sleeps = platform.sleeps().size();
    platform.ipmi.fail_when(is_device_id_request);

    EXPECT_EQ(CreateComponentVPDCache(), 0);

    EXPECT_EQ(platform.sleeps().size(), sleeps + sleeps_of(4, true).size());
}

TEST_F(CreationGuardTest, ASecondCallIsReportedUnderTheLock) {
    create({});
    const std::size_t before = platform.journal().size();
    {
        const LockJournal locks;
        CreateComponentVPDCache();
    }

    auto lines = platform.journal();
    lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(before));
    EXPECT_THAT(lines,
                ElementsAre("sleep 5000000", "ipmi 06/01", "lock compvpd_access_mutex",
                            "log 12 " + create_line("Cache was created already."), "unlock compvpd_access_mutex"));
}

using CreationTest = ComponentCacheTest;

TEST_F(CreationTest, AnEmptyRepositoryYieldsAnEmptyCache) {
    create({full_sensor_record(1, "Ambient")});

    EXPECT_THAT(records(), IsEmpty());
    EXPECT_TRUE(platform.logged_containing(emergency, "No such FRU record"));
    EXPECT_THAT(platform.configuration(), ElementsAre(number_variable("vpdd_comp_sdr_cnt", 0, 0),
                                                      number_variable("tarn_var_num_of_cpu_in_sys", 0, 1),
                                                      number_variable("tarn_var_num_of_mem_in_sys", 0, 1),
                                                      number_variable("tarn_var_num_of_ps_in_sys", 0, 1),
                                                      number_variable("tarn_var_num_of_drive_bp_in_sys", 0, 1),
                                                      number_variable("tarn_var_base_of_cpu_in_fru", 1, 1)));
    EXPECT_TRUE(platform.logged(info, "CreateComponentVPDCache: cpu base is set to default(1)"));
}

TEST_F(CreationTest, TracesTheNewStatusAtTheEnd) {
    create({FruLocator(5, "FRU 5")});

    EXPECT_THAT(platform.trace(), ElementsAre(TraceLine{"/tmp/vpdd_trace.log", 2,
                                                        "[CreateComponentVPDCache]:VPDCACHE Status -> 1 (Created)"}));
    EXPECT_TRUE(platform.journal().back().starts_with("trace"));
    EXPECT_TRUE(all_locks_are_free());
}

TEST_F(CreationTest, SetsTheStatusBeforeItTracesIt) {
    // A request without an out record is refused before it would wait for the run: for the cache's status or, where
    // that is right, for the record.
    platform.during_trace([](const TraceLine&) {
        const ComponentRequest request{};
        GetComponentVPD(nullptr, 0, &request, nullptr);
    });

    create({FruLocator(5, "FRU 5")});

    EXPECT_TRUE(platform.logged_located(info, "GetComponentVPD", "ERROR:p_info is null\n"));
}

TEST_F(CreationTest, HoldsTheCacheFromTheGuardToTheEnd) {
    repository({FruLocator(5, "FRU 5")});
    {
        const LockJournal locks;
        create();
    }

    const auto lines = platform.journal();
    const auto at = [&](const std::string& wanted) {
        const auto found =
            std::find_if(lines.begin(), lines.end(), [&](const std::string& line) { return line.starts_with(wanted); });
        EXPECT_NE(found, lines.end()) << wanted;
        return found - lines.begin();
    };
    EXPECT_LT(at("ipmi 06/01"), at("lock compvpd_access_mutex"));
    EXPECT_LT(at("lock compvpd_access_mutex"), at("ipmi 0A/10"));
    EXPECT_LT(at("ipmi 0A/10"), at("sdr 0000"));
    EXPECT_LT(at("sdr 0000"), at("lock g_list_access_mutex"));
    EXPECT_EQ(at("unlock g_list_access_mutex"), at("lock g_list_access_mutex") + 1);
    EXPECT_LT(at("unlock g_list_access_mutex"), at("set vpdd_comp_sdr_cnt"));
    EXPECT_LT(at("set vpdd_comp_sdr_cnt"), at("set tarn_var_base_of_cpu_in_fru"));
    EXPECT_LT(at("set tarn_var_base_of_cpu_in_fru"), at("trace 2"));
    EXPECT_EQ(lines.back(), "unlock compvpd_access_mutex");
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "unlock compvpd_access_mutex"), 1);
}

TEST_F(CreationTest, GoesOnWhenTheExportForDcmiFails) {
    repository({FruLocator(5, "FRU 5")});
    {
        const LockJournal locks;
        create();
    }

    EXPECT_TRUE(platform.logged(info, create_line("ERROR:UpdateFRUID0InfoToTARNForDCMI error.")));
    EXPECT_THAT(records(), SizeIs(1));
}

TEST_F(CreationTest, ExportsForDcmiBeforeTheScan) {
    platform.fru(0, vpdd::images::FruImage().product({.language = 7}).build());
    create({});

    EXPECT_EQ(platform.configuration().at(0).name, "fru_product_asset_tl_type");
    EXPECT_EQ(platform.configuration().at(1), number_variable("fru_product_lang_code", 7, 1));
    EXPECT_EQ(platform.configuration().at(2).name, "vpdd_comp_sdr_cnt");
    for (const LogLine& line : platform.log()) EXPECT_THAT(line.text, Not(HasSubstr("DCMI")));
}

// ---- scan

class ScanTest : public ComponentCacheTest {
protected:
    std::vector<uint16_t> record_ids_read() const {
        std::vector<uint16_t> ids;
        for (const SdrCall& call : platform.sdr_read.calls()) ids.push_back(call.record_id);
        return ids;
    }
};

TEST_F(ScanTest, ReadsTheRepositoryRecordByRecord) {
    platform.sdr(numbered({FruLocator(5, "a"), full_sensor_record(1, "b"), FruLocator(6, "c")}, 0x1201, 0x101));
    create();

    const auto calls = platform.sdr_read.calls();
    ASSERT_THAT(calls, SizeIs(3));
    EXPECT_EQ(calls[0].record_id, 0);
    EXPECT_EQ(calls[1].record_id, 0x1302);
    EXPECT_EQ(calls[2].record_id, 0x1403);
    for (const SdrCall& call : calls) {
        EXPECT_EQ(call.repository, 1);
        EXPECT_EQ(call.length, 64U);
    }
}

TEST_F(ScanTest, MakesOneRecordPerLocatorInTheOrderOfTheRepository) {
    create({FruLocator(9, "Planar"), full_sensor_record(1, "Ambient"),
            FruLocator(5, "PSU 1").entity(power_supply, 0x81), FruLocator(9, "sixteen letters!").entity(0x33, 0x7F)});

    const auto found = records();
    ASSERT_THAT(found, SizeIs(3));
    EXPECT_STREQ(found[0].name, "Planar");
    EXPECT_STREQ(found[1].name, "PSU 1");
    EXPECT_STREQ(found[2].name, "sixteen letters!");
    EXPECT_EQ(found[0].fru_id, 9);
    EXPECT_EQ(found[1].fru_id, 5);
    EXPECT_EQ(found[1].entity_id, 0x0A);
    EXPECT_EQ(found[1].entity_instance, 1) << "bit 7 is not part of the instance";
    EXPECT_EQ(found[2].entity_id, 0x33);
    EXPECT_EQ(found[2].entity_instance, 0x7F);
}

TEST_F(ScanTest, KeepsTheLocatorInFrontOfTheRecord) {
    create({FruLocator(5, "PSU 1")
                .access_address(0x21)
                .access_lun_bus(0x82)
                .channel(0x43)
                .type(0x10)
                .modifier(2)
                .entity(power_supply, 0x84)
                .oem(0x66)});

    // The node of the cached record.
    const auto* node = reinterpret_cast<const ComponentVpdNode*>(reinterpret_cast<const uint8_t*>(cached(5)) -
                                                                 offsetof(ComponentVpdNode, record));
    Bytes locator(sizeof node->locator);
    std::memcpy(locator.data(), &node->locator, locator.size());
    Bytes expected{0x21, 5, 0x82, 0x43, 0, 0x10, 2, 0x0A, 0x84, 0x66, 0xC5, 'P', 'S', 'U', ' ', '1'};
    expected.resize(28);
    EXPECT_EQ(locator, expected);
}

TEST_F(ScanTest, ClearsItsBufferBeforeEachRecord) {
    // The second record is cut short: nothing of the first shows through.
    Bytes cut = FruLocator(6, "").build();
    cut.resize(16);
    create({FruLocator(5, "a long name here"), cut});

    const auto found = records();
    ASSERT_THAT(found, SizeIs(2));
    EXPECT_STREQ(found[1].name, "");
}

TEST_F(ScanTest, IgnoresEveryRecordTypeButFruLocators) {
    std::vector<Bytes> all;
    for (int type = 0; type < 256; ++type) {
        Bytes record = FruLocator(static_cast<uint8_t>(type), "x").build();
        record[3] = static_cast<uint8_t>(type);
        all.push_back(record);
    }
    create(all);

    ASSERT_THAT(records(), SizeIs(1));
    EXPECT_EQ(records()[0].fru_id, 0x11);
}

struct Combination {
    uint8_t type, modifier, entity;
    bool is_kept;
};

TEST_F(ScanTest, DropsOnlyProcessorCartridges) {
    const Combination combinations[] = {
        {0x10, 3, 3, false}, {0x10, 3, 4, true}, {0x10, 2, 3, true}, {0x11, 3, 3, true},
        {0x10, 2, 4, true},  {0x11, 3, 4, true}, {0x11, 2, 3, true}, {0x11, 2, 4, true},
    };
    std::vector<Bytes> locators;
    std::vector<uint8_t> expected;
    for (const Combination& combination : combinations) {
        const auto id = static_cast<uint8_t>(locators.size() + 1);
        locators.push_back(
            FruLocator(id, "x").type(combination.type).modifier(combination.modifier).entity(combination.entity, 1));
        if (combination.is_kept) expected.push_back(id);
    }
    create(locators);

    std::vector<uint8_t> ids;
    for (const auto& record : records()) ids.push_back(record.fru_id);
    EXPECT_EQ(ids, expected);
    EXPECT_EQ(platform.written("vpdd_comp_sdr_cnt"), number_variable("vpdd_comp_sdr_cnt", 7, 0));
    EXPECT_EQ(platform.written("tarn_var_num_of_cpu_in_sys"), number_variable("tarn_var_num_of_cpu_in_sys", 1, 1));
}

TEST_F(ScanTest, CountsByEntityBehindTheManagementController) {
    std::vector<Bytes> locators;
    const auto add = [&](int count, uint8_t type, uint8_t modifier, uint8_t entity) {
        while (count-- > 0) {
            const auto id = static_cast<uint8_t>(0x40 + locators.size());
            locators.push_back(FruLocator(id, "x").type(type).modifier(modifier).entity(entity, 2));
        }
    };
    add(2, 0x10, 0, processor);
    add(1, 0x10, 1, memory_device);
    add(2, 0x10, 3, memory_device);
    add(1, 0x10, 0, memory_device);
    add(1, 0x10, 2, power_supply);
    add(4, 0x10, 3, power_supply);
    add(1, 0x10, 0, drive_backplane);
    add(1, 0x10, 3, drive_backplane);
    // None of these are counted as any of the four.
    add(1, 0x10, 0, 0x07);
    add(1, 0x02, 0, processor);
    add(1, 0x02, 1, memory_device);
    add(1, 0x02, 0, power_supply);
    add(1, 0x02, 0, drive_backplane);
    create(locators);

    EXPECT_THAT(
        platform.configuration(),
        ElementsAre(number_variable("vpdd_comp_sdr_cnt", 18, 0), number_variable("tarn_var_num_of_cpu_in_sys", 2, 1),
                    number_variable("tarn_var_num_of_mem_in_sys", 4, 1),
                    number_variable("tarn_var_num_of_ps_in_sys", 5, 1),
                    number_variable("tarn_var_num_of_drive_bp_in_sys", 2, 1),
                    number_variable("Tarn_Var_Drive_Backplane_0_FRU_Num", 0x40 + 11, 0),
                    number_variable("Tarn_Var_Drive_Backplane_1_FRU_Num", 0x40 + 12, 0),
                    number_variable("tarn_var_base_of_cpu_in_fru", 2, 1)));
    for (const LogLine& line : platform.log(info)) EXPECT_THAT(line.text, Not(HasSubstr("cpu base")));
}

TEST_F(ScanTest, CountsSeventeenBackplanesAndNamesSixteen) {
    std::vector<Bytes> locators;
    for (uint8_t i = 0; i < 17; ++i) {
        locators.push_back(FruLocator(static_cast<uint8_t>(0x80 + i), "BP").entity(drive_backplane, i));
    }
    create(locators);

    std::vector<ConfigurationWrite> expected{
        number_variable("vpdd_comp_sdr_cnt", 17, 0), number_variable("tarn_var_num_of_cpu_in_sys", 0, 1),
        number_variable("tarn_var_num_of_mem_in_sys", 0, 1), number_variable("tarn_var_num_of_ps_in_sys", 0, 1),
        number_variable("tarn_var_num_of_drive_bp_in_sys", 17, 1)};
    for (int i = 0; i < 16; ++i) {
        expected.push_back(number_variable(formatted("Tarn_Var_Drive_Backplane_%d_FRU_Num", i), 0x80 + i, 0));
    }
    expected.push_back(number_variable("tarn_var_base_of_cpu_in_fru", 1, 1));
    EXPECT_EQ(platform.configuration(), expected);
}

TEST_F(ScanTest, TakesTheLowestProcessorInstanceAsBase) {
    create({FruLocator(1, "CPU 2").entity(processor, 2), FruLocator(2, "CPU 1").entity(processor, 0x81)});

    std::vector<LogLine> lines = platform.log(info);
    std::erase_if(lines, [](const LogLine& line) { return line.text.find("smallest") == std::string::npos; });
    EXPECT_THAT(
        lines,
        ElementsAre(LogLine{info, "vpdd_create_sdr_cache: instance 2 become the smallest index of cpu(base: 2)"},
                    LogLine{info, "vpdd_create_sdr_cache: instance 1 become the smallest index of cpu(base: 1)"}));
    EXPECT_EQ(platform.written("tarn_var_base_of_cpu_in_fru"), number_variable("tarn_var_base_of_cpu_in_fru", 1, 1));
}

TEST_F(ScanTest, SaysNothingOfAnInstanceThatIsNotLower) {
    create({FruLocator(1, "CPU 0").entity(processor, 0), FruLocator(2, "CPU 0").entity(processor, 0),
            FruLocator(3, "CPU 1").entity(processor, 1)});

    EXPECT_EQ(
        platform.times_logged(info, "vpdd_create_sdr_cache: instance 0 become the smallest index of cpu(base: 0)"), 1U);
    EXPECT_EQ(platform.written("tarn_var_base_of_cpu_in_fru"), number_variable("tarn_var_base_of_cpu_in_fru", 0, 1));
}

TEST_F(ScanTest, StartsTheSearchForTheBaseAt33) {
    create({FruLocator(1, "CPU").entity(processor, 33), FruLocator(2, "CPU").entity(processor, 0x7F)});

    EXPECT_EQ(platform.written("tarn_var_base_of_cpu_in_fru"), number_variable("tarn_var_base_of_cpu_in_fru", 33, 1));
    for (const LogLine& line : platform.log(info)) {
        EXPECT_THAT(line.text, Not(HasSubstr("smallest")));
        EXPECT_THAT(line.text, Not(HasSubstr("default")));
    }
}

TEST_F(ScanTest, CountsInstance32AsLowerThanTheStart) {
    create({FruLocator(1, "CPU").entity(processor, 32)});

    EXPECT_TRUE(platform.logged(info, "vpdd_create_sdr_cache: instance 32 become the smallest index of cpu(base: 32)"));
}

TEST_F(ScanTest, LogsAFailedWriteOfTheBaseOnly) {
    platform.configuration_write.fail_always();
    create({FruLocator(1, "CPU 4").entity(processor, 4)});

    std::vector<std::string> texts;
    for (const LogLine& line : platform.log(info)) {
        if (line.text.find("tarn") != std::string::npos) texts.push_back(line.text);
    }
    EXPECT_THAT(texts, ElementsAre("CreateComponentVPDCache: can't update cpu base(4) to tarn "
                                   "variable(tarn_var_base_of_cpu_in_fru)"));
    EXPECT_EQ(platform.configuration().size(), 6U);
}

TEST_F(ScanTest, TakesAnyNonZeroResultOfTheStoreForSuccess) {
    platform.configuration_write.always(-1);
    create({});

    for (const LogLine& line : platform.log(info)) EXPECT_THAT(line.text, Not(HasSubstr("can't update")));
}

TEST_F(ScanTest, LogsTheDefaultBaseBeforeItWritesIt) {
    platform.configuration_write.fail_always();
    create({});

    const auto lines = platform.journal();
    const auto found =
        std::find(lines.begin(), lines.end(), "log 14 CreateComponentVPDCache: cpu base is set to default(1)");
    ASSERT_NE(found, lines.end());
    EXPECT_EQ(*(found + 1), "set tarn_var_base_of_cpu_in_fru");
    EXPECT_EQ(*(found + 2),
              "log 14 CreateComponentVPDCache: can't update cpu base(1) to tarn "
              "variable(tarn_var_base_of_cpu_in_fru)");
}

std::string sdr_line(const char* text) { return pid_line("vpdd_create_sdr_cache - %s", text); }

TEST_F(ScanTest, FailsOnARepositoryWithoutAFirstRecord) {
    repository({FruLocator(5, "x")});
    platform.sdr_read.fail_at(1);

    EXPECT_EQ(CreateComponentVPDCache(), -3);

    const auto lines = platform.log(info);
    ASSERT_GE(lines.size(), 2U);
    EXPECT_EQ(lines[lines.size() - 2].text, sdr_line("ERROR: Invalid SDR record head(n_read=0)."));
    EXPECT_EQ(lines.back().text, sdr_line("ERROR:Create SDR cache error."));
    EXPECT_THAT(platform.configuration(), IsEmpty());
    EXPECT_THAT(platform.trace(), IsEmpty());
    EXPECT_EQ(platform.smbios_open.count(), 0U);
    EXPECT_TRUE(all_locks_are_free());
    EXPECT_EQ(FindFRURecord(5, nullptr), -4) << "the status is unchanged";
}

TEST_F(ScanTest, ReportsAnUnreadableRecordUnderTheLock) {
    repository({FruLocator(5, "x")});
    platform.sdr_read.fail_at(1);
    {
        const LockJournal locks;
        CreateComponentVPDCache();
    }

    const auto lines = platform.journal();
    ASSERT_GE(lines.size(), 3U);
    EXPECT_THAT(std::vector<std::string>(lines.end() - 3, lines.end()),
                ElementsAre("log 14 " + sdr_line("ERROR: Invalid SDR record head(n_read=0)."),
                            "log 14 " + sdr_line("ERROR:Create SDR cache error."), "unlock compvpd_access_mutex"));
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "unlock compvpd_access_mutex"), 1);
}

TEST_F(ScanTest, ReportsHowManyBytesTheRecordBeforeTheUnreadableOneHad) {
    platform.sdr_read.at(1, {0, FruLocator(5, "a").build(), 2, 41});
    platform.sdr_read.at(2, {0, full_sensor_record(1, "b"), 3, 57});
    platform.sdr_read.fail_at(3);

    EXPECT_EQ(CreateComponentVPDCache(), -3);

    EXPECT_TRUE(platform.logged(info, sdr_line("ERROR: Invalid SDR record head(n_read=57).")));
}

TEST_F(ScanTest, KeepsWhatItHasWhenTheRepositoryFailsInTheMiddle) {
    repository({FruLocator(5, "a"), FruLocator(6, "b"), FruLocator(7, "c")});
    platform.sdr_read.fail_at(3);

    EXPECT_EQ(CreateComponentVPDCache(), -3);

    EXPECT_TRUE(platform.logged_containing(info, "ERROR: Invalid SDR record head(n_read="));
    EXPECT_TRUE(platform.logged(info, sdr_line("ERROR:Create SDR cache error.")));
    EXPECT_EQ(requests_of(5).size(), 0U) << "nothing is decoded";
    EXPECT_TRUE(all_locks_are_free());

    // The status is unchanged, so the next run is not refused, and it appends to what is there.
    create();
    std::vector<uint8_t> ids;
    for (const auto& record : records()) ids.push_back(record.fru_id);
    EXPECT_THAT(ids, ElementsAre(5, 6, 5, 6, 7));
    EXPECT_EQ(platform.written("vpdd_comp_sdr_cnt"), number_variable("vpdd_comp_sdr_cnt", 3, 0));
    EXPECT_THAT(requests_of(5), SizeIs(2)) << "the old nodes are decoded as well";
}

TEST_F(ScanTest, EndsARepositoryThatRunsInACircle) {
    const SdrReply follower{0, full_sensor_record(1, "x"), 1};
    platform.sdr_read.when([](const SdrCall& call) { return call.record_id == 2; }, follower);
    platform.sdr_read.always({0, FruLocator(5, "x").build(), 2});

    EXPECT_EQ(CreateComponentVPDCache(), -3);

    EXPECT_TRUE(platform.logged(info, sdr_line("ERROR:Create SDR cache error.")));
    EXPECT_THAT(record_ids_read(), ElementsAre(0, 2, 1)) << "none of them twice";
    EXPECT_TRUE(all_locks_are_free());
}

TEST_F(ScanTest, EndsARepositoryWhoseFirstRecordFollowsItself) {
    platform.sdr_read.always({0, full_sensor_record(1, "x"), 0});

    EXPECT_EQ(CreateComponentVPDCache(), -3);

    EXPECT_THAT(record_ids_read(), ElementsAre(0));
}

TEST_F(ScanTest, ReadsTheIdsOfAWholeRepositoryOnceEach) {
    platform.sdr_read.model([](const SdrCall& call) {
        // Every id there is but the end mark, then back to the one in the middle.
        const bool is_last = call.record_id == 0xFFFE;
        return SdrReply{0, full_sensor_record(1, "x"), static_cast<uint16_t>(is_last ? 0x8000 : call.record_id + 1)};
    });

    EXPECT_EQ(CreateComponentVPDCache(), -3);

    EXPECT_EQ(platform.sdr_read.count(), 0xFFFFU);
}

TEST_F(ScanTest, AppendsEachNodeUnderTheLockOfTheList) {
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer's allocator is in the way";
    repository({FruLocator(5, "a"), FruLocator(6, "b")});
    const AllocationWatch watch;
    std::vector<std::string> seen;
    {
        const LockJournal locks([&](std::string_view line) {
            if (!line.ends_with(" g_list_access_mutex")) return;
            const ComponentVpdNode* const first = node_among(watch, 5);
            ASSERT_NE(first, nullptr);
            seen.push_back(std::string(line) + (first->next == nullptr ? ": one node" : ": two nodes"));
        });
        create();
    }

    EXPECT_THAT(seen, ElementsAre("lock g_list_access_mutex: one node", "unlock g_list_access_mutex: one node",
                                  "lock g_list_access_mutex: one node", "unlock g_list_access_mutex: two nodes"));
}

TEST_F(ScanTest, PassesOverALocatorForWhichThereIsNoMemory) {
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer's allocator is in the way";
    repository({FruLocator(5, "a"), FruLocator(6, "b").entity(processor, 1), FruLocator(7, "c")});
    platform.remove_fru(0);
    {
        constexpr std::size_t of_dcmi = 1;
        const AllocationWatch failing(of_dcmi + 2);
        create();
        EXPECT_TRUE(failing.has_failed());
    }

    std::vector<uint8_t> ids;
    for (const auto& record : records()) ids.push_back(record.fru_id);
    EXPECT_THAT(ids, ElementsAre(5, 7));
    EXPECT_EQ(platform.written("vpdd_comp_sdr_cnt"), number_variable("vpdd_comp_sdr_cnt", 2, 0));
    EXPECT_EQ(platform.written("tarn_var_num_of_cpu_in_sys"), number_variable("tarn_var_num_of_cpu_in_sys", 0, 1));
    std::vector<std::string> texts;
    for (const LogLine& line : platform.log()) texts.push_back(line.text);
    EXPECT_THAT(texts, ElementsAre(HasSubstr("Failed to call read_fru_size()!"),
                                   HasSubstr("UpdateFRUID0InfoToTARNForDCMI error."),
                                   HasSubstr("cpu base is set to default(1)"), HasSubstr("smbt_init failed")))
        << "nothing of the locator";
}

TEST_F(ScanTest, FreesTheNodeOfADroppedLocator) {
    repository({FruLocator(5, "a").modifier(3).entity(processor, 1)});
    const AllocationWatch watch;

    create();

    EXPECT_EQ(watch.live_blocks(), 0U);
}

TEST_F(ScanTest, LeavesNothingButTheNodesBehind) {
    platform.fru(0, vpdd::images::FruImage().product({}).build());
    platform.fru(5, vpdd::images::FruImage().board({"maker", "name", "serial"}).padded_to(700).build());
    repository({FruLocator(5, "a"), FruLocator(6, "b"), FruLocator(7, "c").modifier(dimm)});
    const AllocationWatch watch;

    create();

    EXPECT_EQ(watch.live_blocks(), allocator_can_fail ? 3U : 0U);
}

// ---- reading

class ImageReadTest : public ComponentCacheTest {
protected:
    /// FRU 5, whose maker is "maker", with an image of this size.
    static Bytes image(std::size_t size) {
        Bytes bytes = vpdd::images::FruImage().board({"maker"}).build();
        bytes.resize(size);
        return bytes;
    }
    static bool is_maker(const ComponentVpdRecord& record) { return std::string_view(record.mfg_id) == "maker"; }
};

std::string skip_line(const char* rest) { return formatted("CreateComponentVPDCache %s", rest); }

TEST_F(ImageReadTest, SkipsDevicesThatAreNoFrusBehindAManagementController) {
    platform.fru(5, image(64));
    create({FruLocator(5, "EEPROM").type(0x0F).modifier(3).entity(0xA7, 0x9B)});

    EXPECT_TRUE(platform.logged(warning, skip_line("A7.1B skip unhandled format=0F.03.")));
    const auto record = records().at(0);
    EXPECT_EQ(record.vpd_format, 0U);
    EXPECT_EQ(record.is_cached, 0);
    EXPECT_STREQ(record.name, "EEPROM");
    EXPECT_EQ(record.entity_id, 0xA7);
    EXPECT_EQ(record.entity_instance, 0x1B);
    EXPECT_THAT(requests_of(5), IsEmpty());
}

TEST_F(ImageReadTest, SkipsProcessorCartridgesOfOtherEntitiesAndMarksThem) {
    platform.fru(5, image(64));
    create({FruLocator(5, "cartridge").modifier(3).entity(4, 2)});

    EXPECT_TRUE(platform.logged(warning, skip_line("04.02 skip unhandled format=10.03.")));
    EXPECT_EQ(records().at(0).vpd_format, 3U);
    EXPECT_EQ(records().at(0).is_cached, 0);
    EXPECT_THAT(requests_of(5), IsEmpty());
}

TEST_F(ImageReadTest, ReadsImagesOfOtherModifiersAndPassesOverThem) {
    for (const uint8_t modifier : {4, 5, 0x80, 0xFF}) {
        platform.fru(modifier, image(130));
    }
    create({FruLocator(4, "a").modifier(4), FruLocator(5, "b").modifier(5), FruLocator(0x80, "c").modifier(0x80),
            FruLocator(0xFF, "d").modifier(0xFF)});

    for (const auto& record : records()) {
        EXPECT_EQ(requests_of(record.fru_id), requests_for(record.fru_id, 130));
        EXPECT_EQ(record.is_cached, 0);
        EXPECT_EQ(record.vpd_format, 0U);
        EXPECT_STREQ(record.mfg_id, "");
    }
    EXPECT_THAT(platform.log(warning), SizeIs(1)) << "only FRU 0 is reported";
}

TEST_F(ImageReadTest, PassesOverAFailedChunkOfOtherModifiersSilently) {
    platform.fru(5, image(130));
    platform.ipmi.when(reads(5, 128), ipmi_completion(0xCB));
    create({FruLocator(5, "b").modifier(5)});

    EXPECT_THAT(platform.log(error), IsEmpty());
}

TEST_F(ImageReadTest, DecodesModifiers0And2AsFruInventory) {
    platform.fru(5, image(64));
    platform.fru(6, image(64));
    create({FruLocator(5, "a").modifier(0), FruLocator(6, "b").modifier(2)});

    for (const auto& record : records()) {
        EXPECT_TRUE(is_maker(record));
        EXPECT_EQ(record.is_cached, 1);
    }
}

TEST_F(ImageReadTest, ReadsAnImageInChunksOf128Bytes) {
    for (const std::size_t size : {48U, 127U, 128U, 129U, 256U, 511U, 512U, 513U, 600U, 2048U}) {
        const auto fails = [&] {
            platform.fru(5, image(size));
            create({FruLocator(5, "a")});
            EXPECT_EQ(requests_of(5), requests_for(5, size));
            EXPECT_TRUE(is_maker(records().at(0)));
            return HasFailure() ? 1 : 0;
        };
        EXPECT_TRUE(succeeds_in_own_process(fails)) << size;
    }
}

TEST_F(ImageReadTest, Reads600BytesAs128FourTimesAnd88) {
    platform.fru(5, image(600));
    create({FruLocator(5, "a")});

    EXPECT_THAT(requests_of(5),
                ElementsAre(IpmiCall{0x0A, 0x10, {5}}, IpmiCall{0x0A, 0x11, {5, 0x00, 0x00, 128}},
                            IpmiCall{0x0A, 0x11, {5, 0x80, 0x00, 128}}, IpmiCall{0x0A, 0x11, {5, 0x00, 0x01, 128}},
                            IpmiCall{0x0A, 0x11, {5, 0x80, 0x01, 128}}, IpmiCall{0x0A, 0x11, {5, 0x00, 0x02, 88}}));
}

TEST_F(ImageReadTest, ReadsOneEmptyChunkOfAnEmptyImage) {
    platform.ipmi.when([](const IpmiCall& call) { return call.is(0x0A, 0x10) && call.data[0] == 5; },
                       ipmi_data({0, 0, 0}));
    platform.ipmi.when(reads(5, 0), ipmi_data({0}));
    create({FruLocator(5, "a")});

    EXPECT_THAT(requests_of(5), ElementsAre(IpmiCall{0x0A, 0x10, {5}}, IpmiCall{0x0A, 0x11, {5, 0, 0, 0}}));
    EXPECT_EQ(records().at(0).is_cached, 0);
    EXPECT_THAT(platform.log(error), IsEmpty());
}

TEST_F(ImageReadTest, ReadsTheLargestImageThatAFruCanHave) {
    platform.fru(5, image(65535));
    create({FruLocator(5, "a")});

    EXPECT_EQ(requests_of(5), requests_for(5, 65535));
    EXPECT_TRUE(is_maker(records().at(0)));
    EXPECT_TRUE(
        platform.logged_at_line(warning, "CreateComponentVPDCache", " - FRU size is larger than 512, fru_size=65535"));
}

TEST_F(ImageReadTest, SendsNoRequestsBeyondThoseOfTheImages) {
    platform.fru(0, image(300));
    platform.fru(5, image(600));
    platform.fru(6, image(64));
    create({FruLocator(5, "a"), FruLocator(6, "b"), FruLocator(7, "absent"), FruLocator(6, "again"),
            FruLocator(5, "other").type(1)});

    std::vector<IpmiCall> expected{{0x06, 0x01, {}}};
    const auto add = [&](const std::vector<IpmiCall>& calls) {
        expected.insert(expected.end(), calls.begin(), calls.end());
    };
    add(requests_for(0, 300));
    add(requests_for(5, 600));
    add(requests_for(6, 64));
    add({{0x0A, 0x10, {7}}});
    add(requests_for(6, 64));
    EXPECT_EQ(platform.requests(), expected);
}

TEST_F(ImageReadTest, PassesOverAFruWithoutASizeSilently) {
    platform.fru(0, image(64));
    platform.fru(6, image(64));
    create({FruLocator(5, "gone"), FruLocator(6, "here")});

    EXPECT_EQ(records().at(0).is_cached, 0);
    EXPECT_STREQ(records().at(0).name, "gone");
    EXPECT_TRUE(is_maker(records().at(1)));
    EXPECT_THAT(platform.log(warning), IsEmpty());
    EXPECT_THAT(platform.log(error), IsEmpty());
}

TEST_F(ImageReadTest, ReportsAnImageAboveTheUsualSize) {
    platform.fru(5, image(513));
    platform.fru(6, image(512));
    create({FruLocator(5, "a"), FruLocator(6, "b")});

    EXPECT_TRUE(
        platform.logged_at_line(warning, "CreateComponentVPDCache", " - FRU size is larger than 512, fru_size=513"));
    EXPECT_THAT(platform.log(warning), SizeIs(2)) << "FRU 0 and this";
}

TEST_F(ImageReadTest, GoesOnWithTheNextFruWhenThereIsNoMemoryForTheImage) {
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer's allocator is in the way";
    platform.fru(5, image(64));
    platform.fru(6, image(64));
    repository({FruLocator(5, "a"), FruLocator(6, "b")});
    {
        constexpr std::size_t of_dcmi = 1, nodes = 2;
        const AllocationWatch failing(of_dcmi + nodes + 1);
        create();
        ASSERT_TRUE(failing.has_failed());
    }

    EXPECT_TRUE(platform.logged_at_line(warning, "CreateComponentVPDCache", " - calloc FRU data fail"));
    EXPECT_EQ(records().at(0).is_cached, 0);
    EXPECT_STREQ(records().at(0).name, "a");
    EXPECT_THAT(requests_of(5), IsEmpty());
    EXPECT_TRUE(is_maker(records().at(1)));
}

TEST_F(ImageReadTest, GoesOnWithTheNextFruWhenTheImageCannotGrow) {
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer's allocator is in the way";
    platform.fru(5, image(4000));
    platform.fru(6, image(64));
    repository({FruLocator(5, "a"), FruLocator(6, "b")});
    {
        constexpr std::size_t of_dcmi = 1, nodes = 2, usual_buffer = 1;
        const AllocationWatch failing(of_dcmi + nodes + usual_buffer + 1);
        create();
        ASSERT_TRUE(failing.has_failed());
        EXPECT_EQ(failing.live_blocks(), nodes);
    }

    EXPECT_TRUE(
        platform.logged_at_line(warning, "CreateComponentVPDCache", " - FRU size is larger than 512, fru_size=4000"));
    EXPECT_TRUE(platform.logged_at_line(warning, "CreateComponentVPDCache", " - realloc FRU data fail"));
    EXPECT_THAT(platform.log(warning).back().text, HasSubstr("realloc FRU data fail")) << "the size comes first";
    EXPECT_EQ(records().at(0).is_cached, 0);
    EXPECT_THAT(requests_of(5), SizeIs(1)) << "nothing but its size";
    EXPECT_TRUE(is_maker(records().at(1)));
}

TEST_F(ImageReadTest, ComesUpWhateverSingleAllocationFails) {
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer's allocator is in the way";
    bool reached_the_end = false;
    for (std::size_t failing = 1; !reached_the_end; ++failing) {
        ASSERT_LT(failing, 100U);
        const auto body = [&] {
            platform.fru(0, image(300));
            for (const uint8_t id : {5, 6, 7}) platform.fru(id, image(id == 6 ? 600 : 64));
            repository({FruLocator(5, "a"), FruLocator(6, "b"), FruLocator(7, "c").modifier(dimm)});
            const AllocationWatch watch(failing);
            create();
            EXPECT_TRUE(all_locks_are_free());
            if (HasFailure()) return 1;
            return watch.has_failed() ? 0 : 2;
        };
        const auto result = succeeds_in_own_process(body);
        reached_the_end = std::string_view(result.message()) == "exit status 2";
        ASSERT_TRUE(result || reached_the_end) << "allocation " << failing << ": " << result.message();
    }
}

// ---- failed chunks

class FailedChunkTest : public ImageReadTest, public testing::WithParamInterface<std::size_t> {};

INSTANTIATE_TEST_SUITE_P(FirstMiddleLast, FailedChunkTest, testing::Values(0, 128, 256, 512));

TEST_P(FailedChunkTest, IsReportedWithWhatIsLeftToRead) {
    const std::size_t offset = GetParam();
    platform.fru(5, image(600));
    platform.fru(6, image(64));
    platform.ipmi.when(reads(5, offset), ipmi_completion(0xCB));
    create({FruLocator(5, "PSU 1"), FruLocator(6, "PSU 2")});

    EXPECT_THAT(platform.log(error), SizeIs(1));
    EXPECT_TRUE(platform.logged_at_line(
        error, "CreateComponentVPDCache",
        formatted(" Read FRU fail! FRU_NAME=PSU 1, FRU_ID=5, mfg_id= board=(nil), product=(nil), "
                  "fru_size=%zu, offset=%zu",
                  600 - offset, offset)));
    EXPECT_EQ(records().at(0).is_cached, 0);
    EXPECT_STREQ(records().at(0).mfg_id, "");
    EXPECT_TRUE(is_maker(records().at(1)));
    auto expected = requests_for(5, 600);
    expected.resize(2 + offset / 128);
    EXPECT_EQ(requests_of(5), expected) << "no chunk is read behind the failed one";
}

TEST_F(ImageReadTest, RetriesAChunkThatFailsForAnyOtherReason) {
    platform.fru(5, image(64));
    platform.ipmi.when(reads(5, 0), ipmi_completion(0xC3));
    create({FruLocator(5, "PSU 1")});

    EXPECT_THAT(requests_of(5), SizeIs(1 + 3));
    EXPECT_THAT(platform.log(error), SizeIs(1));
    EXPECT_THAT(platform.sleeps(), ElementsAre(5 * second, ipmi_pause, ipmi_pause, ipmi_pause));
}

// ---- what comes from outside

TEST_F(ScanTest, EndsANameThatHasNoTerminator) {
    // 64 bytes without a zero: the string is 16 characters long and nothing behind them belongs to it.
    Bytes record = FruLocator(5, "").build();
    record.resize(64, 'N');
    create({record});

    EXPECT_STREQ(records().at(0).name, "NNNNNNNNNNNNNNNN");
}

}  // namespace
