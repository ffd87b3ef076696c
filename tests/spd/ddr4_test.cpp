// SPDX-License-Identifier: Apache-2.0
#include "failing_allocator.h"
#include "spd_test.h"

using namespace vpdd::test;

namespace {

using HandleDdr4 = PlatformTest;

std::string serial_line(const std::string& serial) {
    return formatted("pid = %d, vpdd_Handle_DDR4_SPD - spd_info->serial_number:[%s]", getpid(), serial.c_str());
}

SpdInfo decoded(const Bytes& image) {
    SpdInfo record{};
    EXPECT_EQ(vpdd_Handle_DDR4_SPD(image.data(), &record), 0);
    return record;
}

Ddr4Image server_module() {
    Ddr4Image image;
    image.rdimm().density_gbit(8).device_width(8).ranks(1).bus_width(64).ecc_bits(8).speed(3200);
    image.maker(0x80, 0xCE).location(0x03).made(2023, 36).serial(0x1949395D).part("M393A8G40CB4-CWE");
    return image;
}

template <std::size_t Size>
std::string whole(const char (&field)[Size]) {
    return std::string(field, Size);
}

TEST_F(HandleDdr4, FillsTheWholeRecord) {
    Ddr4Image image = server_module();
    image.put(192, {0x34, 0x12, 0x86, 0x80, 0xAB, 0xCD}).put(496, {'1', '2', '3', 0, 'A', 'B', 0xFF, 'x'});

    const SpdInfo record = decoded(image.build());

    SpdInfo expected{};
    strcpy(expected.part_number, "M393A8G40CB4-CWE    ");
    strcpy(expected.serial_number, "80CE0323361949395D");
    memcpy(expected.udi_part_number, "123\0AB\xFF", 7);
    strcpy(expected.mfg_id, "Samsung");
    strcpy(expected.device_type, "DDR4");
    strcpy(expected.module_type, "RDIMM");
    strcpy(expected.sdram_freq_string, "DDR4-3200 (1600 MHz clock)");
    expected.vendor_product_id = 0x1234;
    expected.module_vendor_id = 0xCE80;
    expected.subsys_vendor_id = 0x8086;
    expected.subsys_device_id = 0xCDAB;
    expected.module_voltage = 3;
    expected.module_ranks = 0;
    expected.module_bus_width = 64;
    expected.fine_timebase = 0.001F;
    expected.medium_timebase = 0.125F;
    expected.sdram_frequency = 1600;
    expected.sdram_clock = 0.625F;
    strcpy(expected.cas_latencies_supports, "10,11,12,13,14,15,16,17,18,19,20,21,22,24");
    expected.cas_latency = 13.75F;
    expected.mfg_week = 36;
    expected.mfg_year = 23;
    expected.ram_size = 8192;
    expected.speed_in_MBpsec = 25600;
    expected.ecc_bits = 8;

    EXPECT_STREQ(record.part_number, expected.part_number);
    EXPECT_STREQ(record.cas_latencies_supports, expected.cas_latencies_supports);
    EXPECT_EQ(record.sdram_frequency, expected.sdram_frequency);
    EXPECT_EQ(memcmp(&record, &expected, sizeof record), 0);
}

TEST_F(HandleDdr4, LogsTheSerialNumberAndTheType) {
    decoded(server_module().build());

    EXPECT_EQ(platform.log(), (std::vector<LogLine>{{14, serial_line("80CE0323361949395D")}, {8, "DIMM type:0x c"}}));
}

TEST_F(HandleDdr4, RefusesANullImage) {
    const auto record = record_full_of(0xEE);

    EXPECT_EQ(vpdd_Handle_DDR4_SPD(nullptr, record.get()), -1);

    EXPECT_EQ(memcmp(record.get(), record_full_of(0xEE).get(), sizeof *record), 0);
    const std::string message = formatted("pid = %d, vpdd_Handle_DDR4_SPD - ERROR:rsp buffer is NULL", getpid());
    EXPECT_EQ(platform.log(), (std::vector<LogLine>{{14, message}}));
}

TEST_F(HandleDdr4, RefusesANullRecord) {
    EXPECT_EQ(vpdd_Handle_DDR4_SPD(server_module().build().data(), nullptr), -1);

    const std::string message = formatted("pid = %d, vpdd_Handle_DDR4_SPD - ERROR:spd_info is NULL", getpid());
    EXPECT_EQ(platform.log(), (std::vector<LogLine>{{14, message}}));
}

TEST_F(HandleDdr4, NamesTheImageFirstWhenBothAreNull) {
    EXPECT_EQ(vpdd_Handle_DDR4_SPD(nullptr, nullptr), -1);

    EXPECT_EQ(platform.log().size(), 1U);
    EXPECT_TRUE(platform.logged_containing(14, "rsp buffer is NULL"));
}

// ---- what it leaves as it was

TEST_F(HandleDdr4, DoesNotClearTheRecord) {
    const auto record = record_full_of(0x55);

    vpdd_Handle_DDR4_SPD(server_module().build().data(), record.get());

    EXPECT_EQ(whole(record->description), std::string(17, 0x55));
    EXPECT_EQ(record->sdram_row_bits, 0x55);
    EXPECT_EQ(record->sdram_col_bits, 0x55);
    EXPECT_EQ(record->device_width, 0x55);
    EXPECT_EQ(record->crc, 0x55555555);
    EXPECT_EQ(record->config_speed, 0x55555555U);
    EXPECT_EQ(record->smbios_size, 0x55555555U);
    EXPECT_EQ(record->smbios_speed, 0x55555555U);
}

TEST_F(HandleDdr4, ZeroFillsTheFieldsBehindTheirTexts) {
    const auto record = record_full_of(0x55);

    vpdd_Handle_DDR4_SPD(server_module().part("P").byte(330, 0).build().data(), record.get());

    EXPECT_EQ(whole(record->part_number), "P" + std::string(30, '\0'));
    EXPECT_EQ(whole(record->serial_number), "80CE0323361949395D" + std::string(7, '\0'));
    EXPECT_EQ(whole(record->udi_part_number), std::string(12, '\0'));
    EXPECT_EQ(whole(record->mfg_id), "Samsung" + std::string(26, '\0'));
    EXPECT_EQ(whole(record->device_type), "DDR4" + std::string(17, '\0'));
    EXPECT_EQ(whole(record->module_type), "RDIMM" + std::string(12, '\0'));
    EXPECT_EQ(whole(record->sdram_freq_string), "DDR4-3200 (1600 MHz clock)" + std::string(7, '\0'));
    const std::string latencies = "10,11,12,13,14,15,16,17,18,19,20,21,22,24";
    EXPECT_EQ(whole(record->cas_latencies_supports), latencies + std::string(132 - latencies.size(), '\0'));
}

TEST_F(HandleDdr4, LeavesTheFieldsOfFailedLookUpsAsTheyWere) {
    const auto record = record_full_of('U');
    record->mfg_id[32] = '\0';

    Ddr4Image image = server_module();
    image.maker(0, 0).byte(18, 0).byte(125, 0);
    vpdd_Handle_DDR4_SPD(image.build().data(), record.get());

    EXPECT_EQ(std::string(record->mfg_id), std::string(32, 'U'));
    EXPECT_EQ(whole(record->sdram_freq_string), std::string(33, 'U'));
    EXPECT_EQ(record->module_vendor_id, 0);
}

TEST_F(HandleDdr4, LeavesTheModuleTypeOfAnNvdimmWithoutAName) {
    const auto record = record_full_of(0x55);

    vpdd_Handle_DDR4_SPD(server_module().persistent().byte(3, 0x07).build().data(), record.get());

    EXPECT_EQ(whole(record->module_type), std::string(17, 0x55));
}

TEST_F(HandleDdr4, DecodesOtherTypesAsFarAsItGoes) {
    SpdInfo record{};
    Ddr4Image image = server_module();
    image.byte(2, 0x0A);

    EXPECT_EQ(vpdd_Handle_DDR4_SPD(image.build().data(), &record), 0);

    EXPECT_STREQ(record.device_type, "UNKNOWN");
    EXPECT_STREQ(record.module_type, "");
    EXPECT_STREQ(record.mfg_id, "");
    EXPECT_STREQ(record.serial_number, "80CE0323361949395D");
    EXPECT_EQ(record.ram_size, 0U);
    EXPECT_EQ(record.sdram_frequency, 0);
    EXPECT_TRUE(platform.logged(14, pid_line("parse_module_type - ERROR:DIMM Device Type Error\n")));
    EXPECT_TRUE(platform.logged(14, pid_line("calculate_dimm_size - ERROR:DIMM Device Type Error\n")));
}

// ---- identity

TEST_F(HandleDdr4, StopsThePartNumberAtAZeroByte) {
    EXPECT_STREQ(decoded(server_module().part("ABC").byte(332, 0).build()).part_number, "ABC");
}

TEST_F(HandleDdr4, TakesTwentyBytesOfPartNumber) {
    const Bytes image = server_module().part("12345678901234567890").byte(349, 'x').build();

    EXPECT_STREQ(decoded(image).part_number, "12345678901234567890");
}

TEST_F(HandleDdr4, DoesNotRejectNibblesAboveNineInTheDate) {
    const SpdInfo record = decoded(server_module().byte(323, 0xFF).byte(324, 0x1A).build());

    EXPECT_EQ(record.mfg_year, 165U);
    EXPECT_EQ(record.mfg_week, 20U);
}

TEST_F(HandleDdr4, CutsTheModuleTypeToSixteenCharacters) {
    const SpdInfo record = decoded(server_module().persistent().byte(3, 0x05).build());

    EXPECT_STREQ(record.module_type, "FET Switches on ");
}

TEST_F(HandleDdr4, CutsTheMakerToThirtyTwoCharacters) {
    const auto has_long_name = [](const Jep106Row& row) { return strlen(row.name) > 32; };
    const auto* const row = std::find_if(std::begin(jep_106), std::end(jep_106), has_long_name);
    ASSERT_NE(row, std::end(jep_106));

    const SpdInfo record = decoded(server_module().maker(row->bank, row->code).build());

    EXPECT_EQ(std::string(record.mfg_id), std::string(row->name, 32));
}

TEST_F(HandleDdr4, NamesAnNvdimmNByByte204WhateverTheType) {
    EXPECT_STREQ(decoded(server_module().byte(204, 0x21).build()).device_type, "NVDIMM-N");
    EXPECT_STREQ(decoded(server_module().byte(204, 0xE1).build()).device_type, "NVDIMM-N");
    EXPECT_STREQ(decoded(server_module().persistent().byte(204, 0x21).build()).device_type, "NVDIMM-N");
    EXPECT_STREQ(decoded(server_module().byte(204, 0x20).build()).device_type, "DDR4");
    EXPECT_STREQ(decoded(server_module().byte(204, 0x01).build()).device_type, "DDR4");
}

TEST_F(HandleDdr4, CallsAnNvdimmFromIntelPersistentMemory) {
    const SpdInfo record = decoded(server_module().persistent().maker(0x80, 0x89).byte(204, 0x21).build());

    EXPECT_STREQ(record.mfg_id, "Intel");
    EXPECT_STREQ(record.device_type, "Intel Optane PMem");
    EXPECT_EQ(record.AEP_Flag, 1U);
    EXPECT_EQ(record.cas_latency, 0.0F);
    EXPECT_STREQ(record.cas_latencies_supports, "");
}

TEST_F(HandleDdr4, ComparesThePersistentMemoryMakerIgnoringCaseAndWhole) {
    Ddr4Image image = server_module();
    image.persistent().maker(0, 0);  // not listed: the record's maker stays
    const auto device_type_with_maker = [&](const char* maker) {
        SpdInfo record{};
        strcpy(record.mfg_id, maker);
        vpdd_Handle_DDR4_SPD(image.build().data(), &record);
        return std::string(record.device_type);
    };

    EXPECT_EQ(device_type_with_maker("iNTEL"), "Intel Optane PMem");
    EXPECT_EQ(device_type_with_maker("Intel Corp"), "NVM");
    EXPECT_EQ(device_type_with_maker("Inte"), "NVM");
}

TEST_F(HandleDdr4, ResetsTheFlagOfOtherModules) {
    const auto record = record_full_of(0x55);

    vpdd_Handle_DDR4_SPD(server_module().maker(0x80, 0x89).build().data(), record.get());

    EXPECT_EQ(record->AEP_Flag, 0U) << "ordinary memory of the same maker";
    EXPECT_STREQ(record->device_type, "DDR4");
}

TEST_F(HandleDdr4, CallsAnNvdimmOfAnotherMakerNvm) {
    const SpdInfo record = decoded(server_module().persistent().build());

    EXPECT_STREQ(record.device_type, "NVM");
    EXPECT_EQ(record.AEP_Flag, 0U);
    EXPECT_EQ(record.cas_latency, 0.0F);
    EXPECT_STREQ(record.cas_latencies_supports, "");
}

TEST_F(HandleDdr4, LeavesTheCasFieldsOfAnNvdimmAsTheyWere) {
    const auto record = record_full_of(0x55);

    vpdd_Handle_DDR4_SPD(server_module().persistent().build().data(), record.get());

    EXPECT_EQ(whole(record->cas_latencies_supports), std::string(132, 0x55));
    EXPECT_EQ(memcmp(&record->cas_latency, "UUUU", 4), 0);
}

TEST_F(HandleDdr4, ListsTheLatenciesOfADdr4ModuleThatIsAnNvdimmN) {
    const SpdInfo record = decoded(server_module().byte(204, 0x21).build());

    EXPECT_EQ(record.cas_latency, 13.75F);
    EXPECT_STREQ(record.cas_latencies_supports, "10,11,12,13,14,15,16,17,18,19,20,21,22,24");
}

TEST_F(HandleDdr4, EmptiesTheCasFieldsOfOtherTypes) {
    for (const uint8_t type : {uint8_t{0x00}, uint8_t{0x08}, uint8_t{0x0A}, uint8_t{0x0E}, ddr5, uint8_t{0xFF}}) {
        const auto record = record_full_of(0x55);
        Bytes image = server_module().byte(2, type).build();
        image.resize(1024);  // as much as is read of any type

        vpdd_Handle_DDR4_SPD(image.data(), record.get());

        EXPECT_EQ(record->cas_latency, 0.0F) << int{type};
        EXPECT_EQ(whole(record->cas_latencies_supports), std::string(132, '\0')) << int{type};
    }
}

// ---- size and geometry

TEST_F(HandleDdr4, TakesTheFlashCapacityOfAFlashDimmMaker) {
    const CaptureStderr errors;
    const auto flash = [] { return server_module().maker(0x06, 0x85).byte(355, 200); };

    EXPECT_EQ(decoded(flash().build()).ram_size, 200U);
    EXPECT_EQ(decoded(flash().persistent().build()).ram_size, 0U) << "an NVDIMM has no flash capacity";

    EXPECT_EQ(errors.text(),
              "--> calculate_flashdimm_capacity: Flash DIMM size = 200 GB.\n"
              "--> calculate_flashdimm_capacity: Flash DIMM size = 0 GB.\n");
}

TEST_F(HandleDdr4, ComparesTheFlashDimmMakerExactly) {
    SpdInfo record{};
    strcpy(record.mfg_id, "diablo technologies");

    vpdd_Handle_DDR4_SPD(server_module().maker(0, 0).byte(355, 200).build().data(), &record);

    EXPECT_EQ(record.ram_size, 8192U);
}

TEST_F(HandleDdr4, KeepsTheRankCode) { EXPECT_EQ(decoded(server_module().ranks(2).build()).module_ranks, 1); }

TEST_F(HandleDdr4, ReadsTheHybridAreaOfAnNvdimm) {
    Ddr4Image image = server_module();
    image.persistent().put(176, {0x05, 0, 0x10, 0, 0x48, 0x0B});

    const SpdInfo record = decoded(image.build());

    EXPECT_EQ(record.ram_size, 16384U);
    EXPECT_EQ(record.module_bus_width, 64U);
    EXPECT_EQ(record.ecc_bits, 8U);
    EXPECT_EQ(record.module_ranks, 2);
    EXPECT_EQ(record.speed_in_MBpsec, 25600U);
    EXPECT_EQ(record.sdram_frequency, 1600);
}

// ---- clock

TEST_F(HandleDdr4, HasNoSpeedButAClockForAnUndefinedMediumTimebase) {
    const SpdInfo record = decoded(server_module().byte(17, 0x04).build());

    EXPECT_EQ(record.speed_in_MBpsec, 0U);
    EXPECT_EQ(record.fine_timebase, 0.001F);
    EXPECT_EQ(record.medium_timebase, 0.125F);
    EXPECT_EQ(record.sdram_clock, 0.625F);
    EXPECT_EQ(record.sdram_frequency, 1600);
}

TEST_F(HandleDdr4, HasASpeedButNoClockForAnUndefinedFineTimebase) {
    const SpdInfo record = decoded(server_module().byte(17, 0x01).build());

    EXPECT_EQ(record.speed_in_MBpsec, 25600U);
    EXPECT_EQ(record.sdram_clock, 0.0F);
    EXPECT_EQ(record.sdram_frequency, 0);
    EXPECT_STREQ(record.sdram_freq_string, "");
}

TEST_F(HandleDdr4, HasNoFrequencyTextInAGapOfTheTable) {
    // 9 x 125 - 33 ps
    const SpdInfo record = decoded(server_module().byte(18, 9).byte(125, 0xDF).build());

    EXPECT_EQ(record.sdram_frequency, 915);
    EXPECT_STREQ(record.sdram_freq_string, "");
}

TEST_F(HandleDdr4, HasNoFrequencyForAPeriodThatIsNothingButRounding) {
    // Medium timebase 1/3, fine 1/9; 5 x 1/3 - 15 x 1/9 leaves 2^-23 ns: 8.4 million GHz, more MHz than the word holds.
    const Bytes above = image_with(ddr3, {{9, 0x19}, {10, 1}, {11, 3}, {12, 5}, {34, 0xF1}});
    // Medium timebase 1, fine 1/7; 3 x 1 - 21 x 1/7 leaves -2^-22 ns.
    const Bytes below = image_with(ddr3, {{9, 0x17}, {10, 1}, {11, 1}, {12, 3}, {34, 0xEB}});

    const SpdInfo positive = decoded(above);
    const SpdInfo negative = decoded(below);

    EXPECT_EQ(positive.sdram_clock, 0x1p-23F);
    EXPECT_EQ(positive.sdram_frequency, 0);
    EXPECT_EQ(negative.sdram_clock, -0x1p-22F);
    EXPECT_EQ(negative.sdram_frequency, 0);
}

TEST_F(HandleDdr4, CutsTheFrequencyToWholeMegahertz) {
    const std::map<unsigned, std::pair<int, std::string>> expected{
        {1600, {800, "DDR4-1600 (800 MHz clock)"}},   {1866, {933, "DDR4-1866 (933 MHz clock)"}},
        {2133, {1067, "DDR4-2133 (1067 MHz clock)"}}, {2400, {1200, "DDR4-2400 (1200 MHz clock)"}},
        {2666, {1333, "DDR4-2666 (1333 MHz clock)"}}, {2933, {1466, "DDR4-2933 (1466 MHz clock)"}},
        {3200, {1600, "DDR4-3200 (1600 MHz clock)"}},
    };

    for (const auto& [rate, frequency] : expected) {
        const SpdInfo record = decoded(server_module().speed(rate).build());
        EXPECT_EQ(record.sdram_frequency, frequency.first) << rate;
        EXPECT_EQ(record.sdram_freq_string, frequency.second) << rate;
    }
}

TEST_F(HandleDdr4, HasTheFrequencyZeroForAClockOfZero) {
    const SpdInfo record = decoded(server_module().byte(18, 0).byte(125, 0).build());

    EXPECT_EQ(record.sdram_clock, 0.0F);
    EXPECT_EQ(record.sdram_frequency, 0);
}

TEST_F(HandleDdr4, HasANegativeFrequencyForANegativeClock) {
    const SpdInfo record = decoded(server_module().byte(18, 0).byte(125, 0xFF).build());

    EXPECT_NEAR(record.sdram_frequency, -1000000, 1);
    EXPECT_STREQ(record.sdram_freq_string, "");
}

TEST_F(HandleDdr4, SurvivesEveryClockAndOffset) {
    for (int count = 0; count <= 0xFF; ++count)
        for (int offset = 0; offset <= 0xFF; ++offset) {
            Bytes image = blank_image(ddr4);
            image[18] = static_cast<uint8_t>(count);
            image[125] = static_cast<uint8_t>(offset);
            const SpdInfo record = decoded(image);
            const double period = 0.125 * count + 0.001 * static_cast<int8_t>(offset);
            if (std::abs(period) < 0.0005) continue;  // nothing but rounding is left of such a period
            EXPECT_NEAR(record.sdram_frequency, 1000 / period, 1 + std::abs(1000 / period) * 0.001)
                << count << " " << offset;
        }
}

// ---- memory

TEST_F(HandleDdr4, LeavesTheLatenciesAsTheyWereWithoutMemory) {
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer brings its own allocator";
    const auto record = record_full_of(0x55);
    const Bytes image = server_module().build();
    int result = -1;
    {
        const AllocationWatch watch(1, Failing::from_then_on);
        result = vpdd_Handle_DDR4_SPD(image.data(), record.get());
    }

    EXPECT_EQ(result, 0);
    EXPECT_EQ(whole(record->cas_latencies_supports), std::string(132, 0x55));
    EXPECT_EQ(record->cas_latency, 13.75F);
}

TEST_F(HandleDdr4, FreesWhatItAllocates) {
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer brings its own allocator";
    const Bytes image = server_module().build();
    SpdInfo record{};
    const AllocationWatch watch;

    vpdd_Handle_DDR4_SPD(image.data(), &record);

    EXPECT_EQ(watch.live_blocks(), 0U);
}

}  // namespace
