// SPDX-License-Identifier: Apache-2.0
// The run that reads every component again: its guards and locks, what it refreshes, and the totals that it publishes.
#include <chrono>
#include <future>
#include <thread>

#include "failing_allocator.h"
#include "own_process.h"
#include "update_fixture.h"

using namespace vpdd::test;
using testing::AnyOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using vpdd::images::Field;
using vpdd::images::FruArea;
using vpdd::images::FruImage;
using vpdd::images::FruLocator;
using vpdd::images::OemProcessor;

namespace {

FruImage board(const char* maker) { return FruImage().board({.manufacturer = maker, .serial = "serial"}); }

/// A board with multirecords, so that an update has nothing to complain about.
FruImage complete(const char* maker) { return board(maker).multirecord(0x01, {1, 2, 3}); }

std::vector<ConfigurationWrite> totals_of_nothing() {
    return {number_variable("vpdd_comp_sdr_cnt", 0, 0),
            number_variable("tarn_var_total_memory_size", 0, 1),
            number_variable("tarn_var_total_cpu_count", 0, 1),
            number_variable("tarn_var_total_logical_cpu_count", 0, 1),
            counted_text_variable("tarn_var_first_cpu_model", "", 1),
            number_variable("tarn_var_total_enabled_power_supply", 0, 1)};
}

// ---- guards

TEST_F(UpdateTest, RefusesToWorkBeforeTheCacheWasCreated) {
    const auto lines = journal_of_update();

    EXPECT_EQ(UpdateComponentVPDCache(), -4);

    EXPECT_TRUE(platform.logged_located(info, update_name, "ERROR:Cache wasn't created(status: 0)"));
    EXPECT_THAT(lines, SizeIs(1)) << "neither a lock nor a request nor a variable";
    EXPECT_EQ(platform.smbios_open.count(), 0U);
}

TEST_F(UpdateTest, RefusesToWorkAfterTheCacheWasDestroyed) {
    create_cache({{5, complete("maker").build()}});
    ASSERT_EQ(DestroyComponentVPDCache(), 0);

    EXPECT_EQ(UpdateComponentVPDCache(), -4);

    EXPECT_TRUE(platform.logged_located(info, update_name, "ERROR:Cache wasn't created(status: 2)"));
    EXPECT_EQ(platform.smbios_open.count(), 0U);
    EXPECT_THAT(platform.configuration(), IsEmpty());
}

TEST_F(UpdateTest, TestsTheStatusAgainBeforeANode) {
    create_cache({{5, complete("maker").build()}});
    // While SMBIOS is loaded the cache is destroyed, and a creation that fails leaves a node in the list.
    platform.smbios_open.during([this](const SmbiosOpenCall&) {
        DestroyComponentVPDCache();
        repository({FruLocator(5, "a"), FruLocator(6, "b")});
        platform.sdr_read.fail_at(2);
        EXPECT_EQ(CreateComponentVPDCache(), -3);
    });

    EXPECT_EQ(UpdateComponentVPDCache(), -4);

    EXPECT_TRUE(platform.logged_located(info, update_name, "ERROR:Cache wasn't created(status: 2)"));
    EXPECT_THAT(platform.smbios_release.calls(), ElementsAre(table()));
    EXPECT_TRUE(all_locks_are_free());
    EXPECT_THAT(requests_of(5), IsEmpty());
    EXPECT_FALSE(platform.written("tarn_var_total_memory_size").has_value());
}

TEST_F(UpdateTest, FindsNothingInACacheThatIsDestroyedWhileSmbiosIsLoaded) {
    create_cache({{5, complete("maker").build()}});
    platform.smbios_open.during([](const SmbiosOpenCall&) { DestroyComponentVPDCache(); });

    EXPECT_EQ(UpdateComponentVPDCache(), 0);

    EXPECT_EQ(platform.configuration(), totals_of_nothing());
    EXPECT_THAT(platform.smbios_release.calls(), SizeIs(1));
}

TEST_F(UpdateTest, PublishesEmptyTotalsOfAnEmptyCache) {
    create_cache({});

    EXPECT_EQ(UpdateComponentVPDCache(), 0);

    EXPECT_EQ(platform.configuration(), totals_of_nothing());
    EXPECT_THAT(platform.smbios_release.calls(), ElementsAre(table()));
    EXPECT_TRUE(platform.logged_nothing());
    EXPECT_THAT(platform.requests(), IsEmpty());
}

// ---- locks and SMBIOS

TEST_F(UpdateTest, LoadsSmbiosBeforeItLocksTheCacheAndReleasesItLast) {
    create_cache({{5, complete("maker").build()}});
    bool free_at_opening = false, free_at_release = true;
    platform.smbios_open.during([&](const SmbiosOpenCall&) {
        free_at_opening = is_free(compvpd_access_mutex);
        EXPECT_THAT(platform.requests(), IsEmpty());
    });
    platform.smbios_release.during([&](SmbiosTable*) {
        free_at_release = is_free(compvpd_access_mutex);
        EXPECT_TRUE(platform.written("tarn_var_total_enabled_power_supply").has_value());
    });

    EXPECT_EQ(UpdateComponentVPDCache(), 0);

    EXPECT_TRUE(free_at_opening);
    EXPECT_FALSE(free_at_release);
    EXPECT_EQ(platform.smbios_open.count(), 1U);
    EXPECT_THAT(platform.smbios_release.calls(), ElementsAre(table()));
}

TEST_F(UpdateTest, HoldsTheCacheAcrossAllItReadsAndWrites) {
    create_cache({{5, complete("a").build()}, {6, complete("b").build()}});

    const auto lines = journal_of_update();

    EXPECT_THAT(lines,
                ElementsAre("lock compvpd_access_mutex", "ipmi 0A/10", "ipmi 0A/11", "ipmi 0A/10", "ipmi 0A/11",
                            "set vpdd_comp_sdr_cnt", "set tarn_var_total_memory_size", "set tarn_var_total_cpu_count",
                            "set tarn_var_total_logical_cpu_count", "set tarn_var_first_cpu_model",
                            "set tarn_var_total_enabled_power_supply", "unlock compvpd_access_mutex"))
        << "it neither waits for the stack nor scans the repository";
}

TEST_F(UpdateTest, Returns64WhenNothingButSmbiosFails) {
    create_cache({{5, complete("old").build()}});
    replace(5, complete("new"));
    platform.smbios(nullptr);

    const auto lines = journal_of_update();

    EXPECT_STREQ(cached(5)->mfg_id, "new");
    EXPECT_EQ(platform.log(error).back().text, pid_line("UpdateComponentVPDCache - err:SMBIOS Init failed"));
    EXPECT_LT(std::find(lines.begin(), lines.end(), "log 11 " + platform.log(error).back().text),
              std::find(lines.begin(), lines.end(), "lock compvpd_access_mutex"));
    EXPECT_THAT(platform.smbios_release.calls(), IsEmpty());
    EXPECT_EQ(UpdateComponentVPDCache(), 64);
}

TEST_F(UpdateTest, ReturnsMinus10WhenSmbiosAndAFruFail) {
    create_cache({{5, complete("a").build()}, {6, complete("b").build()}});
    platform.smbios(nullptr);
    platform.ipmi.when(reads(5, 0), ipmi_completion(0xCB));

    EXPECT_EQ(UpdateComponentVPDCache(), -10) << "the last failure stands";
}

TEST_F(UpdateTest, ReleasesSmbiosAlsoWhenAFruFails) {
    create_cache({{5, complete("a").build()}, {6, complete("b").build()}});
    platform.ipmi.when(reads(5, 0), ipmi_completion(0xCB));

    EXPECT_EQ(UpdateComponentVPDCache(), -10);

    EXPECT_THAT(platform.smbios_release.calls(), ElementsAre(table()));
}

// ---- reading

TEST_F(UpdateTest, SendsNoRequestsBeyondThoseOfTheImages) {
    Bytes large = complete("maker").build();
    large.resize(600);
    create_cache({{5, large}, {6, complete("b").build()}, {7}, {8, complete("c").build(), 7, 0, 1}});
    UpdateComponentVPDCache();

    auto expected = requests_for(5, 600);
    for (const auto& call : requests_for(6, complete("b").build().size())) expected.push_back(call);
    expected.push_back({netfn_storage, area_info, {7}});
    EXPECT_EQ(platform.requests(), expected);
    EXPECT_THAT(platform.sleeps(), IsEmpty());
    EXPECT_EQ(platform.sdr_read.count(), 0U);
}

TEST_F(UpdateTest, SetsTheIdsAgainAndLeavesWhatWasNotRead) {
    constexpr uint8_t id = 0x85;  // as an entity instance a logical one: instance 5
    create_cache({{id, complete("maker").build(), 9}});
    ComponentVpdRecord* const record = cached(id);
    record->fru_id = 77;
    record->entity_id = 78;
    record->entity_instance = 79;
    record->next_fru_id = 80;
    record->status = 255;
    record->timestamp = 0x123456789A;
    record->crc = 0xAABBCCDD;
    record->vpd_format = 2;
    std::strcpy(record->name, "renamed");
    std::strcpy(record->product_version, "version");
    ComponentVpdRecord expected = *record;
    expected.fru_id = id;
    expected.entity_id = 9;
    expected.entity_instance = 5;

    EXPECT_EQ(UpdateComponentVPDCache(), 0);

    EXPECT_TRUE(is_same_record(*record, expected));
    EXPECT_THAT(requests_of(id), Not(IsEmpty()));
}

TEST_F(UpdateTest, SkipsFormatsThatAreNotReadAndCountsThem) {
    create_cache({{5, complete("a").build(), 0xA7, 1, 0x0F}, {6, complete("b").build(), 4, 3}});
    cached(6)->vpd_format = 0;

    EXPECT_EQ(UpdateComponentVPDCache(), 0);

    EXPECT_THAT(platform.log(),
                ElementsAre(LogLine{warning, "UpdateComponentVPDCache A7.05 skip unhandled format=0F.01."},
                            LogLine{warning, "UpdateComponentVPDCache 04.06 skip unhandled format=10.03."}));
    EXPECT_EQ(cached(5)->vpd_format, 0U);
    EXPECT_EQ(cached(6)->vpd_format, 3U);
    EXPECT_THAT(platform.requests(), IsEmpty());
    EXPECT_EQ(platform.written("vpdd_comp_sdr_cnt"), number_variable("vpdd_comp_sdr_cnt", 2, 0));
}

TEST_F(UpdateTest, SetsTheIdsAgainAlsoWhereNothingIsRead) {
    create_cache({{5, complete("a").build(), 0xA7, 1, 0x0F}, {6, complete("b").build(), 4, 3}, {7, {}, 9}});
    ComponentVpdRecord* const records[] = {cached(5), cached(6), cached(7)};
    for (ComponentVpdRecord* record : records) record->fru_id = record->entity_id = record->entity_instance = 77;

    EXPECT_EQ(UpdateComponentVPDCache(), 0);

    constexpr uint8_t entities[] = {0xA7, 4, 9};
    for (const uint8_t id : {5, 6, 7}) {
        EXPECT_EQ(records[id - 5]->fru_id, id);
        EXPECT_EQ(records[id - 5]->entity_id, entities[id - 5]);
        EXPECT_EQ(records[id - 5]->entity_instance, id);
    }
    EXPECT_TRUE(platform.logged(warning, "UpdateComponentVPDCache A7.05 skip unhandled format=0F.01."));
}

TEST_F(UpdateTest, MarksAProcessorCartridgeWhateverItsFormatWas) {
    create_cache({{6, complete("b").build(), 4, 3}});
    cached(6)->vpd_format = 2;

    UpdateComponentVPDCache();

    EXPECT_EQ(cached(6)->vpd_format, 3U);
}

TEST_F(UpdateTest, LeavesTheMarkOfFormatsThatAreNotDecoded) {
    const Bytes image = complete("a").build();
    create_cache({{5, image, 7, 0, 0x0F}, {6, image, 4, 3}, {7, image, 7, 4}, {8, image, 7, 4}});
    for (const uint8_t id : {5, 6, 7, 8}) {
        ASSERT_EQ(cached(id)->is_cached, 0);
        cached(id)->is_cached = 1;
    }
    platform.ipmi.when(reads(8, 0), ipmi_completion(0xCB));

    EXPECT_EQ(UpdateComponentVPDCache(), 0);

    for (const int id : {5, 6, 7, 8}) EXPECT_EQ(cached(static_cast<uint8_t>(id))->is_cached, 1) << id;
}

TEST_F(UpdateTest, ReadsImagesOfOtherModifiersAndPassesOverThem) {
    Bytes image = complete("a").build();
    image.resize(130);
    create_cache({{5, image, 7, 4}, {6, image, 7, 0xFF}});
    platform.ipmi.when(reads(6, 128), ipmi_completion(0xCB));

    EXPECT_EQ(UpdateComponentVPDCache(), 0);

    EXPECT_EQ(requests_of(5), requests_for(5, 130));
    EXPECT_EQ(requests_of(6), requests_for(6, 130));
    EXPECT_STREQ(cached(5)->mfg_id, "");
    EXPECT_TRUE(platform.logged_nothing());
}

TEST_F(UpdateTest, ReportsAnImageAboveTheUsualSizeAndReadsIt) {
    Bytes image = complete("maker").build();
    image.resize(513);
    create_cache({{5, image}});

    EXPECT_EQ(UpdateComponentVPDCache(), 0);

    EXPECT_TRUE(update_logged(warning, " - FRU size is larger than 512, fru_size=513"));
    EXPECT_THAT(platform.log(), SizeIs(1));
    EXPECT_STREQ(cached(5)->mfg_id, "maker");
}

TEST_F(UpdateTest, CountsAFruForWhichThereIsNoMemoryAsFailed) {
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer's allocator is in the way";
    create_cache({{5, complete("old 5").build()}, {6, complete("old 6").build()}});
    replace(5, complete("new 5"));
    replace(6, complete("new 6"));
    {
        const AllocationWatch failing(1);
        EXPECT_EQ(UpdateComponentVPDCache(), -10);
    }

    EXPECT_TRUE(update_logged(warning, " - calloc FRU data fail!"));
    EXPECT_THAT(platform.log(), SizeIs(1));
    EXPECT_THAT(requests_of(5), IsEmpty());
    EXPECT_STREQ(cached(5)->mfg_id, "old 5");
    EXPECT_EQ(cached(5)->is_cached, 1);
    EXPECT_STREQ(cached(6)->mfg_id, "new 6");
}

TEST_F(UpdateTest, CountsAFruWhoseImageCannotGrowAsFailed) {
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer's allocator is in the way";
    Bytes image = complete("old 5").build();
    image.resize(4000);
    create_cache({{5, image}, {6, complete("old 6").build()}});
    replace(6, complete("new 6"));
    {
        constexpr std::size_t usual_buffer = 1;
        const AllocationWatch failing(usual_buffer + 1);
        EXPECT_EQ(UpdateComponentVPDCache(), -10);
        EXPECT_EQ(failing.live_blocks(), 0U);
    }

    EXPECT_TRUE(update_logged(warning, " - realloc FRU data fail!"));
    EXPECT_THAT(requests_of(5), SizeIs(1)) << "nothing but its size";
    EXPECT_STREQ(cached(6)->mfg_id, "new 6");
}

TEST_F(UpdateTest, ComesThroughWhateverSingleAllocationFails) {
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer's allocator is in the way";
    const Bytes product = FruImage().product({"maker"}).multirecord(0x01, {}).build();
    Bytes large = complete("large").build();
    large.resize(600);
    create_cache({{5, complete("a").build()}, {6, large}, {7, product}, module_component(8, ddr4())});
    const CaptureStderr silence;
    bool reached_the_end = false;
    for (std::size_t failing = 1; !reached_the_end; ++failing) {
        ASSERT_LT(failing, 100U);
        const AllocationWatch watch(failing);
        const int result = UpdateComponentVPDCache();
        reached_the_end = !watch.has_failed();
        EXPECT_THAT(result, AnyOf(0, -10)) << failing;
        EXPECT_EQ(watch.live_blocks(), 0U) << failing;
        EXPECT_TRUE(all_locks_are_free());
    }
    EXPECT_EQ(UpdateComponentVPDCache(), 0);
}

// ---- FRUs that cannot be read

TEST_F(UpdateTest, PassesOverAFruThatIsNotPresentSilently) {
    create_cache({{5, complete("old 5").build()}, {6, complete("old 6").build()}});
    platform.remove_fru(5);
    replace(6, complete("new 6"));

    EXPECT_EQ(UpdateComponentVPDCache(), 0);

    EXPECT_EQ(cached(5)->is_cached, 0);
    EXPECT_STREQ(cached(5)->mfg_id, "old 5");
    EXPECT_STREQ(cached(6)->mfg_id, "new 6");
    EXPECT_TRUE(platform.logged_nothing());
    EXPECT_EQ(platform.written("vpdd_comp_sdr_cnt"), number_variable("vpdd_comp_sdr_cnt", 2, 0));
}

TEST_F(UpdateTest, AFruThatIsNotPresentLeavesTheResultOfSmbios) {
    create_cache({{5, complete("old 5").build()}});
    platform.remove_fru(5);
    platform.smbios(nullptr);

    EXPECT_EQ(UpdateComponentVPDCache(), 64);
}

TEST_F(UpdateTest, ReportsAFruWhoseSizeCannotBeRead) {
    create_cache({{5, complete("old 5").build()}, {6, complete("old 6").build()}});
    platform.ipmi.when([](const IpmiCall& call) { return call.is(0x0A, 0x10) && call.data[0] == 5; },
                       ipmi_completion(0xC3));
    replace(6, complete("new 6"));

    EXPECT_EQ(UpdateComponentVPDCache(), -10);

    EXPECT_EQ(cached(5)->is_cached, 0);
    EXPECT_STREQ(cached(5)->mfg_id, "old 5");
    EXPECT_TRUE(update_logged(warning, " - Read FRU size fail, fruid=5, fru name=FRU 5!"));
    EXPECT_THAT(platform.log(), SizeIs(1));
    EXPECT_STREQ(cached(6)->mfg_id, "new 6");
    EXPECT_EQ(cached(6)->is_cached, 1);
}

class FailedUpdateChunkTest : public UpdateTest, public testing::WithParamInterface<std::size_t> {};

INSTANTIATE_TEST_SUITE_P(FirstMiddleLast, FailedUpdateChunkTest, testing::Values(0, 128, 256));

TEST_P(FailedUpdateChunkTest, StillRefreshesTheOtherRecords) {
    Bytes image = complete("old").build();
    image.resize(300);
    create_cache({{4, image}, {5, image}, {6, image}});
    for (const uint8_t id : {4, 5, 6}) replace(id, complete("new").padded_to(300));
    platform.ipmi.when(reads(5, GetParam()), ipmi_completion(0xCB));

    EXPECT_EQ(UpdateComponentVPDCache(), -10);

    EXPECT_STREQ(cached(4)->mfg_id, "new");
    EXPECT_STREQ(cached(5)->mfg_id, "old");
    EXPECT_STREQ(cached(6)->mfg_id, "new");
    EXPECT_EQ(cached(5)->is_cached, 0);
    EXPECT_TRUE(update_logged(warning, " - Read FRU fail, fruid=5, fru name=FRU 5!"));
    EXPECT_THAT(platform.log(), SizeIs(1));
    auto expected = requests_for(5, 300);
    expected.resize(2 + GetParam() / 128);
    EXPECT_EQ(requests_of(5), expected) << "no chunk is read behind the failed one";
}

TEST_F(UpdateTest, AFruThatWasAbsentIsReadWhenItComesBack) {
    create_cache({{5}});
    ASSERT_EQ(cached(5)->is_cached, 0);
    replace(5, complete("maker"));

    EXPECT_EQ(UpdateComponentVPDCache(), 0);

    EXPECT_EQ(cached(5)->is_cached, 1);
    EXPECT_STREQ(cached(5)->mfg_id, "maker");
}

// ---- board

TEST_F(UpdateTest, RefreshesTheFieldsOfTheBoard) {
    const auto record = updated(complete("old"), FruImage()
                                                     .board({.manufacturer = "  maker ",
                                                             .product = "name",
                                                             .serial = "\tserial",
                                                             .part = " part ",
                                                             .file_id = "file",
                                                             .custom = {" extra ", "more"},
                                                             .date = 31 * 24 * 60})
                                                     .multirecord(0x01, {}));

    EXPECT_STREQ(record.mfg_id, "maker");
    EXPECT_STREQ(record.serial_number, "serial");
    EXPECT_STREQ(record.part_number, "part");
    EXPECT_STREQ(record.board_extra, "extra");
    EXPECT_STREQ(record.mfg_date, "1996-02-01");
    EXPECT_STREQ(record.product_version, "");
    EXPECT_EQ(record.is_cached, 1);
    EXPECT_TRUE(platform.logged_nothing());
}

TEST_F(UpdateTest, CutsEachTextToItsField) {
    const std::string text(63, 'X');
    const auto record = updated(
        complete("old"), FruImage().board({.manufacturer = text, .serial = text, .part = text, .custom = {text}}));

    EXPECT_EQ(record.mfg_id, std::string(30, 'X'));
    EXPECT_EQ(record.serial_number, std::string(24, 'X'));
    EXPECT_EQ(record.part_number, std::string(30, 'X'));
    EXPECT_EQ(record.board_extra, std::string(12, 'X'));
}

TEST_F(UpdateTest, LeavesTheRecordThatACreationFromTheNewImageLeaves) {
    const std::string text(63, 'X');
    const FruImage before =
        FruImage().board({.manufacturer = text, .serial = text, .part = text, .custom = {text}, .date = 0x800000});
    const FruImage after = FruImage().board(
        {.manufacturer = "maker", .serial = "serial", .part = "part", .custom = {"extra"}, .date = 60});
    const auto by_update = updated(before, after);
    ASSERT_EQ(DestroyComponentVPDCache(), 0);
    create_cache({{5, after.build()}});

    EXPECT_TRUE(is_same_record(by_update, *cached(5))) << "zeros stand behind a text that became shorter";
}

TEST_F(UpdateTest, EmptiesTheTextsOfFieldsThatBecameEmpty) {
    const auto record =
        updated(FruImage().board({.manufacturer = "m1", .serial = "s1", .part = "p1", .custom = {"e1", "end"}}),
                FruImage().board({.part = "p2", .custom = {Field(), "end"}}));

    EXPECT_STREQ(record.mfg_id, "");
    EXPECT_STREQ(record.serial_number, "");
    EXPECT_STREQ(record.part_number, "p2");
    EXPECT_STREQ(record.board_extra, "");
}

TEST_F(UpdateTest, LeavesTheTextsBehindTheEndOfTheBoardsList) {
    // The list ends where the name would be.
    const Bytes area{1, 2, 25, 0, 0, 0, 0xC2, 'm', 'k', 0xC1, 0, 0, 0, 0, 0, 0};
    const auto record =
        updated(FruImage().board({.manufacturer = "m1", .serial = "s1", .part = "p1", .custom = {"e1"}}),
                FruImage().raw_area(FruArea::board, area));

    EXPECT_STREQ(record.mfg_id, "mk");
    EXPECT_STREQ(record.serial_number, "s1");
    EXPECT_STREQ(record.part_number, "p1");
    EXPECT_STREQ(record.board_extra, "e1");
    EXPECT_THAT(part_numbers(), IsEmpty()) << "the board has none any more";
}

TEST_F(UpdateTest, EmptiesTheTextAtWhosePlaceTheListEnds) {
    // An empty name; the list ends where the serial number would be. The end marker is a field without data.
    const Bytes area{1, 2, 25, 0, 0, 0, 0xC2, 'm', 'k', 0x00, 0xC1, 0, 0, 0, 0, 0};
    const auto record = updated(FruImage().board({.manufacturer = "m1", .serial = "s1", .part = "p1"}),
                                FruImage().raw_area(FruArea::board, area));

    EXPECT_STREQ(record.serial_number, "");
    EXPECT_STREQ(record.part_number, "p1");
}

TEST_F(UpdateTest, PublishesThePartNumberOfABoardUnderItsFruId) {
    create_cache({{5, FruImage().board({.part = " part no "}).build()},
                  {0xAB, FruImage().board({.part = std::string(40, 'p')}).build()},
                  {0x10, board("no part number").build()}});
    platform.configuration_write.fail_when(
        [](const ConfigurationWrite& write) { return write.name.starts_with("TARN_STR"); });

    EXPECT_EQ(UpdateComponentVPDCache(), 0) << "a store that fails is of no interest";

    EXPECT_THAT(part_numbers(), ElementsAre(text_variable("TARN_STR_PART_NUM_05", "part no", 1),
                                            text_variable("TARN_STR_PART_NUM_ab", std::string(40, 'p'), 1)));
    EXPECT_THAT(platform.log(info), IsEmpty());
}

TEST_F(UpdateTest, PublishesAPartNumberOfNothingButBlanksAsAnEmptyText) {
    create_cache({{5, FruImage().board({.part = "   "}).build()}, {6, FruImage().product({.part = " \t "}).build()}});

    UpdateComponentVPDCache();

    EXPECT_THAT(part_numbers(), ElementsAre(text_variable("TARN_STR_PART_NUM_05", "", 1),
                                            text_variable("TARN_STR_PART_NUM_06", "", 1)));
}

// ---- product

TEST_F(UpdateTest, RefreshesTheFieldsOfAProductWithoutABoard) {
    const auto record =
        updated(FruImage().product({.manufacturer = "old", .version = "old"}), FruImage()
                                                                                   .product({.manufacturer = " maker ",
                                                                                             .name = "name",
                                                                                             .part = "model",
                                                                                             .version = " version ",
                                                                                             .serial = " serial ",
                                                                                             .asset_tag = "asset",
                                                                                             .custom = {"extra"}})
                                                                                   .multirecord(0x01, {}));

    EXPECT_STREQ(record.mfg_id, "maker");
    EXPECT_STREQ(record.product_version, "version");
    EXPECT_STREQ(record.part_number, "version");
    EXPECT_STREQ(record.serial_number, "serial");
    EXPECT_STREQ(record.mfg_date, "");
    EXPECT_STREQ(record.board_extra, "");
    EXPECT_EQ(record.is_cached, 1);
    EXPECT_TRUE(platform.logged_nothing());
}

TEST_F(UpdateTest, PublishesTheModelOfAProductWithoutKeepingIt) {
    create_cache({{5, FruImage().product({.part = " model ", .version = "v"}).build()},
                  {0xAB, FruImage().product({.version = "no model"}).build()}});
    UpdateComponentVPDCache();

    EXPECT_THAT(part_numbers(), ElementsAre(text_variable("TARN_STR_PART_NUM_05", "model", 1)));
    for (const uint8_t byte : {'m', 'o', 'd', 'e', 'l'}) {
        EXPECT_THAT(bytes_of_record(*cached(5)), Contains(byte).Times(0)) << byte;
    }
}

TEST_F(UpdateTest, TakesNeitherModelNorPpinOfAProductBesideABoard) {
    const auto record = updated(FruImage().board({.part = "part"}).product({.part = "model"}).padded_to(256));

    EXPECT_THAT(part_numbers(), ElementsAre(text_variable("TARN_STR_PART_NUM_05", "part", 1)));
    EXPECT_STREQ(record.ppin, "");
    EXPECT_STREQ(record.product_version, "");
}

TEST_F(UpdateTest, LeavesTheTextsBehindTheEndOfTheProductsList) {
    const Bytes area{1, 1, 25, 0xC2, 'm', 'k', 0xC1, 0};
    const auto record = updated(FruImage().product({.manufacturer = "m1", .version = "v1", .serial = "s1"}),
                                FruImage().raw_area(FruArea::product, area));

    EXPECT_STREQ(record.mfg_id, "mk");
    EXPECT_STREQ(record.product_version, "v1");
    EXPECT_STREQ(record.part_number, "v1");
    EXPECT_STREQ(record.serial_number, "s1");
    EXPECT_THAT(part_numbers(), IsEmpty());
}

TEST_F(UpdateTest, EmptiesTheTextsOfProductFieldsThatBecameEmpty) {
    const auto record = updated(FruImage().product({.manufacturer = "m1", .version = "v1", .serial = "s1"}),
                                FruImage().product({.name = "n2", .asset_tag = "a2"}));

    EXPECT_STREQ(record.mfg_id, "");
    EXPECT_STREQ(record.product_version, "");
    EXPECT_STREQ(record.part_number, "");
    EXPECT_STREQ(record.serial_number, "");
}

// ---- PPIN

/// A product whose image ends with these nine bytes.
Bytes product_with_tail(std::string_view tail, std::size_t size = 128) {
    Bytes image = FruImage().product({"maker"}).padded_to(size).build();
    std::copy(tail.begin(), tail.end(), image.end() - static_cast<std::ptrdiff_t>(tail.size()));
    return image;
}

class PpinTest : public UpdateTest {
protected:
    std::string ppin_of(const Bytes& image) {
        create_cache({{5, image, processor}});
        UpdateComponentVPDCache();
        EXPECT_EQ(cached(5)->ppin_dump, 0U) << "no address stays in the record";
        return cached(5)->ppin;
    }
};

TEST_F(PpinTest, IsTheLastNineBytesOfTheImage) { EXPECT_EQ(ppin_of(product_with_tail("x1234ABCDE")), "1234ABCDE"); }

TEST_F(PpinTest, IsTheLastNineBytesOfALargeImage) {
    EXPECT_EQ(ppin_of(product_with_tail("x1234ABCDE", 600)), "1234ABCDE");
}

TEST_F(PpinTest, IsTrimmedAtTheEndOfAnImageThatHadToGrow) {
    create_cache({{5, product_with_tail("x  12 34 \t", 2048), processor}});
    {
        const AllocationWatch what_grows_is_filled_with_rubbish;
        UpdateComponentVPDCache();
    }

    EXPECT_STREQ(cached(5)->ppin, "12 34");
}

TEST_F(PpinTest, IsTrimmed) { EXPECT_EQ(ppin_of(product_with_tail("x  12 34 \t")), "12 34"); }

TEST_F(PpinTest, EndsAtAZero) { EXPECT_EQ(ppin_of(product_with_tail(std::string_view("x123\0ABCDE", 10))), "123"); }

TEST_F(PpinTest, IsEmptyWhenItBeginsWithAZero) {
    EXPECT_EQ(ppin_of(product_with_tail(std::string_view("x\0"
                                                         "2345678",
                                                         9))),
              "x");
    EXPECT_EQ(DestroyComponentVPDCache(), 0);
    EXPECT_EQ(ppin_of(product_with_tail(std::string_view("\0"
                                                         "12345678",
                                                         9))),
              "");
}

TEST_F(PpinTest, IsEmptyForAnImageShorterThanItself) {
    for (const std::size_t size : {5U, 8U}) {
        create_cache({{5, product_with_tail("123456789"), processor}});
        UpdateComponentVPDCache();
        ASSERT_STREQ(cached(5)->ppin, "123456789");
        // A product area that lies behind the image.
        replace(5, Bytes(size, 0x01));
        platform.ipmi.when(reads(5, 0), [&] {
            Bytes answer(size, 0x00);
            answer[4] = 0x01;
            answer.insert(answer.begin(), static_cast<uint8_t>(size));
            return ipmi_data(answer);
        }());

        EXPECT_EQ(UpdateComponentVPDCache(), 0);

        EXPECT_STREQ(cached(5)->ppin, "") << size;
        ASSERT_EQ(DestroyComponentVPDCache(), 0);
    }
}

TEST_F(PpinTest, IsTheWholeImageOfNineBytes) {
    EXPECT_EQ(ppin_of({' ', 0x02, 0, 0, 0x01, 0, 0, 0, 'x'}), "") << "a blank and a control character are trimmed";
}

TEST_F(PpinTest, IsTakenBeforeTheFieldsOfTheProduct) {
    Bytes image = FruImage().product({.part = "model"}).padded_to(128).build();
    std::fill(image.end() - 9, image.end(), 'x');
    create_cache({{5, image, processor}});
    const ComponentVpdRecord* const record = cached(5);
    std::string at_publication;
    platform.configuration_write.during([&](const ConfigurationWrite& write) {
        if (write.name == "TARN_STR_PART_NUM_05") at_publication = record->ppin;
    });

    UpdateComponentVPDCache();

    EXPECT_EQ(at_publication, "xxxxxxxxx");
}

TEST_F(PpinTest, IsNotTakenByACreation) {
    create_cache({{5, product_with_tail("123456789"), processor}});

    EXPECT_STREQ(cached(5)->ppin, "");
}

TEST_F(PpinTest, IsTakenForEveryEntity) {
    create_cache({{5, product_with_tail("123456789"), 7}});
    UpdateComponentVPDCache();

    EXPECT_STREQ(cached(5)->ppin, "123456789");
}

TEST_F(PpinTest, StaysWhenTheImageGetsABoard) {
    create_cache({{5, product_with_tail("123456789"), processor}});
    UpdateComponentVPDCache();
    replace(5, complete("maker").padded_to(256));
    UpdateComponentVPDCache();

    EXPECT_STREQ(cached(5)->ppin, "123456789");
}

TEST_F(PpinTest, StaysWhenThereIsNoMemoryForTheDumpAndTheFieldsAreTaken) {
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer's allocator is in the way";
    create_cache({{5, product_with_tail("123456789"), processor}});
    UpdateComponentVPDCache();
    Bytes image = FruImage().product({"other"}).padded_to(128).build();
    std::fill(image.end() - 9, image.end(), 'x');
    replace(5, image);
    std::string printed;
    {
        const CaptureStderr captured;
        constexpr std::size_t image_buffer = 1;
        const AllocationWatch failing(image_buffer + 1);
        UpdateComponentVPDCache();
        printed = captured.text();
    }

    EXPECT_STREQ(cached(5)->ppin, "123456789");
    EXPECT_STREQ(cached(5)->mfg_id, "other");
    EXPECT_EQ(printed, "malloc: Cannot allocate memory\n");
}

// ---- neither area, multirecords

TEST_F(UpdateTest, ReportsAnImageWithNeitherAreaAndNoMultirecords) {
    create_cache({{5, FruImage().chassis({}).build()}});
    cached(5)->is_cached = 0;

    EXPECT_EQ(UpdateComponentVPDCache(), 0);

    ASSERT_THAT(platform.log(), SizeIs(2));
    EXPECT_TRUE(update_logged(warning, " - Product and Board are empty, fruid=5, fru name=FRU 5"));
    EXPECT_TRUE(update_logged(warning, " - MultiRecord is empty, fruid=5, fru name=FRU 5"));
    EXPECT_THAT(platform.log()[1].text, HasSubstr("MultiRecord"));
    EXPECT_EQ(cached(5)->is_cached, 1);
    EXPECT_THAT(part_numbers(), IsEmpty());
}

TEST_F(UpdateTest, MarksAnImageWithAnyOneAreaAsCached) {
    const std::pair<const char*, FruImage> images[] = {{"chassis", FruImage().chassis({})},
                                                       {"board", FruImage().board({})},
                                                       {"product", FruImage().product({})},
                                                       {"multirecords", FruImage().multirecord(0x01, {})}};
    create_cache({{5, complete("maker").build()}});
    for (const auto& [area, image] : images) {
        replace(5, image);
        cached(5)->is_cached = 0;
        UpdateComponentVPDCache();
        EXPECT_EQ(cached(5)->is_cached, 1) << area;
    }
    replace(5, FruImage().internal_use({1}));
    cached(5)->is_cached = 0;
    UpdateComponentVPDCache();
    EXPECT_EQ(cached(5)->is_cached, 0) << "nothing to decode";
}

TEST_F(UpdateTest, LeavesTheTextsOfAnImageThatLostItsAreas) {
    const auto record = updated(complete("maker"), FruImage().multirecord(0x01, {}));

    EXPECT_STREQ(record.mfg_id, "maker");
    EXPECT_STREQ(record.serial_number, "serial");
    EXPECT_EQ(record.is_cached, 1);
    EXPECT_THAT(platform.log(), SizeIs(1));
    EXPECT_TRUE(update_logged(warning, " - Product and Board are empty, fruid=5, fru name=FRU 5"));
}

TEST_F(UpdateTest, ReportsABoardWithoutMultirecords) {
    updated(board("maker"));

    EXPECT_THAT(platform.log(), SizeIs(1));
    EXPECT_TRUE(update_logged(warning, " - MultiRecord is empty, fruid=5, fru name=FRU 5"));
}

TEST_F(UpdateTest, ReportsAProductWithoutMultirecords) {
    updated(FruImage().product({"maker"}));

    EXPECT_THAT(platform.log(), SizeIs(1));
    EXPECT_TRUE(update_logged(warning, " - MultiRecord is empty, fruid=5, fru name=FRU 5"));
}

// ---- power supplies

/// A power supply with its firmware versions behind the first custom field.
FruImage supply(const char* primary, const char* secondary) {
    return FruImage()
        .board({.manufacturer = "maker",
                .serial = "serial",
                .custom = {"extra", "1.", "2.", "3.", "4.", "5.", "6.", "7.", primary, secondary}})
        .multirecord(0x01, {});
}

TEST_F(UpdateTest, RefreshesTheFirmwareVersionsOfAPowerSupply) {
    const auto record = updated(supply("1.00", "2.00"), supply("1.02", "3.04"), power_supply);

    EXPECT_STREQ(record.psu_fw.primary, "1.02");
    EXPECT_STREQ(record.psu_fw.secondary, "3.04");
}

TEST_F(UpdateTest, ReportsAPowerSupplyWithoutVersionsUnderItsOwnName) {
    updated(supply("1.00", "2.00"), complete("maker"), power_supply);

    EXPECT_TRUE(platform.logged(error, update_line("get FRU 5 fw version failed")));
    EXPECT_EQ(total("tarn_var_total_enabled_power_supply"), 1);
}

TEST_F(UpdateTest, PublishesAPowerSuppliesPartNumberBeforeItTakesTheVersions) {
    create_cache({{5, FruImage().board({.part = "part"}).build(), power_supply}});

    const auto lines = journal_of_update();

    const auto published = std::find(lines.begin(), lines.end(), "set TARN_STR_PART_NUM_05");
    const auto failed = std::find(lines.begin(), lines.end(), "log 11 " + update_line("get FRU 5 fw version failed"));
    ASSERT_NE(failed, lines.end());
    EXPECT_LT(published, failed);
}

TEST_F(UpdateTest, CountsThePowerSuppliesThatCouldBeRead) {
    create_cache({{1, supply("1.00", "2.00").build(), power_supply},
                  {2, FruImage().internal_use({1}).build(), power_supply},
                  {3, {}, power_supply},
                  {4, supply("1.00", "2.00").build(), power_supply},
                  {5, supply("1.00", "2.00").build(), 0x0B},
                  {6, ddr4(), power_supply, dimm}});
    platform.ipmi.when(reads(4, 0), ipmi_completion(0xCB));
    UpdateComponentVPDCache();

    EXPECT_EQ(platform.written("tarn_var_total_enabled_power_supply"),
              number_variable("tarn_var_total_enabled_power_supply", 2, 1));
}

// ---- processors

/// A processor with this model and, in its OEM record, this number of threads.
Bytes processor_image(const char* model, const char* threads) {
    OemProcessor oem;
    oem.texts[3] = threads;
    oem.trailing = {0xC1, 0, 0};
    return FruImage()
        .product({.manufacturer = "maker", .version = model})
        .multirecord(OemProcessor::record_type, oem.data())
        .build();
}

class ProcessorTest : public UpdateTest {
protected:
    /// A cache with these processors, updated once.
    void update_processors(const std::vector<Bytes>& images) {
        std::vector<Component> components;
        for (const Bytes& image : images) {
            components.push_back({static_cast<uint8_t>(components.size() + 1), image, processor});
        }
        create_cache(components);
        UpdateComponentVPDCache();
    }
    std::string first_model() const {
        const auto write = platform.written("tarn_var_first_cpu_model");
        return write ? std::get<std::string>(write->value) : "not written";
    }
};

TEST_F(ProcessorTest, AreCountedWithTheirLogicalProcessors) {
    update_processors({processor_image("model A", "28"), processor_image("model B", "100")});

    EXPECT_EQ(platform.written("tarn_var_total_cpu_count"), number_variable("tarn_var_total_cpu_count", 2, 1));
    EXPECT_EQ(platform.written("tarn_var_total_logical_cpu_count"),
              number_variable("tarn_var_total_logical_cpu_count", 128, 1));
    EXPECT_EQ(platform.written("tarn_var_first_cpu_model"),
              counted_text_variable("tarn_var_first_cpu_model", "model A", 1));
}

TEST_F(ProcessorTest, LendTheFirstModelThatIsNotEmpty) {
    update_processors({processor_image("", "1."), processor_image("model B", "1."), processor_image("model C", "1.")});

    EXPECT_EQ(first_model(), "model B");
}

TEST_F(ProcessorTest, WithoutAProductVersionPublishAnEmptyModel) {
    update_processors({processor_image("", "12"), complete("board").build()});

    EXPECT_EQ(platform.written("tarn_var_first_cpu_model"), counted_text_variable("tarn_var_first_cpu_model", "", 1));
    EXPECT_EQ(total("tarn_var_total_cpu_count"), 2);
}

TEST_F(ProcessorTest, LendTheLongestModelWhole) {
    update_processors({processor_image(std::string(63, 'M').c_str(), "1.")});

    EXPECT_EQ(first_model(), std::string(63, 'M'));
}

TEST_F(ProcessorTest, LendAModelThatFillsItsField) {
    create_cache({{1, complete("maker").build(), processor}});
    const std::string model(64, 'M');  // as a record from the log may have it: no field of an image is that long
    std::strcpy(cached(1)->product_version, model.c_str());
    UpdateComponentVPDCache();

    EXPECT_EQ(platform.written("tarn_var_first_cpu_model"),
              counted_text_variable("tarn_var_first_cpu_model", model, 1));
}

TEST_F(ProcessorTest, AreCountedAlsoWithNeitherArea) {
    update_processors({FruImage().internal_use({1}).build()});

    EXPECT_EQ(total("tarn_var_total_cpu_count"), 1);
    EXPECT_EQ(total("tarn_var_total_logical_cpu_count"), 0);
}

TEST_F(ProcessorTest, StayCachedWhenNothingIsLeftToDecode) {
    update_processors({processor_image("model", "28")});
    platform.fru(1, FruImage().internal_use({1}).build());

    EXPECT_EQ(UpdateComponentVPDCache(), 0);

    EXPECT_EQ(cached(1)->is_cached, 1);
}

TEST_F(ProcessorTest, AreNotCountedWhenTheyCannotBeRead) {
    create_cache({{1, processor_image("a", "12"), processor},
                  {2, processor_image("b", "13"), processor},
                  {3, processor_image("c", "14"), processor},
                  {4, processor_image("d", "15"), 4},
                  {5, processor_image("e", "16"), processor, 4}});
    platform.remove_fru(1);
    platform.ipmi.when(reads(2, 0), ipmi_completion(0xCB));
    UpdateComponentVPDCache();

    EXPECT_EQ(total("tarn_var_total_cpu_count"), 1);
    EXPECT_EQ(total("tarn_var_total_logical_cpu_count"), 14);
}

TEST_F(ProcessorTest, CountTheDecimalNumberAtTheStartOfTheText) {
    const std::pair<const char*, int> texts[] = {
        {"12 threads", 12}, {"010", 10}, {"0x10", 0},  {"many", 0},          {"7up", 7},
        {"+5", 5},          {"", 0},     {"64.5", 64}, {"1000000", 1000000}, {"99999999999999999999", INT32_MAX}};
    for (const auto& [text, threads] : texts) {
        update_processors({processor_image("model", text)});
        EXPECT_EQ(total("tarn_var_total_logical_cpu_count"), threads) << text;
        ASSERT_EQ(DestroyComponentVPDCache(), 0);
    }
}

TEST_F(ProcessorTest, KeepTheProcessorRecordThatTheImageLost) {
    create_cache({{1, processor_image("model", "28"), processor}});
    replace(1, board("maker"));
    UpdateComponentVPDCache();

    EXPECT_STREQ(cached(1)->oem_cpu.text[3], "28");
    EXPECT_EQ(total("tarn_var_total_logical_cpu_count"), 28);
    EXPECT_EQ(first_model(), "model") << "the record still has it";
}

TEST_F(ProcessorTest, GetTheProcessorRecordThatTheImageGained) {
    create_cache({{1, complete("maker").build(), processor}});
    replace(1, processor_image("model", "28"));
    UpdateComponentVPDCache();

    EXPECT_STREQ(cached(1)->oem_cpu.text[3], "28");
    EXPECT_EQ(cached(1)->vpd_format, 2U);
    EXPECT_EQ(total("tarn_var_total_logical_cpu_count"), 28);
}

TEST_F(ProcessorTest, GetTheProcessorRecordThatTheImageHasNow) {
    create_cache({{1, processor_image("model", "28"), processor}});
    ASSERT_EQ(cached(1)->vpd_format, 2U);
    replace(1, processor_image("model", "56"));
    UpdateComponentVPDCache();

    EXPECT_STREQ(cached(1)->oem_cpu.text[3], "56");
    EXPECT_EQ(cached(1)->vpd_format, 2U);
    EXPECT_EQ(total("tarn_var_total_logical_cpu_count"), 56);
}

// ---- totals

TEST_F(ProcessorTest, TotalsAreWrittenInTheirOrder) {
    create_cache({{1, processor_image("model", "28"), processor},
                  {2, supply("1.", "2.").build(), power_supply},
                  module_component(3, ddr4())});
    UpdateComponentVPDCache();

    auto writes = platform.configuration();
    std::erase_if(writes, [](const ConfigurationWrite& write) { return write.name.starts_with("TARN_STR"); });
    EXPECT_THAT(writes, ElementsAre(number_variable("vpdd_comp_sdr_cnt", 3, 0),
                                    number_variable("tarn_var_total_memory_size", 8192, 1),
                                    number_variable("tarn_var_total_cpu_count", 1, 1),
                                    number_variable("tarn_var_total_logical_cpu_count", 28, 1),
                                    counted_text_variable("tarn_var_first_cpu_model", "model", 1),
                                    number_variable("tarn_var_total_enabled_power_supply", 1, 1)));
}

TEST_F(ProcessorTest, TotalsStartAnewInEachUpdate) {
    create_cache({{1, processor_image("model", "28"), processor}, module_component(3, ddr4())});
    UpdateComponentVPDCache();
    UpdateComponentVPDCache();

    EXPECT_EQ(total("vpdd_comp_sdr_cnt"), 2);
    EXPECT_EQ(total("tarn_var_total_cpu_count"), 1);
    EXPECT_EQ(total("tarn_var_total_logical_cpu_count"), 28);
    EXPECT_EQ(total("tarn_var_total_memory_size"), 8192);
}

struct FailedVariable {
    const char* name;
    const char* message;  // null: none
};

class FailedTotalTest : public ProcessorTest, public testing::WithParamInterface<FailedVariable> {};

INSTANTIATE_TEST_SUITE_P(
    EachVariable, FailedTotalTest,
    testing::Values(FailedVariable{"vpdd_comp_sdr_cnt", nullptr},
                    FailedVariable{"tarn_var_total_memory_size", "set TARN(tarn_var_total_memory_size) to 8192 failed"},
                    FailedVariable{"tarn_var_total_cpu_count", "set TARN(tarn_var_total_cpu_count) to 2 failed"},
                    // The processor count's name and value, on purpose.
                    FailedVariable{"tarn_var_total_logical_cpu_count",
                                   "set TARN(tarn_var_total_cpu_count) to 2 failed"},
                    FailedVariable{"tarn_var_first_cpu_model", "set TARN(tarn_var_first_cpu_model) to model failed"},
                    FailedVariable{"tarn_var_total_enabled_power_supply",
                                   "set TARN(tarn_var_total_enabled_power_supply) to 1 failed"}),
    [](const auto& test) { return std::string(test.param.name); });

TEST_P(FailedTotalTest, IsReportedAndTheOthersAreStillWritten) {
    create_cache({{1, processor_image("model", "28"), processor},
                  {2, processor_image("model", "28"), processor},
                  {3, supply("1.", "2.").build(), power_supply},
                  module_component(4, ddr4())});
    platform.configuration_write.fail_when(
        [](const ConfigurationWrite& write) { return write.name == GetParam().name; });

    EXPECT_EQ(UpdateComponentVPDCache(), 0) << "the store has no say in the result";

    std::vector<std::string> failures;
    for (const LogLine& line : platform.log(info)) {
        if (line.text.find("set TARN") != std::string::npos) failures.push_back(line.text);
    }
    if (GetParam().message == nullptr) {
        EXPECT_THAT(failures, IsEmpty());
    } else {
        EXPECT_THAT(failures, ElementsAre(update_line(GetParam().message)));
    }
    EXPECT_TRUE(platform.written("tarn_var_total_enabled_power_supply").has_value());
}

// ---- beside look-ups

TEST_F(UpdateTest, LetsALookUpWaitForTheNewRecord) {
    create_cache({{5, complete("old").build()}, {6, complete("other").build()}});
    replace(5, complete("new"));
    std::future<std::string> maker;  // as a look-up by id finds it
    platform.ipmi.during([&](const IpmiCall& call) {
        if (maker.valid() || call.data.at(0) != 5) return;
        maker = std::async(std::launch::async, [] {
            const uint8_t id = 5;
            uint32_t length = 0;
            ComponentVpdRecord copy{};
            return GetComponentVPDByFruID(&length, sizeof copy, &id, &copy) == 0 ? std::string(copy.mfg_id) : "none";
        });
        constexpr auto moment = std::chrono::milliseconds(50);
        EXPECT_EQ(maker.wait_for(moment), std::future_status::timeout);
    });

    EXPECT_EQ(UpdateComponentVPDCache(), 0);

    EXPECT_EQ(maker.get(), "new");
}

/// Whether the record is wholly of one image: maker and serial number agree.
bool is_whole(const ComponentVpdRecord& record) {
    const std::string_view maker = record.mfg_id, serial = record.serial_number;
    return (maker == "even" && serial == "even serial") || (maker == "odd" && serial == "odd serial");
}

TEST_F(UpdateTest, LookUpsOnOtherThreadsNeverSeeHalfARecord) {
    const Bytes even = FruImage().board({.manufacturer = "even", .serial = "even serial"}).build();
    const Bytes odd = FruImage().board({.manufacturer = "odd", .serial = "odd serial"}).build();
    create_cache({{5, even}, {6, even}, {7, even}});
    const CaptureStdout silence;
    std::atomic<bool> done{false};
    std::atomic<int> found{0}, halves{0}, strange{0};
    const auto note = [&](int result, int without_cache, const ComponentVpdRecord* records, std::size_t count) {
        if (result != 0 && result != without_cache && result != -7) ++strange;
        for (std::size_t i = 0; result == 0 && i < count; ++i) {
            ++found;
            if (!is_whole(records[i])) ++halves;
        }
    };
    const std::function<void()> look_ups[] = {
        [&] {
            const ComponentRequest request{6, 0};
            uint32_t length = 0;
            ComponentVpdRecord copy{};
            note(GetComponentVPD(&length, sizeof copy, &request, &copy), -1, &copy, 1);
        },
        [&] {
            const uint8_t id = 7;
            uint32_t length = 0;
            ComponentVpdRecord copy{};
            note(GetComponentVPDByFruID(&length, sizeof copy, &id, &copy), -1, &copy, 1);
        },
        [&] {
            uint32_t length = 0;
            ComponentVpdRecord copies[4]{};
            const int result = GetComponentVPD_KIVA(&length, sizeof copies, nullptr, copies);
            note(result, -1, copies, length / sizeof copies[0]);
        },
        [&] {
            ComponentVpdRecord* record = nullptr;
            const int result = FindFRURecord(5, &record);
            if (result != 0 && result != -4 && result != -1) ++strange;
        },
    };
    std::vector<std::thread> threads;
    for (const auto& look_up : look_ups) {
        threads.emplace_back([&] {
            for (int i = 0; i < 2000 && !done; ++i) look_up();
        });
    }
    while (found == 0) std::this_thread::yield();

    for (int round = 0; round < 20; ++round) {
        for (const uint8_t id : {5, 6, 7}) platform.fru(id, round % 2 == 0 ? odd : even);
        EXPECT_EQ(UpdateComponentVPDCache(), 0);
    }
    EXPECT_EQ(DestroyComponentVPDCache(), 0);
    create({FruLocator(6, "FRU 6"), FruLocator(7, "FRU 7")});
    EXPECT_EQ(UpdateComponentVPDCache(), 0);
    done = true;
    for (std::thread& thread : threads) thread.join();

    EXPECT_EQ(halves, 0);
    EXPECT_EQ(strange, 0);
    EXPECT_GT(found, 0);
    EXPECT_TRUE(all_locks_are_free());
}

}  // namespace
