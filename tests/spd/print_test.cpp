// SPDX-License-Identifier: Apache-2.0
#include "spd_test.h"

using namespace vpdd::test;

namespace {

using VpddPrint = PlatformTest;

template <std::size_t Size>
void set(char (&field)[Size], std::string_view text) {
    ASSERT_LT(text.size(), Size);
    memcpy(field, text.data(), text.size());
}

std::vector<std::string> printed(const FakePlatform& platform) {
    std::vector<std::string> texts;
    for (const LogLine& line : platform.log()) texts.push_back(line.text);
    return texts;
}

/// The printed line of a field.
std::string line_of(const FakePlatform& platform, const std::string& field) {
    for (const std::string& text : printed(platform))
        if (text.starts_with(field + ":")) return text;
    return "";
}

TEST_F(VpddPrint, LogsEachFieldInRecordOrder) {
    SpdInfo record{};
    set(record.description, "DIMM 1");
    set(record.part_number, "PART");
    set(record.serial_number, "80CE0121421234ABCD");
    set(record.udi_part_number, "UDI");
    set(record.mfg_id, "Samsung");
    set(record.device_type, "DDR4");
    set(record.module_type, "RDIMM");
    set(record.sdram_freq_string, "DDR4-3200 (1600 MHz clock)");
    set(record.cas_latencies_supports, "10,11");
    record.vendor_product_id = 'A';
    record.module_vendor_id = 'B' | 'C' << 8;
    record.subsys_vendor_id = 0;
    record.subsys_device_id = 'D';
    record.sdram_row_bits = 0x12;
    record.sdram_col_bits = 0x0B;
    record.module_voltage = 0x03;
    record.module_ranks = 0xFF;
    record.device_width = 0;
    record.module_bus_width = 64;
    record.fine_timebase = 0.001F;
    record.medium_timebase = 0.125F;
    record.sdram_frequency = -5;
    record.sdram_clock = 0.625F;
    record.cas_latency = 13.75F;
    record.crc = -1;
    record.mfg_week = 36;
    record.mfg_year = 23;
    record.ram_size = 4294967295U;
    record.speed_in_MBpsec = 25600;
    record.ecc_bits = 8;
    record.config_speed = 2933;
    record.AEP_Flag = 2;
    record.smbios_size = 0x7FFF;
    record.smbios_speed = 3200;

    vpdd_print(&record);

    const std::vector<std::string> expected{
        "============[vpdd_print]=============",
        "description:[DIMM 1]",
        "part_number:[PART]",
        "serial_number:[80CE0121421234ABCD]",
        "udi_part_number:[UDI]",
        "mfg_id:[Samsung]",
        "device_type:[DDR4]",
        "module_type:[RDIMM]",
        "sdram_freq_string:[DDR4-3200 (1600 MHz clock)]",
        "vendor_product_id:[A]",
        "module_vendor_id:[BC]",
        "subsys_vendor_id:[]",
        "subsys_device_id:[D]",
        "sdram_row_bits:[0x12]",
        "sdram_col_bits:[0x b]",
        "module_voltage:[0x 3]",
        "module_ranks:[0xff]",
        "device_width:[0x 0]",
        "module_bus_width:[64]",
        "fine_timebase:[0.001000]",
        "medium_timebase:[0.125000]",
        "sdram_frequency:[-5]",
        "sdram_clock:[0.625000]",
        "cas_latencies_supports:[10,11]",
        "cas_latency:[13.750000]",
        "crc:[-1]",
        "mfg_week:[36]",
        "mfg_year:[23]",
        "ram_size:[4294967295]",
        "speed_in_MBpsec:[25600]",
        "ecc_bits:[8]",
        "config_speed:[2933]",
        "AEP_Flag:[2]",
        "smbios_size:[32767]",
        "smbios_speed:[3200]",
    };
    EXPECT_EQ(printed(platform), expected);
}

TEST_F(VpddPrint, LogsEverythingAsAnEmergency) {
    const SpdInfo record{};

    vpdd_print(&record);

    EXPECT_EQ(platform.log().size(), 35U);
    EXPECT_EQ(platform.log(8).size(), 35U);
}

TEST_F(VpddPrint, PrintsAnIdWordAsTheCharactersFromItsPlaceOn) {
    SpdInfo record{};
    record.vendor_product_id = 'a' | 'b' << 8;
    record.module_vendor_id = 'c' | 'd' << 8;
    record.subsys_vendor_id = 'e' | 'f' << 8;
    record.subsys_device_id = 'g' | 'h' << 8;
    record.sdram_row_bits = 'i';

    vpdd_print(&record);

    EXPECT_EQ(line_of(platform, "vendor_product_id"), "vendor_product_id:[abcdefghi]");
    EXPECT_EQ(line_of(platform, "module_vendor_id"), "module_vendor_id:[cdefghi]");
    EXPECT_EQ(line_of(platform, "subsys_vendor_id"), "subsys_vendor_id:[efghi]");
    EXPECT_EQ(line_of(platform, "subsys_device_id"), "subsys_device_id:[ghi]");
}

TEST_F(VpddPrint, StaysInsideARecordWithoutAnyTerminator) {
    const auto record = record_full_of('x');

    vpdd_print(record.get());

    EXPECT_EQ(line_of(platform, "description"), "description:[" + std::string(17, 'x') + "]");
    EXPECT_EQ(line_of(platform, "part_number"), "part_number:[" + std::string(31, 'x') + "]");
    EXPECT_EQ(line_of(platform, "sdram_freq_string"), "sdram_freq_string:[" + std::string(33, 'x') + "]");
    EXPECT_EQ(line_of(platform, "cas_latencies_supports"), "cas_latencies_supports:[" + std::string(132, 'x') + "]");
    EXPECT_EQ(line_of(platform, "vendor_product_id"), "vendor_product_id:[" + std::string(400 - 190, 'x') + "]");
    EXPECT_EQ(line_of(platform, "subsys_device_id"), "subsys_device_id:[" + std::string(400 - 196, 'x') + "]");
    EXPECT_EQ(line_of(platform, "smbios_speed"), "smbios_speed:[2021161080]");
}

TEST(DbgDimm, PrintsToStandardErrorWhenEnabled) {
    const CaptureStderr errors;
    const CaptureStdout output;

    EXPECT_EQ(DBG_DIMM(1, "%s %d\n", "size", 5), 7);
    EXPECT_EQ(DBG_DIMM(-1, "x"), 1);

    EXPECT_EQ(errors.text(), "size 5\nx");
    EXPECT_EQ(output.text(), "");
}

TEST(DbgDimm, PrintsNothingWhenDisabledOrWithoutAFormat) {
    const CaptureStderr errors;
    const char* const no_format = nullptr;

    EXPECT_EQ(DBG_DIMM(0, "%s\n", "size"), 0);
    EXPECT_EQ(DBG_DIMM(1, no_format), 0);

    EXPECT_EQ(errors.text(), "");
}

}  // namespace
