// SPDX-License-Identifier: Apache-2.0
#include <array>
#include <cstring>
#include <memory>
#include <string>

#include "fake_platform.h"
#include "orva_vpdd.h"

using namespace vpdd::test;
using namespace std::string_literals;

namespace {

/// What a function leaves of a text that stands in a block of exactly its size, terminator included.
std::string changed_by(void (*function)(char*), const std::string& text) {
    const auto block = std::make_unique<char[]>(text.size() + 1);
    std::memcpy(block.get(), text.c_str(), text.size() + 1);
    function(block.get());
    return block.get();
}

// ---- trim_string

std::string trimmed(const std::string& text) { return changed_by(trim_string, text); }

TEST(TrimString, StopsAtATrailingCarriageReturn) { EXPECT_EQ(trimmed(" \tabc \r"), "abc \r"); }

TEST(TrimString, RemovesTrailingTabsLineFeedsFormFeedsAndSpaces) { EXPECT_EQ(trimmed("abc\t\n\f \n\t"), "abc"); }

TEST(TrimString, KeepsOtherControlCharactersAtTheEnd) {
    EXPECT_EQ(trimmed("abc\r"), "abc\r");
    EXPECT_EQ(trimmed("abc\v"), "abc\v");
    EXPECT_EQ(trimmed("abc\x01"), "abc\x01");
    EXPECT_EQ(trimmed("abc\v "), "abc\v");
}

TEST(TrimString, RemovesEveryControlCharacterAtTheStart) {
    for (int character = 1; character <= 0x20; ++character) {
        EXPECT_EQ(trimmed(static_cast<char>(character) + "abc"s), "abc") << character;
    }
    EXPECT_EQ(trimmed("\x01\r\v\x1F abc"), "abc");
    EXPECT_EQ(trimmed("!abc"), "!abc");
}

TEST(TrimString, KeepsBytesAboveSevenBitsAtBothEnds) {
    EXPECT_EQ(trimmed("\xA0\x80 abc \x85\xFF"), "\xA0\x80 abc \x85\xFF");
    EXPECT_EQ(trimmed(" \xC4 "), "\xC4");
}

TEST(TrimString, KeepsBlanksInside) { EXPECT_EQ(trimmed("  a \t b  "), "a \t b"); }

TEST(TrimString, EmptiesATextOfBlanks) {
    EXPECT_EQ(trimmed("   "), "");
    EXPECT_EQ(trimmed(" \t\n\f "), "");
    EXPECT_EQ(trimmed("\r"), "");
    EXPECT_EQ(trimmed(" \r\x01 "), "");
}

TEST(TrimString, LeavesEmptyAndShortTextsAlone) {
    EXPECT_EQ(trimmed(""), "");
    EXPECT_EQ(trimmed("a"), "a");
    trim_string(nullptr);
}

// ---- left_justified

std::string left(const std::string& text) { return changed_by(left_justified, text); }

TEST(LeftJustified, RemovesTrailingSpaces) {
    EXPECT_EQ(left("AB  "), "AB");
    EXPECT_EQ(left("  A B "), "  A B");
    EXPECT_EQ(left("AB"), "AB");
}

TEST(LeftJustified, EmptiesATextOfSpaces) {
    EXPECT_EQ(left("  "), "");
    EXPECT_EQ(left(" "), "");
}

TEST(LeftJustified, RemovesNothingButSpaces) {
    EXPECT_EQ(left("AB \t"), "AB \t");
    EXPECT_EQ(left("AB\n"), "AB\n");
    EXPECT_EQ(left("AB\xA0"), "AB\xA0");
}

TEST(LeftJustified, OverwritesEachSpace) {
    char text[] = "AB  ";

    left_justified(text);

    EXPECT_EQ(std::string(text, sizeof text), "AB\0\0\0"s);
}

TEST(LeftJustified, LeavesAnEmptyTextAndNullAlone) {
    EXPECT_EQ(left(""), "");
    left_justified(nullptr);
}

// ---- right_justified

std::string right(const std::string& text) { return changed_by(right_justified, text); }

TEST(RightJustified, RemovesLeadingSpaces) {
    EXPECT_EQ(right("  7Z"), "7Z");
    EXPECT_EQ(right(" 7 Z "), "7 Z ");
    EXPECT_EQ(right("7Z"), "7Z");
}

TEST(RightJustified, LeavesATextOfSpacesAsItIs) {
    EXPECT_EQ(right("    "), "    ");
    EXPECT_EQ(right("  "), "  ");
}

TEST(RightJustified, LeavesTextsShorterThanTwoAlone) {
    EXPECT_EQ(right("A"), "A");
    EXPECT_EQ(right(" "), " ");
    EXPECT_EQ(right(""), "");
    right_justified(nullptr);
}

TEST(RightJustified, RemovesNothingButSpaces) { EXPECT_EQ(right(" \tAB"), "\tAB"); }

TEST(RightJustified, TouchesNothingBehindTheNewEnd) {
    char text[] = "  7Z";

    right_justified(text);

    EXPECT_EQ(std::string(text, sizeof text), "7Z\0Z\0"s);
}

// ---- oem_justified

/// What becomes of a block of 32 bytes, zeros behind `text`.
std::string oem(const std::string& text) {
    const auto block = std::make_unique<char[]>(32);
    std::memcpy(block.get(), text.data(), text.size());
    oem_justified(block.get());
    return {block.get(), 32};
}

std::string field(const std::string& text) { return text + std::string(32 - text.size(), '\0'); }

TEST(OemJustified, YieldsTheTextBehindALeadingZero) { EXPECT_STREQ(oem("\0XYZ"s).c_str(), "XYZ"); }

TEST(OemJustified, EmptiesATextThatStartsAtByteZero) {
    EXPECT_STREQ(oem("XYZ").c_str(), "");
    EXPECT_STREQ(oem(std::string(30, 'X')).c_str(), "");
}

TEST(OemJustified, LeavesAFieldWithoutAZeroInItsFirst31BytesAlone) {
    EXPECT_EQ(oem(std::string(31, 'X')), field(std::string(31, 'X')));
    EXPECT_EQ(oem(std::string(32, 'X')), std::string(32, 'X'));
}

TEST(OemJustified, MovesWhatStandsBetweenTheFirstTwoZeros) {
    EXPECT_EQ(oem("A\0BCD\0EF"s), field("BCD\0D\0EF"s));
    EXPECT_EQ(oem("A\0\0EF"s), field("\0\0\0EF"s));
}

TEST(OemJustified, MovesNoFurtherThanByte31) {
    EXPECT_EQ(oem("\0"s + std::string(31, 'A')), std::string(32, 'A'));
    EXPECT_EQ(oem("ABC\0"s + std::string(28, 'D')), std::string(32, 'D'));
    EXPECT_EQ(oem(std::string(30, 'A') + "\0B"s), "B" + std::string(29, 'A') + "\0B"s);
    EXPECT_EQ(oem(std::string(30, 'A')), "\0"s + std::string(29, 'A') + "\0\0"s);
}

TEST(OemJustified, LeavesNullAlone) { oem_justified(nullptr); }

// ---- hex_to_string

TEST(HexToString, WritesTwoUpperCaseDigitsForEachByte) {
    const std::array<uint8_t, 16> uuid{0x00, 0x01, 0x0A, 0x10, 0x7F, 0x80, 0xAB, 0xCD,
                                       0xEF, 0xFF, 0x12, 0x34, 0x56, 0x78, 0x9A, 0xBC};
    char text[33];

    EXPECT_EQ(hex_to_string(text, sizeof text, uuid.data(), uuid.size()), 0);

    EXPECT_STREQ(text, "00010A107F80ABCDEFFF123456789ABC");
}

TEST(HexToString, ZeroesTheWholeDestination) {
    const uint8_t byte = 0x5A;
    char text[8];
    std::memset(text, 'x', sizeof text);

    EXPECT_EQ(hex_to_string(text, sizeof text - 1, &byte, 1), 0);

    EXPECT_EQ(std::string(text, sizeof text), "5A\0\0\0\0\0x"s);
}

TEST(HexToString, FillsADestinationOfTwiceTheCountWithoutATerminator) {
    const std::array<uint8_t, 2> bytes{0xDE, 0xAD};
    char text[5] = "xxxx";

    EXPECT_EQ(hex_to_string(text, 4, bytes.data(), bytes.size()), 0);

    EXPECT_EQ(std::string(text, 4), "DEAD");
}

TEST(HexToString, RefusesADestinationThatIsTooShort) {
    const std::array<uint8_t, 16> bytes{};
    char text[33] = "untouched";

    EXPECT_EQ(hex_to_string(text, 31, bytes.data(), bytes.size()), -3);
    EXPECT_EQ(hex_to_string(text, 1, bytes.data(), 1), -3);

    EXPECT_STREQ(text, "untouched");
}

TEST(HexToString, RefusesACountWhoseDoubleDoesNotFit32Bits) {
    const uint8_t byte = 0;
    char text[4] = "old";

    EXPECT_EQ(hex_to_string(text, sizeof text, &byte, 0x80000000U), -3);
    EXPECT_EQ(hex_to_string(text, sizeof text, &byte, 0x80000001U), -3);

    EXPECT_STREQ(text, "old");
}

TEST(HexToString, RefusesArgumentsThatAreZeroOrNull) {
    const uint8_t byte = 0;
    char text[4] = "old";

    EXPECT_EQ(hex_to_string(text, sizeof text, &byte, 0), -2);
    EXPECT_EQ(hex_to_string(text, 0, &byte, 1), -2);
    EXPECT_EQ(hex_to_string(text, sizeof text, nullptr, 1), -2);
    EXPECT_EQ(hex_to_string(nullptr, sizeof text, &byte, 1), -2);

    EXPECT_STREQ(text, "old");
}

}  // namespace
