// SPDX-License-Identifier: Apache-2.0
// Memory modules in the creation run: which image takes which path, the cross-check with SMBIOS, and the DDR5 dump.
#include "failing_allocator.h"
#include "module_fixture.h"
#include "own_process.h"

using namespace vpdd::test;
using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using vpdd::images::Ddr3Image;
using vpdd::images::Ddr4Image;
using vpdd::images::Ddr5Image;
using vpdd::images::FruImage;
using vpdd::images::FruLocator;

namespace {

std::string error_line(const std::string& text) {
    return formatted("pid = %d, CreateComponentVPDCache - ERROR:", getpid()) + text;
}

class DimmTest : public ModuleCacheTest {
protected:
    DimmTest() { platform.fru(0, FruImage().build()); }

    /// The records that come of modules with these images, the FRU ids counting from 1, the names "DIMM <id>".
    void create_modules(const std::vector<Bytes>& images) {
        std::vector<Bytes> locators;
        for (const Bytes& image : images) {
            const auto id = static_cast<uint8_t>(locators.size() + 1);
            platform.fru(id, image);
            locators.push_back(module(id, "DIMM " + std::to_string(id)));
        }
        repository(locators);
        result = CreateComponentVPDCache();
    }
    ComponentVpdRecord decoded(const Bytes& image) {
        create_modules({image});
        return records().at(0);
    }

    std::vector<std::string> dump_lines() const {
        std::vector<std::string> lines;
        for (const LogLine& line : platform.log(emergency)) {
            const bool is_dump =
                line.text.starts_with("== DDR5 DIMM SPD ==") ||
                (line.text.size() == 24 && line.text.find_first_not_of("0123456789abcdef ") == std::string::npos);
            if (is_dump) lines.push_back(line.text);
        }
        return lines;
    }
    /// The lines that begin a dump, each with the number of lines behind it.
    std::vector<std::string> dumps() const {
        std::vector<std::string> heads;
        std::vector<std::size_t> counts;
        for (const std::string& line : dump_lines()) {
            if (line.starts_with("==")) {
                heads.push_back(line);
                counts.push_back(0);
            } else {
                ++counts.at(counts.size() - 1);
            }
        }
        for (std::size_t i = 0; i < heads.size(); ++i) heads[i] += formatted(" and %zu lines", counts[i]);
        return heads;
    }

    int result = 77;
};

void expect_no_module(const ComponentVpdRecord& record) {
    EXPECT_EQ(record.is_cached, 0);
    EXPECT_STREQ(record.mfg_date, "");
    const Bytes bytes = bytes_of_record(record);
    const auto first = bytes.begin() + offsetof(ComponentVpdRecord, spd_info);
    EXPECT_THAT(Bytes(first, first + sizeof(SpdInfo)), Each(0));
}

// ---- paths

TEST_F(DimmTest, DecodesDdr3WithAGoodChecksum) {
    const auto record = decoded(ddr3());

    EXPECT_EQ(record.is_cached, 1);
    EXPECT_STREQ(record.spd_info.device_type, "DDR3");
    EXPECT_STREQ(record.spd_info.serial_number, "12AB00FF");
    EXPECT_STREQ(record.mfg_date, "2015-06-01");
}

TEST_F(DimmTest, KeepsNothingButTheChecksumOfADamagedDdr3Module) {
    Bytes image = ddr3();
    image[4] ^= 1;
    const int32_t stored = image[126] | image[127] << 8;
    auto record = decoded(image);

    EXPECT_EQ(record.spd_info.crc, stored);
    record.spd_info.crc = 0;
    expect_no_module(record);
    EXPECT_TRUE(platform.logged_containing(warning, "check_spd_crc - either LSB or MSB CRC is wrong"));
    EXPECT_THAT(platform.log(emergency), Not(Contains(testing::Field(&LogLine::text, HasSubstr("DIMM type")))));
}

TEST_F(DimmTest, ChecksADdr3ImageAcross117BytesWhenItSaysSo) {
    // Bit 7 of byte 0: the checksum covers bytes 0 to 116 only. Byte 117 may change without a word.
    Bytes image = Ddr3Image().byte(0, 0x92).seal().build();
    image[117] ^= 0xFF;
    EXPECT_EQ(decoded(image).is_cached, 1);
}

TEST_F(DimmTest, DecodesDdr4) {
    const auto record = decoded(ddr4());

    EXPECT_EQ(record.is_cached, 1);
    EXPECT_STREQ(record.spd_info.device_type, "DDR4");
    EXPECT_STREQ(record.mfg_date, "2019-10-14");
    EXPECT_THAT(dump_lines(), IsEmpty());
}

TEST_F(DimmTest, DecodesDdr4WhateverItsChecksum) {
    Bytes image = ddr4();
    image[126] ^= 1;
    const auto record = decoded(image);

    EXPECT_EQ(record.is_cached, 1);
    EXPECT_EQ(record.spd_info.crc, 0) << "the checksum is not looked at";
}

TEST_F(DimmTest, DecodesAnNvdimmInTheLayoutThatByte0Says) {
    create_modules({Ddr4Image().persistent().byte(0, 0x23).seal().build(),
                    Ddr5Image().persistent().byte(0, 0x30).seal().build(),
                    Ddr4Image().byte(2, 0x0D).byte(0, 0x24).seal().build(),
                    Ddr5Image().byte(2, 0x0D).byte(0, 0x10).seal().build()});

    const auto found = records();
    EXPECT_EQ(found.at(0).is_cached, 1);
    EXPECT_EQ(found.at(0).spd_info.module_voltage, 0x03) << "byte 11: the DDR4 layout";
    EXPECT_EQ(found.at(1).is_cached, 1);
    EXPECT_THAT(dumps(), ElementsAre("== DDR5 DIMM SPD ==(48)<1024> and 128 lines"));
    expect_no_module(found.at(2));
    expect_no_module(found.at(3));
}

TEST_F(DimmTest, DecodesDdr5) {
    const auto record = decoded(ddr5());

    EXPECT_EQ(record.is_cached, 1);
    EXPECT_STREQ(record.spd_info.device_type, "DDR5");
    EXPECT_STREQ(record.mfg_date, "2023-02-20");
}

TEST_F(DimmTest, PassesOverEveryOtherMemoryType) {
    std::vector<Bytes> images;
    for (int type = 0; type < 256; ++type) {
        if (type == 0x0B || type == 0x0C || type == 0x0D || type == 0x12) continue;
        Bytes image = ddr4();
        image[2] = static_cast<uint8_t>(type);
        images.push_back(image);
    }
    create_modules(images);

    ASSERT_THAT(records(), SizeIs(252));
    for (const auto& record : records()) {
        auto other = record;
        other.fru_id = 0;
        expect_no_module(other);
    }
    EXPECT_EQ(result, 0);
}

TEST_F(DimmTest, DecodesModulesByTheModifierWhateverTheEntity) {
    platform.fru(9, ddr4());
    platform.fru(8, ddr4());
    create({FruLocator(9, "board").modifier(dimm).entity(7, 1),
            FruLocator(8, "module").modifier(0).entity(memory_device, 1)});

    EXPECT_STREQ(records().at(0).spd_info.device_type, "DDR4");
    EXPECT_STREQ(records().at(1).spd_info.device_type, "");
}

TEST_F(DimmTest, TakesTheNameForTheLocatorText) {
    platform.fru(1, ddr3());
    platform.fru(2, ddr4());
    platform.fru(3, ddr5());
    create({module(1, "CPU1 DIMM slot 1"), module(2, "CPU1 DIMM slot 2"), module(3, "CPU1 DIMM slot 3")});

    EXPECT_STREQ(records().at(0).spd_info.description, "CPU1 DIMM slot 1");
    EXPECT_STREQ(records().at(1).spd_info.description, "CPU1 DIMM slot 2");
    EXPECT_STREQ(records().at(2).spd_info.description, "CPU1 DIMM slot 3");
}

TEST_F(DimmTest, ReadsAsManyBytesAsTheModuleHas) {
    create_modules({ddr3(), ddr4(), ddr5()});

    EXPECT_EQ(requests_of(1), requests_for(1, ddr3().size()));
    EXPECT_EQ(requests_of(2), requests_for(2, ddr4().size()));
    EXPECT_EQ(requests_of(3), requests_for(3, 1024));
}

// ---- DDR3 details

TEST_F(DimmTest, TakesTheFlashCapacityOfADdr3ModuleOfThatMaker) {
    // JEP106 bank 7 (six continuation codes), code 0x85; capacity in bytes 152 and 153.
    platform.fru(1, Ddr3Image().maker(0x86, 0x85).byte(152, 0x90).byte(153, 0x01).seal().build());
    repository({module(1, "DIMM 1")});
    {
        const CaptureStderr captured;
        create();
        EXPECT_EQ(captured.text(), "--> calculate_flashdimm_capacity: Flash DIMM size = 400 GB.\n");
    }

    EXPECT_STREQ(records().at(0).spd_info.mfg_id, "Diablo Technologies");
    EXPECT_EQ(records().at(0).spd_info.ram_size, 400U);
}

TEST_F(DimmTest, LeavesTheTextOfAnUnknownDdr3ClockEmpty) {
    // 0.125 ns x 9 = 1.125 ns: 888 MHz lies between two rows.
    const auto record = decoded(Ddr3Image().byte(10, 1).byte(11, 8).byte(12, 9).byte(34, 0).seal().build());

    EXPECT_EQ(record.spd_info.sdram_frequency, 888);
    EXPECT_STREQ(record.spd_info.sdram_freq_string, "");
}

TEST_F(DimmTest, LogsTheDdr3TypeWithTheEccBitsBehindTheSmbiosLookUps) {
    decoded(ddr3());

    const auto lines = platform.log();
    const auto at = [&](std::string_view text) {
        return std::find_if(lines.begin(), lines.end(),
                            [&](const LogLine& line) { return line.text.find(text) != std::string::npos; }) -
               lines.begin();
    };
    EXPECT_LT(at("Get config speed from smbios"), at("Get size and speed from smbios"));
    EXPECT_LT(at("Get size and speed from smbios"), at("DIMM type:0x b"));
    EXPECT_NE(at("DIMM type:0x b"), static_cast<std::ptrdiff_t>(lines.size()));
}

TEST_F(DimmTest, LooksForTheConfiguredSpeedOfADdr4OrDdr5ModuleBeforeItsSizeAndSpeed) {
    create_modules({ddr4(), ddr5()});

    std::vector<std::string> texts;
    for (const LogLine& line : platform.log(info)) {
        if (line.text.find("smbios table error") != std::string::npos) texts.push_back(line.text);
    }
    const auto config_speed = HasSubstr("Get config speed"), size = HasSubstr("Get size and speed");
    EXPECT_THAT(texts, ElementsAre(config_speed, size, config_speed, size));
}

TEST_F(DimmTest, EndsADdr3PartNumberAtAZeroInsideIt) {
    const auto record = decoded(Ddr3Image().part("PART-NUMBER").byte(128 + 4, 0).seal().build());

    std::string field("PART");
    field.resize(sizeof record.spd_info.part_number);
    EXPECT_EQ(std::string(record.spd_info.part_number, field.size()), field) << "zeros stand behind it";
}

TEST_F(DimmTest, NamesAnUnknownDdr3MakerNot) {
    const auto record = decoded(Ddr3Image().maker(0x00, 0x00).seal().build());

    EXPECT_STREQ(record.spd_info.mfg_id, "");
    EXPECT_EQ(record.is_cached, 1);
}

// ---- SMBIOS

TEST_F(DimmTest, TakesSizeAndSpeedsOfAModuleThatSmbiosKnows) {
    struct Case {
        Bytes image;
        const char* serial;
    };
    for (const Case& module_case : {Case{ddr3(), "12AB00FF"}, {ddr4(), "12345678"}, {ddr5(), "DEADBEEF"}}) {
        const auto fails = [&] {
            smbios("DIMM 1", module_case.serial);
            const auto record = decoded(module_case.image);
            EXPECT_EQ(record.spd_info.config_speed, 2400U);
            EXPECT_EQ(record.spd_info.smbios_size, 0x4321U);
            EXPECT_EQ(record.spd_info.smbios_speed, 2666U);
            EXPECT_TRUE(platform.logged_containing(info, "Match! DIMM SN (FRU):["));
            for (const LogLine& line : platform.log()) EXPECT_THAT(line.text, Not(HasSubstr("table error")));
            return HasFailure() ? 1 : 0;
        };
        EXPECT_TRUE(succeeds_in_own_process(fails)) << module_case.serial;
    }
}

TEST_F(DimmTest, ReportsAModuleWhoseSerialNumberSmbiosDoesNotKnow) {
    smbios("DIMM 2", "87654321");
    create_modules({ddr3(), ddr4(), ddr5()});

    EXPECT_TRUE(platform.logged(info, error_line("Get config speed from smbios table error, serial_number:12AB00FF")));
    EXPECT_TRUE(platform.logged(info, error_line(formatted("Get config speed from smbios table error, serial_number:%s",
                                                           records().at(1).spd_info.serial_number))));
    EXPECT_EQ(platform.times_logged(info, error_line("Get config speed from smbios table error")), 1U);
    EXPECT_EQ(records().at(1).spd_info.config_speed, 0U);
    EXPECT_EQ(records().at(1).spd_info.smbios_size, 0x4321U) << "its slot is known";
    EXPECT_TRUE(platform.logged(info, error_line("Get size and speed from smbios table error, locator des:DIMM 1")));
    EXPECT_EQ(platform.times_logged(info, error_line("Get size and speed from smbios table error, locator des:DIMM 2")),
              0U);
    EXPECT_EQ(platform.times_logged(info, error_line("Get size and speed from smbios table error")), 1U);
    for (const auto& record : records()) EXPECT_EQ(record.is_cached, 1);
}

TEST_F(DimmTest, ReportsADdr4SlotThatSmbiosDoesNotKnow) {
    smbios("DIMM 9", "12345678");
    decoded(ddr4());

    EXPECT_TRUE(platform.logged(info, error_line("Get size and speed from smbios table error, locator des:DIMM 1")));
    EXPECT_EQ(records().at(0).spd_info.config_speed, 2400U);
    EXPECT_EQ(records().at(0).spd_info.smbios_size, 0U);
}

TEST_F(DimmTest, GoesOnWithoutSmbios) {
    create_modules({ddr3(), ddr4(), ddr5()});

    EXPECT_EQ(result, 0);
    for (const auto& record : records()) {
        EXPECT_EQ(record.is_cached, 1);
        EXPECT_EQ(record.spd_info.config_speed, 0U);
        EXPECT_EQ(record.spd_info.smbios_size, 0U);
        EXPECT_EQ(record.spd_info.smbios_speed, 0U);
    }
    EXPECT_TRUE(platform.logged(info, error_line("Get config speed from smbios table error, serial_number:12AB00FF")));
    EXPECT_TRUE(platform.logged(info, error_line("Get size and speed from smbios table error, locator des:DIMM 1")));
    EXPECT_TRUE(platform.logged(info, error_line("Get config speed from smbios table error")));
    EXPECT_TRUE(platform.logged(info, error_line("Get size and speed from smbios table error")));
    EXPECT_THAT(platform.smbios_release.calls(), IsEmpty());
}

TEST_F(DimmTest, OpensSmbiosOnceBehindTheCountsAndReleasesItOnceBeforeTheEnd) {
    smbios("DIMM 1", "12345678");
    std::size_t releases_at_trace = 77;
    platform.smbios_open.during([this](const SmbiosOpenCall&) {
        EXPECT_TRUE(platform.written("tarn_var_base_of_cpu_in_fru").has_value());
        EXPECT_THAT(requests_of(1), IsEmpty());
    });
    platform.smbios_release.during([&](SmbiosTable*) {
        releases_at_trace = platform.trace().size();
        EXPECT_FALSE(is_free(compvpd_access_mutex));
    });

    create_modules({ddr4(), ddr4(), ddr5()});

    EXPECT_EQ(platform.smbios_open.count(), 1U);
    EXPECT_THAT(platform.smbios_release.calls(), SizeIs(1));
    EXPECT_EQ(platform.smbios_release.calls()[0], table());
    EXPECT_EQ(releases_at_trace, 0U);
}

TEST_F(DimmTest, ReleasesSmbiosAlsoWhenThereIsNoComponent) {
    smbios("DIMM 1", "12345678");

    create({});

    EXPECT_THAT(platform.smbios_release.calls(), ElementsAre(table()));
}

TEST_F(DimmTest, ReleasesSmbiosBeforeTheCacheStands) {
    smbios("DIMM 1", "12345678");
    // A request without an out record never waits: it is refused for the cache's status or, where that is right, for
    // the record.
    platform.smbios_release.during([](SmbiosTable*) {
        const ComponentRequest request{};
        GetComponentVPD(nullptr, 0, &request, nullptr);
    });

    create_modules({ddr4()});

    EXPECT_THAT(platform.smbios_release.calls(), SizeIs(1));
    EXPECT_TRUE(platform.logged_located(info, "GetComponentVPD", "ERROR:Cache wasn't created(status: 0)\n"));
}

TEST_F(DimmTest, UsesAndReleasesATableThatAFailedOpeningLeaves) {
    smbios("DIMM 1", "12345678");
    platform.smbios_open.always({-1, table()});

    create_modules({ddr4()});

    EXPECT_EQ(result, 0);
    EXPECT_EQ(records().at(0).spd_info.config_speed, 2400U);
    EXPECT_THAT(platform.smbios_release.calls(), ElementsAre(table()));
}

// ---- DDR5 dump

TEST_F(DimmTest, DumpsADdr5ImageEightBytesALine) {
    Bytes image = ddr5(ddr5_bytes_256);
    for (std::size_t i = 248; i < 256; ++i) image[i] = static_cast<uint8_t>(i - 0x99);
    decoded(image);

    const auto lines = dump_lines();
    ASSERT_THAT(lines, SizeIs(1 + 32));
    EXPECT_EQ(lines[0], "== DDR5 DIMM SPD ==(16)<256>");
    EXPECT_EQ(lines[1].substr(0, 9), formatted("%02x %02x %02x ", image[0], image[1], image[2]));
    EXPECT_EQ(lines[1].size(), 24U);
    EXPECT_EQ(lines[32], "5f 60 61 62 63 64 65 66 ");
}

TEST_F(DimmTest, DumpsADdr5ImageBeforeItIsDecoded) {
    decoded(ddr5(ddr5_bytes_256));

    const auto lines = platform.log();
    const auto decoder = std::find(lines.begin(), lines.end(), LogLine{emergency, "== [vpdd_Handle_DDR5_SPD](2678)"});
    ASSERT_GE(decoder - lines.begin(), 33);
    ASSERT_NE(decoder, lines.end());
    EXPECT_EQ((decoder - 33)->text, "== DDR5 DIMM SPD ==(16)<256>");
    EXPECT_EQ((decoder - 1)->text, dump_lines().back());
    EXPECT_THAT(dump_lines(), SizeIs(33));
    for (auto line = lines.begin(); line != decoder - 33; ++line) EXPECT_THAT(line->text, Not(HasSubstr("tCKmin")));
}

TEST_F(DimmTest, DumpsAsManyBytesAsByte0Says) {
    create_modules({ddr5(ddr5_bytes_256), ddr5(ddr5_bytes_512), ddr5(ddr5_bytes_1024)});

    EXPECT_THAT(dumps(),
                ElementsAre("== DDR5 DIMM SPD ==(16)<256> and 32 lines", "== DDR5 DIMM SPD ==(32)<512> and 64 lines",
                            "== DDR5 DIMM SPD ==(48)<1024> and 128 lines"));
}

TEST_F(DimmTest, LooksAtBits4To6OfByte0Only) {
    create_modules({ddr5(ddr5_bytes_256 | 0x8F)});

    EXPECT_THAT(dumps(), ElementsAre("== DDR5 DIMM SPD ==(16)<256> and 32 lines"));
}

TEST_F(DimmTest, DumpsNothingOfAFirstModuleOfUnknownSize) {
    create_modules({ddr5(ddr5_bytes_unknown)});

    EXPECT_THAT(dumps(), ElementsAre("== DDR5 DIMM SPD ==(64)<0> and 0 lines"));
    EXPECT_EQ(records().at(0).is_cached, 1);
    EXPECT_STREQ(records().at(0).spd_info.device_type, "DDR5");
}

TEST_F(DimmTest, CarriesTheLengthFromOneModuleToTheNext) {
    create_modules({ddr5(0x40), ddr5(ddr5_bytes_256), ddr5(0x50), ddr4(), ddr5(0x60), ddr5(ddr5_bytes_512), ddr5(0x70),
                    Ddr5Image().persistent().byte(0, 0x30).seal().build(), ddr5(0x40)});

    EXPECT_THAT(
        dumps(),
        ElementsAre("== DDR5 DIMM SPD ==(64)<0> and 0 lines", "== DDR5 DIMM SPD ==(16)<256> and 32 lines",
                    "== DDR5 DIMM SPD ==(80)<256> and 32 lines", "== DDR5 DIMM SPD ==(96)<256> and 32 lines",
                    "== DDR5 DIMM SPD ==(32)<512> and 64 lines", "== DDR5 DIMM SPD ==(112)<512> and 64 lines",
                    "== DDR5 DIMM SPD ==(48)<1024> and 128 lines", "== DDR5 DIMM SPD ==(64)<1024> and 128 lines"));
}

TEST_F(DimmTest, StartsEachRunWithoutALength) {
    create_modules({ddr5(ddr5_bytes_256)});
    ASSERT_EQ(DestroyComponentVPDCache(), 0);
    create_modules({ddr5(ddr5_bytes_unknown)});

    EXPECT_EQ(dumps().back(), "== DDR5 DIMM SPD ==(64)<0> and 0 lines");
}

TEST_F(DimmTest, DumpsZerosBehindAShortDdr5Image) {
    Bytes image = ddr5();
    image.resize(16);
    const auto record = decoded(image);

    const auto lines = dump_lines();
    ASSERT_THAT(lines, SizeIs(1 + 128));
    EXPECT_EQ(lines[128], "00 00 00 00 00 00 00 00 ");
    EXPECT_EQ(record.is_cached, 1);
    EXPECT_STREQ(record.spd_info.serial_number, "000000000000000000");
}

TEST_F(DimmTest, ReadsImagesThatAreShorterThanTheirFormat) {
    create_modules({Bytes(1, 0x30), Bytes{0x30, 0, 0x12}, Bytes{0x23, 0, 0x0C, 0, 0}, Bytes{0x92, 0, 0x0B}, Bytes(2)});

    EXPECT_EQ(result, 0);
    ASSERT_THAT(records(), SizeIs(5));
    EXPECT_EQ(records().at(1).is_cached, 1);
    EXPECT_EQ(records().at(2).is_cached, 1);
    EXPECT_EQ(records().at(3).is_cached, 0) << "no checksum";
}

// ---- a DDR5 module without a size

class ModuleWithoutSizeTest : public DimmTest {
protected:
    /// The images before and behind the one without a size.
    void run_into_it(const std::vector<Bytes>& before, const std::vector<Bytes>& behind) {
        std::vector<Bytes> images = before;
        images.push_back(ddr5(0x80));
        images.insert(images.end(), behind.begin(), behind.end());
        const LeaksOnPurpose the_image;
        create_modules(images);
    }
};

TEST_F(ModuleWithoutSizeTest, EndsTheRunWithTheMutexLocked) {
    smbios("DIMM 1", "12345678");
    run_into_it({ddr4()}, {ddr4()});

    EXPECT_EQ(result, -1);
    EXPECT_FALSE(is_free(compvpd_access_mutex));
    EXPECT_TRUE(is_free(g_list_access_mutex));
    EXPECT_THAT(platform.smbios_release.calls(), IsEmpty());
    EXPECT_THAT(platform.trace(), IsEmpty());
    EXPECT_THAT(requests_of(3), IsEmpty()) << "nothing is read behind it";
    EXPECT_THAT(dumps(), IsEmpty());
    EXPECT_EQ(FindFRURecord(1, nullptr), -4) << "the status is unchanged";
}

TEST_F(ModuleWithoutSizeTest, LeavesADestroyedCacheDestroyed) {
    create_modules({ddr4()});
    ASSERT_EQ(DestroyComponentVPDCache(), 0);
    run_into_it({}, {});

    EXPECT_EQ(result, -1);
    EXPECT_EQ(FindFRURecord(1, nullptr), -4);
    EXPECT_TRUE(platform.logged_located(info, "FindFRURecord", "ERROR:Cache wasn't created(status: 2)\n"));
}

TEST_F(ModuleWithoutSizeTest, LeavesItsImageAllocated) {
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer's allocator is in the way";
    const AllocationWatch watch;
    run_into_it({ddr4()}, {ddr4()});

    constexpr std::size_t nodes = 3, image = 1;
    EXPECT_EQ(watch.live_blocks(), nodes + image);
}

TEST_F(ModuleWithoutSizeTest, KeepsTheNodesForTheNextRun) {
    run_into_it({ddr4()}, {ddr4()});
    pthread_mutex_unlock(&compvpd_access_mutex);
    platform.fru(2, ddr5(ddr5_bytes_unknown));

    create();

    ASSERT_THAT(records(), SizeIs(6));
    EXPECT_EQ(records().at(1).is_cached, 1);
    EXPECT_THAT(dumps(), Each("== DDR5 DIMM SPD ==(64)<0> and 0 lines"));
}

TEST_F(ModuleWithoutSizeTest, IsOnlyADdr5Module) {
    create_modules({Ddr4Image().byte(0, 0x80).seal().build(), Ddr4Image().persistent().byte(0, 0x80).seal().build()});

    EXPECT_EQ(result, 0);
}

// ---- failed chunks

/// A module that was decoded by a run that ended early, and whose image then cannot be read.
class UnreadableModuleTest : public ModuleWithoutSizeTest {
protected:
    ComponentVpdRecord after_failure(Bytes image, std::size_t offset, uint8_t completion) {
        run_into_it({std::move(image)}, {});
        pthread_mutex_unlock(&compvpd_access_mutex);
        platform.remove_fru(2);
        const std::size_t lines = platform.log().size();
        platform.ipmi.when(reads(1, offset), ipmi_completion(completion));
        create();
        for (std::size_t i = lines; i < platform.log().size(); ++i) {
            EXPECT_NE(platform.log()[i].priority, error) << platform.log()[i].text;
        }
        return records().at(0);
    }
};

TEST_F(UnreadableModuleTest, IsClearedWhenItIsNotPresent) {
    EXPECT_TRUE(is_cleared(after_failure(ddr4(), 0, 0xCB).spd_info));
}

TEST_F(UnreadableModuleTest, KeepsItsInformationWhenTheFirstChunkFailsOtherwise) {
    EXPECT_STREQ(after_failure(ddr4(), 0, 0xC3).spd_info.device_type, "DDR4");
}

TEST_F(UnreadableModuleTest, KeepsItsInformationWhenALaterChunkIsNotPresent) {
    EXPECT_STREQ(after_failure(ddr4(), 256, 0xCB).spd_info.device_type, "DDR4");
}

TEST_F(UnreadableModuleTest, IsClearedWhenALaterChunkFailsBehindAByte0OfCb) {
    EXPECT_TRUE(is_cleared(after_failure(Ddr4Image().byte(0, 0xCB).seal().build(), 128, 0xC3).spd_info));
}

TEST_F(DimmTest, AnUnreadableModuleIsPassedOverWithoutAMessage) {
    platform.ipmi.when(reads(1, 128), ipmi_completion(0xCB));
    create_modules({ddr4(), ddr4()});

    expect_no_module(records().at(0));
    EXPECT_EQ(records().at(1).is_cached, 1);
    EXPECT_THAT(requests_of(1), SizeIs(3)) << "its size and two chunks";
    EXPECT_THAT(platform.log(error), IsEmpty());
    EXPECT_THAT(platform.log(warning), IsEmpty());
}

}  // namespace
