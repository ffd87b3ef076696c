// SPDX-License-Identifier: Apache-2.0
#include "host/images/smbios_image.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <numeric>
#include <optional>

#include "host/images/bytes.h"

using namespace vpdd::images;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;

namespace {

// ---- builder

TEST(SmbiosStructure, PutsNumbersLeastSignificantByteFirst) {
    EXPECT_THAT(SmbiosStructure(0x80, 0x13).byte(4, 1).word(5, 0x0302).dword(7, 0x07060504).qword(11, 9).bytes(),
                ElementsAre(0x80, 0x13, 0, 0, 1, 2, 3, 4, 5, 6, 7, 9, 0, 0, 0, 0, 0, 0, 0, 0, 0));
}

TEST(SmbiosStructure, NumbersItsStringsInTheirOrder) {
    EXPECT_THAT(SmbiosStructure(0x80, 6).string(5, "a").string(4, "bc").bytes(),
                ElementsAre(0x80, 6, 0, 0, 2, 1, 'a', 0, 'b', 'c', 0, 0));
}

TEST(SmbiosStructure, KeepsNoEmptyString) {
    EXPECT_THAT(SmbiosStructure(0x80, 6).string(4, "").string(5, "b").bytes(),
                ElementsAre(0x80, 6, 0, 0, 0, 1, 'b', 0, 0));
}

TEST(SmbiosStructure, RefusesAFieldBehindItsLength) {
    EXPECT_THROW(SmbiosStructure(0x80, 6).word(5, 1), std::out_of_range);
}

TEST(SmbiosImage, NumbersItsStructuresAndEndsTheTable) {
    EXPECT_THAT(SmbiosImage().add(SmbiosStructure(0x80, 4)).add(SmbiosStructure(0x81, 4)).table(),
                ElementsAre(0x80, 4, 1, 0, 0, 0, 0x81, 4, 2, 0, 0, 0, 127, 4, 3, 0, 0, 0));
}

TEST(SmbiosImage, PutsTheTableBehindA64BitEntryPoint) {
    const Bytes file = SmbiosImage().file();

    const Bytes table{127, 4, 1, 0, 0, 0};
    EXPECT_EQ(Bytes(file.begin(), file.begin() + 5), text_bytes("_SM3_"));
    EXPECT_EQ(file.at(6), 24);
    EXPECT_EQ(Bytes(file.begin() + 12, file.begin() + 24), (Bytes{6, 0, 0, 0, 32, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(std::accumulate(file.begin(), file.begin() + 24, 0) % 256, 0);
    EXPECT_EQ(Bytes(file.begin() + 32, file.end()), table);
}

/// What dmidecode prints for a file, where that tool is installed.
std::optional<std::string> dmidecode(const Bytes& file) {
    if (std::system("command -v dmidecode >/dev/null 2>&1") != 0) return std::nullopt;
    const auto path = std::filesystem::temp_directory_path() / ("smbios_image_test." + std::to_string(getpid()));
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(file.data()), static_cast<std::streamsize>(file.size()));
    std::string text;
    FILE* pipe = popen(("dmidecode --from-dump " + path.string() + " 2>&1").c_str(), "r");
    for (int character = std::fgetc(pipe); character != EOF; character = std::fgetc(pipe)) {
        text += static_cast<char>(character);
    }
    pclose(pipe);
    std::filesystem::remove(path);
    return text;
}

TEST(SmbiosImage, IsUnderstoodByDmidecode) {
    const auto text = dmidecode(SmbiosImage()
                                    .bios("Bios Maker", "B1.2", "01/02/2024")
                                    .system("System Maker", "Server", "SYS-1")
                                    .baseboard("Board Maker", "Board", "BRD-1")
                                    .chassis("Chassis Maker", "CHS-1", "Rack 7")
                                    .processor("CPU 1", "Cpu Maker", "Cpu Version")
                                    .memory_array(16, 0x40000000)
                                    .memory_device(MemoryDeviceImage()
                                                       .memory_error_information_handle(0x0777)
                                                       .total_width(80)
                                                       .data_width(64)
                                                       .size(0x7FFF)
                                                       .extended_size(65536)
                                                       .form_factor(9)
                                                       .device_set(3)
                                                       .device_locator("DIMM 1")
                                                       .bank_locator("Bank 2")
                                                       .memory_type(0x22)
                                                       .type_detail(0x2080)
                                                       .speed(4800)
                                                       .manufacturer("Dimm Maker")
                                                       .serial_number("12345678")
                                                       .asset_tag("Tag 1")
                                                       .part_number("PN-1")
                                                       .attributes(2)
                                                       .configured_memory_speed(4400)
                                                       .minimum_voltage(1050)
                                                       .maximum_voltage(1200)
                                                       .configured_voltage(1100)
                                                       .memory_technology(3)
                                                       .memory_operating_mode_capability(8)
                                                       .firmware_version("F1")
                                                       .module_manufacturer_id(0xCE80)
                                                       .module_product_id(0x1234)
                                                       .memory_subsystem_controller_manufacturer_id(0x2C80)
                                                       .memory_subsystem_controller_product_id(0x5678)
                                                       .non_volatile_size(1ULL << 30)
                                                       .volatile_size(2ULL << 30)
                                                       .cache_size(3ULL << 30)
                                                       .logical_size(4ULL << 30))
                                    .memory_device(MemoryDeviceImage()
                                                       .device_locator("DIMM 2")
                                                       .size(4096)
                                                       .speed(0xFFFF)
                                                       .extended_speed(70001)
                                                       .configured_memory_speed(0xFFFF)
                                                       .extended_configured_memory_speed(70002))
                                    .file());
    if (!text) GTEST_SKIP() << "dmidecode is not installed";

    EXPECT_THAT(*text, testing::Not(HasSubstr("SPEC")));
    EXPECT_THAT(*text, testing::Not(HasSubstr("BAD")));
    for (const char* line : {"\tVendor: Bios Maker\n",
                             "\tVersion: B1.2\n",
                             "\tRelease Date: 01/02/2024\n",
                             "\tManufacturer: System Maker\n",
                             "\tProduct Name: Server\n",
                             "\tSerial Number: SYS-1\n",
                             "\tManufacturer: Board Maker\n",
                             "\tProduct Name: Board\n",
                             "\tSerial Number: BRD-1\n",
                             "\tManufacturer: Chassis Maker\n",
                             "\tSerial Number: CHS-1\n",
                             "\tAsset Tag: Rack 7\n",
                             "\tSocket Designation: CPU 1\n",
                             "\tManufacturer: Cpu Maker\n",
                             "\tVersion: Cpu Version\n",
                             "\tMaximum Capacity: 1 TB\n",
                             "\tNumber Of Devices: 16\n",
                             "\tArray Handle: 0x0006\n",
                             "\tError Information Handle: 0x0777\n",
                             "\tTotal Width: 80 bits\n",
                             "\tData Width: 64 bits\n",
                             "\tSize: 64 GB\n",
                             "\tForm Factor: DIMM\n",
                             "\tSet: 3\n",
                             "\tLocator: DIMM 1\n",
                             "\tBank Locator: Bank 2\n",
                             "\tType: DDR5\n",
                             "\tType Detail: Synchronous Registered (Buffered)\n",
                             "\tSpeed: 4800 MT/s\n",
                             "\tManufacturer: Dimm Maker\n",
                             "\tSerial Number: 12345678\n",
                             "\tAsset Tag: Tag 1\n",
                             "\tPart Number: PN-1\n",
                             "\tRank: 2\n",
                             "\tConfigured Memory Speed: 4400 MT/s\n",
                             "\tMinimum Voltage: 1.05 V\n",
                             "\tMaximum Voltage: 1.2 V\n",
                             "\tConfigured Voltage: 1.1 V\n",
                             "\tMemory Technology: DRAM\n",
                             "\tMemory Operating Mode Capability: Volatile memory\n",
                             "\tFirmware Version: F1\n",
                             "\tModule Manufacturer ID: Bank 1, Hex 0xCE\n",
                             "\tModule Product ID: 0x1234\n",
                             "\tMemory Subsystem Controller Manufacturer ID: Bank 1, Hex 0x2C\n",
                             "\tMemory Subsystem Controller Product ID: 0x5678\n",
                             "\tNon-Volatile Size: 1 GB\n",
                             "\tVolatile Size: 2 GB\n",
                             "\tCache Size: 3 GB\n",
                             "\tLogical Size: 4 GB\n",
                             "\tSize: 4 GB\n",
                             "\tSpeed: 70001 MT/s\n",
                             "\tConfigured Memory Speed: 70002 MT/s\n",
                             "DMI type 127, 4 bytes\nEnd Of Table\n"}) {
        EXPECT_THAT(*text, HasSubstr(line));
    }
}

// ---- parser

using Counts = std::vector<std::pair<int, int>>;

/// Type and count of each group, having read every byte of every structure.
Counts counts(std::span<const uint8_t> bytes) {
    const auto table = parse_smbios_table(bytes);
    Counts all;
    if (table == nullptr) return all;
    for (const auto* group = table->get()->groups; group != nullptr; group = group->next) {
        int entries = 0;
        for (const auto* entry = group->entries; entry != nullptr; entry = entry->next, ++entries) {
            EXPECT_EQ(entry->raw[0], group->type);
            const uint8_t* end = entry->raw + entry->raw[1];
            while (end[0] != 0 || end[1] != 0) ++end;
        }
        EXPECT_EQ(group->count, entries);
        all.emplace_back(group->type, group->count);
    }
    return all;
}

const char* first_string(const SmbiosEntry* entry) { return reinterpret_cast<const char*>(entry->raw + entry->raw[1]); }

Bytes joined(std::initializer_list<Bytes> parts) {
    Bytes all;
    for (const Bytes& part : parts) append(all, part);
    return all;
}

const Bytes device = MemoryDeviceImage().device_locator("DIMM 1").bytes();

/// An entry point of the 32-bit kind (SMBIOS 2.8) for a table at an address.
Bytes entry_point_32(uint16_t table_size, uint8_t address) {
    Bytes bytes(32);
    const Bytes anchor = text_bytes("_SM_"), intermediate_anchor = text_bytes("_DMI_");
    std::copy(anchor.begin(), anchor.end(), bytes.begin());
    std::copy(intermediate_anchor.begin(), intermediate_anchor.end(), bytes.begin() + 0x10);
    bytes[0x05] = 0x1F;
    bytes[0x06] = 2;
    bytes[0x07] = 8;
    bytes[0x16] = static_cast<uint8_t>(table_size);
    bytes[0x17] = static_cast<uint8_t>(table_size >> 8);
    bytes[0x18] = address;
    bytes[0x04] = zero_checksum(bytes);
    return bytes;
}

TEST(ParseSmbiosTable, GroupsTheStructuresInTheOrderOfTheTable) {
    const Bytes table = SmbiosImage()
                            .bios("a", "b", "c")
                            .memory_array(2, 1)
                            .memory_device(MemoryDeviceImage().device_locator("first"))
                            .system("a", "b", "c")
                            .memory_device(MemoryDeviceImage().device_locator("second"))
                            .table();

    EXPECT_THAT(counts(table), ElementsAre(Pair(0, 1), Pair(16, 1), Pair(17, 2), Pair(1, 1), Pair(127, 1)));
    const auto parsed = parse_smbios_table(table);
    const auto* devices = parsed->get()->groups->next->next;
    EXPECT_STREQ(first_string(devices->entries), "first");
    EXPECT_STREQ(first_string(devices->entries->next), "second");
}

TEST(ParseSmbiosTable, KeepsNoPointerIntoTheBytesItWasGiven) {
    auto table = std::make_unique<Bytes>(SmbiosImage().memory_device(MemoryDeviceImage().device_locator("d")).table());

    const auto parsed = parse_smbios_table(*table);
    table.reset();

    EXPECT_EQ(parsed->get()->groups->entries->raw[0], 17);
}

TEST(ParseSmbiosTable, FindsTheTableBehindItsEntryPoint) {
    const Bytes table = SmbiosImage().memory_device({}).table();
    const auto size = static_cast<uint16_t>(table.size());
    const Counts expected{{17, 1}, {127, 1}};

    EXPECT_EQ(counts(SmbiosImage().memory_device({}).file()), expected);
    EXPECT_EQ(counts(joined({entry_point_32(size, 32), table})), expected);
    EXPECT_EQ(counts(joined({entry_point_32(size, 40), Bytes(8, 0xEE), table})), expected);
}

TEST(ParseSmbiosTable, LooksBehindTheEntryPointForATableAtAnAddressOfTheHost) {
    const Bytes table = SmbiosImage().memory_device({}).table();

    EXPECT_EQ(counts(joined({entry_point_32(static_cast<uint16_t>(table.size()), 0xF0), table})),
              (Counts{{17, 1}, {127, 1}}));
}

TEST(ParseSmbiosTable, ReadsNoFurtherThanTheEntryPointSays) {
    const auto one = static_cast<uint16_t>(device.size());

    EXPECT_EQ(counts(joined({entry_point_32(one, 32), device, device})), (Counts{{17, 1}}));
    EXPECT_EQ(counts(joined({entry_point_32(static_cast<uint16_t>(one - 1), 32), device, device})), Counts{});
    EXPECT_EQ(counts(joined({entry_point_32(0xFFFF, 32), device, device})), (Counts{{17, 2}}));
}

TEST(ParseSmbiosTable, RefusesADamagedEntryPoint) {
    Bytes file = SmbiosImage().memory_device({}).file();
    ++file[0x08];
    EXPECT_EQ(parse_smbios_table(file), nullptr);

    for (const uint8_t length : {0, 1, 0x17, 0x21, 0xFF}) {
        Bytes odd = SmbiosImage().memory_device({}).file();
        odd.resize(0x100);
        odd[0x06] = length;
        odd[0x05] = 0;
        odd[0x05] = zero_checksum(std::span(odd).first(length));
        EXPECT_EQ(parse_smbios_table(odd), nullptr) << int{length};
    }
    EXPECT_EQ(parse_smbios_table(text_bytes("_SM3_")), nullptr);
    EXPECT_EQ(parse_smbios_table(text_bytes("_SM_")), nullptr);
}

TEST(ParseSmbiosTable, HandsOutNothingOfATableWithoutAStructure) {
    EXPECT_EQ(parse_smbios_table({}), nullptr);
    EXPECT_EQ(parse_smbios_table(Bytes(100)), nullptr);
    EXPECT_EQ(parse_smbios_table(Bytes(100, 0xFF)), nullptr);
}

TEST(ParseSmbiosTable, EndsAtTheEndOfTableStructure) {
    const Bytes end = SmbiosStructure(127, 4).bytes();

    EXPECT_THAT(counts(joined({device, end, device})), ElementsAre(Pair(17, 1), Pair(127, 1)));
}

TEST(ParseSmbiosTable, EndsAtAStructureShorterThanItsHeader) {
    for (const uint8_t length : {0, 1, 3}) {
        EXPECT_THAT(counts(joined({device, {17, length, 0, 0, 0, 0}, device})), ElementsAre(Pair(17, 1)));
    }
}

TEST(ParseSmbiosTable, NeverHandsOutAStructureThatIsCutOff) {
    const Bytes two = joined({device, device});
    const auto whole = static_cast<std::ptrdiff_t>(device.size());

    for (std::ptrdiff_t size = 0; size < whole; ++size) {
        EXPECT_EQ(counts(Bytes(two.begin(), two.begin() + size)), Counts{}) << size;
    }
    for (std::ptrdiff_t size = whole; size < 2 * whole; ++size) {
        EXPECT_EQ(counts(Bytes(two.begin(), two.begin() + size)), (Counts{{17, 1}})) << size;
    }
    EXPECT_EQ(counts(two), (Counts{{17, 2}}));
}

TEST(ParseSmbiosTable, EndsAtStringsThatDoNotEnd) {
    Bytes endless = device;
    endless.pop_back();

    EXPECT_THAT(counts(joined({device, endless, Bytes(50, 'x')})), ElementsAre(Pair(17, 1)));
}

TEST(ParseSmbiosTable, CapsATypeAt255Structures) {
    SmbiosImage image;
    for (int number = 0; number < 300; ++number) image.memory_device({});

    EXPECT_THAT(counts(image.table()), ElementsAre(Pair(17, 255), Pair(127, 1)));
}

TEST(ParseSmbiosTable, HoldsEveryTypeThereIs) {
    SmbiosImage image;
    for (int type = 0; type < 256; ++type) {
        if (type != 127) image.add(SmbiosStructure(static_cast<uint8_t>(type), 4));
    }

    EXPECT_EQ(counts(image.table()).size(), 256u);
}

}  // namespace
