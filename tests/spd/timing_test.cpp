// SPDX-License-Identifier: Apache-2.0
#include <cmath>

#include "failing_allocator.h"
#include "spd_test.h"

using namespace vpdd::test;

namespace {

constexpr uint32_t any_length = 0;  // the functions that take it do not look at it

using ByteList = std::initializer_list<std::pair<std::size_t, uint8_t>>;

// ---- timebases

float fine_of(uint8_t type, ByteList bytes) {
    return calculate_fine_timebase(image_with(type, bytes).data(), any_length);
}
float medium_of(uint8_t type, ByteList bytes) {
    return calculate_medium_timebase(image_with(type, bytes).data(), any_length);
}

TEST(FineTimebase, OfDdr3StaysInPicoseconds) {
    EXPECT_EQ(fine_of(ddr3, {{9, 0x52}}), 2.5F);
    EXPECT_EQ(fine_of(ddr3, {{9, 0x11}}), 1.0F);
    EXPECT_EQ(fine_of(ddr3, {{9, 0x0F}}), 0.0F);
    EXPECT_EQ(fine_of(ddr3, {{9, 0xF4}}), 3.75F);
}

TEST(FineTimebase, TakesOneForADdr3DivisorOfZero) { EXPECT_EQ(fine_of(ddr3, {{9, 0x70}}), 7.0F); }

TEST(FineTimebase, OfDdr4IsOnePicosecond) {
    EXPECT_EQ(fine_of(ddr4, {{17, 0x00}}), 0.001F);
    EXPECT_EQ(fine_of(ddr4, {{17, 0xFC}}), 0.001F);
    EXPECT_EQ(fine_of(nvdimm, {{17, 0x00}}), 0.001F);
    for (const uint8_t code : {1, 2, 3}) {
        EXPECT_EQ(fine_of(ddr4, {{17, code}}), 0.0F);
        EXPECT_EQ(fine_of(nvdimm, {{17, code}}), 0.0F);
    }
}

TEST(MediumTimebase, OfDdr3IsAQuotient) {
    EXPECT_EQ(medium_of(ddr3, {{10, 1}, {11, 8}}), 0.125F);
    EXPECT_EQ(medium_of(ddr3, {{10, 255}, {11, 2}}), 127.5F);
}

TEST(MediumTimebase, TakesOneForADdr3DivisorOfZero) { EXPECT_EQ(medium_of(ddr3, {{10, 3}, {11, 0}}), 3.0F); }

TEST(MediumTimebase, OfDdr4HangsOnTheBitsOfTheFineOne) {
    EXPECT_EQ(medium_of(ddr4, {{17, 0x0C}}), 0.125F) << "its own bits do not count";
    EXPECT_EQ(medium_of(nvdimm, {{17, 0x04}}), 0.125F);
    for (const uint8_t code : {1, 2, 3}) {
        EXPECT_EQ(medium_of(ddr4, {{17, code}}), 0.0F);
        EXPECT_EQ(medium_of(nvdimm, {{17, code}}), 0.0F);
    }
}

TEST(Timebases, AreZeroForOtherTypes) {
    for (const uint8_t type : {ddr5, uint8_t{0x00}, uint8_t{0x08}}) {
        const ByteList bytes{{9, 0x11}, {10, 1}, {11, 8}};
        EXPECT_EQ(fine_of(type, bytes), 0.0F);
        EXPECT_EQ(medium_of(type, bytes), 0.0F);
    }
}

// ---- clock period

float clock_of(uint8_t type, ByteList bytes, float fine, float medium) {
    return calculate_sdram_clock(image_with(type, bytes).data(), any_length, fine, medium);
}

TEST(CalculateSdramClock, OfDdr3ReadsBytes12And34) {
    EXPECT_FLOAT_EQ(clock_of(ddr3, {{12, 10}, {34, 4}}, 0.5F, 0.125F), 3.25F);
    EXPECT_FLOAT_EQ(clock_of(ddr3, {{12, 10}, {34, 0xFE}}, 0.5F, 0.125F), 0.25F);
    EXPECT_FLOAT_EQ(clock_of(ddr3, {{12, 10}, {34, 0x7F}}, 0.5F, 0.125F), 64.75F);
    EXPECT_FLOAT_EQ(clock_of(ddr3, {{12, 10}, {34, 0x80}}, 0.5F, 0.125F), -62.75F);
}

TEST(CalculateSdramClock, OfDdr4ReadsBytes18And125) {
    for (const uint8_t type : {ddr4, nvdimm}) {
        EXPECT_FLOAT_EQ(clock_of(type, {{18, 5}, {125, 0}}, 0.001F, 0.125F), 0.625F);
        EXPECT_FLOAT_EQ(clock_of(type, {{18, 6}, {125, 0xBC}}, 0.001F, 0.125F), 0.682F);
    }
}

TEST(CalculateSdramClock, TakesItsOffsetAsASignedByte) {
    EXPECT_FLOAT_EQ(clock_of(ddr4, {{18, 8}, {125, 0x7F}}, 0.001F, 0.125F), 1.127F);
    EXPECT_FLOAT_EQ(clock_of(ddr4, {{18, 8}, {125, 0x80}}, 0.001F, 0.125F), 0.872F);
    EXPECT_FLOAT_EQ(clock_of(ddr4, {{18, 0}, {125, 0xFF}}, 0.001F, 0.125F), -0.001F);
}

TEST(CalculateSdramClock, RoundsEachProductAndThenTheSumToSinglePrecision) {
    // Each is the float of 0.125 N, a float, and the float of 0.001F times the offset, added and rounded again. A fused
    // product differs in the rows of -30, -127 and 127, double precision in that of -128.
    constexpr struct {
        uint8_t count, offset;
        float clock;
    } clocks[] = {
        {5, 0x00, 0x1.4p-1F},       // +0
        {5, 0xF8, 0x1.3be76cp-1F},  // -8
        {6, 0x0D, 0x1.86a7fp-1F},   // +13
        {7, 0x0D, 0x1.c6a7fp-1F},   // +13
        {8, 0xF8, 0x1.fbe76cp-1F},  // -8
        {5, 0x80, 0x1.fced9p-2F},   // -128
        {8, 0x80, 0x1.be76c8p-1F},  // -128
        {5, 0xE2, 0x1.30a3d8p-1F},  // -30
        {6, 0xE2, 0x1.70a3d8p-1F},  // -30
        {7, 0xE2, 0x1.b0a3d8p-1F},  // -30
        {8, 0xE2, 0x1.f0a3d8p-1F},  // -30
        {6, 0x81, 0x1.3ef9dcp-1F},  // -127
        {5, 0x7F, 0x1.810624p-1F},  // +127
        {6, 0xBC, 0x1.5d2f1ap-1F},  // -68
        {7, 0xC1, 0x1.9fbe76p-1F},  // -63
        {8, 0x9D, 0x1.cd4fep-1F},   // -99
        {10, 0xFF, 0x1.3fbe76p0F},  // -1
    };
    for (const auto& [count, offset, clock] : clocks) {
        for (const uint8_t type : {ddr4, nvdimm}) {
            EXPECT_EQ(clock_of(type, {{18, count}, {125, offset}}, 0.001F, 0.125F), clock)
                << int{count} << " " << int{static_cast<int8_t>(offset)};
        }
    }
}

TEST(CalculateSdramClock, IsZeroForOtherTypes) {
    EXPECT_EQ(calculate_sdram_clock(Bytes(1024, ddr5).data(), any_length, 1, 1), 0.0F);
    EXPECT_EQ(calculate_sdram_clock(Bytes(1024, 0x08).data(), any_length, 1, 1), 0.0F);
}

// ---- CAS latency time

float latency_of(uint8_t type, ByteList bytes, float fine, float medium) {
    return calculate_cas_latency(image_with(type, bytes).data(), any_length, fine, medium);
}

TEST(CalculateCasLatency, OfDdr3ReadsBytes16And35) {
    EXPECT_FLOAT_EQ(latency_of(ddr3, {{16, 110}, {35, 2}}, 0.5F, 0.125F), 14.75F);
}

TEST(CalculateCasLatency, OfDdr4ReadsBytes24And123) {
    EXPECT_FLOAT_EQ(latency_of(ddr4, {{24, 110}, {123, 10}}, 0.001F, 0.125F), 13.76F);
}

TEST(CalculateCasLatency, TakesItsOffsetAsAnUnsignedByte) {
    EXPECT_FLOAT_EQ(latency_of(ddr3, {{16, 8}, {35, 0xFF}}, 1, 1), 263);
    EXPECT_FLOAT_EQ(latency_of(ddr4, {{24, 8}, {123, 0x80}}, 0.001F, 0.125F), 1.128F);
}

TEST(CalculateCasLatency, IsZeroForOtherTypes) {
    for (const uint8_t type : {nvdimm, ddr5, uint8_t{0x08}}) {
        Bytes image(1024, 0x22);
        image[2] = type;
        EXPECT_EQ(calculate_cas_latency(image.data(), any_length, 1, 1), 0.0F);
    }
}

// ---- frequency tables

struct FrequencyRow {
    uint32_t low, high;
    std::string text;

    bool operator==(const FrequencyRow&) const = default;
};
void PrintTo(const FrequencyRow& row, std::ostream* stream) {
    *stream << row.low << "-" << row.high << " " << row.text;
}

const std::vector<FrequencyRow> ddr4_rows{
    {1, 789, "DDR4 (Not support freq.)"},       {790, 910, "DDR4-1600 (800 MHz clock)"},
    {923, 943, "DDR4-1866 (933 MHz clock)"},    {1057, 1087, "DDR4-2133 (1067 MHz clock)"},
    {1190, 1210, "DDR4-2400 (1200 MHz clock)"}, {1323, 1343, "DDR4-2666 (1333 MHz clock)"},
    {1456, 1476, "DDR4-2933 (1466 MHz clock)"}, {1590, 1610, "DDR4-3200 (1600 MHz clock)"},
    {1611, 9999, "DDR4 (Not support freq.)"},
};

const std::vector<FrequencyRow> ddr3_rows{
    {1, 389, "DDR3 (Not support freq.)"},       {390, 410, "DDR3-800 (400 MHz clock)"},
    {523, 543, "DDR3-1066 (533 MHz clock)"},    {657, 677, "DDR3-1333 (667 MHz clock)"},
    {790, 810, "DDR3-1600 (800 MHz clock)"},    {923, 943, "DDR3-1866 (933 MHz clock)"},
    {1057, 1077, "DDR3-2133 (1067 MHz clock)"}, {1078, 9999, "DDR3 (Not support freq.)"},
};

std::vector<FrequencyRow> rows_of(const DimmFrequencyRow* row) {
    std::vector<FrequencyRow> rows;
    for (; row->low != 0; ++row) rows.push_back({row->low, row->high, row->text});
    return rows;
}

TEST(FrequencyTables, HaveTheirRowsInOrder) {
    EXPECT_EQ(rows_of(dimm_freq_ddr4_table), ddr4_rows);
    EXPECT_EQ(rows_of(dimm_frequency_table), ddr3_rows);
}

void expect_all_frequencies(decltype(translate_sdram_frequency)& translate, const std::vector<FrequencyRow>& rows) {
    for (uint32_t mhz = 0; mhz < 10100; ++mhz) {
        const auto has_it = [&](const FrequencyRow& row) { return row.low <= mhz && mhz <= row.high; };
        const auto row = std::find_if(rows.begin(), rows.end(), has_it);
        const char* text = "untouched";
        const int result = translate(mhz, &text);
        ASSERT_EQ(result, row == rows.end() ? -1 : 0) << mhz;
        if (row == rows.end())
            ASSERT_EQ(text, nullptr) << mhz;
        else
            ASSERT_EQ(text, row->text) << mhz;
    }
}

TEST(TranslateSdramFrequency, FindsTheRowOfEachClockAndNothingInTheGaps) {
    expect_all_frequencies(translate_sdram_frequency_ddr4, ddr4_rows);
    expect_all_frequencies(translate_sdram_frequency, ddr3_rows);
}

TEST(TranslateSdramFrequency, HasNoTextForHugeClocks) {
    const char* text = "untouched";

    EXPECT_EQ(translate_sdram_frequency_ddr4(UINT32_MAX, &text), -1);
    EXPECT_EQ(text, nullptr);
}

// ---- supported CAS latencies

std::string latencies_of(const Bytes& image) {
    char* text = nullptr;
    EXPECT_EQ(parse_cas_supported_latencies(image.data(), any_length, &text), 0);
    const OwnedText owned(text);
    return text == nullptr ? "(null)" : text;
}
std::string latencies_of(uint8_t type, ByteList bytes) { return latencies_of(image_with(type, bytes)); }

TEST(ParseCasSupportedLatencies, OfDdr3CountsFromFourAndTwelve) {
    EXPECT_EQ(latencies_of(ddr3, {{14, 0xFF}, {15, 0xFF}}), "4,5,6,7,8,9,10,11,12,13,14,15,16,17,18")
        << "bit 7 of the second byte does not count";
    EXPECT_EQ(latencies_of(ddr3, {{14, 0x01}}), "4");
    EXPECT_EQ(latencies_of(ddr3, {{15, 0x41}}), "12,18");
    EXPECT_EQ(latencies_of(ddr3, {{14, 0x24}, {15, 0x80}}), "6,9");
}

TEST(ParseCasSupportedLatencies, OfDdr4CountsTheLastByteFromThirty) {
    EXPECT_EQ(latencies_of(ddr4, {{20, 0xFF}, {21, 0xFF}, {22, 0xFF}, {23, 0xFF}}),
              "7,8,9,10,11,12,13,14,15,16,17,18,19,20,21,22,23,24,25,26,27,28,29,30,30,31,32,33,34,35,36,37");
    EXPECT_EQ(latencies_of(ddr4, {{20, 0x01}}), "7");
    EXPECT_EQ(latencies_of(ddr4, {{21, 0x81}}), "15,22");
    EXPECT_EQ(latencies_of(ddr4, {{22, 0x81}}), "23,30");
    EXPECT_EQ(latencies_of(ddr4, {{23, 0x81}}), "30,37");
    EXPECT_EQ(latencies_of(ddr4, {{20, 0x06}, {23, 0x02}}), "8,9,31");
}

TEST(ParseCasSupportedLatencies, IsEmptyWithoutABit) {
    EXPECT_EQ(latencies_of(ddr3, {}), "");
    EXPECT_EQ(latencies_of(ddr4, {}), "");
}

TEST(ParseCasSupportedLatencies, IsEmptyForOtherTypes) {
    for (const uint8_t type : {nvdimm, ddr5, uint8_t{0x08}}) {
        Bytes image(1024, 0xFF);
        image[2] = type;
        EXPECT_EQ(latencies_of(image), "");
    }
}

TEST(ParseCasSupportedLatencies, FailsWhenTheCopyFails) {
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer brings its own allocator";
    const Bytes image = image_with(ddr4, {{20, 0xFF}});
    char* text = nullptr;
    int result = 0;
    {
        const AllocationWatch watch(1);
        result = parse_cas_supported_latencies(image.data(), any_length, &text);
    }

    EXPECT_EQ(result, -1);
    EXPECT_EQ(text, nullptr);
}

TEST(ParseCasSupportedLatencies, MakesOneCopyThatTheCallerFrees) {
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer brings its own allocator";
    const Bytes image = image_with(ddr4, {{20, 0xFF}});
    const AllocationWatch watch;

    char* text = nullptr;
    parse_cas_supported_latencies(image.data(), any_length, &text);
    EXPECT_EQ(watch.live_blocks(), 1U);
    free(text);

    EXPECT_EQ(watch.live_blocks(), 0U);
}

// ---- transfer rate

uint32_t speed_of(uint8_t type, ByteList bytes, uint32_t length = 127) {
    return calculate_dimm_speed_inmbspsec(image_with(type, bytes).data(), length);
}

TEST(CalculateDimmSpeed, OfDdr3HangsOnItsMediumTimebase) {
    EXPECT_EQ(speed_of(ddr3, {{8, 0x0B}, {10, 1}, {11, 8}, {12, 10}}), 12800U);
    EXPECT_EQ(speed_of(ddr3, {{8, 0x03}, {10, 1}, {11, 8}, {12, 12}}), 10666U);
    EXPECT_EQ(speed_of(ddr3, {{8, 0x02}, {10, 2}, {11, 15}, {12, 10}}), 6000U);
}

TEST(CalculateDimmSpeed, OfDdr3IsZeroForADivisorOfZero) {
    EXPECT_EQ(speed_of(ddr3, {{8, 3}, {10, 0}, {11, 8}, {12, 10}}), 0U);
    EXPECT_EQ(speed_of(ddr3, {{8, 3}, {10, 1}, {11, 8}, {12, 0}}), 0U);
}

TEST(CalculateDimmSpeed, OfDdr4LeavesTheFineOffsetOut) {
    EXPECT_EQ(speed_of(ddr4, {{13, 0x0B}, {18, 5}}), 25600U);
    EXPECT_EQ(speed_of(ddr4, {{13, 0x03}, {18, 7}, {125, 0xD6}}), 18285U);
}

TEST(CalculateDimmSpeed, CountsTheBytesOfTheBusByItsLowThreeBits) {
    const std::vector<uint32_t> bus_bytes{1, 2, 4, 8, 0, 0, 0, 0};
    for (unsigned byte = 0; byte <= 0xFF; ++byte) {
        const auto code = static_cast<uint8_t>(byte);
        EXPECT_EQ(speed_of(ddr3, {{8, code}, {10, 1}, {11, 8}, {12, 10}}), 1600 * bus_bytes[byte & 7U]) << byte;
        EXPECT_EQ(speed_of(ddr4, {{13, code}, {18, 5}}), 3200 * bus_bytes[byte & 7U]) << byte;
        EXPECT_EQ(speed_of(nvdimm, {{181, code}, {18, 5}}), 3200 * bus_bytes[byte & 7U]) << byte;
    }
}

class CalculateDdr4Speed : public testing::TestWithParam<uint8_t> {
protected:
    static uint32_t with(uint8_t timebases, uint8_t clock_period) {
        return speed_of(GetParam(), {{13, 3}, {17, timebases}, {18, clock_period}, {181, 3}});
    }
};

TEST_P(CalculateDdr4Speed, NeedsTheMediumTimebasesBits) {
    EXPECT_EQ(with(0x04, 5), 0U);
    EXPECT_EQ(with(0x08, 5), 0U);
    EXPECT_EQ(with(0x0C, 5), 0U);
    EXPECT_EQ(with(0xF3, 5), 25600U);
}

TEST_P(CalculateDdr4Speed, IsZeroForAClockOfZero) { EXPECT_EQ(with(0, 0), 0U); }

INSTANTIATE_TEST_SUITE_P(All, CalculateDdr4Speed, testing::Values(ddr4, nvdimm),
                         [](const auto& row) { return std::string(row.param == ddr4 ? "Ddr4" : "Nvdimm"); });

TEST(CalculateDimmSpeed, OfAnNvdimmReadsByte181WhateverItsLayout) {
    for (const uint8_t first : {'#', '0', 'x'})
        EXPECT_EQ(speed_of(nvdimm, {{0, first}, {13, 0x01}, {18, 6}, {181, 0x03}, {597, 0x02}}), 21333U);
}

TEST(CalculateDimmSpeed, IsZeroForOtherTypesAndShortImages) {
    Bytes image(1024, 0x03);
    image[2] = ddr5;
    EXPECT_EQ(calculate_dimm_speed_inmbspsec(image.data(), 1024), 0U);
    image[2] = 0x08;
    EXPECT_EQ(calculate_dimm_speed_inmbspsec(image.data(), 1024), 0U);

    EXPECT_EQ(speed_of(ddr4, {{13, 0x0B}, {18, 5}}, 126), 0U);
    EXPECT_EQ(speed_of(ddr3, {{8, 3}, {10, 1}, {11, 8}, {12, 10}}, 126), 0U);
}

}  // namespace
