// SPDX-License-Identifier: Apache-2.0
#include <sys/stat.h>

#include "open_server.h"

using namespace vpdd::test;

namespace {

const std::string board = R"({"areas": {"board": {"manufacturer": "Example Boards"}}})";

std::string dimm_text(const std::string& size, const std::string& maker) {
    return fru_text(3, "DIMM 1",
                    R"({"dimm": {"generation": "DDR4", "module": "RDIMM", "ranks": 2, "device_width": 4,
        "speed": 3200, "part_number": "PART", "serial_number": "00112233", "year": 2022, "week": 9, "size_gib": )" +
                        size + R"(, "maker": ")" + maker + R"("}})");
}

TEST(Description, OfAnEmptyMachineWithoutFrusIsEnough) { EXPECT_EQ(refusal(server_text("")), ""); }

TEST(Description, WithASyntaxErrorIsRefusedWithLineAndColumn) {
    const std::string reason = refusal("{\n  \"name\": ,\n}");

    EXPECT_NE(reason.find("line 2, column 11"), std::string::npos) << reason;
}

TEST(Description, ThatEndsEarlyIsRefused) {
    const std::string reason = refusal(R"({"name": "x")");

    EXPECT_NE(reason.find("line 1, column 13"), std::string::npos) << reason;
}

TEST(Description, NestedBeyondReasonIsRefused) {
    std::string text = server_text("", R"(, "properties": )");
    text.pop_back();
    for (int level = 0; level < 200000; ++level) text += R"({"a":)";

    EXPECT_EQ(refusal(text), "/: nested more than 64 deep");
}

TEST(Description, WithoutARequiredKeyIsRefused) {
    EXPECT_EQ(refusal(R"({"name": "x", "frus": []})"), R"(/: must have "machine")");
}

TEST(Description, WithAnUnknownKeyIsRefusedWithTheKnownOnes) {
    EXPECT_EQ(refusal(server_text(fru_text(1, "Board", R"({"areas": {"chassis": {"kind": 3}}})"))),
              "/frus/0/content/areas/chassis/kind: unknown; known are custom, part_number, serial_number, type");
}

TEST(Description, WithANumberOutOfRangeIsRefused) {
    EXPECT_EQ(refusal(server_text(fru_text(1, "A", board) + "," + fru_text(256, "B", board))),
              "/frus/1/fru_id: must be at most 255, but is 256");
    EXPECT_EQ(refusal(server_text(fru_text(-1, "A", board))), "/frus/0/fru_id: must be at least 0, but is -1");
}

TEST(Description, WithAValueOfAnotherTypeIsRefused) {
    EXPECT_EQ(refusal(server_text(R"("board")")), R"(/frus/0: must be an object, but is "board")");
    EXPECT_EQ(refusal(R"({"name": 7, "machine": {}, "frus": []})"), "/name: must be a text, but is 7");
    EXPECT_EQ(refusal("[]"), "/: must be an object");
}

TEST(Description, WithAnUnknownEntityIsRefusedWithWhatIsAllowed) {
    const std::string reason = refusal(
        server_text(R"({"fru_id": 1, "name": "A", "entity": "gearbox", "instance": 1, "content": {"absent": true}})"));

    EXPECT_EQ(reason.find(R"(/frus/0/entity: must be an integer, but is "gearbox", or must be one of "processor", )"),
              0)
        << reason;
}

TEST(Description, NamesEveryEntityThatTheSchemaNames) {
    const char* names[] = {"processor",
                           "disk",
                           "peripheral bay",
                           "system management module",
                           "system board",
                           "memory module",
                           "processor module",
                           "power supply",
                           "add-in card",
                           "front panel board",
                           "back panel board",
                           "power system board",
                           "drive backplane",
                           "system expansion board",
                           "other system board",
                           "processor board",
                           "power management board",
                           "system chassis",
                           "other chassis board",
                           "fan",
                           "cooling unit",
                           "memory device",
                           "battery"};
    for (const char* name : names)
        EXPECT_EQ(refusal(server_text(R"({"fru_id": 1, "name": "A", "entity": ")" + std::string(name) +
                                      R"(", "instance": 1, "content": {"absent": true}})")),
                  "");
}

TEST(Description, OfAFruWithTwoContentsIsRefused) {
    EXPECT_EQ(refusal(server_text(fru_text(1, "A", R"({"absent": true, "raw": "x"})"))),
              "/frus/0/content: must have at most 1 of absent, areas, dimm, raw");
    EXPECT_EQ(refusal(server_text(fru_text(1, "A", "{}"))),
              "/frus/0/content: must have at least 1 of absent, areas, dimm, raw");
}

TEST(Description, WithAFruIdTwiceIsRefused) {
    EXPECT_EQ(refusal(server_text(fru_text(7, "A", board) + "," + fru_text(7, "B", board))),
              "/frus/1/fru_id: FRU id 7 is there twice.");
}

TEST(Description, WithAnSdrRecordIdTwiceIsRefused) {
    EXPECT_EQ(refusal(server_text(fru_text(1, "A", board, R"(, "record_id": 5)") + "," +
                                  fru_text(2, "B", board, R"(, "record_id": 5)"))),
              "/frus/1/record_id: SDR record 5 is there twice.");
}

TEST(Description, WithANameBeyondTheLocatorsSixteenCharactersIsRefused) {
    EXPECT_EQ(refusal(server_text(fru_text(1, "ABCDEFGHIJKLMNOP", board))), "");
    EXPECT_EQ(refusal(server_text(fru_text(1, "ABCDEFGHIJKLMNOPQ", board))),
              R"(/frus/0/name: must match ^[ -~]{1,16}$, but is "ABCDEFGHIJKLMNOPQ")");
}

TEST(Description, WithATextBeyondReasonIsRefused) {
    const std::string record = R"(, "sdr_records": [{"record_id": 1, "bytes": ")";

    EXPECT_EQ(refusal(server_text("", record + std::string(1024, '0') + "\"}]")), "");
    EXPECT_EQ(
        refusal(server_text("", record + std::string(1026, '0') + "\"}]")).find("/sdr_records/0/bytes: must match "),
        0U);
}

TEST(Description, WithAFruTextOfOneCharacterIsRefused) {
    EXPECT_EQ(refusal(server_text(fru_text(1, "A", R"({"areas": {"board": {"serial_number": "X"}}})"))),
              R"(/frus/0/content/areas/board/serial_number: must match ^([ -~]{2,63})?$, but is "X")");
}

TEST(Description, WithADayThatIsNoneIsRefused) {
    const auto dated = [](const char* date) {
        return refusal(
            server_text(fru_text(1, "A", R"({"areas": {"board": {"manufactured": ")" + std::string(date) + R"("}}})")));
    };
    const std::string reason =
        "/frus/0/content/areas/board/manufactured: There is no such day, or it is beyond 2027-11-24.";

    EXPECT_EQ(dated("2024-02-29"), "");
    EXPECT_EQ(dated("2023-02-29"), reason);
    EXPECT_EQ(dated("2027-11-24"), "");
    EXPECT_EQ(dated("2027-11-25"), reason);
}

TEST(Description, WithFirmwareVersionsButNoBoardIsRefused) {
    EXPECT_EQ(refusal(server_text(
                  fru_text(1, "PSU", R"({"areas": {"psu_firmware": {"primary": "01.00", "secondary": "02.00"}}})"))),
              R"(/frus/0/content/areas: must have "board" beside "psu_firmware")");
}

TEST(Description, OfAnAreaThatDoesNotFitIsRefused) {
    std::string custom;
    for (int number = 0; number < 24; ++number) custom += (number > 0 ? ",\"" : "\"") + std::string(63, 'x') + '"';
    const std::string area = R"({"custom": [)" + custom + "]}";
    const std::string reason = refusal(server_text(fru_text(
        1, "A", R"({"areas": {"chassis": )" + area + R"(, "board": )" + area + R"(, "product": )" + area + "}}")));

    EXPECT_EQ(reason.find("/frus/0/content/areas: The image cannot be made: "), 0U) << reason;
}

TEST(Description, OfAModuleThatNobodyBuildsIsRefused) {
    const std::string reason = refusal(server_text(dimm_text("24", "Samsung")));

    EXPECT_EQ(reason.find("/frus/0/content/dimm: There is no such module: "), 0U) << reason;
}

TEST(Description, OfAMakerThatJep106DoesNotNameIsRefused) {
    EXPECT_EQ(refusal(server_text(dimm_text("32", "Nobody At All"))),
              R"(/frus/0/content/dimm/maker: JEP106 has no manufacturer "Nobody At All".)");
}

TEST(Description, NamingAMissingFileIsRefusedWithItsName) {
    const TemporaryFolder folder;

    EXPECT_EQ(refusal(server_text(fru_text(1, "A", R"({"raw": "no.bin"})")), folder.c_str()),
              "/frus/0/content/raw: " + folder.file("no.bin").string() + ": No such file or directory");
}

TEST(Description, NamingWhatIsNoRegularFileIsRefusedAtOnce) {
    const TemporaryFolder folder;
    const std::string pipe = folder.file("pipe").string();
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);

    EXPECT_EQ(refusal(server_text(fru_text(1, "A", R"({"raw": "."})")), folder.c_str()),
              "/frus/0/content/raw: " + folder.file(".").string() + ": Is a directory");
    EXPECT_EQ(refusal(server_text("", R"(, "smbios": {"raw": "."})"), folder.c_str()),
              "/smbios/raw: " + folder.file(".").string() + ": Is a directory");
    EXPECT_EQ(refusal(server_text(fru_text(1, "A", R"({"raw": "pipe"})")), folder.c_str()),
              "/frus/0/content/raw: " + pipe + ": is no regular file");
    EXPECT_EQ(refusal(server_text(fru_text(1, "A", R"({"raw": "/dev/zero"})")), folder.c_str()),
              "/frus/0/content/raw: /dev/zero: is no regular file");
    EXPECT_EQ(refusal(server_text(fru_text(1, "A", R"({"raw": "\u0000"})")), folder.c_str()),
              "/frus/0/content/raw: a file's name has no NUL character");
}

TEST(Description, NamingALargerFileThanItsKindMayBeIsRefused) {
    const TemporaryFolder folder;
    const std::string image = server_text(fru_text(1, "A", R"({"raw": "image"})"));
    const std::string table = server_text("", R"(, "smbios": {"raw": "table"})");
    folder.write("image", std::string(65535, '\1'));
    folder.write("table", std::string(1024 * 1024, '\1'));
    EXPECT_EQ(refusal(image, folder.c_str()), "");
    EXPECT_EQ(refusal(table, folder.c_str()), "");

    folder.write("image", std::string(65536, '\1'));
    folder.write("table", std::string(1024 * 1024 + 1, '\1'));

    EXPECT_EQ(refusal(image, folder.c_str()),
              "/frus/0/content/raw: " + folder.file("image").string() + ": larger than 65535 bytes");
    EXPECT_EQ(refusal(table, folder.c_str()), "/smbios/raw: " + folder.file("table").string() + ": larger than 1 MiB");
}

TEST(Description, WithANumberThatNoComputerHasIsRefused) {
    EXPECT_EQ(refusal(R"({"name": 1e999})"), "number overflow parsing '1e999'");
}

TEST(Description, WithAnUnknownSystemVpdFieldIsRefused) {
    EXPECT_EQ(refusal(server_text("", "", R"("fields": {"8": "31", "99": "00"})")),
              "/machine/fields/99: The system VPD has no such field.");
    EXPECT_EQ(refusal(server_text("", "", R"("fields": {"7": "010203"})")),
              "/machine/fields/7: The field has 2 bytes.");
    EXPECT_EQ(refusal(server_text("", "", R"("fields": {"x": "01"})")),
              R"(/machine/fields/x: must match ^[1-9][0-9]{0,2}$, but is "x")");
}

TEST(Description, MayHoldATreeOfProperties) {
    EXPECT_EQ(refusal(server_text("", R"(, "properties": {"v2": {"name": "x", "health": [0, 255]}})")), "");
    EXPECT_EQ(refusal(server_text("", R"(, "properties": {"v2": {"health": [256]}})")),
              "/properties/v2/health/0: must be at most 255, but is 256");
}

TEST(Description, InAFileIsRefusedWithTheFilesName) {
    const TemporaryFolder folder;
    folder.write("bad.json", R"({"name": "x"})");
    char error[256];

    const int result = vpdd_host_open_file(folder.file("bad.json").c_str(), nullptr, error, sizeof error);

    EXPECT_EQ(result, -1);
    EXPECT_EQ(error, folder.file("bad.json").string() + R"(: /: must have "machine")");
}

TEST(Description, InAFileBeyondReasonIsRefused) {
    const TemporaryFolder folder;
    folder.write("large.json", "");
    std::filesystem::resize_file(folder.file("large.json"), 16 * 1024 * 1024 + 1);
    char error[256];

    EXPECT_EQ(vpdd_host_open_file(folder.file("large.json").c_str(), nullptr, error, sizeof error), -1);
    EXPECT_EQ(error, folder.file("large.json").string() + ": larger than 16 MiB");
}

TEST(Description, InNoFileIsRefused) {
    char error[256];

    EXPECT_EQ(vpdd_host_open_file("/nowhere/at/all.json", nullptr, error, sizeof error), -1);
    EXPECT_STREQ(error, "/nowhere/at/all.json: No such file or directory");
    EXPECT_EQ(vpdd_host_open_file("/", nullptr, error, sizeof error), -1);
    EXPECT_STREQ(error, "/: Is a directory");
    EXPECT_EQ(vpdd_host_open_file("/dev/zero", nullptr, error, sizeof error), -1);
    EXPECT_STREQ(error, "/dev/zero: is no regular file");
    EXPECT_EQ(vpdd_host_open_file(nullptr, nullptr, nullptr, 0), -1);
    EXPECT_EQ(vpdd_host_open_text(nullptr, 0, nullptr, nullptr, error, sizeof error), -1);
}

TEST(Description, ThatIsRefusedCutsItsReasonToTheCallersBuffer) {
    char error[8] = "";

    vpdd_host_open_text("[]", 2, nullptr, nullptr, error, sizeof error);

    EXPECT_STREQ(error, "/: must");
}

TEST(Description, ThatIsRefusedLeavesNoServerOpen) {
    const OpenServer before(server_text(""));

    refusal("[]");

    EXPECT_EQ(vpdd_host_each_variable([](void*, const VpddHostVariable*) { return 0; }, nullptr), -1);
}

}  // namespace
