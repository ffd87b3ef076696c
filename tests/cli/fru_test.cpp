// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>

#include "host/images/fru_image.h"
#include "vpdctl_process.h"

namespace vpdd::test {
namespace {

using images::AreaEnd;
using images::Bytes;
using images::Field;
using images::FruArea;
using images::FruImage;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;

/// An image as vpdctl sees it.
class Shown {
public:
    explicit Shown(const Bytes& image) : path_(folder_.file("fru.bin", image)) {}

    Json json() const { return vpdctl_json({"fru", path_}); }
    std::string text() const { return vpdctl({"fru", path_}).out; }
    int code() const { return vpdctl({"fru", path_}).code; }

private:
    ScratchFolder folder_;
    std::string path_;
};

TEST(Fru, ShowsEveryAreaWithItsFields) {
    // 2024-02-29 comes 10286 days after 1996-01-01.
    const Shown shown(FruImage()
                          .chassis({.type = 0x17, .part = "CH-PART", .serial = "CH-SERIAL", .custom = {"CH-1", "CH-2"}})
                          .board({.manufacturer = "Board maker",
                                  .product = "Board name",
                                  .serial = "B-SERIAL",
                                  .part = "B-PART",
                                  .file_id = "B-FILE",
                                  .custom = {"B-1"},
                                  .date = 10286 * 1440 + 720})
                          .product({.manufacturer = "Product maker",
                                    .name = "Product name",
                                    .part = "P-PART",
                                    .version = "P-VERSION",
                                    .serial = "P-SERIAL",
                                    .asset_tag = "P-TAG",
                                    .file_id = "P-FILE",
                                    .custom = {"P-1", "P-2"}})
                          .build());

    Json json = shown.json();

    EXPECT_EQ(shown.code(), exit_ok);
    EXPECT_EQ(json["Header"]["FormatVersion"], 1);
    EXPECT_EQ(json["Header"]["Checksum"], "Ok");
    EXPECT_EQ(json["Chassis"]["ChassisType"], 0x17);
    EXPECT_EQ(json["Chassis"]["ChassisTypeName"], "Rack Mount Chassis");
    EXPECT_EQ(json["Chassis"]["PartNumber"], "CH-PART");
    EXPECT_EQ(json["Chassis"]["SerialNumber"], "CH-SERIAL");
    EXPECT_THAT(json["Chassis"]["CustomFields"], ElementsAre("CH-1", "CH-2"));
    EXPECT_EQ(json["Board"]["ManufactureDate"], "2024-02-29");
    EXPECT_EQ(json["Board"]["Manufacturer"], "Board maker");
    EXPECT_EQ(json["Board"]["ProductName"], "Board name");
    EXPECT_EQ(json["Board"]["SerialNumber"], "B-SERIAL");
    EXPECT_EQ(json["Board"]["PartNumber"], "B-PART");
    EXPECT_EQ(json["Board"]["FruFileId"], "B-FILE");
    EXPECT_THAT(json["Board"]["CustomFields"], ElementsAre("B-1"));
    EXPECT_EQ(json["Product"]["Manufacturer"], "Product maker");
    EXPECT_EQ(json["Product"]["ProductName"], "Product name");
    EXPECT_EQ(json["Product"]["PartNumber"], "P-PART");
    EXPECT_EQ(json["Product"]["Version"], "P-VERSION");
    EXPECT_EQ(json["Product"]["SerialNumber"], "P-SERIAL");
    EXPECT_EQ(json["Product"]["AssetTag"], "P-TAG");
    EXPECT_EQ(json["Product"]["FruFileId"], "P-FILE");
    EXPECT_THAT(json["Product"]["CustomFields"], ElementsAre("P-1", "P-2"));
    for (const char* area : {"Chassis", "Board", "Product"}) EXPECT_EQ(json[area]["Checksum"], "Ok") << area;
    for (const auto& [name, value] : json["Product"].items()) {
        if (value.is_string() && name != "Checksum") {
            EXPECT_THAT(shown.text(), HasSubstr(value.get<std::string>()));
        }
    }
}

TEST(Fru, DateOfZeroIsUnspecified) {
    const Shown shown(FruImage().board({.manufacturer = "ACME", .date = 0}).build());

    EXPECT_EQ(shown.json()["Board"]["ManufactureDateSpecified"], false);
    EXPECT_THAT(shown.text(), HasSubstr("unspecified"));
}

TEST(Fru, DateIsThatOfTheLocalTimeZone) {
    const ScratchFolder folder;
    const std::string path = folder.file("fru.bin", FruImage().board({.manufacturer = "ACME", .date = 1440}).build());

    EXPECT_THAT(vpdctl({"fru", path}, {{"TZ", "UTC"}}).out, HasSubstr("1996-01-02"));
    EXPECT_THAT(vpdctl({"fru", path}, {{"TZ", "EST+5"}}).out, HasSubstr("1996-01-01"));
}

TEST(Fru, EscapesHostileTextForATerminal) {
    const Shown shown(FruImage()
                          .board({.manufacturer = "\x1b[31mred\x07",
                                  .product = "a\rb\nc\x7f",
                                  .serial = "\x9b\x31m",
                                  .part = "\xe2\x80\xae"
                                          "evil"})
                          .build());

    const std::string text = shown.text();

    EXPECT_TRUE(is_harmless(text)) << text;
    EXPECT_THAT(text, HasSubstr("\\x1B[31mred\\x07"));
    EXPECT_THAT(text, HasSubstr("a\\x0Db\\x0Ac\\x7F"));
    EXPECT_THAT(text, HasSubstr("\\xE2\\x80\\xAEevil"));
}

TEST(Fru, JsonOfHostileTextIsAsciiAndKeepsIt) {
    const ScratchFolder folder;
    const std::string manufacturer = "\x1b[31m\"\\\x07 \x7f";
    const std::string path = folder.file("fru.bin", FruImage().board({.manufacturer = manufacturer}).build());

    const Outcome outcome = vpdctl({"fru", path, "--json"});

    EXPECT_THAT(outcome.out, testing::Each(testing::AnyOf('\n', testing::AllOf(testing::Ge(' '), testing::Le('~')))));
    EXPECT_EQ(Json::parse(outcome.out)["Board"]["Manufacturer"], manufacturer);
}

TEST(Fru, ShowsUtf8AsItStands) {
    const Shown shown(FruImage().board({.manufacturer = "Müller & Söhne", .product = "電源"}).build());

    EXPECT_THAT(shown.text(), testing::AllOf(HasSubstr("Müller & Söhne"), HasSubstr("電源")));
    EXPECT_EQ(shown.json()["Board"]["Manufacturer"], "Müller & Söhne");
}

TEST(Fru, ReadsTextThatIsNotUtf8AsLatin1AndKeepsItsBytes) {
    const Shown shown(FruImage().board({.manufacturer = "M\xfcller"}).build());

    Json field = shown.json()["Board"]["Fields"][0];

    EXPECT_EQ(field["Value"], "Müller");
    EXPECT_EQ(field["Hex"], "4D FC 6C 6C 65 72");
}

TEST(Fru, ShowsBinaryFieldsInHexadecimal) {
    const Shown shown(FruImage().board({.custom = {Field::binary({0x00, 0x43, 0xFF})}}).build());

    Json json = shown.json();

    EXPECT_THAT(json["Board"]["CustomFields"], ElementsAre("00 43 FF"));
    EXPECT_EQ(json["Board"]["Fields"][5]["Encoding"], "Binary");
}

TEST(Fru, ReadsBcdPlusAsTheStandardDoesAndTellsWhatTheLibrarySays) {
    const Shown shown(FruImage().board({.serial = Field::bcd_plus({0x12, 0x0B, 0xC4})}).build());

    Json field = shown.json()["Board"]["Fields"][2];

    EXPECT_EQ(field["Encoding"], "BcdPlus");
    EXPECT_EQ(field["Value"], "120-.4");
    EXPECT_EQ(field["LibraryValue"], "?-?");
    EXPECT_EQ(field["Hex"], "12 0B C4");
}

TEST(Fru, ReadsSixBitTextAsTheStandardDoesAndTellsWhatTheLibrarySays) {
    // The example of the standard: "IPMI" packs into 29 DC A6.
    const Shown shown(FruImage().board({.product = Field::raw(0x83, {0x29, 0xDC, 0xA6})}).build());

    Json field = shown.json()["Board"]["Fields"][1];

    EXPECT_EQ(field["Encoding"], "SixBitAscii");
    EXPECT_EQ(field["Value"], "IPMI");
    EXPECT_EQ(field["Hex"], "29 DC A6");
}

TEST(Fru, WrongAreaChecksumDoesNotRefuseTheArea) {
    const Shown shown(
        FruImage().board({.manufacturer = "ACME", .end = AreaEnd{.checksum = 0x5A}}).product({.name = "Box"}).build());

    Json json = shown.json();

    EXPECT_EQ(shown.code(), exit_incomplete);
    EXPECT_EQ(json["Board"]["Checksum"], "Bad");
    EXPECT_EQ(json["Board"]["Manufacturer"], "ACME");
    EXPECT_EQ(json["Product"]["Checksum"], "Ok");
    EXPECT_THAT(json["Faults"], ElementsAre("Board area: wrong checksum"));
}

TEST(Fru, WrongHeaderChecksumDoesNotRefuseTheImage) {
    const Shown shown(FruImage().board({.manufacturer = "ACME"}).header_checksum(0x11).build());

    EXPECT_EQ(shown.code(), exit_incomplete);
    EXPECT_EQ(shown.json()["Header"]["Checksum"], "Bad");
    EXPECT_EQ(shown.json()["Board"]["Manufacturer"], "ACME");
}

TEST(Fru, AnyOtherFileIsRefused) {
    const ScratchFolder folder;
    const Outcome outcome = vpdctl({"fru", folder.file("erased", Bytes(256, 0xFF))});

    EXPECT_EQ(outcome.code, exit_bad_input);
    EXPECT_THAT(outcome.err, HasSubstr("does not begin with a FRU common header"));
}

TEST(Fru, CutImageShowsWhatIsThere) {
    Bytes image =
        FruImage().board({.manufacturer = "Manufacturer", .product = "Product"}).product({.name = "x"}).build();
    image.resize(8 + 6 + 1 + 12 + 1 + 4);  // header, board area up to its fields, first field, half of the second

    const Shown shown(image);
    Json json = shown.json();

    EXPECT_EQ(shown.code(), exit_incomplete);
    EXPECT_EQ(json["Board"]["Checksum"], "Truncated");
    EXPECT_EQ(json["Board"]["Manufacturer"], "Manufacturer");
    EXPECT_EQ(json["Board"]["ProductName"], "Prod");
    EXPECT_EQ(json["Board"]["Fields"][1]["Truncated"], true);
    EXPECT_FALSE(json.contains("Product"));
    EXPECT_THAT(json["Faults"], Contains(HasSubstr("Product area at byte")));
    EXPECT_THAT(shown.text(), HasSubstr("Prod (cut off)"));
}

TEST(Fru, EveryCutOfAnImageIsSurvived) {
    const Bytes whole = FruImage()
                            .chassis({.part = "CH"})
                            .board({.manufacturer = "Maker", .product = "Product"})
                            .product({.name = "Name", .serial = "Serial"})
                            .multirecord(0x01, Bytes(13, 7))
                            .build();
    for (std::size_t size = 8; size < whole.size(); size += 5) {
        const Shown shown(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)));
        EXPECT_LE(shown.code(), exit_incomplete) << size;
    }
}

TEST(Fru, RandomImagesAreSurvived) {
    uint32_t state = 1;
    for (int round = 0; round < 20; ++round) {
        Bytes image(64 << (round % 6));
        for (uint8_t& byte : image) {
            state = state * 1664525 + 1013904223;  // Numerical Recipes
            byte = static_cast<uint8_t>(state >> 24U);
        }
        image[0] = 1;
        const Shown shown(image);
        EXPECT_LE(shown.code(), exit_incomplete);
        EXPECT_TRUE(is_harmless(shown.text()));
        EXPECT_TRUE(shown.json().is_object());
    }
}

TEST(Fru, AreaWithoutAnEndMarkIsReported) {
    const Shown shown(
        FruImage().board({.manufacturer = "ACME", .end = AreaEnd{.has_end_marker = false}}).padded_to(64).build());

    EXPECT_EQ(shown.code(), exit_incomplete);
    EXPECT_EQ(shown.json()["Board"]["Manufacturer"], "ACME");
    EXPECT_THAT(shown.json()["Faults"], Contains(HasSubstr("no end marker")));
}

TEST(Fru, AreaBeyondTheLibrarysLimitIsShownAndMarked) {
    const Shown shown(FruImage().board({.manufacturer = "ACME"}).area_offset(FruArea::board, 33).build());

    Json json = shown.json();

    EXPECT_EQ(shown.code(), exit_ok);
    EXPECT_EQ(json["Board"]["Manufacturer"], "ACME");
    EXPECT_EQ(json["Board"]["ReadByLibrary"], false);
    EXPECT_THAT(json["Notes"], ElementsAre(HasSubstr("begins at byte 264")));
}

TEST(Fru, ListsMultirecordsWithTheirChecksums) {
    const Shown shown(FruImage()
                          .multirecord({.type = 0x01, .data = Bytes(13, 0x11)})
                          .multirecord({.type = 0x02, .data = {1, 2}, .record_checksum = 0x77})
                          .multirecord({.type = 0xC5, .data = {0x57, 0x01, 0x00, 0xAB}})
                          .build());

    Json records = shown.json()["Multirecords"];

    EXPECT_EQ(shown.code(), exit_incomplete);
    ASSERT_EQ(records.size(), 3U);
    EXPECT_EQ(records[0]["TypeName"], "DC output");
    EXPECT_EQ(records[0]["LengthBytes"], 13);
    EXPECT_EQ(records[0]["RecordChecksum"], "Ok");
    EXPECT_EQ(records[1]["HeaderChecksum"], "Ok");
    EXPECT_EQ(records[1]["RecordChecksum"], "Bad");
    EXPECT_EQ(records[2]["OemManufacturerId"], 343);
    EXPECT_EQ(records[2]["Hex"], "57 01 00 AB");
    EXPECT_EQ(records[2]["EndOfList"], true);
}

TEST(Fru, MultirecordWalkStopsAtAWrongHeader) {
    const Shown shown(
        FruImage().multirecord({.type = 0x01, .data = {1}, .header_checksum = 0x01}).multirecord(0x02, {2}).build());

    EXPECT_EQ(shown.json()["Multirecords"].size(), 1U);
    EXPECT_THAT(shown.json()["Faults"], Contains(HasSubstr("wrong header checksum")));
}

TEST(Fru, MultirecordListWithoutAnEndStopsAtTheImagesEnd) {
    const Shown shown(FruImage().multirecord({.type = 0x01, .data = {1, 2, 3}, .is_last = false}).build());

    EXPECT_EQ(shown.code(), exit_incomplete);
    EXPECT_EQ(shown.json()["Multirecords"].size(), 1U);
}

TEST(Fru, DecodesTheOemProcessorRecord) {
    images::OemProcessor processor;
    processor.index = Field::binary({7});
    processor.texts[0] = "Turbo CPU";
    processor.texts[3] = "128";
    const Shown shown(FruImage().multirecord(images::OemProcessor::record_type, processor.data()).build());

    Json record = shown.json()["Multirecords"][0]["OemProcessorRecord"];

    EXPECT_EQ(record["Index"], 7);
    EXPECT_EQ(record["Texts"][0], "Turbo CPU");
    EXPECT_EQ(record["Texts"][3], "128");
    EXPECT_THAT(shown.text(), HasSubstr("Turbo CPU"));
}

TEST(Fru, AcceptsHexDumps) {
    const Bytes image = FruImage().board({.manufacturer = "ACME#|: x"}).build();
    std::string xxd;
    std::string plain;
    for (std::size_t line = 0; line < image.size(); line += 16) {
        char text[32];
        std::snprintf(text, sizeof text, "%08zx: ", line);
        xxd += text;
        std::string characters;
        for (std::size_t at = line; at < std::min(line + 16, image.size()); ++at) {
            std::snprintf(text, sizeof text, "%02x ", image[at]);
            xxd += text;
            plain += text;
            characters += image[at] >= 0x20 && image[at] < 0x7F ? static_cast<char>(image[at]) : '.';
        }
        xxd += ' ' + characters + '\n';
        plain += "\n# a comment\n";
    }
    const ScratchFolder folder;

    EXPECT_EQ(vpdctl_json({"fru", folder.file("xxd", xxd)})["Board"]["Manufacturer"], "ACME#|: x");
    EXPECT_EQ(vpdctl_json({"fru", folder.file("plain", plain)})["Board"]["Manufacturer"], "ACME#|: x");
}

TEST(Fru, KeepsWithinTheWidthOfTheTerminal) {
    const ScratchFolder folder;
    const std::string path = folder.file(
        "fru.bin",
        FruImage().board({.manufacturer = std::string(63, 'M')}).multirecord(0xC1, Bytes(200, 0x5A)).build());

    for (const unsigned short columns : {60, 80, 120}) {
        for (const std::string& line : lines_of(vpdctl_on_terminal({"fru", path}, columns, {{"NO_COLOR", "1"}}).out)) {
            if (line.find(path) == std::string::npos) {
                EXPECT_LE(line.size(), columns + std::string("\r").size()) << line;
            }
        }
    }
}

TEST(Fru, EveryByteOfALongMultirecordIsShown) {
    Bytes data;
    for (int byte = 0; byte < 200; ++byte) data.push_back(static_cast<uint8_t>(byte));
    const Shown shown(FruImage().multirecord(0xC1, data).build());
    std::string digits;
    for (const uint8_t byte : data) {
        char text[3];
        std::snprintf(text, sizeof text, "%02X", byte);
        digits += text;
    }

    std::string text = shown.text();
    std::erase_if(text, [](char character) { return character == ' ' || character == '\n'; });

    EXPECT_THAT(text, HasSubstr(digits));
}

}  // namespace
}  // namespace vpdd::test
