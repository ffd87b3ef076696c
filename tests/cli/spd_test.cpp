// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>

#include "host/images/spd_image.h"
#include "vpdctl_process.h"

namespace vpdd::test {
namespace {

using images::Ddr3Image;
using images::Ddr4Image;
using images::Ddr5Image;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

using Image = std::vector<uint8_t>;

// Samsung in JEP106: bank 1, code 0xCE with its parity bit.
constexpr uint8_t samsung_bank = 0x80;
constexpr uint8_t samsung_code = 0xCE;

class Shown {
public:
    explicit Shown(const Image& image) : path_(folder_.file("spd.bin", image)) {}

    Json json() const { return vpdctl_json({"spd", path_}); }
    std::string text() const { return vpdctl({"spd", path_}).out; }
    int code() const { return vpdctl({"spd", path_}).code; }

private:
    ScratchFolder folder_;
    std::string path_;
};

Ddr4Image ddr4_module() {
    return Ddr4Image()
        .rdimm()
        .density_gbit(16)
        .device_width(4)
        .ranks(2)
        .bus_width(64)
        .ecc_bits(8)
        .speed(3200)
        .maker(samsung_bank, samsung_code)
        .dram_maker(samsung_bank, samsung_code)
        .location(0x01)
        .made(2023, 50)
        .serial(0x059E7884)
        .part("M393A8G40CB4-CWE");
}

TEST(Spd, ShowsADdr4Module) {
    // 2 ranks x 64 bit / 4 bit x 16 Gbit = 64 GiB.
    const Shown shown(ddr4_module().seal().build());

    Json json = shown.json();

    EXPECT_EQ(shown.code(), exit_ok);
    EXPECT_EQ(json["Manufacturer"], "Samsung");
    EXPECT_EQ(json["DramManufacturer"], "Samsung");
    EXPECT_EQ(json["PartNumber"], "M393A8G40CB4-CWE");
    EXPECT_EQ(json["SerialNumber"], "059E7884");
    EXPECT_EQ(json["ManufacturingLocation"], "01");
    EXPECT_EQ(json["ManufactureDate"], "2023-12-11");
    EXPECT_EQ(json["MemoryDeviceType"], "DDR4");
    EXPECT_EQ(json["BaseModuleType"], "RDIMM");
    EXPECT_EQ(json["CapacityMiB"], 65536);
    EXPECT_THAT(json["AllowedSpeedsMHz"], ElementsAre(3200));
    EXPECT_EQ(json["RankCount"], 2);
    EXPECT_EQ(json["DataWidthBits"], 64);
    EXPECT_EQ(json["BusWidthBits"], 72);
    EXPECT_EQ(json["EccBits"], 8);
    EXPECT_EQ(json["CheckSpdCrc"], 1);
    for (const Json& checksum : json["Checksums"]) EXPECT_EQ(checksum["State"], "Ok") << checksum["Covers"];
}

TEST(Spd, TextHasSizesInGibibytesAndRanksAsACount) {
    const std::string text = Shown(ddr4_module().seal().build()).text();

    EXPECT_THAT(text, HasSubstr("Size           64 GiB\n"));
    EXPECT_THAT(text, HasSubstr("Ranks          2\n"));
    EXPECT_THAT(text, HasSubstr("Bus width      64 bit and 8 bit ECC\n"));
    EXPECT_THAT(text, HasSubstr("Manufactured   2023-12-11 (week 50, year 23)\n"));
}

TEST(Spd, RawRecordKeepsTheRankCodeOfDdr4AndTheWholeSerialNumber) {
    Json record = Shown(ddr4_module().seal().build()).json()["Record"];

    EXPECT_EQ(record["module_ranks"], 1);
    EXPECT_EQ(record["serial_number"], "80CE012350059E7884");
    EXPECT_EQ(record["ram_size"], 65536);
    EXPECT_EQ(record["sdram_frequency"], 1600);
    EXPECT_EQ(record["medium_timebase"], 0.125);
}

TEST(Spd, ShowsADdr5Module) {
    // 2 sub-channels x 32 bit / 8 bit x 16 Gbit x 2 ranks = 32 GiB.
    const Shown shown(Ddr5Image()
                          .rdimm()
                          .density_gbit(16)
                          .device_width(8)
                          .ranks(2)
                          .ecc_bits(8)
                          .speed(4800)
                          .maker(samsung_bank, samsung_code)
                          .made(2023, 20)
                          .serial(0x04B6B631)
                          .part("M321R4GA3BB0-CQK")
                          .seal()
                          .build());

    Json json = shown.json();

    EXPECT_EQ(shown.code(), exit_ok);
    EXPECT_EQ(json["MemoryDeviceType"], "DDR5");
    EXPECT_EQ(json["CapacityMiB"], 32768);
    EXPECT_THAT(json["AllowedSpeedsMHz"], ElementsAre(4800));
    EXPECT_EQ(json["RankCount"], 2);
    EXPECT_EQ(json["Record"]["module_ranks"], 2);
    EXPECT_EQ(json["DataWidthBits"], 32);
    EXPECT_EQ(json["EccBits"], 8);
    EXPECT_EQ(json["PartNumber"], "M321R4GA3BB0-CQK");
    EXPECT_EQ(json["SerialNumber"], "04B6B631");
    EXPECT_EQ(json["Checksums"][0]["Covers"], "bytes 0-509");
    EXPECT_FALSE(json.contains("CheckSpdCrc"));
}

Ddr3Image ddr3_module() {
    return Ddr3Image()
        .udimm()
        .density_gbit(4)
        .device_width(8)
        .ranks(2)
        .bus_width(64)
        .ecc_bits(8)
        .speed(1600)
        .maker(samsung_bank, samsung_code)
        .made(2013, 14)
        .serial(0x14F68D9D)
        .part("M391B1G73QH0-YK0");
}

TEST(Spd, ShowsADdr3ModuleWithWhatTheCacheLeavesOut) {
    // 2 ranks x 64 bit / 8 bit x 4 Gbit = 8 GiB. The cache keeps neither ranks nor width of DDR3.
    const Shown shown(ddr3_module().seal().build());

    Json json = shown.json();

    EXPECT_EQ(shown.code(), exit_ok);
    EXPECT_EQ(json["MemoryDeviceType"], "DDR3");
    EXPECT_EQ(json["CapacityMiB"], 8192);
    EXPECT_THAT(json["AllowedSpeedsMHz"], ElementsAre(1600));
    EXPECT_EQ(json["RankCount"], 2);
    EXPECT_EQ(json["DataWidthBits"], 64);
    EXPECT_EQ(json["BusWidthBits"], 72);
    EXPECT_EQ(json["SerialNumber"], "14F68D9D");
    EXPECT_EQ(json["Record"]["module_ranks"], 0);
    EXPECT_EQ(json["Record"]["module_bus_width"], 0);
}

TEST(Spd, Ddr3RankCode4StandsFor8Ranks) {
    const Shown shown(ddr3_module().byte(7, 0x21).seal().build());

    EXPECT_EQ(shown.json()["RankCount"], 8);
}

TEST(Spd, WrongChecksumOfDdr4IsReportedAndTheModuleShown) {
    const Shown shown(ddr4_module().seal().byte(126, 0x00).byte(127, 0x00).build());

    Json json = shown.json();

    EXPECT_EQ(shown.code(), exit_incomplete);
    EXPECT_EQ(json["CheckSpdCrc"], -1);
    EXPECT_EQ(json["Checksums"][0]["State"], "Bad");
    EXPECT_EQ(json["Checksums"][1]["State"], "Ok");
    EXPECT_EQ(json["CapacityMiB"], 65536);
    EXPECT_THAT(shown.text(), HasSubstr("bytes 0-125    WRONG: 0x0000 stored"));
}

TEST(Spd, WrongChecksumOfDdr3WhichTheCacheRefusesIsReportedAndTheModuleShown) {
    const Shown shown(ddr3_module().seal().byte(126, 0x12).byte(127, 0x34).build());

    Json json = shown.json();

    EXPECT_EQ(shown.code(), exit_incomplete);
    EXPECT_EQ(json["Checksums"][0]["State"], "Bad");
    EXPECT_EQ(json["Record"]["crc"], 0x3412);
    EXPECT_EQ(json["CapacityMiB"], 8192);
    EXPECT_THAT(json["Notes"], Contains(HasSubstr("refuses")));
}

TEST(Spd, WrongChecksumOfDdr5IsReported) {
    const Shown shown(Ddr5Image().seal().byte(510, 0x00).byte(511, 0x00).build());

    EXPECT_EQ(shown.code(), exit_incomplete);
    EXPECT_EQ(shown.json()["Checksums"][0]["State"], "Bad");
}

TEST(Spd, ShortImageShowsWhatIsThere) {
    Image image = ddr4_module().seal().build();
    image.resize(128);

    const Shown shown(image);
    Json json = shown.json();

    EXPECT_EQ(shown.code(), exit_incomplete);
    EXPECT_EQ(json["CapacityMiB"], 65536);
    EXPECT_EQ(json["PartNumber"], "");
    EXPECT_EQ(json["Checksums"][0]["State"], "Ok");
    EXPECT_EQ(json["Checksums"][1]["State"], "Missing");
    EXPECT_THAT(json["Notes"], Contains(HasSubstr("ends before byte 512")));
}

TEST(Spd, FewerThan128BytesAreRefused) {
    const ScratchFolder folder;

    EXPECT_EQ(vpdctl({"spd", folder.file("short", Image(127, 0x0C))}).code, exit_bad_input);
}

TEST(Spd, MemoryOfAnotherGenerationIsNamedAndNotDecoded) {
    const Shown shown(ddr4_module().byte(2, 0x08).build());

    EXPECT_EQ(shown.code(), exit_incomplete);
    EXPECT_EQ(shown.json()["Decoded"], false);
    EXPECT_EQ(shown.json()["Reason"], "memory type 0x08 is not decoded");
}

TEST(Spd, Ddr5ImageWithoutASizeDoesNotHangTheTool) {
    const Shown shown(Ddr5Image().byte(0, 0x00).seal().build());

    EXPECT_EQ(shown.code(), exit_incomplete);
    EXPECT_EQ(shown.json()["Decoded"], false);
    EXPECT_THAT(shown.json()["Reason"].get<std::string>(), HasSubstr("states no size"));
}

TEST(Spd, EscapesHostilePartNumber) {
    const Shown shown(ddr4_module()
                          .part("\x1b[2J\x9b"
                                "31m\x07")
                          .seal()
                          .build());

    EXPECT_TRUE(is_harmless(shown.text()));
    EXPECT_THAT(shown.text(), HasSubstr("\\x1B[2J\\x9B31m\\x07"));
    EXPECT_EQ(shown.json()["PartNumber"],
              "\x1b[2J\xEF\xBF\xBD"
              "31m\x07");
}

TEST(Spd, WhoseWeekOrYearIsNoneHasNoDate) {
    struct Made {
        uint8_t year, week;  ///< as in the image, binary coded decimal: what is none reads as another number
        const char* date;
    };
    for (const Made made : {Made{0x00, 0x00, ""}, Made{0x26, 0x71, ""}, Made{0x23, 0x50, "2023-12-11"}}) {
        Image image = ddr4_module().build();
        image[323] = made.year;  // JEDEC SPD for DDR4, bytes 323 and 324
        image[324] = made.week;
        const Shown shown(image);

        EXPECT_EQ(shown.json()["ManufactureDate"], made.date);
        EXPECT_THAT(shown.text(), HasSubstr(*made.date == '\0' ? "Manufactured   no date (week " : made.date));
    }
}

TEST(Spd, TextLeavesOutATransferRateThatIsNotOfTheSpeed) {
    // DDR4-2400 has a cycle of 0.833 ns: 7 medium units (0.125 ns) less 42 fine ones (1 ps), which the rate leaves out.
    const Shown corrected(ddr4_module().speed(2400).seal().build());
    const Shown even(ddr4_module().speed(3200).seal().build());

    EXPECT_THAT(corrected.text(), HasSubstr("2400 MT/s"));
    EXPECT_THAT(corrected.text(), testing::Not(HasSubstr("MB/s")));
    EXPECT_EQ(corrected.json()["Record"]["speed_in_MBpsec"], 18285);
    EXPECT_THAT(even.text(), HasSubstr("3200 MT/s, "));
    EXPECT_THAT(even.text(), HasSubstr(", 25600 MB/s"));
}

TEST(Spd, RandomImagesAreSurvived) {
    uint32_t state = 1;
    const auto next = [&state] {
        state = state * 1664525 + 1013904223;  // Numerical Recipes
        return static_cast<uint8_t>(state >> 24U);
    };
    for (const uint8_t type : {0x0B, 0x0C, 0x0D, 0x12}) {
        for (int round = 0; round < 4; ++round) {
            Image image(1024);
            for (uint8_t& byte : image) byte = next();
            image[2] = type;
            const Shown shown(image);
            EXPECT_LE(shown.code(), exit_incomplete);
            EXPECT_TRUE(is_harmless(shown.text()));
            EXPECT_FALSE(shown.json().is_discarded());
        }
    }
}

TEST(Spd, AcceptsAHexDump) {
    const Image image = ddr4_module().seal().build();
    std::string dump;
    for (std::size_t line = 0; line < image.size(); line += 16) {
        char text[32];
        std::snprintf(text, sizeof text, "%08zx", line);
        dump += text;
        for (std::size_t at = line; at < line + 16; ++at) {
            std::snprintf(text, sizeof text, " %s%02x", at == line + 8 ? " " : "", image[at]);
            dump += text;
        }
        dump += "  |................|\n";
    }
    dump += "00000200\n";
    const ScratchFolder folder;

    Json json = vpdctl_json({"spd", folder.file("dump", dump)});

    EXPECT_EQ(json["SizeBytes"], 512);
    EXPECT_EQ(json["SerialNumber"], "059E7884");
}

TEST(Spd, LibraryMessagesGoToTheLogOnly) {
    const ScratchFolder folder;
    const std::string image = folder.file("spd.bin", ddr4_module().seal().build());

    const Outcome quiet = vpdctl({"spd", image});
    const Outcome logged = vpdctl({"spd", image, "--log", folder.path("log")});

    EXPECT_THAT(quiet.err, IsEmpty());
    EXPECT_EQ(quiet.out, logged.out);
    EXPECT_THAT(read_file(folder.path("log")), HasSubstr("spd_info->serial_number:[80CE012350059E7884]"));
}

}  // namespace
}  // namespace vpdd::test
