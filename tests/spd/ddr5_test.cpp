// SPDX-License-Identifier: Apache-2.0
#include "failing_allocator.h"
#include "spd_test.h"

using namespace vpdd::test;

namespace {

using HandleDdr5 = PlatformTest;
using CalculateDimmDdr5Size = PlatformTest;
using GetDdr5DimmFreq = PlatformTest;
using GetCasSupportedLatencies = PlatformTest;
using CalculateTwrMin = PlatformTest;
using ByteList = std::initializer_list<std::pair<std::size_t, uint8_t>>;

std::vector<LogLine> lines(int priority, const std::vector<std::string>& texts) {
    std::vector<LogLine> result;
    for (const std::string& text : texts) result.push_back({priority, text});
    return result;
}

std::vector<LogLine> operator+(std::vector<LogLine> first, const std::vector<LogLine>& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

// ---- size

int32_t size_of(const Bytes& image) { return calculate_dimm_ddr5_size(image.data(), 0); }
int32_t size_of(ByteList bytes) { return size_of(image_with(ddr5, bytes)); }

constexpr uint8_t one_die_of_16_gbit = 0x04, x8 = 0x20, two_ranks = 0x08, two_sub_channels_of_32 = 0x22;

TEST_F(CalculateDimmDdr5Size, OfTwoRanksOfEightSixteenGigabitDies) {
    EXPECT_EQ(size_of({{4, 0x04}, {6, 0x20}, {234, 0x08}, {235, 0x22}}), 32);
    EXPECT_TRUE(platform.logged_nothing());
}

TEST_F(CalculateDimmDdr5Size, CountsTheDies) {
    const std::vector<int32_t> dies{1, 0, 2, 4, 8, 16, 0, 4};
    for (uint8_t code = 0; code < 8; ++code)
        EXPECT_EQ(size_of({{4, static_cast<uint8_t>(code << 5U | 4)}, {6, x8}, {234, two_ranks}, {235, 0x22}}),
                  32 * dies[code]);
}

TEST_F(CalculateDimmDdr5Size, LogsInvalidDieCounts) {
    EXPECT_EQ(size_of({{4, 0x23}, {6, x8}, {234, two_ranks}, {235, 0x22}}), 0);
    EXPECT_EQ(size_of({{4, 0xC4}, {6, x8}, {234, two_ranks}, {235, 0x22}}), 0);

    EXPECT_EQ(platform.log(),
              lines(3, {"*** SDRAM Die Count at Byte 4 invalid ***\n", "*** SDRAM Die Count at Byte 4 invalid ***\n"}));
}

TEST_F(CalculateDimmDdr5Size, RoundsTheDensityDownToWholeGigabytes) {
    const std::vector<int32_t> gigabytes{0, 0, 1, 1, 2, 3, 4, 6, 8};
    for (uint8_t code = 0; code < 32; ++code)
        EXPECT_EQ(size_of({{4, code}, {6, x8}, {234, two_ranks}, {235, 0x22}}),
                  16 * (code < gigabytes.size() ? gigabytes[code] : 0))
            << int{code};
}

TEST_F(CalculateDimmDdr5Size, RoundsTheDensityDownBeforeItCountsTheDies) {
    EXPECT_EQ(size_of({{4, 0x43}, {6, x8}, {234, two_ranks}, {235, 0x22}}), 16 * 2) << "2 dies of 12 Gbit";
}

TEST_F(CalculateDimmDdr5Size, CountsDevicesRanksAndSubChannels) {
    EXPECT_EQ(size_of({{4, 4}, {6, 0x00}, {234, 0x00}, {235, 0x22}}), 2 * 8 * 2) << "x4";
    EXPECT_EQ(size_of({{4, 4}, {6, 0x5F}, {234, 0x00}, {235, 0x22}}), 2 * 2 * 2) << "x16";
    EXPECT_EQ(size_of({{4, 4}, {6, 0xE0}, {234, 0x00}, {235, 0x22}}), 0) << "a device wider than the bus";
    EXPECT_EQ(size_of({{4, 4}, {6, 0x20}, {234, 0x87}, {235, 0x02}}), 1 * 4 * 2) << "one sub-channel";
    EXPECT_EQ(size_of({{4, 4}, {6, 0x20}, {234, 0x38}, {235, 0xFB}}), 4 * 8 * 2 * 8);
    EXPECT_EQ(size_of({{4, 0xA8}, {6, 0}, {234, 0x38}, {235, 0x67}}), 4 * 256 * 16 * 8 * 8) << "the largest";
}

TEST_F(CalculateDimmDdr5Size, OfAnAsymmetricModuleIsZero) {
    EXPECT_EQ(size_of({{4, one_die_of_16_gbit}, {6, x8}, {234, 0x48}, {235, two_sub_channels_of_32}}), 0);

    EXPECT_EQ(platform.log(), lines(3, {"Not support to calculate size of asymmetrical of DDR5!\n"}));
}

TEST_F(CalculateDimmDdr5Size, LogsBothAnInvalidDieCountAndAnAsymmetricModule) {
    EXPECT_EQ(size_of({{4, 0x24}, {234, 0x40}}), 0);

    EXPECT_EQ(platform.log(), lines(3, {"*** SDRAM Die Count at Byte 4 invalid ***\n",
                                        "Not support to calculate size of asymmetrical of DDR5!\n"}));
}

TEST_F(CalculateDimmDdr5Size, OfAnNvdimmComesFromTheHybridArea) {
    const auto size = [](ByteList bytes) {
        Bytes image = image_with(nvdimm, bytes);
        image[0] = '0';
        return size_of(image);
    };

    // 2 x 2^5 x 32 x 2^3 MB
    EXPECT_EQ(size({{592, 0xF5}, {594, 0x93}, {596, 0x7F}, {597, 0xFB}}), 16);
    EXPECT_EQ(size({{592, 0x05}, {594, 0x10}, {596, 0x80}, {597, 0x03}}), 32) << "asymmetric";
    EXPECT_EQ(size({{592, 0x05}, {594, 0x24}, {596, 0x00}, {597, 0x03}}), 8) << "3 / 2 dies";
    EXPECT_EQ(size({{592, 0x04}, {594, 0x00}, {596, 0x00}, {597, 0x00}}), 0) << "512 MB";
    EXPECT_TRUE(platform.logged_nothing());
}

TEST_F(CalculateDimmDdr5Size, OfTheLargestNvdimmIsBelowZero) {
    Bytes image = image_with(nvdimm, {{0, '0'}, {592, 0x0F}, {594, 0x70}, {596, 0x80}, {597, 0x07}});

    EXPECT_EQ(size_of(image), -2097152);
}

TEST_F(CalculateDimmDdr5Size, OfAnNvdimmInAnotherLayoutIsThatOfDdr5) {
    // The hybrid area, which is not read, would make 16 GB.
    Bytes image = image_with(nvdimm, {{4, 0x04}, {6, 0x20}, {234, 0x08}, {235, 0x22}, {592, 5}, {594, 0x10}, {597, 3}});
    for (const unsigned first : {0x00, 0x23, 0x2F, 0x31, 0x70, 0xB0, 0xFF}) {
        image[0] = static_cast<uint8_t>(first);
        EXPECT_EQ(size_of(image), 32) << first;
    }
}

TEST_F(CalculateDimmDdr5Size, OfDdr5DoesNotLookAtByteZero) {
    EXPECT_EQ(size_of({{0, '0'}, {4, 0x04}, {6, 0x20}, {234, 0x08}, {235, 0x22}}), 32);
}

// ---- data rate

int32_t rate_of(uint8_t low, uint8_t high) {
    return get_ddr5_dimm_freq(image_with(ddr5, {{20, low}, {21, high}}).data(), 0);
}
int32_t rate_of(unsigned picoseconds) {
    return rate_of(static_cast<uint8_t>(picoseconds), static_cast<uint8_t>(picoseconds >> 8U));
}

TEST_F(GetDdr5DimmFreq, IsTwentyTimesTheWholeClockInTensOfMegahertz) {
    EXPECT_EQ(rate_of(416), 4800);
    EXPECT_EQ(rate_of(357), 5600);
    EXPECT_EQ(rate_of(625), 3200);
    EXPECT_EQ(rate_of(555), 3600);
    EXPECT_EQ(rate_of(312), 6400);
    EXPECT_EQ(rate_of(417), 4780);
    EXPECT_EQ(rate_of(1), 2000000);
    EXPECT_EQ(rate_of(0xFFFF), 20);
}

TEST_F(GetDdr5DimmFreq, LogsTheClockPeriod) {
    rate_of(0xA0, 0x01);

    EXPECT_EQ(platform.log(), lines(6, {" msb:01 lsb:a0 tCKmin:416"}));
}

TEST_F(GetDdr5DimmFreq, IsZeroWithoutAClockPeriod) {
    EXPECT_EQ(rate_of(0, 0), 0);

    EXPECT_EQ(platform.log(), lines(6, {" msb:00 lsb:00 tCKmin:0"}) + lines(8, {"tCKmin is 0"}));
}

// ---- supported latencies

std::string latencies_of(ByteList bytes) {
    char* text = nullptr;
    EXPECT_EQ(get_cas_supported_latencies(image_with(ddr5, bytes).data(), 0, &text), 1);
    const OwnedText owned(text);
    return text == nullptr ? "(null)" : text;
}

TEST_F(GetCasSupportedLatencies, AreListedBitByBit) {
    EXPECT_EQ(latencies_of({{24, 0x7A}, {25, 0x0D}}), "36,22,40,26,42,28,30,32");

    EXPECT_EQ(platform.log(), lines(8, {"ddr5_cl_supported_string:[36,22,40,26,42,28,30,32]"}));
}

TEST_F(GetCasSupportedLatencies, OfAllFortyBits) {
    EXPECT_EQ(latencies_of({{23, 0xFF}, {24, 0xFF}, {25, 0xFF}, {26, 0xFF}, {27, 0xFF}, {28, 0xFF}, {29, 0xFF}}),
              "20,36,52,68,84,22,38,54,70,86,24,40,56,72,88,26,42,58,74,90,"
              "28,44,60,76,92,30,46,62,78,94,32,48,64,80,96,34,50,66,82,98");
}

TEST_F(GetCasSupportedLatencies, IsEmptyWithoutABit) {
    EXPECT_EQ(latencies_of({}), "");

    EXPECT_EQ(platform.log(), lines(8, {"ddr5_cl_supported_string:[]"}));
}

TEST_F(GetCasSupportedLatencies, ReturnsOneWithoutMemoryToo) {
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer brings its own allocator";
    const Bytes image = image_with(ddr5, {{24, 1}});
    char* text = nullptr;
    int result = 0;
    {
        const AllocationWatch watch(1);
        result = get_cas_supported_latencies(image.data(), 0, &text);
    }

    EXPECT_EQ(result, 1);
    EXPECT_EQ(text, nullptr);
}

// ---- speed bins and timing

struct SpeedBin {
    std::string bin, key;

    bool operator==(const SpeedBin&) const = default;
};
void PrintTo(const SpeedBin& bin, std::ostream* stream) { *stream << bin.bin << " " << bin.key; }

const std::vector<SpeedBin> speed_bins{
    {"3200AN", "1E0000"},  {"3200B", "1A0000"},   {"3200BN", "1A0000"},  {"3200C", "120000"},   {"3600AN", "7E0000"},
    {"3600B", "7A0000"},   {"3600BN", "720000"},  {"3600C", "520000"},   {"4000AN", "7E1000"},  {"4000B", "7A1000"},
    {"4000BN", "7A1000"},  {"4000C", "521000"},   {"4400AN", "7E5000"},  {"4400B", "7A5000"},   {"4400BN", "725000"},
    {"4400C", "525000"},   {"4800AN", "FED000"},  {"4800B", "7AD000"},   {"4800BN", "72D000"},  {"4800C", "52D000"},
    {"5200AN", "7E2F000"}, {"5200B", "7A2D000"},  {"5200BN", "7A2D000"}, {"5200C", "522D000"},  {"5600AN", "7EAF000"},
    {"5600B", "7AAD000"},  {"5600BN", "72AD000"}, {"5600C", "52AD000"},  {"6000AN", "FEEF200"}, {"6000B", "7AED200"},
    {"6000BN", "7AED200"}, {"6000C", "52AD200"},  {"6400AN", "7EEF700"}, {"6400B", "7AED700"},  {"6400BN", "7AED700"},
    {"6400C", "52AD600"},
};

TEST(CasLatencyMask, HasItsRowsInOrder) {
    std::vector<SpeedBin> rows;
    for (const CasLatencyMaskRow& row : cas_latency_mask) rows.push_back({row.bin, row.key});

    EXPECT_EQ(rows, speed_bins);
}

const std::vector<LogLine> no_timing =
    lines(6, {" msb:00 lsb:00 tCKmin:0", " msb:00 lsb:00 tAA:0", " msb:00 lsb:00 tRCD:0", " msb:00 lsb:00 tRP:0",
              " msb:00 lsb:00 tRAS:0", " msb:00 lsb:00 tRC:0", " msb:00 lsb:00 tWR:0"});

void diagnose(ByteList bytes) { calculate_tWRmin(image_with(ddr5, bytes).data(), 0); }

TEST_F(CalculateTwrMin, LogsTheTimingAndTheSpeedBin) {
    diagnose({{20, 0xA0},
              {21, 0x01},
              {24, 0x7A},
              {25, 0x0D},
              {30, 0x80},
              {31, 0x3E},
              {32, 0x81},
              {33, 0x3E},
              {34, 0x82},
              {35, 0x3E},
              {36, 0x00},
              {37, 0x7D},
              {38, 0x80},
              {39, 0xBB},
              {40, 0x30},
              {41, 0x75}});

    EXPECT_EQ(platform.log(),
              lines(6, {" msb:01 lsb:a0 tCKmin:416", " msb:3e lsb:80 tAA:16000", " msb:3e lsb:81 tRCD:16001",
                        " msb:3e lsb:82 tRP:16002", " msb:7d lsb:00 tRAS:32000", " msb:bb lsb:80 tRC:48000",
                        " msb:75 lsb:30 tWR:30000"}) +
                  lines(8, {"1b:7A 2b:D 3b:0 4b:0 5b:0 tmp:[7AD000] monoSpeedBin:[4800B]", "TwrInNck:72",
                            "tCKmin:416  freq:2400"}));
}

TEST_F(CalculateTwrMin, TakesTheFirstRowWithTheKey) {
    diagnose({{24, 0x7A}, {25, 0x01}});

    EXPECT_TRUE(platform.logged(8, "1b:7A 2b:1 3b:0 4b:0 5b:0 tmp:[7A1000] monoSpeedBin:[4000B]"));
}

TEST_F(CalculateTwrMin, FindsEachKeyOfTheTable) {
    const std::map<std::string, Bytes> spelled{
        {"3200C", {0x12}},       {"3600AN", {0x7E}},          {"4800AN", {0xFE, 0x0D}},   {"5200AN", {0x7E, 0x2F}},
        {"5600C", {0x52, 0xAD}}, {"6000AN", {0xFE, 0xEF, 2}}, {"6400C", {0x52, 0xAD, 6}},
    };

    for (const auto& [bin, bytes] : spelled) {
        Bytes image = blank_image(ddr5);
        std::copy(bytes.begin(), bytes.end(), image.begin() + 24);
        calculate_tWRmin(image.data(), 0);
        EXPECT_TRUE(platform.logged_containing(8, "monoSpeedBin:[" + bin + "]"));
    }
}

TEST_F(CalculateTwrMin, StopsAtAnUnknownSpeedBin) {
    diagnose({{20, 0xA0}, {24, 0xFF}, {25, 0xFF}, {26, 0xFF}, {27, 0xFF}, {28, 0xFF}});

    EXPECT_EQ(platform.log(8), lines(8, {"monoSpeedBin:FFFFFFFFFF is unexpected."}));
    EXPECT_EQ(platform.log(6).size(), 7U);
}

TEST_F(CalculateTwrMin, TakesWholeKeysOnly) {
    diagnose({{24, 0x01}, {25, 0x0E}});
    diagnose({{24, 0x7A}, {25, 0xD0}, {28, 0x05}});

    EXPECT_EQ(platform.log(8), lines(8, {"monoSpeedBin:1E000 is unexpected.", "monoSpeedBin:7AD0005 is unexpected."}));
}

TEST_F(CalculateTwrMin, StopsWithoutAClockPeriod) {
    diagnose({{24, 0x12}});

    EXPECT_EQ(platform.log(), no_timing + lines(8, {"1b:12 2b:0 3b:0 4b:0 5b:0 tmp:[120000] monoSpeedBin:[3200C]",
                                                    "ClockPeriod is 0", "tCKmin is 0"}));
}

TEST_F(CalculateTwrMin, DoesNotOverflow) {
    diagnose({{20, 1}, {24, 0x12}, {40, 0xFF}, {41, 0xFF}});

    EXPECT_TRUE(platform.logged(8, "TwrInNck:65339")) << "(997 x 65535 + 1000) / 1000";
    EXPECT_TRUE(platform.logged(8, "tCKmin:1  freq:1000000"));
}

TEST_F(CalculateTwrMin, RoundsTheWriteRecoveryUpBehindTheGuardBand) {
    diagnose({{20, 0xE8}, {21, 3}, {24, 0x12}, {40, 0xE8}, {41, 3}});  // 1000 of 1000 ps: 997 + 1000
    EXPECT_TRUE(platform.logged(8, "TwrInNck:1"));

    diagnose({{20, 0xE8}, {21, 3}, {24, 0x12}, {40, 0xEC}, {41, 3}});  // 1004 of 1000 ps: 1000 + 1000
    EXPECT_TRUE(platform.logged(8, "TwrInNck:2"));
}

// ---- handler

SpdInfo decoded(const Bytes& image) {
    SpdInfo record{};
    EXPECT_EQ(vpdd_Handle_DDR5_SPD(image.data(), &record), 0);
    return record;
}

Ddr5Image server_module() {
    Ddr5Image image;
    image.rdimm().density_gbit(16).device_width(8).ranks(2).bus_width(32).ecc_bits(8).speed(4800);
    image.maker(0x80, 0xCE).location(0x01).made(2023, 20).serial(0x04B6B631).part("M321R4GA3BB6-CQK");
    return image;
}

template <std::size_t Size>
std::string whole(const char (&field)[Size]) {
    return std::string(field, Size);
}

TEST_F(HandleDdr5, FillsTheWholeRecord) {
    Ddr5Image image = server_module();
    image.byte(16, 0x11).put(194, {0x86, 0x32}).put(1008, {'1', 0, '3', '4', 'A', 'B', 0xFF, 'x'});

    const SpdInfo record = decoded(image.build());

    SpdInfo expected{};
    strcpy(expected.part_number, "M321R4GA3BB6-CQK              ");
    strcpy(expected.serial_number, "80CE01232004B6B631");
    memcpy(expected.udi_part_number, "1\00034AB\xFF", 7);
    strcpy(expected.mfg_id, "Samsung");
    strcpy(expected.device_type, "DDR5");
    strcpy(expected.module_type, "RDIMM");
    expected.module_vendor_id = 0x8632;
    expected.module_voltage = 0x11;
    expected.module_ranks = 2;
    expected.module_bus_width = 32;
    expected.sdram_frequency = 4800;
    strcpy(expected.cas_latencies_supports, "36,22,40,26,42,28,30,32");
    expected.mfg_week = 20;
    expected.mfg_year = 23;
    expected.ram_size = 32768;
    expected.ecc_bits = 8;

    EXPECT_STREQ(record.part_number, expected.part_number);
    EXPECT_EQ(record.ram_size, expected.ram_size);
    EXPECT_EQ(memcmp(&record, &expected, sizeof record), 0);
}

TEST_F(HandleDdr5, LogsItsStepsInOrder) {
    decoded(server_module().build());

    const std::string serial =
        formatted("pid = %d, vpdd_Handle_DDR5_SPD - spd_info->serial_number:[80CE01232004B6B631]", getpid());
    EXPECT_EQ(platform.log(),
              lines(8, {"== [vpdd_Handle_DDR5_SPD](2678)"}) + lines(14, {serial}) +
                  lines(8, {"DIMM type:0x12", "ddr5_cl_supported_string:[36,22,40,26,42,28,30,32]"}) +
                  lines(6, {" msb:01 lsb:a0 tCKmin:416", " msb:01 lsb:a0 tCKmin:416", " msb:3e lsb:80 tAA:16000",
                            " msb:3e lsb:80 tRCD:16000", " msb:3e lsb:80 tRP:16000", " msb:7d lsb:00 tRAS:32000",
                            " msb:bb lsb:80 tRC:48000", " msb:75 lsb:30 tWR:30000"}) +
                  lines(8, {"1b:7A 2b:D 3b:0 4b:0 5b:0 tmp:[7AD000] monoSpeedBin:[4800B]", "TwrInNck:72",
                            "tCKmin:416  freq:2400"}));
}

TEST_F(HandleDdr5, RefusesANullImage) {
    const auto record = record_full_of(0xEE);

    EXPECT_EQ(vpdd_Handle_DDR5_SPD(nullptr, record.get()), -1);

    EXPECT_EQ(memcmp(record.get(), record_full_of(0xEE).get(), sizeof *record), 0);
    EXPECT_EQ(platform.log(),
              lines(8, {"== [vpdd_Handle_DDR5_SPD](2678)"}) +
                  lines(14, {formatted("pid = %d, vpdd_Handle_DDR5_SPD - ERROR:rsp buffer is NULL", getpid())}));
}

TEST_F(HandleDdr5, RefusesANullRecord) {
    EXPECT_EQ(vpdd_Handle_DDR5_SPD(server_module().build().data(), nullptr), -1);

    EXPECT_EQ(platform.log(),
              lines(8, {"== [vpdd_Handle_DDR5_SPD](2678)"}) +
                  lines(14, {formatted("pid = %d, vpdd_Handle_DDR5_SPD - ERROR:spd_info is NULL", getpid())}));
}

TEST_F(HandleDdr5, DoesNotTouchTheFieldsOfTheDdr4Path) {
    const auto record = record_full_of(0x55);

    vpdd_Handle_DDR5_SPD(server_module().put(192, {1, 2, 3, 4, 5, 6}).build().data(), record.get());

    EXPECT_EQ(whole(record->description), std::string(17, 0x55));
    EXPECT_EQ(whole(record->sdram_freq_string), std::string(33, 0x55));
    EXPECT_EQ(record->vendor_product_id, 0x5555);
    EXPECT_EQ(record->subsys_vendor_id, 0x5555);
    EXPECT_EQ(record->subsys_device_id, 0x5555);
    EXPECT_EQ(memcmp(&record->fine_timebase, "UUUUUUUU", 8), 0) << "both timebases";
    EXPECT_EQ(memcmp(&record->sdram_clock, "UUUU", 4), 0);
    EXPECT_EQ(memcmp(&record->cas_latency, "UUUU", 4), 0);
    EXPECT_EQ(record->sdram_row_bits, 0x55);
    EXPECT_EQ(record->sdram_col_bits, 0x55);
    EXPECT_EQ(record->device_width, 0x55);
    EXPECT_EQ(record->crc, 0x55555555);
    EXPECT_EQ(record->speed_in_MBpsec, 0x55555555U);
    EXPECT_EQ(record->config_speed, 0x55555555U);
    EXPECT_EQ(record->smbios_size, 0x55555555U);
    EXPECT_EQ(record->smbios_speed, 0x55555555U);
    EXPECT_EQ(record->AEP_Flag, 0U);
}

TEST_F(HandleDdr5, ZeroFillsTheFieldsBehindTheirTexts) {
    const auto record = record_full_of(0x55);

    vpdd_Handle_DDR5_SPD(server_module().build().data(), record.get());

    EXPECT_EQ(whole(record->serial_number), "80CE01232004B6B631" + std::string(7, '\0'));
    EXPECT_EQ(whole(record->udi_part_number), std::string(12, '\0'));
    EXPECT_EQ(whole(record->device_type), "DDR5" + std::string(17, '\0'));
    EXPECT_EQ(whole(record->cas_latencies_supports), "36,22,40,26,42,28,30,32" + std::string(132 - 23, '\0'));
}

TEST_F(HandleDdr5, ReplacesUnprintableCharactersOfThePartNumber) {
    Ddr5Image image = server_module();
    image.put(521, {0x1F, 0x20, 0x21, 0x7E, 0x7F, 0x80, 0xFF, 0x00, 'Z'}).put(530, Bytes(21, 'y'));

    EXPECT_EQ(std::string(decoded(image.build()).part_number), "  !~    Z" + std::string(21, 'y'));
}

TEST_F(HandleDdr5, HasAlwaysThirtyCharactersOfPartNumber) {
    EXPECT_EQ(std::string(decoded(blank_image(ddr5)).part_number), std::string(30, ' '));
    EXPECT_EQ(std::string(decoded(server_module().put(521, Bytes(31, 'z')).build()).part_number), std::string(30, 'z'));
}

TEST_F(HandleDdr5, ReadsTheVendorWordFromOtherBytesThanTheMaker) {
    const SpdInfo record = decoded(server_module().put(194, {0x12, 0x34}).build());

    EXPECT_STREQ(record.mfg_id, "Samsung");
    EXPECT_EQ(record.module_vendor_id, 0x1234);
}

TEST_F(HandleDdr5, CountsRanksWhereDdr4KeepsTheCode) {
    EXPECT_EQ(decoded(server_module().ranks(1).build()).module_ranks, 1);
    EXPECT_EQ(decoded(server_module().ranks(8).build()).module_ranks, 8);
}

TEST_F(HandleDdr5, LeavesAnUnlistedMakerAsItWas) {
    const auto record = record_full_of(0x55);

    vpdd_Handle_DDR5_SPD(server_module().maker(0, 0).build().data(), record.get());

    EXPECT_EQ(whole(record->mfg_id), std::string(33, 0x55));
}

TEST_F(HandleDdr5, CallsAnNvdimmFromIntelPersistentMemory) {
    Ddr5Image image = server_module();
    image.persistent().maker(0x80, 0x89).put(592, {0x05, 0, 0x10, 0, 0x48, 0x02});

    const SpdInfo record = decoded(image.build());

    EXPECT_STREQ(record.mfg_id, "Intel");
    EXPECT_STREQ(record.device_type, "Intel Optane PMem");
    EXPECT_EQ(record.AEP_Flag, 2U);
    EXPECT_EQ(record.ram_size, 8192U) << "2 x 2^5 x 32 x 2^2";
    EXPECT_EQ(record.module_bus_width, 32U);
    EXPECT_EQ(record.module_ranks, 3) << "code 1, asymmetric";
    EXPECT_EQ(record.module_vendor_id, 0x8980);
    EXPECT_EQ(record.ecc_bits, 8U);
}

TEST_F(HandleDdr5, CallsOtherModulesByTheirType) {
    const SpdInfo intel = decoded(server_module().maker(0x80, 0x89).build());
    const SpdInfo other = decoded(server_module().persistent().build());

    EXPECT_STREQ(intel.device_type, "DDR5");
    EXPECT_EQ(intel.AEP_Flag, 0U);
    EXPECT_STREQ(other.device_type, "NVM");
    EXPECT_EQ(other.AEP_Flag, 0U);
}

TEST_F(HandleDdr5, KnowsNoNvdimmNByByte204) {
    EXPECT_STREQ(decoded(server_module().byte(204, 0x21).build()).device_type, "DDR5");
    EXPECT_STREQ(decoded(server_module().persistent().byte(204, 0x21).build()).device_type, "NVM");
}

TEST_F(HandleDdr5, HasTheSizeOfTheLargestNvdimmInMegabytes) {
    Ddr5Image image = server_module();
    image.persistent().put(592, {0x0F, 0, 0x70, 0, 0x80, 0x07});

    EXPECT_EQ(decoded(image.build()).ram_size, 0x80000000U);
}

TEST_F(HandleDdr5, ReturnsARecordForDamagedImagesToo) {
    const SpdInfo record = decoded(server_module().byte(4, 0x23).byte(20, 0).byte(21, 0).byte(24, 0xFF).build());

    EXPECT_EQ(record.ram_size, 0U);
    EXPECT_EQ(record.sdram_frequency, 0);
    EXPECT_STREQ(record.serial_number, "80CE01232004B6B631");
    EXPECT_TRUE(platform.logged(3, "*** SDRAM Die Count at Byte 4 invalid ***\n"));
    EXPECT_TRUE(platform.logged(8, "tCKmin is 0"));
    EXPECT_TRUE(platform.logged_containing(8, "is unexpected."));
}

TEST_F(HandleDdr5, LogsTheErrorsOfOtherTypes) {
    const SpdInfo record = decoded(Ddr5Image().byte(2, 0x0A).build());

    EXPECT_STREQ(record.device_type, "UNKNOWN");
    EXPECT_STREQ(record.module_type, "");
    EXPECT_TRUE(platform.logged(14, pid_line("parse_module_type - ERROR:DIMM Device Type Error\n")));
}

TEST_F(HandleDdr5, EmptiesTheLatenciesWithoutMemory) {
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer brings its own allocator";
    const Bytes image = server_module().build();
    const auto record = record_full_of(0x55);
    int result = -1;
    {
        const AllocationWatch watch(1, Failing::from_then_on);
        result = vpdd_Handle_DDR5_SPD(image.data(), record.get());
    }

    EXPECT_EQ(result, 0);
    EXPECT_EQ(whole(record->cas_latencies_supports), std::string(132, '\0'));
}

TEST_F(HandleDdr5, FreesWhatItAllocates) {
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer brings its own allocator";
    const Bytes image = server_module().build();
    SpdInfo record{};
    const AllocationWatch watch;

    vpdd_Handle_DDR5_SPD(image.data(), &record);

    EXPECT_EQ(watch.live_blocks(), 0U);
}

}  // namespace
