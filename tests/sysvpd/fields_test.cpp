// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <memory>
#include <string>

#include "fake_platform.h"
#include "orva_vpdd.h"

using namespace vpdd::test;
using namespace std::string_literals;
using testing::IsEmpty;

namespace {

constexpr int failure_level = 4;

class ReadField : public PlatformTest {
protected:
    /// The bytes of a zeroed destination of `max_length` bytes and a terminator after the read.
    std::string read(uint32_t id, uint32_t max_length) {
        const auto dest = std::make_unique<uint8_t[]>(max_length + 1);
        result = sysvpd_read_field(id, max_length, dest.get());
        return {reinterpret_cast<char*>(dest.get()), max_length + 1};
    }

    int result = -99;
};

TEST_F(ReadField, AsksTheSystemVpdForTheSizeAndForThatManyBytes) {
    platform.field(7, "\x12\x34"s);

    EXPECT_EQ(read(7, 2), "\x12\x34\0"s);

    EXPECT_EQ(result, 1);
    const auto sizes = platform.field_size.calls();
    const auto reads = platform.field_read.calls();
    ASSERT_EQ(sizes.size(), 1u);
    EXPECT_EQ(sizes[0].instance, 0u);
    EXPECT_EQ(sizes[0].id, 7u);
    ASSERT_EQ(reads.size(), 1u);
    EXPECT_EQ(reads[0].instance, 0u);
    EXPECT_EQ(reads[0].id, 7u);
    EXPECT_EQ(reads[0].size, 2u);
    EXPECT_THAT(platform.trace(), IsEmpty());
}

TEST_F(ReadField, ReturnsTheDevicesOwnResult) {
    platform.field_size.always(1);
    platform.field_read.always({-7, {'x'}});

    EXPECT_EQ(read(5, 1), "x\0"s);

    EXPECT_EQ(result, -7);
}

TEST_F(ReadField, CopiesNoMoreThanTheCallerAsksFor) {
    platform.field(8, "ABCDEFGH");
    uint8_t dest[] = "........";

    EXPECT_EQ(sysvpd_read_field(8, 3, dest), 1);

    EXPECT_STREQ(reinterpret_cast<char*>(dest), "ABC.....");
    EXPECT_EQ(platform.field_read.calls().at(0).size, 8u);
}

TEST_F(ReadField, CopiesNoMoreThanTheFieldHolds) {
    platform.field(8, "ABC");
    uint8_t dest[] = "........";

    EXPECT_EQ(sysvpd_read_field(8, 8, dest), 1);

    EXPECT_STREQ(reinterpret_cast<char*>(dest), "ABC.....");
}

TEST_F(ReadField, CopiesNothingOfAFieldWithoutSize) {
    platform.field_size.always(0);
    platform.field_read.always({1, {}});
    uint8_t dest[] = "old";

    EXPECT_EQ(sysvpd_read_field(9, 3, dest), 1);

    EXPECT_STREQ(reinterpret_cast<char*>(dest), "old");
}

TEST_F(ReadField, RefusesAFieldOf1024Bytes) {
    platform.field_size.always(1024);
    uint8_t dest[] = "old";

    EXPECT_EQ(sysvpd_read_field(0x6C, 3, dest), 0);

    EXPECT_EQ(platform.field_read.count(), 0u);
    EXPECT_STREQ(reinterpret_cast<char*>(dest), "old");
    EXPECT_EQ(platform.trace().size(), 1u);
    EXPECT_TRUE(platform.traced(failure_level, "sysvpd_read_field", "UNSUPPORT FIELD[0000006c] SIZE[1024]"));
}

TEST_F(ReadField, RefusesASizeWithItsHighestBitSet) {
    platform.field_size.always(0xFFFFFFFF);
    uint8_t dest[4] = {};

    EXPECT_EQ(sysvpd_read_field(9, 3, dest), 0);

    EXPECT_EQ(platform.field_read.count(), 0u);
}

TEST_F(ReadField, ReadsAFieldOf1023Bytes) {
    platform.field(48, std::string(1023, 'P'));

    EXPECT_EQ(read(48, 1023), std::string(1023, 'P') + '\0');
    EXPECT_EQ(result, 1);
}

TEST_F(ReadField, ReportsAReadThatFails) {
    platform.field_size.always(4);
    platform.field_read.always({0, {'j', 'u', 'n', 'k'}});
    uint8_t dest[] = "old.";

    EXPECT_EQ(sysvpd_read_field(0xABC, 4, dest), 0);

    EXPECT_STREQ(reinterpret_cast<char*>(dest), "old.");
    EXPECT_EQ(platform.trace().size(), 1u);
    EXPECT_TRUE(platform.traced(failure_level, "sysvpd_read_field", "c_vpd_read_field FAIL, offset[00000abc]"));
    EXPECT_TRUE(platform.logged_nothing());
}

TEST_F(ReadField, HandsTheDeviceAZeroedBuffer) {
    platform.field_size.always(6);
    platform.field_read.always({1, {'A', 'B'}});

    EXPECT_EQ(read(8, 6), "AB\0\0\0\0\0"s);
}

// ---- padding

class FieldPadding : public ReadField, public testing::WithParamInterface<uint32_t> {
protected:
    std::string text_of(const std::string& content, uint32_t max_length) {
        platform.field(GetParam(), content);
        return read(GetParam(), max_length).c_str();
    }
};

using LeftField = FieldPadding;
using RightField = FieldPadding;
using OemField = FieldPadding;

constexpr uint32_t left_ids[] = {10, 11, 12, 13, 48, 49, 50, 51, 52, 53, 54, 58};
constexpr uint32_t right_ids[] = {9, 14, 46, 57};
constexpr uint32_t oem_ids[] = {60, 61, 62, 63, 65};

INSTANTIATE_TEST_SUITE_P(Ids, LeftField, testing::ValuesIn(left_ids));
INSTANTIATE_TEST_SUITE_P(Ids, RightField, testing::ValuesIn(right_ids));
INSTANTIATE_TEST_SUITE_P(Ids, OemField, testing::ValuesIn(oem_ids));

TEST_P(LeftField, LosesItsTrailingSpaces) { EXPECT_EQ(text_of("  AB  ", 8), "  AB"); }

TEST_P(LeftField, OfSpacesBecomesEmpty) { EXPECT_EQ(text_of("    ", 8), ""); }

TEST_P(LeftField, IsCutBeforeItIsPadded) { EXPECT_EQ(text_of("AB  CD", 4), "AB"); }

TEST_P(RightField, LosesItsLeadingSpaces) { EXPECT_EQ(text_of("  AB  ", 8), "AB  "); }

TEST_P(RightField, OfSpacesStaysAsItIs) { EXPECT_EQ(text_of("    ", 8), "    "); }

TEST_P(RightField, IsCutBeforeItIsPadded) { EXPECT_EQ(text_of("  ABCD", 4), "AB"); }

TEST_P(OemField, YieldsTheTextBehindItsFirstZero) {
    EXPECT_EQ(text_of("\0XYZ"s + std::string(28, '\0'), 33), "XYZ");
    EXPECT_EQ(text_of("old\0new"s + std::string(25, '\0'), 33), "new");
}

TEST_P(OemField, ThatStartsAtByteZeroBecomesEmpty) {
    EXPECT_EQ(text_of("XYZ", 33), "");
    EXPECT_EQ(text_of(std::string(30, 'X'), 33), "");
}

TEST_P(OemField, WithoutAZeroInItsFirst31BytesStaysAsItIs) {
    EXPECT_EQ(text_of(std::string(31, 'X'), 33), std::string(31, 'X'));
    EXPECT_EQ(text_of(std::string(40, 'X'), 33), std::string(33, 'X'));
}

TEST_P(OemField, StaysInsideADestinationShorterThan32Bytes) {
    EXPECT_EQ(text_of("\0ABCDEFGHIJKL"s, 5), "ABCD");
    EXPECT_EQ(text_of("ABCDEFGHIJKLM"s, 5), "");
}

template <std::size_t Size>
bool has(const uint32_t (&ids)[Size], uint32_t id) {
    return std::find(ids, ids + Size, id) != ids + Size;
}

TEST_F(ReadField, LeavesFieldsWithoutARuleAsRead) {
    for (uint32_t id = 0; id < 600; ++id) {
        if (has(left_ids, id) || has(right_ids, id) || has(oem_ids, id)) continue;
        SCOPED_TRACE(id);
        platform.field(id, "  AB  ");
        EXPECT_EQ(read(id, 6), "  AB  \0"s);
        platform.field(id, "\0XY "s);
        EXPECT_EQ(read(id, 5), "\0XY \0\0"s);
    }
}

TEST_F(ReadField, PadsInsideADestinationWithoutRoomForATerminator) {
    platform.field(10, "AB  ");
    const auto dest = std::make_unique<uint8_t[]>(4);

    EXPECT_EQ(sysvpd_read_field(10, 4, dest.get()), 1);

    EXPECT_EQ(std::string(reinterpret_cast<char*>(dest.get()), 4), "AB\0\0"s);
}

}  // namespace
