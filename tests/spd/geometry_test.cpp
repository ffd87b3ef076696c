// SPDX-License-Identifier: Apache-2.0
#include "spd_test.h"

using namespace vpdd::test;

namespace {

using CalculateDimmSize = PlatformTest;
using GetDimmEccbit = PlatformTest;

uint32_t size_of(const Bytes& image) { return calculate_dimm_size(image.data()); }
uint32_t size_of(uint8_t type, std::initializer_list<std::pair<std::size_t, uint8_t>> bytes) {
    return size_of(image_with(type, bytes));
}

// ---- bus width in bytes

TEST(BusWidthInbytes, KnowsFourCodes) {
    const std::map<uint8_t, uint32_t> widths{{0, 1}, {1, 2}, {2, 4}, {3, 8}};

    for (int code = 0; code <= 0xFF; ++code) {
        const auto width = widths.find(static_cast<uint8_t>(code));
        EXPECT_EQ(bus_width_inbytes(static_cast<uint8_t>(code)), width == widths.end() ? 0U : width->second) << code;
    }
}

// ---- size

TEST_F(CalculateDimmSize, OfADdr4ModuleOfOneRankOfEightGigabits) {
    EXPECT_EQ(size_of(ddr4, {{4, 0x85}, {6, 0}, {12, 0x01}, {13, 0x0B}}), 8192U);
}

TEST_F(CalculateDimmSize, OfADdr3ModuleReadsItsOwnBytes) {
    EXPECT_EQ(size_of(ddr3, {{4, 0x04}, {7, 0x09}, {8, 0x03}}), 8192U);
    EXPECT_EQ(size_of(ddr3, {{4, 0x00}, {7, 0x02}, {8, 0x00}}), 16U);
}

TEST_F(CalculateDimmSize, DoublesWithEachDensityCode) {
    uint32_t expected = 256U / 8 * 64 / 8;
    for (uint8_t code = 0; code < 16; ++code, expected *= 2)
        EXPECT_EQ(size_of(ddr4, {{4, static_cast<uint8_t>(code | 0xF0)}, {12, 0x01}, {13, 0x03}}), expected);
}

TEST_F(CalculateDimmSize, HalvesWithEachDeviceWidthCode) {
    uint32_t expected = 8192U / 8 * 64 / 4;
    for (uint8_t code = 0; code < 8; ++code, expected /= 2)
        EXPECT_EQ(size_of(ddr4, {{4, 5}, {12, static_cast<uint8_t>(code | 0xC0)}, {13, 3}}), expected);
}

TEST_F(CalculateDimmSize, DoublesWithEachBusWidthCode) {
    uint32_t expected = 8192U / 8 * 8 / 8;
    for (uint8_t code = 0; code < 8; ++code, expected *= 2)
        EXPECT_EQ(size_of(ddr4, {{4, 5}, {12, 1}, {13, static_cast<uint8_t>(code | 0xF8)}}), expected);
}

TEST_F(CalculateDimmSize, CountsEightRanksForRankCodeFourOfBothGenerations) {
    const std::vector<uint32_t> counts{1, 2, 3, 4, 8, 0, 0, 0};
    for (uint8_t code = 0; code < 8; ++code) {
        const auto organization = static_cast<uint8_t>(code << 3U | 1U);
        EXPECT_EQ(size_of(ddr4, {{4, 5}, {12, organization}, {13, 3}}), counts[code] * 8192);
        EXPECT_EQ(size_of(ddr3, {{4, 5}, {7, organization}, {8, 3}}), counts[code] * 8192);
    }
}

TEST_F(CalculateDimmSize, CountsTheDiesOfADdr4SingleLoadStackOnly) {
    for (const uint8_t loading : {0, 1, 3})
        EXPECT_EQ(size_of(ddr4, {{4, 5}, {6, static_cast<uint8_t>(0xB0 | loading)}, {12, 1}, {13, 3}}), 8192U);
    EXPECT_EQ(size_of(ddr4, {{4, 5}, {6, 0x82}, {12, 1}, {13, 3}}), 8192U);
    EXPECT_EQ(size_of(ddr4, {{4, 5}, {6, 0x92}, {12, 1}, {13, 3}}), 2 * 8192U);
    EXPECT_EQ(size_of(ddr4, {{4, 5}, {6, 0xB2}, {12, 1}, {13, 3}}), 4 * 8192U);
    EXPECT_EQ(size_of(ddr4, {{4, 5}, {6, 0xC2}, {12, 1}, {13, 3}}), 8192U) << "two bits of the die count are read";
    EXPECT_EQ(size_of(ddr3, {{4, 5}, {6, 0xB2}, {7, 1}, {8, 3}}), 8192U) << "DDR3 has no stacks";
}

TEST_F(CalculateDimmSize, WrapsAtThirtyTwoBits) {
    EXPECT_EQ(size_of(ddr4, {{4, 0x0F}, {6, 0x32}, {12, 0x18}, {13, 0x07}}), 0U) << "4 ranks of 4 x 2^28 MB";
    EXPECT_EQ(size_of(ddr4, {{4, 0x0F}, {6, 0x32}, {12, 0x08}, {13, 0x07}}), 0x80000000U);
}

TEST_F(CalculateDimmSize, OfAnNvdimmComesFromTheHybridArea) {
    // 2^3 x (2^5 x 2) x 32
    EXPECT_EQ(size_of(nvdimm, {{176, 0x05}, {178, 0x10}, {181, 0x03}}), 16384U);
    EXPECT_EQ(size_of(nvdimm, {{176, 0xF5}, {178, 0x93}, {180, 0x7F}, {181, 0xFB}}), 16384U) << "other bits";
    EXPECT_EQ(size_of(nvdimm, {{0, '0'}, {176, 0x05}, {178, 0x10}, {181, 0x03}, {592, 9}}), 16384U) << "any layout";
}

TEST_F(CalculateDimmSize, OfAnAsymmetricNvdimmIsDoubled) {
    EXPECT_EQ(size_of(nvdimm, {{176, 0x05}, {178, 0x10}, {180, 0x80}, {181, 0x03}}), 32768U);
}

TEST_F(CalculateDimmSize, DividesAnNvdimmsDiesInIntegers) {
    EXPECT_EQ(size_of(nvdimm, {{178, 0x24}}), 32U) << "3 / 2";
    EXPECT_EQ(size_of(nvdimm, {{178, 0x7C}}), 2 * 32U) << "8 / 4";
    EXPECT_EQ(size_of(nvdimm, {{178, 0x08}}), 0U) << "1 / 3";
}

TEST_F(CalculateDimmSize, OfTheLargestNvdimmFitsTheWord) {
    EXPECT_EQ(size_of(nvdimm, {{176, 0x0F}, {178, 0x70}, {180, 0x80}, {181, 0x07}}), 0x80000000U);
}

TEST_F(CalculateDimmSize, LogsNothingForKnownTypes) {
    size_of(blank_image(ddr3));
    size_of(blank_image(ddr4));
    size_of(blank_image(nvdimm));

    EXPECT_TRUE(platform.logged_nothing());
}

TEST_F(CalculateDimmSize, RefusesOtherTypes) {
    EXPECT_EQ(size_of(Bytes(1024, ddr5)), 0U);
    EXPECT_EQ(size_of(Bytes(1024, 0x08)), 0U);

    EXPECT_EQ(platform.times_logged(14, pid_line("calculate_dimm_size - ERROR:DIMM Device Type Error\n")), 2U);
}

// ---- flash capacity

TEST(CalculateFlashdimmCapacity, IsAWordOfGigabytes) {
    EXPECT_EQ(calculate_flashdimm_capacity(image_with(ddr3, {{152, 0x90}, {153, 0x01}}).data()), 400U);
    EXPECT_EQ(calculate_flashdimm_capacity(image_with(ddr3, {{152, 0xFF}, {153, 0xFF}}).data()), 65535U);
    EXPECT_EQ(calculate_flashdimm_capacity(image_with(ddr4, {{355, 0xFF}, {356, 0xFF}}).data()), 65535U);
}

TEST(CalculateFlashdimmCapacity, IsZeroForOtherTypes) {
    for (const uint8_t type : {nvdimm, ddr5, uint8_t{0x08}}) {
        Bytes image(1024, 0x11);
        image[2] = type;
        EXPECT_EQ(calculate_flashdimm_capacity(image.data()), 0U);
    }
}

TEST(CalculateFlashdimmCapacity, AlwaysPrintsToStandardError) {
    const CaptureStderr errors;

    calculate_flashdimm_capacity(image_with(ddr4, {{355, 200}}).data());
    calculate_flashdimm_capacity(blank_image(nvdimm).data());

    EXPECT_EQ(errors.text(),
              "--> calculate_flashdimm_capacity: Flash DIMM size = 200 GB.\n"
              "--> calculate_flashdimm_capacity: Flash DIMM size = 0 GB.\n");
}

TEST(OtherCalculators, PrintNothing) {
    const CaptureStderr errors;
    const CaptureStdout output;
    const char* name = nullptr;

    for (const uint8_t type : {ddr3, ddr4, nvdimm, ddr5, uint8_t{0}}) {
        const Bytes image = image_with(type, {{3, 1}, {118, 0xCE}, {149, 0xCE}, {321, 0xCE}, {351, 0xCE}, {513, 0xCE}});
        SpdInfo record{};
        vpdd_Handle_DDR4_SPD(image.data(), &record);
        vpdd_Handle_DDR5_SPD(image.data(), &record);
        parse_manufacturer_id(image.data(), 224, &name);
        translate_sdram_frequency(800, &name);
        translate_sdram_frequency_ddr4(1600, &name);
    }

    EXPECT_EQ(errors.text() + output.text(), "");
}

// ---- bus width

uint32_t width_of(uint8_t type, std::initializer_list<std::pair<std::size_t, uint8_t>> bytes, uint32_t length = 127) {
    return get_dimm_bus_width(image_with(type, bytes).data(), length);
}

TEST(GetDimmBusWidth, ReadsItsGenerationsByte) {
    EXPECT_EQ(width_of(ddr3, {{8, 0x0B}}), 64U);
    EXPECT_EQ(width_of(ddr4, {{13, 0x0A}}), 32U);
    EXPECT_EQ(width_of(nvdimm, {{0, '#'}, {181, 0x03}}), 64U);
    EXPECT_EQ(width_of(nvdimm, {{0, '0'}, {597, 0x01}}), 16U);
    EXPECT_EQ(width_of(ddr5, {{235, 0x22}}), 32U);
    EXPECT_EQ(width_of(ddr5, {{235, 0x00}}), 8U);
}

TEST(GetDimmBusWidth, HangsOnTheLowThreeBitsAndIsZeroForCodesAboveThree) {
    constexpr struct {
        uint8_t type, first_byte;
        std::size_t offset;
    } layouts[] = {{ddr3, 0, 8}, {ddr4, 0, 13}, {ddr5, 0, 235}, {nvdimm, '#', 181}, {nvdimm, '0', 597}};
    const std::vector<uint32_t> widths{8, 16, 32, 64, 0, 0, 0, 0};
    for (const auto& [type, first_byte, offset] : layouts)
        for (unsigned byte = 0; byte <= 0xFF; ++byte)
            EXPECT_EQ(width_of(type, {{0, first_byte}, {offset, static_cast<uint8_t>(byte)}}), widths[byte & 7U])
                << offset << " " << byte;
}

TEST(GetDimmBusWidth, IsZeroForOtherImages) {
    for (const uint8_t type : {nvdimm, uint8_t{0x00}, uint8_t{0x08}}) {
        Bytes image(1024, 0x03);
        image[2] = type;
        EXPECT_EQ(get_dimm_bus_width(image.data(), 1024), 0U);
    }
}

TEST(GetDimmBusWidth, IsZeroBelowAHundredAndTwentySevenBytes) {
    EXPECT_EQ(width_of(ddr4, {{13, 0x03}}, 126), 0U);
    EXPECT_EQ(width_of(ddr4, {{13, 0x03}}, 0), 0U);
}

// ---- ECC

uint32_t ecc_of(uint8_t type, std::initializer_list<std::pair<std::size_t, uint8_t>> bytes, uint32_t length = 127) {
    return get_dimm_eccbit(image_with(type, bytes).data(), length);
}

TEST_F(GetDimmEccbit, OfDdr3AndDdr4IsOneBitThatCountsEight) {
    EXPECT_EQ(ecc_of(ddr3, {{8, 0x0B}}), 8U);
    EXPECT_EQ(ecc_of(ddr3, {{8, 0xF7}}), 0U);
    EXPECT_EQ(ecc_of(ddr4, {{13, 0x0B}}), 8U);
    EXPECT_EQ(ecc_of(ddr4, {{13, 0xF7}}), 0U);
}

TEST_F(GetDimmEccbit, OfADdr4LikeNvdimmIsTheRawBits) {
    EXPECT_EQ(ecc_of(nvdimm, {{0, '#'}, {181, 0x0B}}), 8U);
    EXPECT_EQ(ecc_of(nvdimm, {{0, '#'}, {181, 0xFF}}), 0x38U);
    EXPECT_EQ(ecc_of(nvdimm, {{0, '#'}, {181, 0x10}}), 0x10U);
    EXPECT_EQ(ecc_of(nvdimm, {{0, '#'}, {181, 0xC7}}), 0U);
}

TEST_F(GetDimmEccbit, OfADdr5LikeNvdimmCountsFourBitsForEachCode) {
    const std::vector<uint32_t> bits{0, 4, 8, 12};
    for (uint8_t code = 0; code < 4; ++code)
        EXPECT_EQ(ecc_of(nvdimm, {{0, '0'}, {235, static_cast<uint8_t>(code << 3U | 0xE7)}}), bits[code]);
}

TEST_F(GetDimmEccbit, OfDdr5HasNoThirdCode) {
    const std::vector<uint32_t> bits{0, 4, 8, 0};
    for (uint8_t code = 0; code < 4; ++code)
        EXPECT_EQ(ecc_of(ddr5, {{235, static_cast<uint8_t>(code << 3U | 0xE7)}}), bits[code]);
}

TEST_F(GetDimmEccbit, IsZeroForOtherImages) {
    for (const uint8_t type : {nvdimm, uint8_t{0x00}, uint8_t{0x08}}) {
        Bytes image(1024, 0x38);
        image[2] = type;
        EXPECT_EQ(get_dimm_eccbit(image.data(), 1024), 0U);
    }
}

TEST_F(GetDimmEccbit, LogsTheTypeFirstWhateverTheLength) {
    EXPECT_EQ(ecc_of(ddr4, {{13, 0x0B}}, 126), 0U);
    EXPECT_EQ(ecc_of(ddr5, {{235, 0x10}}, 127), 8U);
    EXPECT_EQ(ecc_of(0, {}, 127), 0U);

    EXPECT_EQ(platform.log(),
              (std::vector<LogLine>{{8, "DIMM type:0x c"}, {8, "DIMM type:0x12"}, {8, "DIMM type:0x 0"}}));
}

// ---- ranks

uint32_t ranks_of(uint8_t type, std::initializer_list<std::pair<std::size_t, uint8_t>> bytes, uint32_t length = 127) {
    return get_dimm_ranks(image_with(type, bytes).data(), length);
}

TEST(GetDimmRanks, IsTheRankCodeOfItsGenerationsByte) {
    for (uint8_t code = 0; code < 8; ++code) {
        const auto byte = static_cast<uint8_t>(code << 3U | 0xC7);
        EXPECT_EQ(ranks_of(ddr3, {{7, byte}}), code);
        EXPECT_EQ(ranks_of(ddr4, {{12, byte}}), code);
        EXPECT_EQ(ranks_of(ddr5, {{234, byte}}), code);
    }
}

TEST(GetDimmRanks, OfAnNvdimmAddsItsAsymmetricRank) {
    EXPECT_EQ(ranks_of(nvdimm, {{0, '#'}, {180, 0x08}}), 1U);
    EXPECT_EQ(ranks_of(nvdimm, {{0, '#'}, {180, 0x48}}), 2U);
    EXPECT_EQ(ranks_of(nvdimm, {{0, '#'}, {180, 0xFF}}), 8U);
    EXPECT_EQ(ranks_of(nvdimm, {{0, '0'}, {596, 0x50}}), 3U);
    EXPECT_EQ(ranks_of(nvdimm, {{0, 0x58}}), 4U) << "an unknown layout is read at byte 0";
}

TEST(GetDimmRanks, OfOtherTypesReadsByteZero) {
    EXPECT_EQ(ranks_of(0x00, {{0, 0x58}}), 3U);
    EXPECT_EQ(ranks_of(0x08, {{0, 0xFF}}), 7U);
}

TEST(GetDimmRanks, IsZeroBelowAHundredAndTwentySevenBytes) {
    EXPECT_EQ(ranks_of(ddr4, {{12, 0x18}}, 126), 0U);
    EXPECT_EQ(ranks_of(ddr4, {{12, 0x18}}, 127), 3U);
}

}  // namespace
