// SPDX-License-Identifier: Apache-2.0
// Whole records, all 1512 bytes, worked out by hand from the images.
#include <memory>

#include "cache_fixture.h"
#include "host/images/smbios_image.h"
#include "host/images/spd_image.h"

using namespace vpdd::test;
using vpdd::images::Ddr3Image;
using vpdd::images::Ddr4Image;
using vpdd::images::Ddr5Image;
using vpdd::images::Field;
using vpdd::images::FruImage;
using vpdd::images::FruLocator;
using vpdd::images::MemoryDeviceImage;
using vpdd::images::OemProcessor;
using vpdd::images::ParsedSmbiosTable;
using vpdd::images::SmbiosImage;

namespace {

template <std::size_t Size>
void put(char (&field)[Size], std::string_view text) {
    ASSERT_LE(text.size(), Size);
    std::memcpy(field, text.data(), text.size());
}

ComponentVpdRecord record_of(uint8_t fru_id, std::string_view name, uint8_t entity, uint8_t instance) {
    ComponentVpdRecord record{};
    record.fru_id = fru_id;
    put(record.name, name);
    record.entity_id = entity;
    record.entity_instance = instance;
    record.is_cached = 1;
    return record;
}

using GoldenRecordTest = ComponentCacheTest;

TEST_F(GoldenRecordTest, PowerSupplyWithBoardVersionsAndProcessorRecord) {
    OemProcessor oem;
    oem.index = Field::binary({0x5A});
    oem.texts = {"Model X", " 2.4 GHz", "28", "56", "t4", "t5", "t6", "t7", "t8", "t9", "stepping 3"};
    oem.raw = Field::binary({1, 2, 3, 4, 5});
    oem.trailing = {0xC1, 0, 0};
    // 2021-03-15 is day 9205 behind 1996-01-01: 25 years of 365 days, 7 leap days, and 73 days.
    constexpr uint32_t march_15_2021 = 9205 * 24 * 60;
    platform.fru(0x2C, FruImage()
                           .board({.manufacturer = "Acme Power Systems",
                                   .product = "Hot-swap supply",
                                   .serial = "SN-0001234",
                                   .part = "PN 55-66-77",
                                   .file_id = "fru.bin",
                                   .custom = {"LEVEL 07", "c2", "c3", "c4", "c5", "c6", "c7", "c8",
                                              Field::bcd_plus({0x01, 0x02}), "12.34"},
                                   .date = march_15_2021})
                           .product({"not looked at"})
                           .multirecord(OemProcessor::record_type, oem.data())
                           .build());
    create({FruLocator(0x2C, "Power Supply 2").entity(power_supply, 0x82)});

    ComponentVpdRecord expected = record_of(0x2C, "Power Supply 2", 0x0A, 2);
    put(expected.board_extra, "LEVEL 07");
    put(expected.serial_number, "SN-0001234");
    put(expected.mfg_id, "Acme Power Systems");
    put(expected.mfg_date, "2021-03-15");
    put(expected.part_number, "PN 55-66-77");
    expected.vpd_format = 2;
    expected.oem_cpu.index = 0x5A;
    const char* const texts[] = {"Model X", "2.4 GHz", "28", "56", "t4", "t5", "t6", "t7", "t8", "t9", "stepping 3"};
    for (std::size_t i = 0; i < std::size(texts); ++i) put(expected.oem_cpu.text[i], texts[i]);
    expected.oem_cpu.raw_length = 5;
    for (uint8_t i = 0; i < 5; ++i) expected.oem_cpu.raw[i] = static_cast<uint8_t>(i + 1);
    put(expected.psu_fw.primary, "3132");  // the characters '1' and '2'
    put(expected.psu_fw.secondary, "12.34");
    EXPECT_TRUE(is_same_record(*cached(0x2C), expected));
}

TEST_F(GoldenRecordTest, AdapterWithAProductAreaOnly) {
    platform.fru(7, FruImage()
                        .chassis({.part = "chassis part", .serial = "chassis serial"})
                        .product({.manufacturer = "Acme Networks",
                                  .name = "Adapter",
                                  .part = "model 9",
                                  .version = "rev 2 of a version that is longer than thirty",
                                  .serial = "PS-777",
                                  .asset_tag = "asset",
                                  .file_id = "f1"})
                        .build());
    create({FruLocator(7, "sixteen letters!").modifier(2).entity(0x0B, 0x7F)});

    ComponentVpdRecord expected = record_of(7, "sixteen letters!", 0x0B, 0x7F);
    put(expected.serial_number, "PS-777");
    put(expected.mfg_id, "Acme Networks");
    put(expected.part_number, "rev 2 of a version that is lon");
    put(expected.product_version, "rev 2 of a version that is longer than thirty");
    EXPECT_TRUE(is_same_record(*cached(7), expected));
}

class GoldenModuleTest : public ComponentCacheTest {
protected:
    /// The record of a module in slot 4 that SMBIOS knows.
    ComponentVpdRecord decoded(const Bytes& image, const char* serial) {
        const SmbiosImage smbios = SmbiosImage()
                                       .memory_device(MemoryDeviceImage()
                                                          .device_locator("DIMM 3")
                                                          .serial_number("00000000")
                                                          .size(1)
                                                          .speed(2)
                                                          .configured_memory_speed(3))
                                       .memory_device(MemoryDeviceImage()
                                                          .device_locator("DIMM 4")
                                                          .serial_number(serial)
                                                          .size(0x2000)
                                                          .speed(0x0640)
                                                          .configured_memory_speed(0x0535));
        table_ = std::make_unique<ParsedSmbiosTable>(smbios.table());
        platform.smbios(table_->get());
        platform.fru(0x91, image);
        create({FruLocator(0x91, "DIMM 4").modifier(dimm).entity(memory_device, 4)});
        return *cached(0x91);
    }
    static ComponentVpdRecord expected_record(std::string_view date) {
        ComponentVpdRecord record = record_of(0x91, "DIMM 4", 0x20, 4);
        put(record.mfg_date, date);
        put(record.spd_info.description, "DIMM 4");
        record.spd_info.config_speed = 0x0535;
        record.spd_info.smbios_size = 0x2000;
        record.spd_info.smbios_speed = 0x0640;
        return record;
    }

private:
    std::unique_ptr<ParsedSmbiosTable> table_;
};

TEST_F(GoldenModuleTest, Ddr3) {
    const Bytes image =
        Ddr3Image()
            .byte(0, 0x92)           // the checksum covers bytes 0 to 116
            .put(2, {0x0B, 0x01})    // DDR3, RDIMM
            .byte(4, 0x04)           // 4 Gbit
            .put(6, {0x02, 0x09})    // voltage code 2; two ranks of x8
            .byte(8, 0x0B)           // 64 bits and 8 for ECC
            .byte(9, 0x52)           // fine timebase 5/2
            .put(10, {1, 8})         // medium timebase 1/8 ns
            .byte(12, 10)            // clock 10 x 1/8 = 1.25 ns, 800 MHz
            .put(14, {0xFC, 0x01})   // latencies 6 to 11, and 12
            .byte(16, 110)           // 110 x 1/8 = 13.75 ns
            .put(34, {0, 1})         // clock exact; latency time longer by one fine unit
            .put(117, {0x80, 0xCE})  // JEP106 bank 1
            .put(119, {0x02})        // location
            .put(120, {0x15, 0x23})  // year 15, week 23
            .put(122, {0x12, 0xAB, 0x00, 0xFF})
            .put(128, Bytes{'M', '3', '9', '3', 'B', '1', 'G', '7', '0', 'Q', 'H', '0', '-', 'Y', 'K', '0', ' ', ' '})
            .seal()
            .build();
    const auto record = decoded(image, "12AB00FF");

    // Monday of week 23 of 2015.
    ComponentVpdRecord expected = expected_record("2015-06-01");
    SpdInfo& module = expected.spd_info;
    put(module.part_number, "M393B1G70QH0-YK0  ");
    put(module.serial_number, "12AB00FF");
    put(module.mfg_id, "Samsung");
    put(module.device_type, "DDR3");
    put(module.module_type, "RDIMM");
    put(module.sdram_freq_string, "DDR3-1600 (800 MHz clock)");
    module.module_voltage = 2;
    module.fine_timebase = 2.5F;
    module.medium_timebase = 0.125F;
    module.sdram_frequency = 800;
    module.sdram_clock = 1.25F;
    put(module.cas_latencies_supports, "6,7,8,9,10,11,12");
    module.cas_latency = 16.25F;  // 13.75 + 2.5
    module.crc = image[126] | image[127] << 8;
    module.mfg_week = 23;
    module.mfg_year = 15;
    module.ram_size = 8192;          // 2 ranks x 64 bits / 8 bits x 512 MB
    module.speed_in_MBpsec = 12800;  // 2000 x 8 bytes x 8 / (1 x 10)
    module.ecc_bits = 8;
    EXPECT_TRUE(is_same_record(record, expected));
}

TEST_F(GoldenModuleTest, Ddr4) {
    const auto record = decoded(Ddr4Image()
                                    .byte(0, 0x23)
                                    .put(2, {0x0C, 0x01, 0x85})         // DDR4, RDIMM, 8 Gbit
                                    .byte(6, 0x00)                      // one die in a package
                                    .put(11, {0x03, 0x09, 0x0B})        // 1.2 V; two ranks of x8; 64 bits and ECC
                                    .put(17, {0x00, 0x06})              // clock 6 x 0.125 = 0.75 ns
                                    .put(20, {0xF8, 0x3F, 0x00, 0x00})  // latencies 10 to 14 and 15 to 20
                                    .byte(24, 110)                      // 13.75 ns
                                    .byte(123, 0)
                                    .byte(125, 0)
                                    .put(192, {0x34, 0x12, 0x78, 0x56, 0xBC, 0x9A})
                                    .byte(204, 0)
                                    .put(320, {0x80, 0x2C, 0x0F, 0x19, 0x42, 0x12, 0x34, 0x56, 0x78})
                                    .put(329, Bytes{'3', '6', 'A', 'S', 'F', '4', 'G', '7', '2', 'P',
                                                    'Z', '-', '2', 'G', '6', 'E', '1', ' ', ' ', ' '})
                                    .put(496, {'U', 'D', 'I', '4', '-', 'a', 'b'})
                                    .seal()
                                    .build(),
                                "12345678");

    // Monday of week 42 of 2019.
    ComponentVpdRecord expected = expected_record("2019-10-14");
    SpdInfo& module = expected.spd_info;
    put(module.part_number, "36ASF4G72PZ-2G6E1   ");
    put(module.serial_number, "802C0F194212345678");
    put(module.udi_part_number, "UDI4-ab");
    put(module.mfg_id, "Micron Technology");
    put(module.device_type, "DDR4");
    put(module.module_type, "RDIMM");
    put(module.sdram_freq_string, "DDR4-2666 (1333 MHz clock)");
    module.vendor_product_id = 0x1234;
    module.module_vendor_id = 0x2C80;
    module.subsys_vendor_id = 0x5678;
    module.subsys_device_id = 0x9ABC;
    module.module_voltage = 3;
    module.module_ranks = 1;  // the code of two ranks
    module.module_bus_width = 64;
    module.fine_timebase = 0.001F;
    module.medium_timebase = 0.125F;
    module.sdram_frequency = 1333;
    module.sdram_clock = 0.75F;
    put(module.cas_latencies_supports, "10,11,12,13,14,15,16,17,18,19,20");
    module.cas_latency = 13.75F;
    module.mfg_week = 42;
    module.mfg_year = 19;
    module.ram_size = 16384;         // 2 ranks x 64 bits / 8 bits x 1024 MB
    module.speed_in_MBpsec = 21333;  // 8 x 8 bytes x 2000 / 6
    module.ecc_bits = 8;
    EXPECT_TRUE(is_same_record(record, expected));
}

TEST_F(GoldenModuleTest, Ddr5) {
    const auto record = decoded(Ddr5Image()
                                    .byte(0, 0x30)
                                    .put(2, {0x12, 0x01, 0x04})  // DDR5, RDIMM, 16 Gbit, one die
                                    .byte(6, 0x20)               // x8
                                    .byte(16, 0x11)              // voltage
                                    .put(20, {0xA0, 0x01})       // clock 416 ps
                                    .put(24, {0x7A, 0x0D, 0x00, 0x00, 0x00})
                                    .put(194, {0x86, 0x32})
                                    .put(234, {0x08, 0x2A})  // two ranks; two channels of 32 bits and 4 for ECC
                                    .put(512, {0x80, 0xAD, 0x01, 0x23, 0x08, 0xDE, 0xAD, 0xBE, 0xEF})
                                    .put(521, Bytes(30))
                                    .put(521, Bytes{'H', 'M', 'C', 'G', '8', '8', 0x1F, '1', '9', 0x7F, '~'})
                                    .put(1008, {'U', 'D', 'I', '5', '-', 'x', 'y'})
                                    .seal()
                                    .build(),
                                "DEADBEEF");

    // Monday of week 8 of 2023.
    ComponentVpdRecord expected = expected_record("2023-02-20");
    SpdInfo& module = expected.spd_info;
    put(module.part_number, "HMCG88 19 ~                   ");
    put(module.serial_number, "80AD012308DEADBEEF");
    put(module.udi_part_number, "UDI5-xy");
    put(module.mfg_id, "SK Hynix");
    put(module.device_type, "DDR5");
    put(module.module_type, "RDIMM");
    module.module_vendor_id = 0x8632;
    module.module_voltage = 0x11;
    module.module_ranks = 2;  // ranks
    module.module_bus_width = 32;
    module.sdram_frequency = 4800;
    put(module.cas_latencies_supports, "36,22,40,26,42,28,30,32");
    module.mfg_week = 8;
    module.mfg_year = 23;
    module.ram_size = 32768;  // 2 channels x 32 / 8 bits x 1 die x 2 GB x 2 ranks
    module.ecc_bits = 4;
    EXPECT_TRUE(is_same_record(record, expected));
}

}  // namespace
