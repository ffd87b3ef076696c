// SPDX-License-Identifier: Apache-2.0
#include <numeric>

#include "fake_platform.h"

using namespace vpdd::test;
using testing::Each;
using testing::ElementsAre;
using testing::SizeIs;

namespace {

using ReadFruSize = PlatformTest;

TEST_F(ReadFruSize, AsksForTheAreaOfTheFru) {
    uint32_t size = 0;
    read_fru_size(0x7E, &size);
    EXPECT_THAT(platform.requests(), ElementsAre(IpmiCall{0x0A, 0x10, {0x7E}}));
}

TEST_F(ReadFruSize, TakesTheLeastSignificantByteFirstAndIgnoresTheAccessMode) {
    constexpr uint8_t by_words = 1;
    platform.ipmi.always(ipmi_data({0x34, 0x12, by_words}));
    uint32_t size = 0xFFFFFFFF;
    EXPECT_EQ(read_fru_size(5, &size), 0);
    EXPECT_EQ(size, 0x1234U);
}

TEST_F(ReadFruSize, LeavesTheSizeUntouchedOnFailure) {
    uint32_t size = 99;
    platform.ipmi.always({-1, {0x00, 0x34, 0x12}});
    EXPECT_EQ(read_fru_size(5, &size), -1);
    EXPECT_EQ(size, 99U);
}

TEST_F(ReadFruSize, AsksAlsoWithoutAPlaceForTheSize) {
    platform.ipmi.always(ipmi_data({0x34, 0x12, 0}));
    EXPECT_EQ(read_fru_size(5, nullptr), 0);
    EXPECT_THAT(platform.requests(), ElementsAre(IpmiCall{0x0A, 0x10, {5}}));
}

TEST_F(ReadFruSize, ReportsAnAbsentFru) {
    uint32_t size = 99;
    EXPECT_EQ(read_fru_size(5, &size), VPDD_IPMI_NOT_PRESENT);
    EXPECT_EQ(size, 99U);
}

TEST_F(ReadFruSize, ReadsAnEmptySuccessAsSizeZero) {
    uint32_t size = 99;
    platform.ipmi.always({0, {0x00}, 0});
    EXPECT_EQ(read_fru_size(5, &size), 0);
    EXPECT_EQ(size, 0U);
}

TEST_F(ReadFruSize, TakesNothingFromAnAttemptThatWasRefused) {
    platform.ipmi.then({0, {0xC3, 0x34, 0x12}});
    platform.ipmi.then({0, {0x00}});
    uint32_t size = 99;
    EXPECT_EQ(read_fru_size(5, &size), 0);
    EXPECT_EQ(size, 0U);
}

using ReadFru = PlatformTest;

TEST_F(ReadFru, TakesNothingFromAnAttemptThatWasRefused) {
    platform.ipmi.then({0, {0xC3, 4, 'o', 'l', 'd', '!'}});
    platform.ipmi.then({0, {0x00, 2, 'n', 'e'}});
    Bytes dest(4, 0x5A);
    EXPECT_EQ(read_fru(5, 0, 4, dest.data()), 0);
    EXPECT_THAT(dest, ElementsAre('n', 'e', 0, 0));
}

TEST_F(ReadFru, AsksForOffsetAndCount) {
    Bytes dest(0x40);
    read_fru(0x7E, 0x1234, 0x40, dest.data());
    EXPECT_EQ(platform.requests().at(0), (IpmiCall{0x0A, 0x11, {0x7E, 0x34, 0x12, 0x40}}));
}

TEST_F(ReadFru, CopiesTheDataBehindCompletionCodeAndCount) {
    platform.fru(5, {10, 11, 12, 13, 14});
    Bytes dest(4, 0xEE);
    EXPECT_EQ(read_fru(5, 1, 3, dest.data()), 0);
    EXPECT_THAT(dest, ElementsAre(11, 12, 13, 0xEE));
}

TEST_F(ReadFru, DoesNotCompareTheReturnedCount) {
    platform.ipmi.always(ipmi_data({2, 0xA1, 0xA2}));
    Bytes dest(5, 0xEE);
    EXPECT_EQ(read_fru(5, 0, 5, dest.data()), 0);
    EXPECT_THAT(dest, ElementsAre(0xA1, 0xA2, 0, 0, 0));
}

TEST_F(ReadFru, DiscardsASuccessfulAnswerWithoutADestination) {
    platform.fru(5, {1, 2, 3});
    EXPECT_EQ(read_fru(5, 0, 3, nullptr), 0);
}

TEST_F(ReadFru, CopiesTheRawAnswerOnFailure) {
    platform.ipmi.always({0, {0xC9, 0x11, 0x22}});
    Bytes dest(4, 0xEE);
    EXPECT_EQ(read_fru(5, 0, 4, dest.data()), -1);
    EXPECT_THAT(dest, ElementsAre(0xC9, 0x11, 0x22, 0));
}

TEST_F(ReadFru, CopiesTheRawAnswerOfAnAbsentFru) {
    Bytes dest(3, 0xEE);
    EXPECT_EQ(read_fru(5, 0, 2, dest.data()), VPDD_IPMI_NOT_PRESENT);
    EXPECT_THAT(dest, ElementsAre(0xCB, 0, 0xEE));
}

TEST_F(ReadFru, CopiesZerosWhenTheStackLeftNothing) {
    platform.ipmi.fail_always();
    Bytes dest(3, 0xEE);
    EXPECT_EQ(read_fru(5, 0, 3, dest.data()), -1);
    EXPECT_THAT(dest, Each(0));
}

TEST_F(ReadFru, CopiesNothingForACountOfZero) {
    platform.fru(5, {1, 2, 3});
    Bytes dest{0xEE};
    EXPECT_EQ(read_fru(5, 0, 0, dest.data()), 0);
    EXPECT_THAT(dest, ElementsAre(0xEE));
}

TEST_F(ReadFru, TakesTheLongestAnswer) {
    Bytes image(255);
    std::iota(image.begin(), image.end(), uint8_t{1});
    platform.fru(5, image);
    Bytes dest(255, 0xEE);
    EXPECT_EQ(read_fru(5, 0, 255, dest.data()), 0);
    EXPECT_EQ(dest, image);
}

TEST_F(ReadFru, StatesRoomForTheLongestAnswerAndAByteInEachAttempt) {
    platform.ipmi.fail_at(1);
    platform.fru(5, Bytes(255));
    Bytes dest(255);

    EXPECT_EQ(read_fru(5, 0, 255, dest.data()), 0);

    const auto calls = platform.ipmi.calls();
    ASSERT_THAT(calls, SizeIs(2));
    // Completion code, returned count, 255 bytes of data, and the spare one.
    for (const IpmiCall& call : calls) EXPECT_EQ(call.room, 258U);
}

TEST_F(ReadFru, ReadsNothingBehindAnAnswerOf256Bytes) {
    Bytes answer(255, 0xAA);
    answer[0] = 254;  // returned count
    platform.ipmi.always(ipmi_data(answer));
    Bytes dest(255, 0xEE);
    EXPECT_EQ(read_fru(5, 0, 255, dest.data()), 0);
    EXPECT_THAT(Bytes(dest.begin(), dest.begin() + 254), Each(0xAA));
    EXPECT_EQ(dest[254], 0);
}

}  // namespace
