// SPDX-License-Identifier: Apache-2.0
// What of FRU 0 is published for DCMI's asset tag.
#include <malloc.h>

#include "cache_fixture.h"
#include "failing_allocator.h"

using namespace vpdd::test;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using vpdd::images::Field;
using vpdd::images::FruArea;
using vpdd::images::FruImage;
using vpdd::images::ProductArea;

namespace {

constexpr char function[] = "UpdateFRUID0InfoToTARNForDCMI";

class DcmiTest : public ComponentCacheTest {
protected:
    static ConfigurationWrite type(int32_t value) { return number_variable("fru_product_asset_tl_type", value, 1); }
    static ConfigurationWrite language(int32_t value) { return number_variable("fru_product_lang_code", value, 1); }

    static ProductArea product(const Field& asset_tag) {
        return {.manufacturer = "maker",
                .name = "server",
                .part = "part",
                .version = "version",
                .serial = "serial",
                .asset_tag = asset_tag,
                .language = 9};
    }
    int export_of(const Bytes& image) {
        platform.fru(0, image);
        return UpdateFRUID0InfoToTARNForDCMI();
    }
};

TEST_F(DcmiTest, PublishesTheTypeOfTheAssetTagThenTheLanguage) {
    EXPECT_EQ(export_of(FruImage().product(product("asset")).build()), 0);

    EXPECT_THAT(platform.configuration(), ElementsAre(type(3), language(9)));
    EXPECT_TRUE(platform.logged_nothing());
}

TEST_F(DcmiTest, PublishesEachType) {
    export_of(FruImage().product(product(Field::binary({1, 2}))).build());
    export_of(FruImage().product(product(Field::bcd_plus({1, 2}))).build());
    export_of(FruImage().product(product(Field::six_bit("ABCD"))).build());

    EXPECT_THAT(platform.configuration(),
                ElementsAre(type(0), language(9), type(1), language(9), type(2), language(9)));
}

TEST_F(DcmiTest, PublishesTheTypeOfAnEmptyAssetTag) {
    export_of(FruImage().product(product(Field::raw(0x80, {}))).build());

    EXPECT_THAT(platform.configuration(), ElementsAre(type(2), language(9)));
}

TEST_F(DcmiTest, StepsOverEmptyFields) {
    ProductArea area = product(Field::bcd_plus({1}));
    area.name = Field::raw(0x00, {});
    area.serial = Field::raw(0xC0, {});

    export_of(FruImage().product(area).build());

    EXPECT_THAT(platform.configuration(), ElementsAre(type(1), language(9)));
}

TEST_F(DcmiTest, TakesTheEndMarkerInPlaceOfTheAssetTagForItsType) {
    // The five fields, then the end: the position stands on 0xC1.
    Bytes area{1, 0, 9, 0, 0, 0, 0, 0, 0xC1};
    area.resize(16);

    export_of(FruImage().raw_area(FruArea::product, area).build());

    EXPECT_THAT(platform.configuration(), ElementsAre(type(3), language(9)));
}

TEST_F(DcmiTest, PublishesType0WhenTheListEndsBeforeTheAssetTag) {
    Bytes area{1, 0, 9, 0, 0, 0, 0, 0xC1, 0xFF, 0xFF};
    area.resize(16, 0xFF);

    EXPECT_EQ(export_of(FruImage().raw_area(FruArea::product, area).build()), 0);

    EXPECT_THAT(platform.configuration(), ElementsAre(type(0), language(9)));
}

TEST_F(DcmiTest, PublishesType0WhenAFieldRunsOverTheEndOfTheImage) {
    const Bytes area{1, 0, 9, 0xC4, 'a', 'b', 'c', 'd', 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};

    EXPECT_EQ(export_of(FruImage().raw_area(FruArea::product, area).build()), 0);

    EXPECT_THAT(platform.configuration(), ElementsAre(type(0), language(9)));
}

TEST_F(DcmiTest, PublishesNothingWithoutAProductArea) {
    EXPECT_EQ(export_of(FruImage().board({"maker"}).build()), 0);

    EXPECT_THAT(platform.configuration(), IsEmpty());
    EXPECT_TRUE(platform.logged_nothing());
}

TEST_F(DcmiTest, FindsAProductAreaAtItsHighestOffset) {
    export_of(FruImage().product(product(Field::bcd_plus({1}))).area_offset(FruArea::product, 63).build());

    EXPECT_THAT(platform.configuration(), ElementsAre(type(1), language(9)));
}

TEST_F(DcmiTest, ReadsNothingOutsideAnImageThatEndsBeforeItsProductArea) {
    for (const std::size_t size : {8U, 16U, 256U, 504U}) {
        Bytes image{1, 0, 0, 0, 63, 0, 0, 0};
        image.resize(size);
        EXPECT_EQ(export_of(image), 0);
        EXPECT_EQ(platform.configuration().back(), language(0)) << size;
    }
    EXPECT_EQ(platform.configuration()[0], type(0));
}

TEST_F(DcmiTest, ReadsTheImageInChunksOf128Bytes) {
    for (const std::size_t size : {64U, 128U, 129U, 256U, 257U, 300U, 600U, 65535U}) {
        const std::size_t before = platform.requests().size();
        EXPECT_EQ(export_of(FruImage().product(product("x")).padded_to(size).build()), 0);
        auto requests = platform.requests();
        requests.erase(requests.begin(), requests.begin() + static_cast<std::ptrdiff_t>(before));
        EXPECT_EQ(requests, requests_for(0, size));
    }
}

TEST_F(DcmiTest, ReadsOneEmptyChunkOfAnEmptyImage) {
    platform.ipmi.when([](const IpmiCall& call) { return call.is(netfn_storage, area_info); }, ipmi_data({0, 0, 0}));
    platform.ipmi.when(reads(0, 0), ipmi_data({0}));

    EXPECT_EQ(UpdateFRUID0InfoToTARNForDCMI(), 0);

    EXPECT_THAT(platform.requests(), ElementsAre(IpmiCall{0x0A, 0x10, {0}}, IpmiCall{0x0A, 0x11, {0, 0, 0, 0}}));
    EXPECT_THAT(platform.configuration(), IsEmpty()) << "no product area";
}

TEST_F(DcmiTest, ReportsASizeAbove256) {
    Bytes image = FruImage().product(product("asset")).build();
    image.resize(256);
    export_of(image);
    EXPECT_TRUE(platform.logged_nothing());

    image.resize(257);
    EXPECT_EQ(export_of(image), 0);

    EXPECT_TRUE(platform.logged_at_line(warning, function, " - FRU size is larger than 256, fru_size=257"));
    EXPECT_THAT(platform.log(), SizeIs(1));
    EXPECT_THAT(platform.configuration(), ElementsAre(type(3), language(9), type(3), language(9)));
}

TEST_F(DcmiTest, FailsWithoutASize) {
    EXPECT_EQ(UpdateFRUID0InfoToTARNForDCMI(), -1);

    EXPECT_TRUE(platform.logged_at_line(warning, function, " - Failed to call read_fru_size()!"));
    EXPECT_THAT(platform.log(), SizeIs(1));
    EXPECT_THAT(platform.configuration(), IsEmpty());
}

TEST_F(DcmiTest, FailsSilentlyOnAChunkThatCannotBeRead) {
    for (const std::size_t offset : {0U, 128U, 256U}) {
        platform.ipmi.when(reads(0, offset), ipmi_completion(0xCB));
        EXPECT_EQ(export_of(FruImage().product(product("asset")).padded_to(300).build()), -1) << offset;
        platform.ipmi.reset();
    }
    EXPECT_THAT(platform.configuration(), IsEmpty());
    for (const LogLine& line : platform.log()) {
        EXPECT_THAT(line.text, testing::HasSubstr("FRU size is larger than 256, fru_size=300"));
    }
}

TEST_F(DcmiTest, DoesNotTestTheResultsOfTheStore) {
    platform.configuration_write.fail_always();

    EXPECT_EQ(export_of(FruImage().product(product("asset")).build()), 0);

    EXPECT_THAT(platform.configuration(), SizeIs(2));
    EXPECT_TRUE(platform.logged_nothing());
}

TEST_F(DcmiTest, FailsWithoutMemoryForItsScratchBlock) {
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer's allocator is in the way";
    const AllocationWatch failing(1);

    EXPECT_EQ(export_of(FruImage().product(product("asset")).build()), -1);

    EXPECT_EQ(failing.live_blocks(), 0U);
    EXPECT_THAT(
        platform.log(),
        ElementsAre(LogLine{warning, formatted("pid=%d,%s - ERROR:Allocate memory failed", getpid(), function)}));
    EXPECT_THAT(platform.requests(), IsEmpty());
}

TEST_F(DcmiTest, FailsWithoutMemoryForTheImage) {
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer's allocator is in the way";
    const AllocationWatch failing(2);

    EXPECT_EQ(export_of(FruImage().product(product("asset")).padded_to(300).build()), -1);

    EXPECT_TRUE(platform.logged_at_line(warning, function, " - realloc FRU data fail"));
    EXPECT_THAT(platform.log(), ElementsAre(testing::Field(&LogLine::text, HasSubstr("FRU size is larger than 256")),
                                            testing::Field(&LogLine::text, HasSubstr("realloc FRU data fail"))));
    EXPECT_THAT(platform.requests(), SizeIs(1));
    EXPECT_EQ(failing.live_blocks(), 0U);
}

TEST_F(DcmiTest, AsksForRoomForOneMoreComponentBeforeItReads) {
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer's allocator is in the way";
    const AllocationWatch watch;
    std::vector<std::size_t> sizes;
    platform.ipmi.during([&](const IpmiCall& call) {
        if (!call.is(netfn_storage, area_info)) return;
        for (const void* block : watch.blocks()) sizes.push_back(malloc_usable_size(const_cast<void*>(block)));
    });

    export_of(FruImage().build());

    EXPECT_THAT(sizes, ElementsAre(testing::Ge(sizeof(ComponentVpdNode))));
}

TEST_F(DcmiTest, GivesBackEverythingItAllocatedWhateverTheEnd) {
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer's allocator is in the way";
    const AllocationWatch watch;

    EXPECT_EQ(UpdateFRUID0InfoToTARNForDCMI(), -1);
    EXPECT_EQ(watch.live_blocks(), 0U) << "no size";
    EXPECT_EQ(export_of(FruImage().product(product("asset")).padded_to(300).build()), 0);
    EXPECT_EQ(watch.live_blocks(), 0U) << "published";
    EXPECT_EQ(export_of(FruImage().build()), 0);
    EXPECT_EQ(watch.live_blocks(), 0U) << "no product";
    platform.ipmi.when(reads(0, 128), ipmi_completion(0xCB));
    EXPECT_EQ(export_of(FruImage().product(product("asset")).padded_to(300).build()), -1);
    EXPECT_EQ(watch.live_blocks(), 0U) << "no second chunk";
    EXPECT_GT(watch.allocations(), 4U);
}

}  // namespace
