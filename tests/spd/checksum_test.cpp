// SPDX-License-Identifier: Apache-2.0
#include "spd_test.h"

using namespace vpdd::test;

namespace {

using CheckSpdCrc = PlatformTest;

uint16_t stored_crc(const Bytes& image) { return static_cast<uint16_t>(image[126] | image[127] << 8U); }

int check(const Bytes& image, uint32_t length, int32_t expected) {
    return check_spd_crc(image.data(), length, &expected);
}

/// With the CRC that the image carries as the expected one.
int check(const Bytes& image, uint32_t length = 224) { return check(image, length, stored_crc(image)); }

TEST(Crc16, IsTheXmodemVariant) {
    const Bytes digits = bytes_of("123456789");

    EXPECT_EQ(__crc16(digits.data(), 9), 0x31C3);
}

TEST(Crc16, OfOneByteIsThePolynomialShifted) {
    const uint8_t one = 1;
    const uint8_t top = 0x80;

    EXPECT_EQ(__crc16(&one, 1), 0x1021);
    EXPECT_EQ(__crc16(&top, 1), 0x9188);
}

TEST(Crc16, CoversOnlyTheLength) {
    const Bytes bytes{0x01, 0xFF};

    EXPECT_EQ(__crc16(bytes.data(), 1), 0x1021);
}

TEST(Crc16, IsZeroForALengthBelowOne) {
    const uint8_t byte = 0x55;

    EXPECT_EQ(__crc16(&byte, 0), 0);
    EXPECT_EQ(__crc16(&byte, -1), 0);
    EXPECT_EQ(__crc16(&byte, INT32_MIN), 0);
}

TEST(ByteOfAWord, IsTheLowAndTheHighOne) {
    EXPECT_EQ(__getlsb(0x12CD), 0xCD);
    EXPECT_EQ(__getmsb(0x12CD), 0x12);
    EXPECT_EQ(__getmsb(0xFFFF), 0xFF);
}

TEST_F(CheckSpdCrc, AcceptsGoodImagesWithoutALogLine) {
    EXPECT_EQ(check(Ddr3Image().seal().build()), 1);
    EXPECT_EQ(check(Ddr4Image().seal().build()), 1);
    EXPECT_EQ(check(Ddr4Image().persistent().seal().build()), 1);

    EXPECT_TRUE(platform.logged_nothing());
}

TEST_F(CheckSpdCrc, CoversAHundredAndSeventeenBytesOfADdr3ImageWithBit7) {
    Ddr3Image image;
    image.byte(0, 0x92).byte(116, 0x11).byte(117, 0x22).seal();

    EXPECT_EQ(check(image.byte(117, 0x23).build()), 1);
    EXPECT_EQ(check(image.byte(125, 0x23).build()), 1);
    EXPECT_EQ(check(image.byte(116, 0x12).build()), -1);
}

TEST_F(CheckSpdCrc, CoversAHundredAndTwentySixBytesOfADdr3ImageWithoutBit7) {
    Ddr3Image image;
    image.byte(0, 0x12).seal();

    EXPECT_EQ(check(image.build()), 1);
    EXPECT_EQ(check(Ddr3Image(image).byte(117, 0x23).build()), -1);
    EXPECT_EQ(check(Ddr3Image(image).byte(125, 0x23).build()), -1);
    EXPECT_EQ(check(Ddr3Image(image).byte(128, 0x23).build()), 1);
}

TEST_F(CheckSpdCrc, RefusesADdr3BufferThatDoesNotHoldTheCoveredBytes) {
    const Bytes with_bit_7 = Ddr3Image().byte(0, 0x92).seal().build();
    const Bytes without_bit_7 = Ddr3Image().byte(0, 0x12).seal().build();

    EXPECT_EQ(check(with_bit_7, 116), -2);
    EXPECT_EQ(check(with_bit_7, 117), 1);
    EXPECT_EQ(check(without_bit_7, 125), -2);
    EXPECT_EQ(check(without_bit_7, 126), 1);
}

TEST_F(CheckSpdCrc, LogsATooShortBufferAsAWarning) {
    EXPECT_EQ(check(Ddr3Image().seal().build(), 0), -2);

    EXPECT_TRUE(platform.logged(12, pid_line("check_spd_crc - Incorrect buffer size..\n")));
}

TEST_F(CheckSpdCrc, DoesNotLookAtTheLengthOfOtherGenerations) {
    EXPECT_EQ(check(Ddr4Image().seal().build(), 0), 1);
    EXPECT_EQ(check(Ddr4Image().persistent().seal().build(), 0), 1);
    EXPECT_EQ(check(blank_image(ddr5), 0), 1);
}

TEST_F(CheckSpdCrc, CoversAHundredAndTwentySixBytesOfADdr4ImageWithBit7Too) {
    for (Ddr4Image image : {Ddr4Image(), Ddr4Image().persistent()}) {
        image.byte(0, 0xA3).seal();

        EXPECT_EQ(check(image.build()), 1);
        EXPECT_EQ(check(Ddr4Image(image).byte(117, 1).build()), -1);
        EXPECT_EQ(check(Ddr4Image(image).byte(125, 1).build()), -1);
        EXPECT_EQ(check(Ddr4Image(image).byte(128, 1).build()), 1);
    }
}

TEST_F(CheckSpdCrc, TellsARightImageWithAnotherExpectedValueFromAWrongImage) {
    for (const Bytes& image : {Ddr3Image().seal().build(), Ddr3Image().byte(0, 0x92).seal().build(),
                               Ddr4Image().seal().build(), Ddr4Image().persistent().seal().build()}) {
        const uint16_t crc = stored_crc(image);

        EXPECT_EQ(check(image, 224, crc ^ 0x0001), 0) << int{image[2]};

        EXPECT_TRUE(platform.logged(12, pid_line("check_spd_crc - fails to compare with the calculated CRC 0x%02x and "
                                                 "the SPD info's CRC 0x%02x\n",
                                                 crc, crc ^ 0x0001)));
    }
}

TEST_F(CheckSpdCrc, ComparesOnlySixteenBitsOfTheExpectedValue) {
    const Bytes image = Ddr4Image().seal().build();
    const int32_t crc = stored_crc(image);

    EXPECT_EQ(check(image, 224, crc | 0x10000), 1);
    EXPECT_EQ(check(image, 224, static_cast<int16_t>(crc)), 1);
    EXPECT_EQ(check(image, 224, crc | INT32_MIN), 1);
}

TEST_F(CheckSpdCrc, NamesBothValuesInSixteenBits) {
    // The CRC of these 126 bytes is 0xCD65.
    const Bytes image = image_with(ddr4, {{125, 0x02}, {126, 0x65}, {127, 0xCD}});
    constexpr std::pair<int32_t, const char*> expected_values[] = {
        {0x7FFF1234, "0x1234"},
        {static_cast<int32_t>(0xFFFFCD64), "0xcd64"},
        {static_cast<int32_t>(0x8000FFFF), "0xffff"},
        {0x00010000, "0x00"},
    };
    for (const auto& [expected, text] : expected_values) {
        platform.reset();

        EXPECT_EQ(check(image, 224, expected), 0) << text;

        EXPECT_THAT(platform.log(), testing::ElementsAre(
                                        LogLine{12, pid_line("check_spd_crc - fails to compare with the calculated CRC "
                                                             "0xcd65 and the SPD info's CRC %s\n",
                                                             text)}));
    }
    EXPECT_EQ(check(image, 224, static_cast<int32_t>(0xFFFFCD65)), 1);
    EXPECT_EQ(check(image, 224, static_cast<int32_t>(0x8001CD65)), 1);
    EXPECT_EQ(check(image, 224, 0x0000CD65), 1);
}

TEST_F(CheckSpdCrc, ReportsAWrongLowByteAndAWrongHighByte) {
    const Bytes good = Ddr4Image().seal().build();
    Bytes wrong_low = good;
    wrong_low[126] ^= 1U;
    Bytes wrong_high = good;
    wrong_high[127] ^= 1U;
    const std::string message = pid_line("check_spd_crc - either LSB or MSB CRC is wrong\n");

    EXPECT_EQ(check(wrong_low), -1);
    EXPECT_TRUE(platform.logged(12, message));
    EXPECT_EQ(check(wrong_high), -1);
    EXPECT_EQ(platform.times_logged(12, message), 2U);
}

TEST_F(CheckSpdCrc, OfADdr5ImageIsAlwaysZero) {
    Bytes image = blank_image(ddr5);
    image[5] = 0x77;

    EXPECT_EQ(check(image, 1024, 0), 1);
    EXPECT_EQ(check(image, 1024, 5), 0);
    EXPECT_TRUE(platform.logged(
        12, pid_line("check_spd_crc - fails to compare with the calculated CRC 0x00 and the SPD info's CRC 0x05\n")));

    image[127] = 1;
    EXPECT_EQ(check(image, 1024, 0x100), -1);
}

TEST_F(CheckSpdCrc, OfAnUnknownTypeIsZeroAsWell) {
    EXPECT_EQ(check(blank_image(0x08), 0, 0), 1);
    EXPECT_EQ(check(image_with(0xFF, {{126, 1}}), 1024, 1), -1);
}

TEST_F(CheckSpdCrc, PrintsNothing) {
    const CaptureStderr errors;
    const CaptureStdout output;

    check(Ddr4Image().seal().build());

    EXPECT_EQ(errors.text() + output.text(), "");
}

}  // namespace
