// SPDX-License-Identifier: Apache-2.0
#include "host/images/fru_image.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

using namespace vpdd::images;
using testing::ElementsAre;

namespace {

uint8_t sum(const Bytes& bytes, std::size_t first, std::size_t count) {
    unsigned total = 0;
    for (std::size_t i = first; i < first + count; ++i) total += bytes.at(i);
    return static_cast<uint8_t>(total);
}

TEST(FruField, WritesTextWithTypeThree) { EXPECT_THAT(Field("AB").bytes(), ElementsAre(0xC2, 'A', 'B')); }

TEST(FruField, WritesAnEmptyTextWithoutData) { EXPECT_THAT(Field("").bytes(), ElementsAre(0xC0)); }

TEST(FruField, NeverWritesTheEndMarkerForASingleCharacter) {
    EXPECT_THAT(Field("A").bytes(), ElementsAre(0xC2, 'A', ' '));
}

TEST(FruField, PacksSixBitText) {
    // The example of the storage definition, section 13.3: "IPMI" is 29 DC A6.
    EXPECT_THAT(Field::six_bit("IPMI").bytes(), ElementsAre(0x83, 0x29, 0xDC, 0xA6));
    EXPECT_THAT(Field::six_bit("I").bytes(), ElementsAre(0x81, 0x29));
}

TEST(FruField, RefusesSixtyFourBytes) {
    EXPECT_NO_THROW(Field(std::string(63, 'x')));
    EXPECT_THROW(Field(std::string(64, 'x')), std::invalid_argument);
}

TEST(FruImage, LaysOutABoardArea) {
    const Bytes image = FruImage()
                            .board({.manufacturer = "ACME",
                                    .product = "Board",
                                    .serial = "S1",
                                    .part = "P1",
                                    .custom = {"extra"},
                                    .date = 0x030201})
                            .build();

    ASSERT_EQ(image.size(), 8U + 32U);
    EXPECT_THAT(Bytes(image.begin(), image.begin() + 8), ElementsAre(1, 0, 0, 1, 0, 0, 0, 0xFE));
    const Bytes area(image.begin() + 8, image.end());
    EXPECT_THAT(Bytes(area.begin(), area.begin() + 11), ElementsAre(1, 4, 25, 1, 2, 3, 0xC4, 'A', 'C', 'M', 'E'));
    EXPECT_THAT(Bytes(area.begin() + 23, area.begin() + 31), ElementsAre(0xC0, 0xC5, 'e', 'x', 't', 'r', 'a', 0xC1));
    EXPECT_EQ(sum(image, 8, 32), 0);
}

TEST(FruImage, PutsAreasBehindEachOther) {
    const Bytes image = FruImage()
                            .product({.manufacturer = "M"})
                            .chassis({.part = "C"})
                            .internal_use({1, 2, 3})
                            .multirecord(0xC0, {1, 2})
                            .build();

    EXPECT_EQ(image[1], 1);  // internal use: 8 bytes
    EXPECT_EQ(image[2], 2);  // chassis: 3 + 3 + 1 + 1 + 1 = 9 bytes, padded to 16
    EXPECT_EQ(image[4], 4);  // product: 3 + 3 + 6 + 1 + 1 = 14 bytes, padded to 16
    EXPECT_EQ(image[5], 6);
    EXPECT_EQ(sum(image, 0, 8), 0);
    EXPECT_EQ(image.size(), 56U);  // 5 + 2 bytes of multirecord, padded
    EXPECT_EQ(image[48], 0xC0);
}

TEST(FruImage, EndsTheListWithTheLastMultirecord) {
    const Bytes image = FruImage().multirecord(0xC1, {5}).multirecord(0xC2, {7, 8}).build();

    EXPECT_THAT(Bytes(image.begin() + 8, image.begin() + 14), ElementsAre(0xC1, 0x02, 1, 0xFB, 0x41, 5));
    EXPECT_THAT(Bytes(image.begin() + 14, image.begin() + 21), ElementsAre(0xC2, 0x82, 2, 0xF1, 0xC9, 7, 8));
}

TEST(FruImage, MakesEveryDetailWrongOnDemand) {
    const Bytes image = FruImage()
                            .board({.manufacturer = Field::raw(0x05, {1}), .end = {false, 0x77}})
                            .multirecord({.type = 9,
                                          .data = {1},
                                          .version = 1,
                                          .is_last = false,
                                          .record_checksum = 0x11,
                                          .header_checksum = 0x22})
                            .area_offset(FruArea::multirecord, 20)
                            .header_byte(6, 0x99)
                            .header_checksum(0x33)
                            .padded_to(256)
                            .byte(255, 0x44)
                            .build();

    EXPECT_THAT(Bytes(image.begin(), image.begin() + 8), ElementsAre(1, 0, 0, 1, 0, 20, 0x99, 0x33));
    EXPECT_THAT(Bytes(image.begin() + 14, image.begin() + 24),
                ElementsAre(0x05, 1, 0xC0, 0xC0, 0xC0, 0xC0, 0, 0, 0, 0x77));
    EXPECT_THAT(Bytes(image.begin() + 160, image.begin() + 166), ElementsAre(9, 1, 1, 0x11, 0x22, 1));
    EXPECT_EQ(image.size(), 256U);
    EXPECT_EQ(image[255], 0x44);
}

TEST(OemProcessor, BeginsWithTheMakersNumberLeastSignificantByteFirst) {
    const Bytes data = OemProcessor{
        .iana = 0x030201,
        .index = Field::binary({7}),
        .texts = {"ab"},
        .raw = Field::binary({8, 9}),
        .trailing = {0xEE}}.data();
    EXPECT_THAT(data, ElementsAre(1, 2, 3, 0x01, 7, 0xC2, 'a', 'b', 0xC0, 0xC0, 0xC0, 0xC0, 0xC0, 0xC0, 0xC0, 0xC0,
                                  0xC0, 0xC0, 0x02, 8, 9, 0xEE));
}

}  // namespace
