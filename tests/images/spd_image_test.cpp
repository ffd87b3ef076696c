// SPDX-License-Identifier: Apache-2.0
#include "host/images/spd_image.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

using namespace vpdd::images;
using testing::ElementsAre;
using Bytes = std::vector<uint8_t>;

namespace {

Bytes part_of(const Bytes& image, std::size_t first, std::size_t count) {
    const auto start = image.begin() + static_cast<std::ptrdiff_t>(first);
    return Bytes(start, start + static_cast<std::ptrdiff_t>(count));
}

std::string text_of(const Bytes& image, std::size_t first, std::size_t count) {
    const Bytes bytes = part_of(image, first, count);
    return std::string(bytes.begin(), bytes.end());
}

TEST(MakerId, HasOddParityInTheNumberOfContinuationCodes) {
    EXPECT_EQ(maker_id(0, 0xCE), (MakerId{0x80, 0xCE}));
    EXPECT_EQ(maker_id(1, 0x98), (MakerId{0x01, 0x98}));
    EXPECT_EQ(maker_id(3, 0x45), (MakerId{0x83, 0x45}));
}

TEST(MakerId, IsFoundByNameInUpperOrLowerCase) {
    const Jep106Row list[] = {{0, 0x2C, "Micron Technology"}, {1, 0x98, "Kingston"}, {9, 0xFF, ""}};

    EXPECT_EQ(maker_named("kingston", list), (MakerId{0x01, 0x98}));
    EXPECT_THROW(maker_named("King", list), std::invalid_argument);
    EXPECT_THROW(maker_named("", list), std::invalid_argument);
}

// ---- defaults

TEST(SpdImages, AreUdimmsOfOneRankByDefault) {
    const Bytes ddr3 = Ddr3Image().build();
    const Bytes ddr4 = Ddr4Image().build();
    const Bytes ddr5 = Ddr5Image().build();

    EXPECT_EQ(ddr3.size(), 256U);
    EXPECT_THAT(part_of(ddr3, 0, 9), ElementsAre(0x92, 0x11, 0x0B, 2, 4, 0x21, 0, 0x01, 0x03));
    EXPECT_EQ(ddr4.size(), 512U);
    EXPECT_THAT(part_of(ddr4, 0, 5), ElementsAre(0x23, 0x12, 0x0C, 2, 0x85));
    EXPECT_THAT(part_of(ddr4, 11, 3), ElementsAre(0x03, 0x01, 0x03));
    EXPECT_EQ(ddr5.size(), 1024U);
    EXPECT_THAT(part_of(ddr5, 0, 7), ElementsAre(0x30, 0x10, 0x12, 2, 0x04, 0, 0x20));
    EXPECT_THAT(part_of(ddr5, 234, 2), ElementsAre(0x00, 0x22));
}

TEST(SpdImages, KnowFourModuleTypes) {
    EXPECT_EQ(Ddr4Image().rdimm().build()[3], 1);
    EXPECT_EQ(Ddr4Image().so_dimm().build()[3], 3);
    EXPECT_EQ(Ddr4Image().lrdimm().build()[3], 4);
    EXPECT_EQ(Ddr5Image().lrdimm().build()[3], 4);
    EXPECT_EQ(Ddr3Image().lrdimm().build()[3], 11);
}

TEST(SpdImages, MarkAnNvdimmsLayoutInItsFirstByte) {
    EXPECT_THAT(part_of(Ddr4Image().persistent().build(), 0, 3), ElementsAre('#', 0x12, 0x0D));
    EXPECT_THAT(part_of(Ddr5Image().persistent().build(), 0, 3), ElementsAre('0', 0x10, 0x0D));
}

// ---- geometry

TEST(SpdImages, EncodeTheGeometryOfDdr3) {
    const Bytes image = Ddr3Image().density_gbit(8).ranks(8).device_width(4).bus_width(32).ecc_bits(8).build();

    EXPECT_EQ(image[4], 5);
    EXPECT_EQ(image[7], 0x20) << "code 4 is 8 ranks";
    EXPECT_EQ(image[8], 0x0A);
}

TEST(SpdImages, EncodeTheGeometryOfDdr4) {
    const Bytes image = Ddr4Image().density_gbit(16).dies(4).ranks(2).device_width(4).ecc_bits(8).build();

    EXPECT_EQ(image[4], 0x86);
    EXPECT_EQ(image[6], 0x32);
    EXPECT_EQ(image[12], 0x08);
    EXPECT_EQ(image[13], 0x0B);
    EXPECT_EQ(Ddr4Image().dies(4).dies(1).build()[6], 0);
}

TEST(SpdImages, EncodeTheGeometryOfDdr5) {
    const Bytes image = Ddr5Image().density_gbit(24).dies(8).ranks(4).device_width(16).ecc_bits(4).build();

    EXPECT_EQ(image[4], 0x85);
    EXPECT_EQ(image[6], 0x40);
    EXPECT_EQ(image[234], 0x18);
    EXPECT_EQ(image[235], 0x2A);
}

TEST(SpdImages, RefuseWhatAGenerationCannotExpress) {
    EXPECT_THROW(Ddr4Image().density_gbit(3), std::invalid_argument);
    EXPECT_THROW(Ddr4Image().density_gbit(64), std::invalid_argument);
    EXPECT_THROW(Ddr5Image().density_gbit(0), std::invalid_argument);
    EXPECT_THROW(Ddr5Image().dies(0), std::invalid_argument);
    EXPECT_THROW(Ddr5Image().dies(3), std::invalid_argument);
    EXPECT_THROW(Ddr3Image().dies(2), std::invalid_argument);
    EXPECT_THROW(Ddr3Image().persistent(), std::invalid_argument);
    EXPECT_THROW(Ddr3Image().ranks(5), std::invalid_argument);
    EXPECT_THROW(Ddr4Image().ranks(0), std::invalid_argument);
    EXPECT_THROW(Ddr4Image().device_width(9), std::invalid_argument);
    EXPECT_THROW(Ddr4Image().bus_width(128), std::invalid_argument);
    EXPECT_THROW(Ddr4Image().ecc_bits(4), std::invalid_argument);
}

// ---- timing

TEST(SpdImages, EncodeTheClockInMediumAndFineTimebases) {
    const auto clock_of = [](unsigned rate) {
        const Bytes image = Ddr4Image().speed(rate).build();
        return 125 * image[18] + static_cast<int8_t>(image[125]);
    };

    EXPECT_EQ(clock_of(3200), 625);
    EXPECT_EQ(clock_of(2933), 682);
    EXPECT_EQ(clock_of(2666), 750);
    EXPECT_EQ(clock_of(2400), 833);
    EXPECT_EQ(Ddr3Image().speed(1333).build()[12], 12);
    EXPECT_EQ(Ddr3Image().speed(1333).build()[34], 0);
    EXPECT_THROW(Ddr4Image().speed(3000), std::invalid_argument);
}

TEST(SpdImages, EncodeTheClockOfDdr5InPicosecondsWithItsSpeedBin) {
    const Bytes image = Ddr5Image().speed(5600).build();

    EXPECT_EQ(image[20] | image[21] << 8, 357);
    EXPECT_THAT(part_of(image, 24, 5), ElementsAre(0x7A, 0xAD, 0, 0, 0));
    EXPECT_THROW(Ddr5Image().speed(5601), std::invalid_argument);
}

TEST(SpdImages, EncodeLatencies) {
    EXPECT_THAT(part_of(Ddr3Image().cas_latencies({4, 12}).build(), 14, 2), ElementsAre(0x01, 0x01));
    EXPECT_THAT(part_of(Ddr4Image().cas_latencies({7, 24, 38}).build(), 20, 4), ElementsAre(0x01, 0, 0x02, 0x80));
    EXPECT_THAT(part_of(Ddr5Image().cas_latencies({20, 98}).build(), 24, 5), ElementsAre(0x01, 0, 0, 0, 0x80));
    EXPECT_THROW(Ddr5Image().cas_latencies({21}), std::invalid_argument);
    EXPECT_THROW(Ddr4Image().cas_latencies({6}), std::invalid_argument);
    EXPECT_THROW(Ddr4Image().cas_latencies({39}), std::invalid_argument);
}

// ---- identity

template <class Image>
Bytes identified() {
    return Image()
        .maker(0x80, 0xCE)
        .dram_maker(0x01, 0x98)
        .location(7)
        .made(2024, 9)
        .serial(0x12345678)
        .part("PART")
        .build();
}

TEST(SpdImages, PlaceTheIdentityOfEachGeneration) {
    const Bytes ddr3 = identified<Ddr3Image>();
    const Bytes ddr4 = identified<Ddr4Image>();
    const Bytes ddr5 = identified<Ddr5Image>();
    const auto is_identity = ElementsAre(0x80, 0xCE, 7, 0x24, 0x09, 0x12, 0x34, 0x56, 0x78);

    EXPECT_THAT(part_of(ddr3, 117, 9), is_identity);
    EXPECT_THAT(part_of(ddr4, 320, 9), is_identity);
    EXPECT_THAT(part_of(ddr5, 512, 9), is_identity);
    EXPECT_THAT(part_of(ddr3, 148, 2), ElementsAre(0x01, 0x98));
    EXPECT_THAT(part_of(ddr4, 350, 2), ElementsAre(0x01, 0x98));
    EXPECT_THAT(part_of(ddr5, 552, 2), ElementsAre(0x01, 0x98));
    EXPECT_EQ(text_of(ddr3, 128, 18), "PART              ");
    EXPECT_EQ(text_of(ddr4, 329, 20), "PART                ");
    EXPECT_EQ(text_of(ddr5, 521, 30), "PART                          ");
}

TEST(SpdImages, CutThePartNumberToItsField) {
    const Bytes image = Ddr4Image().part("12345678901234567890ABC").build();

    EXPECT_EQ(text_of(image, 329, 20), "12345678901234567890");
    EXPECT_EQ(image[349], 0);
}

// ---- raw bytes and checksums

TEST(SpdImages, TakeAnyByteInsideThem) {
    EXPECT_EQ(Ddr4Image().byte(511, 0xAB).build()[511], 0xAB);
    EXPECT_THROW(Ddr4Image().byte(512, 0), std::out_of_range);
    EXPECT_THROW(Ddr4Image().put(511, {1, 2}), std::out_of_range);
}

TEST(SpdImages, AreNotSealedUntilAskedTo) { EXPECT_THAT(part_of(Ddr4Image().build(), 126, 2), ElementsAre(0, 0)); }

/// Bytes whose checksum is known: "123456789" has 0x31C3, and leading zeros do not count.
template <class Image>
Image checked(std::size_t end) {
    Image image;
    for (std::size_t i = 0; i < 512 && i < end; ++i) image.byte(i, 0);
    const std::string digits = "123456789";
    return image.put(end - digits.size(), Bytes(digits.begin(), digits.end()));
}

TEST(SpdImages, SealTheFirstBlockOfDdr3) {
    EXPECT_THAT(part_of(checked<Ddr3Image>(126).seal().build(), 126, 2), ElementsAre(0xC3, 0x31));
}

TEST(SpdImages, SealAHundredAndSeventeenBytesOfDdr3WithBit7) {
    const Bytes image = Ddr3Image().seal().build();

    EXPECT_EQ(Ddr3Image().byte(117, 1).seal().build()[126], image[126]);
    EXPECT_NE(Ddr3Image().byte(116, 1).seal().build()[126], image[126]);
}

TEST(SpdImages, SealBothBlocksOfDdr4) {
    const Bytes first = checked<Ddr4Image>(126).seal().build();
    const Bytes second = checked<Ddr4Image>(254).seal().build();

    EXPECT_THAT(part_of(first, 126, 2), ElementsAre(0xC3, 0x31));
    EXPECT_THAT(part_of(first, 254, 2), ElementsAre(0, 0));
    EXPECT_THAT(part_of(second, 126, 2), ElementsAre(0, 0));
    EXPECT_THAT(part_of(second, 254, 2), ElementsAre(0xC3, 0x31));
}

TEST(SpdImages, SealDdr5AtItsEndOfTheBaseBlocks) {
    EXPECT_THAT(part_of(checked<Ddr5Image>(510).seal().build(), 510, 2), ElementsAre(0xC3, 0x31));
}

// ---- modules of a description

TEST(Module, GetsTheDensityThatItsSizeNeeds) {
    const Bytes ddr4 = spd_image({.size_gb = 64, .ranks = 2, .device_width = 4});
    const Bytes ddr5 = spd_image({.generation = Generation::ddr5, .size_gb = 48, .ranks = 2, .speed = 4800});
    const Bytes ddr3 = spd_image({.generation = Generation::ddr3, .size_gb = 8, .ranks = 2, .speed = 1600});

    EXPECT_EQ(ddr4[4] & 0x0F, 6) << "16 Gbit";
    EXPECT_EQ(ddr5[4] & 0x1F, 5) << "24 Gbit";
    EXPECT_EQ(ddr3[4] & 0x0F, 4) << "4 Gbit";
}

TEST(Module, CountsStackedDies) {
    const Bytes image = spd_image({.size_gb = 128, .ranks = 2, .dies = 2, .device_width = 4});

    EXPECT_EQ(image[4] & 0x0F, 6);
    EXPECT_EQ(image[6], 0x12);
}

TEST(Module, HasTheEccOfItsKind) {
    EXPECT_EQ(spd_image({.has_ecc = true})[13], 0x0B);
    EXPECT_EQ(spd_image({.has_ecc = false})[13], 0x03);
    EXPECT_EQ(spd_image({.generation = Generation::ddr5, .speed = 4800})[235], 0x32);
    EXPECT_EQ(spd_image({.generation = Generation::ddr5, .type = ModuleType::udimm, .speed = 4800})[235], 0x2A);
    EXPECT_EQ(spd_image({.generation = Generation::ddr5, .has_ecc = false, .speed = 4800})[235], 0x22);
}

TEST(Module, IsIdentifiedAndSealed) {
    const Bytes image = spd_image({.maker = maker_id(0, 0xCE),
                                   .dram_maker = maker_id(0, 0x2C),
                                   .location = 3,
                                   .part = "M393A2K43DB3",
                                   .serial = 0x00C0FFEE,
                                   .year = 2022,
                                   .week = 51});

    EXPECT_THAT(part_of(image, 320, 9), ElementsAre(0x80, 0xCE, 3, 0x22, 0x51, 0x00, 0xC0, 0xFF, 0xEE));
    EXPECT_EQ(text_of(image, 329, 12), "M393A2K43DB3");
    EXPECT_THAT(part_of(image, 350, 2), ElementsAre(0x80, 0x2C));
    EXPECT_EQ(part_of(image, 126, 2), part_of(Ddr4Image().put(0, part_of(image, 0, 126)).seal().build(), 126, 2));
    EXPECT_NE(part_of(image, 126, 2), Bytes(2));
}

TEST(Module, IsRefusedWhenNoDeviceMakesUpItsSize) {
    EXPECT_THROW(spd_image({.size_gb = 3}), std::invalid_argument);
    EXPECT_THROW(spd_image({.size_gb = 0}), std::invalid_argument);
    EXPECT_THROW(spd_image({.ranks = 0}), std::invalid_argument);
    EXPECT_THROW(spd_image({.generation = Generation::ddr3, .dies = 2, .speed = 1600}), std::invalid_argument);
    EXPECT_THROW(spd_image({.speed = 1234}), std::invalid_argument);
}

}  // namespace
