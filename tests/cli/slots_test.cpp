// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>

#include <set>

#include "vpdctl_process.h"

namespace vpdd::test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

std::string dimm(int fru_id, const std::string& name, const std::string& more = "") {
    return R"({"fru_id": )" + std::to_string(fru_id) + R"(, "name": ")" + name +
           R"(", "entity": "memory device", "instance": 1)" + more + R"(, "content": {"dimm": {"generation": "DDR4",
        "module": "RDIMM", "size_gib": 16, "ranks": 2, "device_width": 8, "speed": 2666, "maker": "Samsung",
        "part_number": "M393A2K43", "serial_number": "0011223)" +
           std::to_string(fru_id) + R"(", "year": 2022, "week": 9}}})";
}

std::string absent(int fru_id, const std::string& name) {
    return R"({"fru_id": )" + std::to_string(fru_id) + R"(, "name": ")" + name +
           R"(", "entity": "memory device", "instance": 1, "modifier": 1, "content": {"absent": true}})";
}

/// A server with the four-slot board.
std::string server_of(const ScratchFolder& folder, const std::string& frus, const std::string& pos_id = "0x0073") {
    return folder.file("server.json",
                       std::string_view(R"({"name": "one", "machine": {"vpd_id": "0x0050", "pos_id": ")" + pos_id +
                                        R"("}, "frus": [)" + frus + "]}"));
}

const Json& slot(const Json& board, std::size_t number) { return board["Slots"].at(number - 1); }

TEST(Slots, OfAPlatformAreDrawnByControllerAndChannel) {
    const Outcome outcome = vpdctl({"slots", "--platform", "0x0050005C"});

    EXPECT_EQ(outcome.code, exit_ok);
    EXPECT_EQ(outcome.out,
              "Platform 0x0050005C: 1 socket, 10 slots\n"
              "\n"
              "  ┌─ Socket 0 ──────────────────────────────┐\n"
              "  │ controller 0 ─┬─ channel 0 ──[ 1]──[ 2] │\n"
              "  │               ├─ channel 1 ──[ 3]──[ 4] │\n"
              "  │               └─ channel 2 ──[ 5]       │\n"
              "  │ controller 1 ─┬─ channel 5 ──[ 6]       │\n"
              "  │               ├─ channel 4 ──[ 7]──[ 8] │\n"
              "  │               └─ channel 3 ──[ 9]──[10] │\n"
              "  └─────────────────────────────────────────┘\n"
              "\n"
              "  [slot]; position 0 of a channel comes first\n");
    EXPECT_THAT(outcome.err, IsEmpty());
}

TEST(Slots, OfAControllerWithOneChannelHaveNoBranch) {
    EXPECT_THAT(vpdctl({"slots", "--platform", "00500088"}).out,
                AllOf(HasSubstr("  │ controller 0 ─── channel 1 ──[1] │\n"),
                      HasSubstr("  │ controller 1 ─── channel 2 ──[2] │\n")));
}

TEST(Slots, StandInSocketsBesideEachOtherWhereThereIsRoom) {
    const std::vector<std::string> arguments = {"slots", "--platform", "0x02500076"};

    EXPECT_THAT(vpdctl(arguments, {{"COLUMNS", "90"}}).out, HasSubstr("┐  ┌─ Socket 1 ─"));
    EXPECT_THAT(vpdctl(arguments, {{"COLUMNS", "87"}}).out, Not(HasSubstr("┐  ┌")));
}

TEST(Slots, OfAServerShowTheModulesOfItsCache) {
    const ScratchFolder folder;
    const Outcome outcome =
        vpdctl({"slots", "--server",
                server_of(folder, dimm(1, "DIMM 1") + "," + absent(2, "DIMM 2") + "," + dimm(3, "CPU 1 DIMM 04"))});

    EXPECT_EQ(outcome.code, exit_ok);
    EXPECT_THAT(outcome.out, HasSubstr("Platform 0x00500073: 1 socket, 4 slots, 2 modules, 32 GiB\n"));
    EXPECT_THAT(outcome.out, HasSubstr("  │ controller 0 ─┬─ channel 1 ──[2│empty      ]──[1│16 GiB 2666] │\n"
                                       "  │               └─ channel 0 ──[4│16 GiB 2666]──[3│empty      ] │\n"));
    EXPECT_THAT(outcome.out, HasSubstr("\n  [slot│size, MT/s]; position 0 of a channel comes first\n"));
}

TEST(Slots, OfAModuleWithoutANumberInItsNameIsItsEntityInstance) {
    const ScratchFolder folder;
    std::string fru = dimm(1, "Module");
    fru.replace(fru.find(R"("instance": 1)"), 13, R"("instance": 3)");

    EXPECT_EQ(slot(vpdctl_json({"slots", "--server", server_of(folder, fru)}), 3)["State"], "Populated");
}

TEST(Slots, ThatAreNoneOfTheBoardAreToldWithTheirModule) {
    const ScratchFolder folder;
    const std::string server =
        server_of(folder, dimm(1, "DIMM 5") + "," + dimm(2, "DIMM 2") + "," + dimm(3, "Spare 2"));

    const Outcome outcome = vpdctl({"slots", "--server", server});
    const Json board = vpdctl_json({"slots", "--server", server});

    EXPECT_EQ(outcome.code, exit_incomplete);
    EXPECT_THAT(outcome.out, AllOf(HasSubstr("  DIMM 5 (FRU 1): 16 GiB 2666: no free slot of this board\n"),
                                   HasSubstr("  Spare 2 (FRU 3): 16 GiB 2666: no free slot of this board\n")));
    ASSERT_EQ(board["WithoutSlot"].size(), 2U);
    EXPECT_EQ(board["WithoutSlot"][0]["Module"]["Name"], "DIMM 5");
    EXPECT_EQ(board["ModuleCount"], 1);
}

TEST(Slots, OfAModuleThatCannotBeReadSaySoAndWhy) {
    const ScratchFolder folder;
    const std::string server = server_of(
        folder, dimm(1, "DIMM 1") + "," + dimm(2, "DIMM 2", R"(, "fault": {"read_completion_code": "0xC3"})"));

    const Outcome outcome = vpdctl({"slots", "--server", server});
    const Json board = vpdctl_json({"slots", "--server", server});

    EXPECT_EQ(outcome.code, exit_incomplete);
    EXPECT_THAT(outcome.out, AllOf(HasSubstr("[2│not read   ]"), HasSubstr("\n  Slot 2, DIMM 2 (FRU 2): not read: ")));
    EXPECT_EQ(slot(board, 2)["State"], "NotRead");
    EXPECT_FALSE(slot(board, 2)["Reason"].get<std::string>().empty());
    EXPECT_EQ(slot(board, 2)["Module"]["FruId"], 2);
}

TEST(Slots, InJsonHaveTheirPlaceStateAndModule) {
    const Json board = vpdctl_json({"slots", "--server", server_file("ddr5-2s")});

    EXPECT_EQ(board["PlatformId"], "0x00500085");
    EXPECT_EQ(board["SocketCount"], 2);
    EXPECT_EQ(board["SlotCount"], 32);
    EXPECT_EQ(board["ModuleCount"], 31);
    EXPECT_EQ(board["CapacityMiB"], 1728 * 1024);
    EXPECT_THAT(board["WithoutSlot"], IsEmpty());
    EXPECT_EQ(slot(board, 17)["Slot"], 17);
    EXPECT_EQ(slot(board, 17)["MemoryLocation"],
              (Json{{"Socket", 1}, {"MemoryController", 1}, {"Channel", 3}, {"Slot", 0}}));
    EXPECT_EQ(slot(board, 17)["State"], "Populated");
    EXPECT_EQ(slot(board, 17)["Module"]["SerialNumber"], "8BDB5EBA");
    EXPECT_EQ(slot(board, 17)["Module"]["CapacityMiB"], 65536);
    EXPECT_EQ(slot(board, 14)["State"], "Empty");
    EXPECT_FALSE(slot(board, 14).contains("Module"));
}

TEST(Slots, OfABarePlatformInJsonKnowNothingOfModules) {
    const Json board = vpdctl_json({"slots", "--platform", "0x00500088"});

    EXPECT_EQ(slot(board, 1)["State"], "Unknown");
    EXPECT_FALSE(board.contains("ModuleCount"));
}

TEST(Slots, OfAnotherPlatformTakeTheServersModules) {
    const Json board = vpdctl_json({"slots", "--server", server_file("ddr3-small"), "--platform", "0x0050005C"});

    EXPECT_EQ(board["PlatformId"], "0x0050005C");
    EXPECT_EQ(board["ModuleCount"], 4);
    EXPECT_EQ(slot(board, 5)["State"], "Empty");
}

TEST(Slots, OfEveryPlatformAreDrawn) {
    const Outcome unknown = vpdctl({"slots", "--platform", "0x00000001"});
    const std::string list = unknown.err.substr(unknown.err.find("known are ") + 10);
    std::set<std::string> platforms;
    for (std::size_t begin = 0; begin + 10 <= list.size(); begin += 11) platforms.insert(list.substr(begin, 10));

    ASSERT_EQ(platforms.size(), 30U);
    for (const std::string& platform : platforms) {
        const Outcome outcome = vpdctl({"slots", "--platform", platform});
        EXPECT_EQ(outcome.code, exit_ok) << platform;
        EXPECT_THAT(outcome.out, StartsWith("Platform " + platform + ": "));
    }
}

TEST(Slots, FollowTheBoardsVariant) {
    EXPECT_THAT(vpdctl({"slots", "--platform", "0x00500072"}, {{"hw_rev", "10"}}).out,
                StartsWith("Platform 0x01500072: 1 socket, 24 slots\n"));
    EXPECT_THAT(vpdctl({"slots", "--platform", "0x00500076"}, {{"VSK_NUM_SOCKETS", "4"}}).out,
                StartsWith("Platform 0x04500076: 4 sockets, 64 slots\n"));
}

TEST(Slots, OfAnUnknownPlatformAreWrongUsage) {
    const Outcome unknown = vpdctl({"slots", "--platform", "0x00500099"});
    const Outcome none = vpdctl({"slots", "--platform", "rack"});

    EXPECT_EQ(unknown.code, exit_usage);
    EXPECT_THAT(unknown.err, StartsWith("vpdctl: there is no slot map of platform 0x00500099; known are 0x0050005E "));
    EXPECT_EQ(none.code, exit_usage);
    EXPECT_THAT(none.err, HasSubstr("rack is no platform id"));
    EXPECT_EQ(vpdctl({"slots", "--platform", "0x"}).code, exit_usage);
    EXPECT_EQ(vpdctl({"slots", "--platform", "0x100000000"}).code, exit_usage);
}

TEST(Slots, OfAPlatformHaveAllOfItsDigits) {
    for (const std::string digits : {"abc", "5242998", "0x500088", "0x+0500088", "000500088"}) {
        const Outcome outcome = vpdctl({"slots", "--platform", digits});

        EXPECT_EQ(outcome.code, exit_usage) << digits;
        EXPECT_EQ(outcome.err,
                  "vpdctl: " + digits + " is no platform id: eight hexadecimal digits, as in 0x00500085\n");
    }
}

TEST(Slots, OfAVariantWithoutAMapSayWhereItComesFrom) {
    const Outcome outcome = vpdctl({"slots", "--platform", "0x00500076"}, {{"VSK_NUM_SOCKETS", "6"}});

    EXPECT_EQ(outcome.code, exit_usage);
    EXPECT_THAT(outcome.err, StartsWith("vpdctl: there is no slot map of platform 0x00500076, which the environment "
                                        "variable VSK_NUM_SOCKETS makes 0x06500076; known are "));
}

TEST(Slots, WithoutServerAndPlatformAreWrongUsage) {
    const Outcome outcome = vpdctl({"slots"});

    EXPECT_EQ(outcome.code, exit_usage);
    EXPECT_THAT(outcome.out, IsEmpty());
    EXPECT_EQ(outcome.err, "vpdctl: a server or a platform is needed: --server FILE, --platform ID\n");
}

TEST(Slots, OfAServerWithoutAMapAreAFailure) {
    const ScratchFolder folder;
    const Outcome outcome = vpdctl({"slots", "--server", server_of(folder, dimm(1, "DIMM 1"), "0x9999")});

    EXPECT_EQ(outcome.code, exit_failure);
    EXPECT_THAT(outcome.out, IsEmpty());
    EXPECT_EQ(outcome.err, "vpdctl: the library has no slot map of this platform\n");
}

TEST(SlotsPicture, IsOneSelfContainedSvgDocument) {
    const ScratchFolder folder;
    const std::string file = folder.path("board.svg");

    const Outcome outcome = vpdctl({"slots", "--server", server_file("ddr5-2s"), "--svg", file});
    const std::string svg = read_file(file);

    EXPECT_EQ(outcome.code, exit_ok);
    EXPECT_THAT(outcome.out, HasSubstr("Socket 1"));
    EXPECT_THAT(svg, StartsWith("<svg xmlns=\"http://www.w3.org/2000/svg\" "));
    EXPECT_EQ(svg.substr(svg.size() - 7), "</svg>\n");
    EXPECT_THAT(svg, Not(testing::AnyOf(HasSubstr("href"), HasSubstr("url("), HasSubstr("@import"))));
    EXPECT_TRUE(is_harmless(svg));
}

TEST(SlotsPicture, ShowsEverySlotAndALegend) {
    const ScratchFolder folder;
    const std::string file = folder.path("board.svg");
    vpdctl({"slots", "--server", server_file("ddr5-2s"), "--svg", file});
    const std::string svg = read_file(file);

    for (int number = 1; number <= 32; ++number) {
        EXPECT_THAT(svg, HasSubstr("class=\"number\">" + std::to_string(number) + "</text>"));
    }
    EXPECT_THAT(svg, AllOf(HasSubstr(">64 GiB 4800 MT/s (15)</text>"), HasSubstr(">empty slot (1)</text>"),
                           HasSubstr(">ch 7</text>"), HasSubstr(">MC 3</text>"), HasSubstr(">Socket 1</text>"),
                           HasSubstr("serial number 8BDB5EBA</title>")));
}

TEST(SlotsPicture, EscapesWhatXmlTakesForMarkup) {
    const ScratchFolder folder;
    const std::string file = folder.path("board.svg");
    const std::string server =
        server_of(folder, dimm(1, "<b>&\\\"9", R"(, "fault": {"read_completion_code": "0xC3"})"));

    vpdctl({"slots", "--server", server, "--svg", file});

    EXPECT_THAT(read_file(file), AllOf(HasSubstr("&lt;b&gt;&amp;&quot;9"), Not(HasSubstr("<b>"))));
}

TEST(SlotsPicture, ThatCannotBeWrittenIsAFailure) {
    const Outcome nowhere = vpdctl({"slots", "--platform", "0x00500088", "--svg", "/nonexistent/board.svg"});

    EXPECT_EQ(nowhere.code, exit_failure);
    EXPECT_EQ(nowhere.err, "vpdctl: /nonexistent/board.svg: cannot write: No such file or directory\n");
    EXPECT_THAT(nowhere.out, IsEmpty());
    EXPECT_EQ(vpdctl({"slots", "--platform", "0x00500088", "--svg", "/dev/full"}).code, exit_failure);
}

}  // namespace
}  // namespace vpdd::test
