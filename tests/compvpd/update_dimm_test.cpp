// SPDX-License-Identifier: Apache-2.0
// Memory modules in an update: which image takes which path, the two views of a wrong checksum, and the memory total.
#include "failing_allocator.h"
#include "own_process.h"
#include "update_fixture.h"

using namespace vpdd::test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using vpdd::images::Ddr3Image;
using vpdd::images::Ddr4Image;
using vpdd::images::Ddr5Image;
using vpdd::images::FruImage;

namespace {

// The sizes of the images that the builder makes, in MB.
constexpr int ddr4_size = 8192, ddr5_size = 16384;

class UpdateDimmTest : public UpdateTest {
protected:
    /// Modules with these images, the FRU ids counting from 1, each created and then updated from the same image.
    void update_modules(const std::vector<Bytes>& images) {
        std::vector<Component> components;
        for (const Bytes& image : images) {
            components.push_back(module_component(static_cast<uint8_t>(components.size() + 1), image));
        }
        create_cache(components);
        result = UpdateComponentVPDCache();
    }
    const SpdInfo& module_info(uint8_t fru_id = 1) const { return cached(fru_id)->spd_info; }

    /// The update's lines at the highest priority, with "(line)" for each "(<line number>)".
    std::vector<std::string> emergencies() const {
        std::vector<std::string> lines;
        for (const LogLine& line : platform.log(emergency)) {
            std::string text = line.text;
            if (text.find(update_name) != std::string::npos) {
                const std::size_t open = text.find('('), close = text.find(')');
                lines.push_back(text.replace(open, close - open + 1, "(line)"));
            } else if (text.starts_with("== DDR5 DIMM SPD ==")) {
                lines.push_back(text);
            }
        }
        return lines;
    }
    std::size_t crc_errors() const { return platform.times_logged(error, update_line("ERROR: DIMM CRC")); }

    int result = 77;
};

std::string type_line(int type) { return formatted("UpdateComponentVPDCache(line) - DIMM device type: 0x%x", type); }
std::string head_line(int code, int length) { return formatted("== DDR5 DIMM SPD ==(%d)<%d>", code, length); }
std::string date_line(const char* date) { return formatted("== [UpdateComponentVPDCache](line) mfg date:[%s]", date); }

Bytes with_wrong_checksum(Bytes image) {
    image[126] ^= 0xFF;
    return image;
}

// ---- paths

TEST_F(UpdateDimmTest, LogsTheDeviceTypeOfEachModule) {
    update_modules({ddr3(), ddr4(), Ddr4Image().byte(2, 0x08).build(), Bytes(1, 0x23)});

    EXPECT_THAT(emergencies(), ElementsAre(type_line(0x0B), type_line(0x0C), type_line(0x08), type_line(0x00)));
}

TEST_F(UpdateDimmTest, RefreshesAModuleThatWasExchanged) {
    create_cache({module_component(1, ddr4()), module_component(2, ddr3()), module_component(3, ddr5())});
    replace(1, Ddr4Image().serial(0xCAFE0001).made(2021, 2).seal().build());
    replace(2, Ddr3Image().serial(0xCAFE0002).made(2012, 2).seal().build());
    replace(3, Ddr5Image().serial(0xCAFE0003).made(2022, 2).seal().build());

    EXPECT_EQ(UpdateComponentVPDCache(), 0);

    EXPECT_TRUE(std::string_view(module_info(1).serial_number).ends_with("CAFE0001"));
    EXPECT_STREQ(module_info(2).serial_number, "CAFE0002");
    EXPECT_TRUE(std::string_view(module_info(3).serial_number).ends_with("CAFE0003"));
    EXPECT_TRUE(std::string_view(cached(1)->mfg_date).starts_with("2021-01-"));
    EXPECT_TRUE(std::string_view(cached(2)->mfg_date).starts_with("2012-01-"));
    EXPECT_TRUE(std::string_view(cached(3)->mfg_date).starts_with("2022-01-"));
}

TEST_F(UpdateDimmTest, TakesTheRecordsNameForTheLocatorText) {
    create_cache({module_component(1, ddr4())});
    std::strcpy(cached(1)->name, "slot A, which has a long name");

    UpdateComponentVPDCache();

    EXPECT_STREQ(module_info().description, "slot A, which ha") << "sixteen characters";
}

TEST_F(UpdateDimmTest, PassesOverOtherMemoryTypesAndClearsTheInformation) {
    create_cache({module_component(1, ddr4()), module_component(2, ddr4())});
    for (const int type : {0x00, 0x07, 0x08, 0x09, 0x0A, 0x0E, 0x10, 0x11, 0x13, 0xFF}) {
        replace(1, Ddr4Image().byte(2, static_cast<uint8_t>(type)).build());
        EXPECT_EQ(UpdateComponentVPDCache(), 0);
        EXPECT_TRUE(is_cleared(module_info(1))) << type;
        EXPECT_STREQ(cached(1)->mfg_date, "2019-10-14") << "nothing else is touched";
        EXPECT_EQ(total("tarn_var_total_memory_size"), ddr4_size) << "of the other module";
    }
}

TEST_F(UpdateDimmTest, DecodesAnNvdimmInTheLayoutThatByte0Says) {
    update_modules({Ddr4Image().persistent().byte(0, 0x23).made(2019, 42).seal().build(),
                    Ddr5Image().persistent().byte(0, 0x30).made(2023, 8).seal().build(),
                    Ddr4Image().persistent().byte(0, 0x24).seal().build()});

    EXPECT_EQ(module_info(1).module_voltage, 0x03) << "byte 11: the DDR4 layout";
    EXPECT_THAT(emergencies(), ElementsAre(type_line(0x0D), type_line(0x0D), head_line(0x30, 1024),
                                           date_line("2023-02-20"), type_line(0x0D)));
    EXPECT_TRUE(is_cleared(module_info(3)));
    EXPECT_THAT(part_numbers(), SizeIs(1)) << "only the DDR4 layout's";
}

TEST_F(UpdateDimmTest, ReadsAsManyBytesAsTheModuleHas) {
    update_modules({ddr3(), ddr4(), ddr5()});

    std::vector<IpmiCall> expected;
    for (const auto& [id, size] : {std::pair{1, ddr3().size()}, {2, ddr4().size()}, {3, ddr5().size()}}) {
        for (const auto& call : requests_for(static_cast<uint8_t>(id), size)) expected.push_back(call);
    }
    EXPECT_EQ(platform.requests(), expected);
}

// ---- checksums

TEST_F(UpdateDimmTest, ReportsEachDdr3ChecksumTheRightOnesToo) {
    update_modules({ddr3()});

    EXPECT_EQ(crc_errors(), 1U);
    EXPECT_EQ(result, 0);
    EXPECT_EQ(module_info().crc, ddr3()[126] | ddr3()[127] << 8);
    EXPECT_STREQ(module_info().serial_number, "12AB00FF");
}

TEST_F(UpdateDimmTest, DecodesDdr3WhateverItsChecksum) {
    const Bytes image = with_wrong_checksum(ddr3());
    update_modules({image});

    EXPECT_EQ(crc_errors(), 1U);
    EXPECT_EQ(result, 0);
    EXPECT_EQ(module_info().crc, image[126] | image[127] << 8);
    EXPECT_STREQ(module_info().serial_number, "12AB00FF");
    EXPECT_EQ(cached(1)->is_cached, 1) << "a creation would have passed over it";
}

TEST_F(UpdateDimmTest, DoesNotReportARightDdr4Checksum) {
    update_modules({ddr4(), Ddr4Image().persistent().byte(0, 0x23).seal().build()});

    EXPECT_EQ(crc_errors(), 0U);
    EXPECT_EQ(module_info().crc, ddr4()[126] | ddr4()[127] << 8) << "a creation leaves it 0";
}

TEST_F(UpdateDimmTest, ReportsAWrongDdr4ChecksumAndGoesOn) {
    const Bytes image = with_wrong_checksum(ddr4());
    update_modules({image});

    EXPECT_EQ(crc_errors(), 1U);
    EXPECT_EQ(result, 0);
    EXPECT_EQ(module_info().crc, image[126] | image[127] << 8);
    EXPECT_STREQ(module_info().device_type, "DDR4");
    EXPECT_EQ(cached(1)->is_cached, 1);
    EXPECT_EQ(total("tarn_var_total_memory_size"), ddr4_size);
}

TEST_F(UpdateDimmTest, LooksAtNoDdr5Checksum) {
    Bytes image = ddr5();
    image[510] ^= 0xFF;
    update_modules({with_wrong_checksum(image)});

    EXPECT_THAT(platform.log(error), IsEmpty());
    EXPECT_EQ(module_info().crc, 0);
    EXPECT_EQ(cached(1)->is_cached, 1);
}

// ---- what only an update does

TEST_F(UpdateDimmTest, StoresTheBusWidthOfDdr3) {
    create_cache({module_component(1, ddr3())});
    EXPECT_EQ(module_info().module_bus_width, 0U);

    UpdateComponentVPDCache();

    EXPECT_EQ(module_info().module_bus_width, 64U);
}

TEST_F(UpdateDimmTest, LeavesTheRestOfADdr3RecordAsACreationDoes) {
    create_cache({module_component(1, ddr3())});
    ComponentVpdRecord expected = *cached(1);

    UpdateComponentVPDCache();

    expected.spd_info.module_bus_width = 64;
    EXPECT_TRUE(is_same_record(*cached(1), expected));
}

TEST_F(UpdateDimmTest, LeavesTheRestOfADdr4RecordAsACreationDoes) {
    create_cache({module_component(1, ddr4()), module_component(2, ddr5())});
    ComponentVpdRecord expected = *cached(1);
    const ComponentVpdRecord expected_ddr5 = *cached(2);

    UpdateComponentVPDCache();

    expected.spd_info.crc = ddr4()[126] | ddr4()[127] << 8;
    EXPECT_TRUE(is_same_record(*cached(1), expected));
    EXPECT_TRUE(is_same_record(*cached(2), expected_ddr5));
}

TEST_F(UpdateDimmTest, PublishesThePartNumberOfDdr4AsItStandsInTheImage) {
    update_modules(
        {Ddr4Image().part(" PART-4").seal().build(), Ddr4Image().part("12345678901234567890").seal().build()});

    EXPECT_THAT(part_numbers(),
                ElementsAre(text_variable("TARN_STR_PART_NUM_01", " PART-4             ", 1),  // twenty characters
                            text_variable("TARN_STR_PART_NUM_02", "12345678901234567890", 1)));
}

TEST_F(UpdateDimmTest, PublishesNoPartNumberOfDdr3AndDdr5) {
    update_modules({Ddr3Image().part("PART-3").seal().build(), Ddr5Image().part("PART-5").seal().build()});

    EXPECT_EQ(cached(1)->is_cached + cached(2)->is_cached, 2);
    EXPECT_THAT(part_numbers(), IsEmpty());
}

TEST_F(UpdateDimmTest, TotalsTheSizesOfDdr4AndDdr5) {
    update_modules({ddr4(), Ddr4Image().ranks(2).seal().build(), ddr5(), ddr3()});

    EXPECT_EQ(module_info(4).ram_size, 4096U) << "not counted";
    EXPECT_EQ(platform.written("tarn_var_total_memory_size"),
              number_variable("tarn_var_total_memory_size", ddr4_size + 2 * ddr4_size + ddr5_size, 1));
}

TEST_F(UpdateDimmTest, TotalsTheSizesOfNvdimmsInEitherLayout) {
    // The hybrid area: 2^5 x 32 MB x 2 ranks, times 2^4 and 2^5.
    const Bytes as_ddr4 =
        Ddr4Image().persistent().byte(0, 0x23).put(176, {0x05, 0, 0x10, 0, 0x00, 0x04}).seal().build();
    const Bytes as_ddr5 =
        Ddr5Image().persistent().byte(0, 0x30).put(592, {0x05, 0, 0x10, 0, 0x00, 0x05}).seal().build();
    create_cache({module_component(1, as_ddr4), module_component(2, as_ddr5)});

    UpdateComponentVPDCache();
    EXPECT_EQ(total("tarn_var_total_memory_size"), 32768 + 65536);

    platform.remove_fru(1);
    UpdateComponentVPDCache();
    EXPECT_EQ(total("tarn_var_total_memory_size"), 65536);
}

TEST_F(UpdateDimmTest, LeavesModulesThatCannotBeReadOutOfTheTotal) {
    create_cache({module_component(1, ddr4()), module_component(2, ddr4()), module_component(3, ddr4())});
    platform.remove_fru(1);
    platform.ipmi.when(reads(2, 128), ipmi_completion(0xCB));
    UpdateComponentVPDCache();

    EXPECT_EQ(total("tarn_var_total_memory_size"), ddr4_size);
}

// ---- DDR5

TEST_F(UpdateDimmTest, LogsHeadAndDateOfADdr5ModuleAndNoDump) {
    update_modules({ddr5(ddr5_bytes_256), ddr5(ddr5_bytes_512), ddr5(ddr5_bytes_1024)});

    EXPECT_THAT(emergencies(), ElementsAre(type_line(0x12), head_line(0x10, 256), date_line("2023-02-20"),
                                           type_line(0x12), head_line(0x20, 512), date_line("2023-02-20"),
                                           type_line(0x12), head_line(0x30, 1024), date_line("2023-02-20")));
    const auto is_dump = [](const LogLine& line) {
        return line.text.size() == 24 && line.text.find_first_not_of("0123456789abcdef ") == std::string::npos;
    };
    const auto lines = platform.log();
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(), is_dump), 0);
}

TEST_F(UpdateDimmTest, LogsTheDateBehindTheLookUps) {
    update_modules({ddr5()});

    ASSERT_FALSE(platform.log().empty());
    EXPECT_THAT(platform.log().back().text, testing::EndsWith(" mfg date:[2023-02-20]"));
}

TEST_F(UpdateDimmTest, CarriesTheDdr5LengthWithinOneRun) {
    create_cache({module_component(1, ddr5(ddr5_bytes_unknown)), module_component(2, ddr5(ddr5_bytes_512)),
                  module_component(3, ddr5(0x70))});
    UpdateComponentVPDCache();
    UpdateComponentVPDCache();

    std::vector<std::string> heads;
    for (const std::string& line : emergencies()) {
        if (line.starts_with("== DDR5")) heads.push_back(line);
    }
    EXPECT_THAT(heads, ElementsAre(head_line(0x40, 0), head_line(0x20, 512), head_line(0x70, 512), head_line(0x40, 0),
                                   head_line(0x20, 512), head_line(0x70, 512)));
}

// ---- a DDR5 module without a size

class UpdateWithoutSizeTest : public UpdateDimmTest {
protected:
    void run_into_it() {
        create_cache({module_component(1, ddr4()), module_component(2, ddr5()), module_component(3, ddr4())});
        cached(1)->is_cached = 0;
        replace(2, ddr5(0x80));
        const LeaksOnPurpose the_image;
        result = UpdateComponentVPDCache();
    }
};

TEST_F(UpdateWithoutSizeTest, EndsTheRunAndReleasesTheMutex) {
    run_into_it();

    EXPECT_EQ(result, -1);
    EXPECT_TRUE(all_locks_are_free());
    EXPECT_EQ(cached(1)->is_cached, 1) << "what came before it is refreshed";
    EXPECT_THAT(requests_of(3), IsEmpty());
    EXPECT_TRUE(is_cleared(module_info(2)));
    EXPECT_EQ(emergencies().back(), type_line(0x12)) << "neither head nor date";
}

TEST_F(UpdateWithoutSizeTest, PublishesNoTotals) {
    run_into_it();

    EXPECT_THAT(platform.configuration(), SizeIs(1));
    EXPECT_THAT(part_numbers(), SizeIs(1)) << "of the module before it";
}

TEST_F(UpdateWithoutSizeTest, ReleasesNeitherTheSmbiosTableNorTheImage) {
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer's allocator is in the way";
    const AllocationWatch watch;
    run_into_it();

    constexpr std::size_t nodes = 3, image = 1;
    EXPECT_EQ(watch.live_blocks(), nodes + image);
    EXPECT_EQ(platform.smbios_open.count(), 1U);
    EXPECT_THAT(platform.smbios_release.calls(), IsEmpty());
}

TEST_F(UpdateWithoutSizeTest, LeavesACacheThatCanBeUpdatedAgain) {
    run_into_it();
    replace(2, ddr5());

    EXPECT_EQ(UpdateComponentVPDCache(), 0);

    EXPECT_EQ(total("tarn_var_total_memory_size"), 2 * ddr4_size + ddr5_size);
}

TEST_F(UpdateWithoutSizeTest, OverridesEarlierFailures) {
    create_cache({{1, FruImage().board({"maker"}).build()}, module_component(2, ddr5())});
    platform.ipmi.when(reads(1, 0), ipmi_completion(0xCB));
    platform.smbios(nullptr);
    replace(2, ddr5(0x00));
    const LeaksOnPurpose the_image;

    EXPECT_EQ(UpdateComponentVPDCache(), -1);
}

// ---- SMBIOS

TEST_F(UpdateDimmTest, TakesSizeAndSpeedsOfAModuleThatSmbiosKnows) {
    for (const auto& [image, serial] : {std::pair{ddr3(), "12AB00FF"}, {ddr4(), "12345678"}, {ddr5(), "DEADBEEF"}}) {
        create_cache({module_component(1, image)});
        ASSERT_EQ(module_info().config_speed, 0U);
        smbios("DIMM 1", serial);

        EXPECT_EQ(UpdateComponentVPDCache(), 0);

        EXPECT_EQ(module_info().config_speed, 2400U) << serial;
        EXPECT_EQ(module_info().smbios_size, 0x4321U) << serial;
        EXPECT_EQ(module_info().smbios_speed, 2666U) << serial;
        EXPECT_THAT(platform.smbios_release.calls(), ElementsAre(table()));
        ASSERT_EQ(DestroyComponentVPDCache(), 0);
    }
}

/// The look-ups' failures as the update words them, in their order.
std::vector<std::string> table_errors(const FakePlatform& platform) {
    std::vector<std::string> texts;
    for (const LogLine& line : platform.log(info)) {
        if (line.text.find("table error") != std::string::npos) texts.push_back(line.text);
    }
    return texts;
}

TEST_F(UpdateDimmTest, WordsTheFailuresOfSmbiosDifferentlyForEachGeneration) {
    update_modules({ddr3(), ddr4(), ddr5()});

    EXPECT_EQ(result, 0);
    const std::string serial = cached(2)->spd_info.serial_number;
    ASSERT_TRUE(serial.ends_with("12345678"));
    EXPECT_THAT(table_errors(platform),
                ElementsAre(update_line("ERROR:Get config speed from smbios table error, serial_number:12AB00FF"),
                            update_line("ERROR:Get size and speed from smbios table error, locator des:FRU 1"),
                            update_line("ERROR:Get config speed from smbios table error, serial_number:" + serial),
                            update_line("ERROR:Get size and speed from smbios table error, description des:FRU 2"),
                            update_line("ERROR:Get config speed from smbios table error"),
                            update_line("ERROR:Get size and speed from smbios table error")));
}

TEST_F(UpdateDimmTest, DecodesWithoutSmbiosAndReturns64) {
    create_cache({module_component(1, ddr3()), module_component(2, ddr4()), module_component(3, ddr5())});
    smbios("DIMM 2", "12345678");
    ASSERT_EQ(UpdateComponentVPDCache(), 0);
    ASSERT_EQ(module_info(2).config_speed, 2400U);
    platform.smbios(nullptr);

    EXPECT_EQ(UpdateComponentVPDCache(), 64);

    for (const uint8_t id : {1, 2, 3}) {
        EXPECT_EQ(cached(id)->is_cached, 1);
        EXPECT_EQ(module_info(id).config_speed, 0U);
    }
    EXPECT_EQ(total("tarn_var_total_memory_size"), ddr4_size + ddr5_size);
}

TEST_F(UpdateDimmTest, UsesAndReleasesATableThatAFailedOpeningLeaves) {
    create_cache({module_component(1, ddr4())});
    smbios("DIMM 1", "12345678");
    platform.smbios_open.always({-1, table()});

    EXPECT_EQ(UpdateComponentVPDCache(), 64);

    EXPECT_EQ(module_info().config_speed, 2400U);
    EXPECT_THAT(platform.smbios_release.calls(), ElementsAre(table()));
}

// ---- failed chunks

struct FailedModuleChunk {
    const char* name;
    uint8_t byte_0;  // of the image
    std::size_t offset;
    uint8_t completion;
    bool clears;
};

class FailedModuleChunkTest : public UpdateDimmTest, public testing::WithParamInterface<FailedModuleChunk> {};

INSTANTIATE_TEST_SUITE_P(Each, FailedModuleChunkTest,
                         testing::Values(FailedModuleChunk{"FirstNotPresent", 0x23, 0, 0xCB, true},
                                         FailedModuleChunk{"FirstOtherwise", 0x23, 0, 0xC3, false},
                                         FailedModuleChunk{"LaterNotPresent", 0x23, 128, 0xCB, false},
                                         FailedModuleChunk{"LastOtherwise", 0x23, 384, 0xC3, false},
                                         FailedModuleChunk{"LaterBehindAByte0OfCb", 0xCB, 128, 0xC3, true}),
                         [](const auto& test) { return std::string(test.param.name); });

TEST_P(FailedModuleChunkTest, KeepsOrClearsTheInformationAndCountsAsFailed) {
    create_cache(
        {module_component(1, Ddr4Image().byte(0, GetParam().byte_0).seal().build()), module_component(2, ddr4())});
    cached(2)->is_cached = 0;
    platform.ipmi.when(reads(1, GetParam().offset), ipmi_completion(GetParam().completion));

    EXPECT_EQ(UpdateComponentVPDCache(), -10);

    EXPECT_EQ(cached(1)->is_cached, 0);
    EXPECT_EQ(is_cleared(module_info(1)), GetParam().clears);
    EXPECT_NE(cached(1)->mfg_date[0], '\0');
    EXPECT_TRUE(update_logged(warning, " - Read FRU fail, fruid=1, fru name=FRU 1!"));
    EXPECT_THAT(platform.log(warning), SizeIs(1));
    EXPECT_THAT(emergencies(), ElementsAre(type_line(0x0C))) << "of the other module";
    EXPECT_EQ(cached(2)->is_cached, 1);
}

}  // namespace
