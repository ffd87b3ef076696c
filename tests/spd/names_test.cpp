// SPDX-License-Identifier: Apache-2.0
#include "cksum.h"
#include "spd_test.h"

using namespace vpdd::test;

namespace {

using ParseModuleType = PlatformTest;

const char* const untouched = "untouched";

// ---- device types

TEST(DimmTypeMap, HasItsRowsInOrder) {
    const std::vector<std::pair<uint8_t, std::string>> expected{{0x08, "DDR2"}, {0x0B, "DDR3"}, {0x0C, "DDR4"},
                                                                {0x0D, "NVM"},  {0x12, "DDR5"}, {0xFF, "UNKNOWN"}};

    std::vector<std::pair<uint8_t, std::string>> rows;
    for (std::size_t i = 0; i < expected.size(); ++i) rows.emplace_back(dimm_type_map[i].code, dimm_type_map[i].name);

    EXPECT_EQ(rows, expected);
}

TEST(TranslateDimmType, NamesTheListedTypesAndNoOthers) {
    const std::map<int, std::string> names{{8, "DDR2"}, {11, "DDR3"}, {12, "DDR4"}, {13, "NVM"}, {18, "DDR5"}};

    for (int code = 0; code <= 0xFF; ++code) {
        const char* name = untouched;
        const int result = translate_dimm_type(static_cast<uint8_t>(code), &name);
        const bool is_listed = names.contains(code);
        EXPECT_EQ(result, is_listed ? 0 : -1) << code;
        EXPECT_EQ(std::string(name), is_listed ? names.at(code) : "UNKNOWN") << code;
    }
}

// ---- module types

using Names = std::vector<std::string>;
const std::string empty_entry = "(null)";

const Names ddr3_module_types{"Undefined",    "RDIMM",      "UDIMM",       "SO-DIMM",      "Micro-DIMM",
                              "Mini-RDIMM",   "Mini-UDIMM", "Mini-CDIMM",  "72b-SO-UDIMM", "72b-SO-RDIMM",
                              "72b-SO-CDIMM", "LRDIMM",     "16b-SO-DIMM", "32b-SO-DIMM"};
const Names ddr4_module_types{"Undefined",  "RDIMM",       "UDIMM",       "SO-DIMM",      "LRDIMM",
                              "Mini-RDIMM", "Mini-UDIMM",  "Reserved",    "72b-SO-UDIMM", "72b-SO-RDIMM",
                              "Reserved",   "16b-SO-DIMM", "32b-SO-DIMM", "Reserved"};
const Names ddr5_module_types{"Undefined", "RDIMM",     "UDIMM",     "SO-DIMM", "LRDIMM",      "Undefined", "Undefined",
                              "Undefined", "Undefined", "Undefined", "DDIMM",   "Solder down", "Undefined", "Reserved"};
const Names nvdimm_module_types{"Undefined",           "RDIMM",     "UDIMM",     "SO-DIMM",   "LRDIMM",
                                "FET Switches on DQs", "Reserved",  empty_entry, empty_entry, empty_entry,
                                empty_entry,           empty_entry, empty_entry, empty_entry};

Names texts_of(const char* const (&table)[14]) {
    Names texts;
    for (const char* const text : table) texts.emplace_back(text == nullptr ? empty_entry : text);
    return texts;
}

TEST(ModuleTypeTables, HaveTheirNamesInOrder) {
    EXPECT_EQ(texts_of(dimm_module_type_table_ddr3), ddr3_module_types);
    EXPECT_EQ(texts_of(dimm_module_type_table_ddr4), ddr4_module_types);
    EXPECT_EQ(texts_of(dimm_module_type_table_ddr5), ddr5_module_types);
    EXPECT_EQ(texts_of(dimm_module_type_table_nvdm), nvdimm_module_types);
}

TEST_F(ParseModuleType, TakesTheLowNibbleOfByte3) {
    const std::vector<std::pair<uint8_t, const Names*>> generations{{ddr3, &ddr3_module_types},
                                                                    {ddr4, &ddr4_module_types},
                                                                    {nvdimm, &nvdimm_module_types},
                                                                    {ddr5, &ddr5_module_types}};

    for (const auto& [type, names] : generations)
        for (uint8_t index = 0; index < 14; ++index) {
            const char* name = untouched;
            const uint8_t high_nibble = 0xA0;
            EXPECT_EQ(parse_module_type(image_with(type, {{3, high_nibble | index}}).data(), 224, &name), 0);
            EXPECT_EQ(name == nullptr ? empty_entry : name, (*names)[index]) << int{type} << " " << int{index};
        }
    EXPECT_TRUE(platform.logged_nothing());
}

TEST_F(ParseModuleType, CallsIndexFourteenAndFifteenUndefined) {
    for (const uint8_t type : {ddr3, ddr4, nvdimm, ddr5})
        for (const uint8_t index : {0x0E, 0x0F, 0x1E}) {
            const char* name = untouched;
            EXPECT_EQ(parse_module_type(image_with(type, {{3, index}}).data(), 1, &name), 0);
            EXPECT_STREQ(name, "Undefined");
        }
}

TEST_F(ParseModuleType, RefusesOtherDeviceTypes) {
    for (const uint8_t type : {0x00, 0x08, 0x0A, 0x0E, 0x11, 0x13, 0xFF}) {
        const char* name = untouched;
        EXPECT_EQ(parse_module_type(image_with(type, {{3, 1}}).data(), 224, &name), -1);
        EXPECT_EQ(name, untouched);
    }
    EXPECT_EQ(platform.times_logged(14, pid_line("parse_module_type - ERROR:DIMM Device Type Error\n")), 7U);
}

TEST_F(ParseModuleType, ClearsItsOutputForTheLengthZero) {
    const char* name = untouched;

    EXPECT_EQ(parse_module_type(image_with(ddr4, {{3, 1}}).data(), 0, &name), -1);

    EXPECT_EQ(name, nullptr);
    EXPECT_TRUE(platform.logged(14, pid_line("parse_module_type - ERROR:input parameters are invalid..\n")));
}

TEST_F(ParseModuleType, RefusesANullOutput) {
    EXPECT_EQ(parse_module_type(image_with(ddr4, {{3, 1}}).data(), 224, nullptr), -1);
    EXPECT_EQ(parse_module_type(image_with(ddr4, {{3, 1}}).data(), 0, nullptr), -1);

    EXPECT_EQ(platform.times_logged(14, pid_line("parse_module_type - ERROR:input parameters are invalid..\n")), 2U);
}

TEST_F(ParseModuleType, LooksAtTheDeviceTypeFirst) {
    const char* name = untouched;

    EXPECT_EQ(parse_module_type(blank_image(0).data(), 0, &name), -1);

    EXPECT_EQ(name, untouched);
    EXPECT_EQ(platform.log().size(), 1U);
    EXPECT_TRUE(platform.logged(14, pid_line("parse_module_type - ERROR:DIMM Device Type Error\n")));
}

// ---- the list of manufacturers

TEST(Jep106, HasTheRowsOfTheStandardAndASentinel) {
    // What `grep -v '^#' spd/jep106.tsv | cksum` prints of the edition of January 2016 and the row of bank 11.
    constexpr uint32_t standard = 3466111321;
    constexpr std::size_t characters = 26840;

    std::string rows;
    for (const Jep106Row& row : jep_106)
        if (row.bank != 9) rows += formatted("%u\t0x%02X\t%s\n", row.bank, row.code, row.name);

    EXPECT_EQ(rows.size(), characters);
    EXPECT_EQ(cksum(rows), standard);
    EXPECT_EQ(jep_106[1118].code, 0xFF);
    EXPECT_STREQ(jep_106[1118].name, "");
}

TEST(Jep106, HasItsBanksCompleteAndInOrder) {
    std::vector<int> expected;
    for (int bank = 0; bank < 8; ++bank) expected.insert(expected.end(), 126, bank);
    expected.insert(expected.end(), 109, 8);
    expected.push_back(11);
    expected.push_back(9);

    std::vector<int> banks;
    for (const Jep106Row& row : jep_106) banks.push_back(row.bank);

    EXPECT_EQ(banks, expected);
}

TEST(Jep106, ListsEachCodeWithOddParity) {
    for (std::size_t i = 0; i + 1 < std::size(jep_106); ++i)
        EXPECT_EQ(__builtin_parity(jep_106[i].code), 1) << jep_106[i].name;
}

TEST(Jep106, HasTheNamesThatDecodersCompare) {
    const auto name_of = [](int bank, int code) {
        for (const Jep106Row& row : jep_106)
            if (row.bank == bank && row.code == code) return std::string(row.name);
        return std::string();
    };

    EXPECT_EQ(name_of(0, 0x89), "Intel");
    EXPECT_EQ(name_of(0, 0xCE), "Samsung");
    EXPECT_EQ(name_of(6, 0x85), "Diablo Technologies");
    EXPECT_EQ(name_of(11, 0x92), "Kingbank Technology Co Ltd");
}

struct Maker {
    int bank, code;
    std::string name;

    bool operator==(const Maker&) const = default;
};
void PrintTo(const Maker& maker, std::ostream* stream) {
    *stream << maker.bank << "/0x" << std::hex << maker.code << std::dec << " " << maker.name;
}

/// Well-known ids, written down without the list, in all its banks.
const std::vector<Maker> known_makers{
    {0, 0x01, "AMD"},
    {0, 0x04, "Fujitsu"},
    {0, 0x10, "NEC"},
    {0, 0x1F, "Atmel"},
    {0, 0x2C, "Micron Technology"},
    {0, 0x34, "Cypress"},
    {0, 0x49, "Xilinx"},
    {0, 0x97, "Texas Instruments"},
    {0, 0xA4, "IBM"},
    {0, 0xB3, "IDT"},
    {0, 0xDA, "Winbond Electronic"},
    {1, 0x4F, "Transcend Information"},
    {1, 0x7A, "Apacer Technology"},
    {1, 0x94, "Smart Modular"},
    {1, 0x98, "Kingston"},
    {1, 0xBF, "Broadcom"},
    {2, 0x31, "Itautec SA"},
    {2, 0x94, "Delkin Devices"},
    {2, 0x9E, "Corsair"},
    {2, 0xB5, "SpecTek Incorporated"},
    {2, 0xFE, "Elpida"},
    {3, 0x0B, "Nanya Technology"},
    {3, 0x16, "Netlist"},
    {3, 0x25, "Kingmax Semiconductor"},
    {3, 0x6B, "NVIDIA"},
    {3, 0x94, "Mushkin"},
    {3, 0xDA, "Swissbit"},
    {4, 0x3B, "ARM Ltd."},
    {4, 0x43, "Ramaxel Technology"},
    {4, 0xCB, "A-DATA Technology"},
    {4, 0xCD, "G Skill Intl"},
    {4, 0xEF, "Team Group Inc."},
    {5, 0x51, "Qimonda"},
    {5, 0x57, "AENEON"},
    {5, 0x9B, "Crucial Technology"},
    {6, 0x32, "Montage Technology Group"},
    {6, 0xC8, "GigaDevice Semiconductor"},
    {6, 0xF1, "InnoDisk Corporation"},
    {7, 0x45, "HMD Electronics AG"},
    {7, 0x6B, "Everspin Technologies"},
    {7, 0x83, "Strontium"},
    {7, 0xB6, "HiSilicon Technologies"},
    {8, 0x25, "ISSI/Chingis"},
    {8, 0x31, "Baikal Electronics"},
    {8, 0x58, "HGST"},
};

TEST(Jep106, HasTheMakersThatEverybodyKnowsAtTheirIds) {
    for (const Maker& maker : known_makers) {
        const auto is_it = [&](const Jep106Row& row) { return row.bank == maker.bank && row.code == maker.code; };
        const auto* const row = std::find_if(std::begin(jep_106), std::end(jep_106), is_it);
        ASSERT_NE(row, std::end(jep_106)) << testing::PrintToString(maker);
        EXPECT_EQ((Maker{row->bank, row->code, row->name}), maker);
    }
}

// ---- makers of an image

using Parser = decltype(parse_vendor_manufacturer_id);

std::string name_by(Parser& parser, const Bytes& image) {
    const char* name = untouched;
    const int result = parser(image.data(), 224, &name);
    EXPECT_EQ(result, name == untouched ? -1 : 0);
    return name;
}

constexpr uint8_t samsung = 0xCE, micron = 0x2C;  // bank 0

TEST(ParseVendorManufacturerId, FindsEveryManufacturerWithAndWithoutParityInTheFirstByte) {
    for (std::size_t i = 0; i + 1 < std::size(jep_106); ++i) {
        const auto& [bank, code, name] = jep_106[i];
        EXPECT_EQ(name_by(parse_vendor_manufacturer_id, image_with(ddr4, {{320, bank}, {321, code}})), name);
        EXPECT_EQ(name_by(parse_vendor_manufacturer_id,
                          image_with(ddr4, {{320, static_cast<uint8_t>(bank | 0x80U)}, {321, code}})),
                  name);
    }
}

TEST(ParseVendorManufacturerId, ReadsItsGenerationsBytes) {
    const std::vector<Bytes> images{
        image_with(ddr3, {{117, 0x80}, {118, micron}}),
        image_with(ddr4, {{320, 0x80}, {321, micron}}),
        image_with(nvdimm, {{0, '#'}, {320, 0x80}, {321, micron}}),
        image_with(nvdimm, {{0, '0'}, {512, 0x80}, {513, micron}}),
        image_with(ddr5, {{512, 0x80}, {513, micron}}),
    };

    for (const Bytes& image : images)
        EXPECT_EQ(name_by(parse_vendor_manufacturer_id, image), "Micron Technology") << int{image[2]} << image[0];
}

TEST(ParseVendorManufacturerId, KnowsNoMakerOfOtherImages) {
    for (const uint8_t type : {0x00, 0x08, 0x0E, 0xFF}) {
        Bytes image(1024, micron);
        image[2] = type;
        EXPECT_EQ(name_by(parse_vendor_manufacturer_id, image), untouched);
    }
    Bytes other_nvdimm(1024, micron);
    other_nvdimm[2] = nvdimm;
    EXPECT_EQ(name_by(parse_vendor_manufacturer_id, other_nvdimm), untouched);
}

TEST(ParseVendorManufacturerId, ComparesTheParityBitOfTheCode) {
    EXPECT_EQ(name_by(parse_vendor_manufacturer_id, image_with(ddr4, {{321, micron | 0x80U}})), untouched);
    EXPECT_EQ(name_by(parse_vendor_manufacturer_id, image_with(ddr4, {{321, samsung & 0x7FU}})), untouched);
}

TEST(ParseVendorManufacturerId, LeavesItsOutputForUnlistedIds) {
    EXPECT_EQ(name_by(parse_vendor_manufacturer_id, image_with(ddr4, {})), untouched);
    EXPECT_EQ(name_by(parse_vendor_manufacturer_id, image_with(ddr4, {{320, 10}, {321, 0x92}})), untouched);
    EXPECT_EQ(name_by(parse_vendor_manufacturer_id, image_with(ddr4, {{320, 0x7F}, {321, 0x7F}})), untouched);
    EXPECT_EQ(name_by(parse_vendor_manufacturer_id, image_with(ddr4, {{320, 0xFF}, {321, 0xFF}})), untouched);
}

TEST(ParseVendorManufacturerId, NeverFindsTheSentinelRow) {
    EXPECT_EQ(name_by(parse_vendor_manufacturer_id, image_with(ddr4, {{320, 0x89}, {321, 0xFF}})), untouched);
}

TEST(ParseVendorManufacturerId, FindsTheRowOfBankElevenBeforeTheSentinel) {
    EXPECT_EQ(name_by(parse_vendor_manufacturer_id, image_with(ddr4, {{320, 0x0B}, {321, 0x92}})),
              "Kingbank Technology Co Ltd");
}

TEST(ParseVendorManufacturerId, DoesNotLookAtTheLength) {
    const char* name = untouched;

    EXPECT_EQ(parse_vendor_manufacturer_id(image_with(ddr4, {{321, micron}}).data(), 0, &name), 0);
    EXPECT_STREQ(name, "Micron Technology");
}

TEST(ParseManufacturerId, ReadsItsGenerationsBytes) {
    EXPECT_EQ(name_by(parse_manufacturer_id, image_with(ddr3, {{148, 0x80}, {149, micron}})), "Micron Technology");
    EXPECT_EQ(name_by(parse_manufacturer_id, image_with(ddr4, {{350, 0x80}, {351, micron}})), "Micron Technology");
}

TEST(ParseManufacturerId, OfAnNvdimmIsTheModulesMakerWhateverItsLayout) {
    for (const uint8_t first : {'#', '0', 'x'}) {
        const Bytes image = image_with(nvdimm, {{0, first}, {321, micron}, {351, samsung}, {513, samsung}});
        EXPECT_EQ(name_by(parse_manufacturer_id, image), "Micron Technology");
    }
}

TEST(ParseManufacturerId, KnowsNoMakerOfDdr5AndOtherImages) {
    for (const uint8_t type : {ddr5, uint8_t{0x00}, uint8_t{0x08}}) {
        Bytes image(1024, micron);
        image[2] = type;
        EXPECT_EQ(name_by(parse_manufacturer_id, image), untouched);
    }
}

// ---- id words

uint16_t word_by(decltype(parse_vendor_mfg_id)& parser, const Bytes& image) {
    uint16_t word = 0xBEEF;
    parser(image.data(), 224, &word);
    return word;
}

TEST(ParseVendorMfgId, IsTheLittleEndianMakerWord) {
    EXPECT_EQ(word_by(parse_vendor_mfg_id, image_with(ddr3, {{117, 0x80}, {118, 0x2C}})), 0x2C80);
    EXPECT_EQ(word_by(parse_vendor_mfg_id, image_with(ddr4, {{320, 0x80}, {321, 0x2C}})), 0x2C80);
    EXPECT_EQ(word_by(parse_vendor_mfg_id, image_with(nvdimm, {{0, '#'}, {320, 0x80}, {321, 0x2C}})), 0x2C80);
    EXPECT_EQ(word_by(parse_vendor_mfg_id, image_with(nvdimm, {{0, '0'}, {512, 0x80}, {513, 0x2C}})), 0x2C80);
}

TEST(ParseVendorMfgId, OfDdr5IsAnotherWordWithItsBytesSwapped) {
    const Bytes image = image_with(ddr5, {{194, 0x86}, {195, 0x32}, {512, 0x80}, {513, 0x2C}});

    EXPECT_EQ(word_by(parse_vendor_mfg_id, image), 0x8632);
}

TEST(ParseVendorMfgId, IsZeroForOtherImages) {
    EXPECT_EQ(word_by(parse_vendor_mfg_id, Bytes(1024, 0x55)), 0);
    Bytes other_nvdimm(1024, 0x55);
    other_nvdimm[2] = nvdimm;
    EXPECT_EQ(word_by(parse_vendor_mfg_id, other_nvdimm), 0);
}

TEST(ParseVendorProductId, IsALittleEndianWordOfDdr4AndNvdimms) {
    EXPECT_EQ(word_by(parse_vendor_product_id, image_with(ddr4, {{192, 0x34}, {193, 0x12}})), 0x1234);
    for (const uint8_t first : {'#', '0', 'x'})
        EXPECT_EQ(word_by(parse_vendor_product_id, image_with(nvdimm, {{0, first}, {192, 0x34}, {193, 0x12}})), 0x1234);
}

TEST(ParseVendorProductId, IsZeroForOtherTypes) {
    for (const uint8_t type : {ddr3, ddr5, uint8_t{0}})
        EXPECT_EQ(word_by(parse_vendor_product_id, image_with(type, {{192, 0x34}, {193, 0x12}})), 0);
}

}  // namespace
