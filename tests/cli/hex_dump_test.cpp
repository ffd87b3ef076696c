// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>

#include <cstdio>

#include "host/images/fru_image.h"
#include "vpdctl_process.h"

namespace vpdd::test {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;

using Bytes = std::vector<uint8_t>;

std::string hex(std::size_t number, int digits) {
    char text[32];
    std::snprintf(text, sizeof text, "%0*zx", digits, number);
    return text;
}

std::string joined(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines) text += line + '\n';
    return text;
}

/// As `hexdump -C` writes it, without repeated rows, or with all of them (-v); the last line is the size.
std::vector<std::string> hexdump_lines(const Bytes& image, bool all) {
    std::vector<std::string> lines;
    Bytes before;
    for (std::size_t at = 0; at < image.size(); at += 16) {
        const std::size_t end = std::min(at + 16, image.size());
        const Bytes row(image.begin() + static_cast<long>(at), image.begin() + static_cast<long>(end));
        if (!all && row == before) {
            if (lines.back() != "*") lines.emplace_back("*");
            continue;
        }
        std::string line = hex(at, 8) + ' ';
        for (std::size_t column = 0; column < row.size(); ++column) {
            line += (column == 8 ? "  " : " ") + hex(row[column], 2);
        }
        lines.push_back(line + "  |* # : 00 characters|");
        before = row;
    }
    lines.push_back(hex(image.size(), 8));
    return lines;
}

/// As `xxd` writes it, but for the number of bytes of a row.
std::string xxd_text(const Bytes& image, std::size_t columns) {
    std::string text;
    for (std::size_t at = 0; at < image.size(); at += columns) {
        text += hex(at, 8) + ':';
        for (std::size_t next = at; next < std::min(at + columns, image.size()); ++next) {
            text += (next == at || next % 2 == 0 ? " " : "") + hex(image[next], 2);
        }
        text += "  # characters\n";
    }
    return text;
}

std::string plain_text(const Bytes& image, std::size_t columns) {
    std::string text;
    for (std::size_t at = 0; at < image.size(); ++at) {
        text += hex(image[at], 2) + ((at + 1) % columns == 0 ? "\n" : "");
    }
    return text;
}

/// A FRU of 512 bytes, most of which repeat, behind them a last row that is not like the others.
Bytes fru_image() {
    Bytes image = images::FruImage().board({.manufacturer = "ACME", .serial = "SN0042"}).build();
    image.resize(509, 0xA5);
    image.back() = 0x77;
    return image;
}

class HexDump : public testing::Test {
protected:
    Json shown(const std::string& text) const { return vpdctl_json({"fru", folder_.file("dump", text)}); }
    Json shown(const Bytes& image) const { return vpdctl_json({"fru", folder_.file("dump", image)}); }

    /// What is said about the file, which must be refused.
    std::string refusal(const std::string& text) const {
        const std::string path = folder_.file("dump", text);
        const Outcome outcome = vpdctl({"fru", path});
        EXPECT_EQ(outcome.code, exit_bad_input) << text;
        EXPECT_THAT(outcome.out, IsEmpty());
        const std::string begin = "vpdctl: " + path + ": no hex dump that can be read: ";
        EXPECT_EQ(outcome.err.find(begin), 0U) << outcome.err;
        return outcome.err.substr(std::min(begin.size(), outcome.err.size()));
    }

    ScratchFolder folder_;
};

TEST_F(HexDump, OfHexdumpIsReadWithRepeatedRowsLeftOutOrNot) {
    const std::vector<std::string> lines = hexdump_lines(fru_image(), false);
    ASSERT_THAT(lines, testing::Contains("*"));

    EXPECT_EQ(shown(joined(lines)), shown(fru_image()));
    EXPECT_EQ(shown(joined(hexdump_lines(fru_image(), true))), shown(fru_image()));
}

TEST_F(HexDump, WhoseLastRowsAreRepeatedGoesOnUpToItsLastOffset) {
    Bytes image = fru_image();
    image.resize(1024, 0);
    std::vector<std::string> lines = hexdump_lines(image, false);
    ASSERT_EQ(lines[lines.size() - 2], "*");
    EXPECT_EQ(shown(joined(lines))["SizeBytes"], 1024);

    lines.back() = "000003fb";  // in the middle of a row
    EXPECT_EQ(shown(joined(lines))["SizeBytes"], 1019);
}

TEST_F(HexDump, OfXxdIsReadWithRowsOfAnyLength) {
    for (const std::size_t columns : {1, 6, 16, 32, 256}) {
        EXPECT_EQ(shown(xxd_text(fru_image(), columns)), shown(fru_image())) << columns;
    }
}

TEST_F(HexDump, OfPlainDigitsIsReadFromOneLineOrMany) {
    for (const std::size_t columns : {1, 4, 16, 30, 1000}) {
        EXPECT_EQ(shown(plain_text(fru_image(), columns)), shown(fru_image())) << columns;
    }
}

TEST_F(HexDump, MayHaveTheLineEndsOfAnotherSystem) {
    std::string text;
    for (const std::string& line : hexdump_lines(fru_image(), false)) text += line + "\r\n";

    EXPECT_EQ(shown(text), shown(fru_image()));
}

TEST_F(HexDump, MayBeLargerThanTheLargestImage) {
    Bytes image = fru_image();
    image.resize(std::size_t{20} * 1024, 0x5A);
    const std::string text = joined(hexdump_lines(image, true));
    ASSERT_GT(text.size(), std::size_t{64} * 1024);

    EXPECT_EQ(shown(text)["SizeBytes"], 20 * 1024);
}

TEST_F(HexDump, OfMoreThan64KibibytesIsRefused) {
    EXPECT_EQ(refusal("00000000  01 02  |..|\n*\n00010001\n"), "line 3: there are more than 65536 bytes up to here\n");
    EXPECT_EQ(refusal("00000000  01 02  |..|\n*\nffffffff\n"), "line 3: there are more than 65536 bytes up to here\n");
    EXPECT_EQ(refusal(plain_text(Bytes(65537, 1), 65536)), "line 2: there are more than 65536 bytes up to here\n");
}

TEST_F(HexDump, WithALineMissingOrOutOfOrderIsRefused) {
    const std::vector<std::string> lines = hexdump_lines(fru_image(), true);
    std::vector<std::string> missing = lines;
    missing.erase(missing.begin() + 2);
    std::vector<std::string> turned = lines;
    std::swap(turned[1], turned[2]);
    std::vector<std::string> short_end = lines;
    short_end.erase(short_end.end() - 2);

    EXPECT_EQ(refusal(joined(missing)), "line 3: offset 0x00000030 where 0x00000020 follows\n");
    EXPECT_EQ(refusal(joined(turned)), "line 2: offset 0x00000020 where 0x00000010 follows\n");
    EXPECT_EQ(refusal(joined(short_end)), "line 32: offset 0x000001FD where 0x000001F0 follows\n");
    EXPECT_EQ(refusal(joined({lines.begin() + 1, lines.end()})),
              "line 1: offset 0x00000010 where 0x00000000 follows\n");
    EXPECT_EQ(refusal("00000000: 0102 03\n00000004: 0102\n"), "line 2: offset 0x00000004 where 0x00000003 follows\n");
}

TEST_F(HexDump, WhoseRepetitionHasNoRowOrNoEndIsRefused) {
    EXPECT_EQ(refusal("*\n00000010\n"), "line 1: there is no row that * could repeat\n");
    EXPECT_EQ(refusal("01 02\n*\n03\n"), "line 2: there is no row that * could repeat\n");
    EXPECT_EQ(refusal("00000000: 0102\n*\n"), "line 2: no offset behind * says up to where the row is repeated\n");
    EXPECT_EQ(refusal("00000000: 0102\n*\n00000002: 03\n"), "line 3: offset 0x00000002 where 0x00000002 follows\n");
}

TEST_F(HexDump, WithoutAnOffsetOnEachLineIsRefused) {
    EXPECT_EQ(refusal("00000000: 0102\n0304\n"), "line 2: does not begin as the lines before it\n");
    EXPECT_EQ(refusal("00000000  01 02\n00000002: 03\n"), "line 2: does not begin as the lines before it\n");
    EXPECT_EQ(refusal("0102\n00000002: 03\n"), "line 2: \"00000002:\" is no list of hexadecimal bytes\n");
    EXPECT_EQ(refusal("xx: 0102\n"), "line 1: \"xx\" is no offset\n");
}

TEST_F(HexDump, OfWordsThatHexdumpTurnsRoundIsRefused) {
    EXPECT_EQ(refusal("0000000 0001 0100\n0000004\n"),
              "line 1: \"0001\" is more than one byte, in an order of which nothing is known\n");
}

TEST_F(HexDump, IsWhatATextHasToBe) {
    EXPECT_EQ(refusal("This is a text.\n"), "line 1: \"This\" is no list of hexadecimal bytes\n");
    EXPECT_EQ(refusal("01 02 0\n"), "line 1: \"0\" is no list of hexadecimal bytes\n");
    EXPECT_EQ(refusal("01 +2\n"), "line 1: \"+2\" is no list of hexadecimal bytes\n");
    EXPECT_EQ(refusal("00000000: 01 02\n*\n00000004 \xC3\xA4\n"), "line 3: does not begin as the lines before it\n");
    EXPECT_EQ(refusal(" \n# nothing\n"), "line 2: there are no bytes\n");
    EXPECT_THAT(refusal(std::string(1000, 'x')), HasSubstr("\"xxxxxxxxxxxxxxxxxxxx...\" is no list"));
}

}  // namespace
}  // namespace vpdd::test
