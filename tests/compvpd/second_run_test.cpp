// SPDX-License-Identifier: Apache-2.0
// A creation that finds the nodes of one that ended early: what it leaves of the first one's records.
#include <pthread.h>

#include "module_fixture.h"
#include "node_among.h"
#include "own_process.h"

using namespace vpdd::test;
using testing::SizeIs;
using vpdd::images::FruImage;
using vpdd::images::FruLocator;
using vpdd::images::OemProcessor;

namespace {

class SecondRunTest : public ModuleCacheTest {
protected:
    SecondRunTest() { platform.fru(0, FruImage().build()); }

    /// Decodes FRU 5 and ends at the module behind it, which has no size. The next run can read that one.
    void first_run(const Bytes& image, const FruLocator& locator = FruLocator(5, "FRU 5")) {
        platform.fru(5, image);
        platform.fru(9, ddr5(0x80));
        repository({locator, module(9, "DIMM 9")});
        {
            const LeaksOnPurpose the_image;
            ASSERT_EQ(CreateComponentVPDCache(), -1);
        }
        pthread_mutex_unlock(&compvpd_access_mutex);
        platform.fru(9, ddr5());
    }
    /// The first run's record of FRU 5 after the second.
    ComponentVpdRecord second_run() {
        create();
        EXPECT_THAT(records(), SizeIs(4));
        return *cached(5);
    }
    ComponentVpdRecord second_run(const FruImage& image) {
        platform.fru(5, image.build());
        return second_run();
    }

    /// The same, and the record itself that the first run has left.
    ComponentVpdRecord* record_of_first_run(const Bytes& image, const FruLocator& locator = FruLocator(5, "FRU 5")) {
        const AllocationWatch watch;
        first_run(image, locator);
        ComponentVpdNode* const node = node_among(watch, 5);
        return node != nullptr ? &node->record : nullptr;
    }

    void fail_chunk(std::size_t offset) { platform.ipmi.when(reads(5, offset), ipmi_completion(0xCB)); }

    static Bytes board() { return FruImage().board({.manufacturer = "maker"}).padded_to(300).build(); }
};

/// A text with zeros behind it to the end of its field.
template <std::size_t Size>
testing::AssertionResult fills(const char (&field)[Size], std::string_view text) {
    std::string expected(text);
    expected.resize(Size);
    if (std::string(field, Size) == expected) return testing::AssertionSuccess();
    return testing::AssertionFailure() << testing::PrintToString(std::string(field, Size));
}

TEST_F(SecondRunTest, MarksAFruWhoseImageIsGoneAsNotCached) {
    first_run(board());
    platform.remove_fru(5);

    EXPECT_EQ(second_run().is_cached, 0);
}

TEST_F(SecondRunTest, MarksAFruWithAFailedChunkAsNotCached) {
    for (const std::size_t offset : {0U, 128U, 256U}) {
        const auto fails = [&] {
            first_run(board());
            fail_chunk(offset);
            EXPECT_EQ(second_run().is_cached, 0);
            return HasFailure() ? 1 : 0;
        };
        EXPECT_TRUE(succeeds_in_own_process(fails)) << offset;
    }
}

TEST_F(SecondRunTest, MarksAModuleWithAFailedChunkAsNotCached) {
    for (const std::size_t offset : {0U, 128U, 384U}) {
        const auto fails = [&] {
            first_run(ddr4(), module(5, "DIMM 5"));
            fail_chunk(offset);
            EXPECT_EQ(second_run().is_cached, 0);
            return HasFailure() ? 1 : 0;
        };
        EXPECT_TRUE(succeeds_in_own_process(fails)) << offset;
    }
}

TEST_F(SecondRunTest, MarksAFruThatCanStillBeReadAsCached) {
    first_run(board());

    EXPECT_EQ(second_run().is_cached, 1);
}

TEST_F(SecondRunTest, NamesTheMakerThatTheFirstRunReadOfAFruThatFails) {
    first_run(board());
    fail_chunk(128);
    second_run();

    EXPECT_TRUE(
        platform.logged_at_line(error, "CreateComponentVPDCache",
                                " Read FRU fail! FRU_NAME=FRU 5, FRU_ID=5, mfg_id=maker board=(nil), product=(nil), "
                                "fru_size=172, offset=128"));
}

TEST_F(SecondRunTest, KeepsTheTextsOfAFruThatFails) {
    first_run(board());
    fail_chunk(0);

    EXPECT_TRUE(fills(second_run().mfg_id, "maker"));
}

const std::string long_text(60, 'x');

TEST_F(SecondRunTest, ClearsTheTargetsOfABoardBeforeItFillsThem) {
    first_run(
        FruImage()
            .board({.manufacturer = long_text, .serial = long_text, .part = long_text, .custom = {long_text, "more"}})
            .build());
    const auto record =
        second_run(FruImage().board({.manufacturer = "m1", .serial = "s1", .part = "p1", .custom = {"e1"}}));

    EXPECT_TRUE(fills(record.mfg_id, "m1"));
    EXPECT_TRUE(fills(record.serial_number, "s1"));
    EXPECT_TRUE(fills(record.part_number, "p1"));
    EXPECT_TRUE(fills(record.board_extra, "e1"));
}

TEST_F(SecondRunTest, ClearsTheTargetsOfAProductBeforeItFillsThem) {
    first_run(FruImage().product({.manufacturer = long_text, .version = long_text, .serial = long_text}).build());
    const auto record = second_run(FruImage().product({.manufacturer = "m1", .version = "v1", .serial = "s1"}));

    EXPECT_TRUE(fills(record.mfg_id, "m1"));
    EXPECT_TRUE(fills(record.product_version, "v1"));
    EXPECT_TRUE(fills(record.part_number, "v1"));
    EXPECT_TRUE(fills(record.serial_number, "s1"));
}

TEST_F(SecondRunTest, EmptiesATargetWhoseFieldHasNoDataAnyMore) {
    first_run(FruImage().board({.manufacturer = long_text, .serial = long_text, .part = long_text}).build());
    const auto record = second_run(FruImage().board({.part = "p1"}));

    EXPECT_TRUE(fills(record.mfg_id, ""));
    EXPECT_TRUE(fills(record.serial_number, ""));
    EXPECT_TRUE(fills(record.part_number, "p1"));
}

TEST_F(SecondRunTest, ClearsAModuleBeforeItIsDecoded) {
    first_run(ddr4(), module(5, "DIMM 5"));
    Bytes image = ddr4();
    image[2] = 0x01;  // a memory type that is passed over
    platform.fru(5, image);

    const auto record = second_run();
    EXPECT_TRUE(is_cleared(record.spd_info));
    EXPECT_EQ(record.is_cached, 0);
}

TEST_F(SecondRunTest, TakesTheProcessorRecordAgain) {
    const auto image = [](const char* threads) {
        OemProcessor oem;
        oem.texts[3] = threads;
        oem.trailing = {0xC1, 0, 0};
        return FruImage().multirecord(OemProcessor::record_type, oem.data());
    };
    first_run(image("28").build());

    const auto record = second_run(image("56"));
    EXPECT_EQ(record.vpd_format, 2U);
    EXPECT_STREQ(record.oem_cpu.text[3], "56");
}

TEST_F(SecondRunTest, ResetsTheStatusOfARecordAndTakesItsNameAgain) {
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer's allocator is in the way";
    ComponentVpdRecord* const record = record_of_first_run(board());
    ASSERT_NE(record, nullptr);
    ASSERT_STREQ(record->name, "FRU 5");
    record->status = 255;
    record->timestamp = 0x123456789;
    std::strcpy(record->name, "another name");

    second_run();

    ASSERT_EQ(cached(5), record);
    EXPECT_EQ(record->status, 0);
    EXPECT_EQ(record->timestamp, 0);
    EXPECT_TRUE(fills(record->name, "FRU 5"));
}

TEST_F(SecondRunTest, MarksAProcessorCartridgeWhateverItsFormatWas) {
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer's allocator is in the way";
    ComponentVpdRecord* const record =
        record_of_first_run(board(), FruLocator(5, "cartridge").modifier(3).entity(4, 2));
    ASSERT_NE(record, nullptr);
    record->vpd_format = 2;

    second_run();

    EXPECT_EQ(record->vpd_format, 3U);
}

}  // namespace
