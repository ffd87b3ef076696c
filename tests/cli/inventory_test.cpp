// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>

#include <algorithm>

#include "host/images/fru_image.h"
#include "host/images/sdr_record.h"
#include "host/images/smbios_image.h"
#include "host/images/spd_image.h"
#include "vpdctl_process.h"

namespace vpdd::test {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

Json inventory(const std::string& server) { return vpdctl_json({"inventory", "--server", server}); }

const Json& named(const Json& group, const std::string& name) {
    const auto found = std::find_if(group.begin(), group.end(), [&](const Json& item) { return item["Name"] == name; });
    if (found == group.end()) throw std::out_of_range(name);
    return *found;
}

std::vector<std::string> names(const Json& group) {
    std::vector<std::string> result;
    for (const Json& item : group) result.push_back(item["Name"]);
    return result;
}

// ---- the servers that come with vpdctl: what their descriptions say

TEST(ShippedServers, Ddr5ServerHasItsProcessors) {
    Json json = inventory(server_file("ddr5-2s"));

    ASSERT_EQ(json["Processors"].size(), 2U);
    Json processor = json["Processors"][0];
    EXPECT_EQ(processor["Name"], "CPU 1");
    EXPECT_EQ(processor["EntityName"], "Processor");
    EXPECT_EQ(processor["EntityInstance"], 1);
    EXPECT_EQ(processor["Manufacturer"], "Example Silicon");
    EXPECT_EQ(processor["Version"], "ES-8458P 2.7GHz 44C");
    EXPECT_EQ(processor["SerialNumber"], "ECA48U880");
    EXPECT_EQ(processor["OemProcessorRecord"]["Index"], 1);
    EXPECT_EQ(processor["OemProcessorRecord"]["Texts"][3], "88");
    EXPECT_EQ(processor["OemProcessorRecord"]["RawHex"], "06 F8 08 00 FF FB EB BF 88 99 AA BB CC DD EE 01");
}

TEST(ShippedServers, Ddr5ServerHasItsMemory) {
    Json json = inventory(server_file("ddr5-2s"));

    ASSERT_EQ(json["Memory"].size(), 31U);
    Json module = named(json["Memory"], "DIMM 1");
    EXPECT_EQ(module["FruId"], 3);
    EXPECT_EQ(module["CapacityMiB"], 65536);
    EXPECT_EQ(module["MemoryDeviceType"], "DDR5");
    EXPECT_EQ(module["BaseModuleType"], "RDIMM");
    EXPECT_THAT(module["AllowedSpeedsMHz"], ElementsAre(4800));
    EXPECT_EQ(module["OperatingSpeedMhz"], 4800);
    EXPECT_EQ(module["RankCount"], 2);
    EXPECT_EQ(module["Manufacturer"], "Samsung");
    EXPECT_EQ(module["PartNumber"], "M321R8GA0BB0-CQKZJ");
    EXPECT_EQ(module["SerialNumber"], "9B9FA5FF");
    EXPECT_EQ(module["ManufactureDate"], "2023-09-04");  // Monday of week 36
}

TEST(ShippedServers, Ddr5ServerHasItsPowerSuppliesBackplanesAndBoards) {
    Json json = inventory(server_file("ddr5-2s"));

    EXPECT_THAT(names(json["PowerSupplies"]), ElementsAre("PSU 1", "PSU 2"));
    EXPECT_EQ(json["PowerSupplies"][0]["FirmwareVersion"], "02.03");
    EXPECT_EQ(json["PowerSupplies"][0]["SecondaryFirmwareVersion"], "03.10");
    EXPECT_EQ(json["PowerSupplies"][0]["ManufactureDate"], "2023-10-02");
    EXPECT_EQ(json["PowerSupplies"][0]["BoardCustomField"], "AC 200-240 V");
    EXPECT_THAT(names(json["DriveBackplanes"]), ElementsAre("Backplane 1", "Backplane 2", "Backplane 4"));
    EXPECT_EQ(named(json["Others"], "Fan 3")["EntityName"], "Fan");
    EXPECT_EQ(named(json["Others"], "RAID Adapter")["PartNumber"], "EXA-5305");
    EXPECT_EQ(named(json["Others"], "Front Panel")["EntityId"], 12);
}

TEST(ShippedServers, Ddr5ServerSaysWhatItCouldNotReadAndWhy) {
    const Outcome outcome = vpdctl({"inventory", "--server", server_file("ddr5-2s")});
    Json unread = inventory(server_file("ddr5-2s"))["NotRead"];

    EXPECT_EQ(outcome.code, exit_incomplete);
    ASSERT_THAT(names(unread), ElementsAre("DIMM 14", "Backplane 3"));
    EXPECT_EQ(unread[0]["Reason"], "not present (completion code 0xCB)");
    EXPECT_THAT(unread[1]["Reason"].get<std::string>(), StartsWith("reading fails at byte 0 of "));
    EXPECT_THAT(outcome.out, HasSubstr("Could not be read (2)"));
}

TEST(ShippedServers, Ddr5ServerHasItsTotalsAndPublishedCounts) {
    Json json = inventory(server_file("ddr5-2s"));

    EXPECT_EQ(json["Totals"]["Components"], 59);
    EXPECT_EQ(json["Totals"]["LogicalProcessors"], 176);
    EXPECT_EQ(json["Totals"]["MemoryModules"], 31);
    EXPECT_EQ(json["PublishedVariables"]["vpdd_comp_sdr_cnt"], 59);
    EXPECT_EQ(json["PublishedVariables"]["tarn_var_num_of_cpu_in_sys"], 2);
    EXPECT_EQ(json["PublishedVariables"]["tarn_var_num_of_mem_in_sys"], 32);
    EXPECT_EQ(json["PublishedVariables"]["tarn_var_num_of_ps_in_sys"], 2);
    EXPECT_EQ(json["PublishedVariables"]["tarn_var_num_of_drive_bp_in_sys"], 4);
    EXPECT_EQ(json["PublishedVariables"]["Tarn_Var_Drive_Backplane_3_FRU_Num"], 53);
}

TEST(ShippedServers, TotalMemoryIsTheSumOfTheModules) {
    for (const std::string name : {"ddr5-2s", "ddr4-2s", "ddr3-small"}) {
        Json json = inventory(server_file(name));
        uint64_t sum = 0;
        for (const Json& module : json["Memory"]) sum += module["CapacityMiB"].get<uint64_t>();
        EXPECT_EQ(json["Totals"]["MemoryMiB"], sum) << name;
        EXPECT_GT(sum, 0U) << name;
    }
}

TEST(ShippedServers, Ddr4ServerRunsAModuleBelowItsSpeed) {
    Json json = inventory(server_file("ddr4-2s"));

    Json slow = named(json["Memory"], "DIMM 5");
    EXPECT_THAT(slow["AllowedSpeedsMHz"], ElementsAre(3200));
    EXPECT_EQ(slow["OperatingSpeedMhz"], 2933);
    EXPECT_EQ(slow["Smbios"]["ConfiguredSpeed"], "Differs");
    Json usual = named(json["Memory"], "DIMM 1");
    EXPECT_EQ(usual["Smbios"]["ConfiguredSpeed"], "Agrees");
    EXPECT_EQ(usual["RankCount"], 2);
}

TEST(ShippedServers, Ddr4ModuleWhoseClockIsNotAWholeNumberAgreesWithSmbios) {
    Json module = named(inventory(server_file("ddr4-2s"))["Memory"], "DIMM 17");

    EXPECT_THAT(module["AllowedSpeedsMHz"], ElementsAre(2933));
    EXPECT_EQ(module["Smbios"]["Speed"], "Agrees");
}

TEST(ShippedServers, Ddr3ServerIsReadCompletely) {
    const Outcome outcome = vpdctl({"inventory", "--server", server_file("ddr3-small")});
    Json json = inventory(server_file("ddr3-small"));

    EXPECT_EQ(outcome.code, exit_ok);
    EXPECT_THAT(outcome.out, AllOf(HasSubstr("DDR3 UDIMM"), Not(HasSubstr("Could not be read ("))));
    EXPECT_THAT(json["NotRead"], IsEmpty());
    Json module = json["Memory"][0];
    EXPECT_EQ(module["Manufacturer"], "Kingston");
    EXPECT_EQ(module["PartNumber"], "KVR16E11/8");
    EXPECT_EQ(module["SerialNumber"], "14F68D9D");
    EXPECT_EQ(module["CapacityMiB"], 8192);
    EXPECT_EQ(module["Smbios"]["Size"], "Agrees");
    EXPECT_EQ(module["Smbios"]["SizeMiB"], 8192);
    EXPECT_EQ(module["RankCount"], nullptr);  // the cache does not keep it for DDR3
}

TEST(ShippedServers, AreFoundByTheirNames) { EXPECT_EQ(inventory("ddr3-small")["Totals"]["Components"], 10); }

// ---- the output

TEST(InventoryOutput, PipedHasNoEscapeBytesAndNoProgress) {
    const Outcome outcome = vpdctl({"inventory", "--server", server_file("ddr5-2s")});

    EXPECT_THAT(outcome.out, Not(HasSubstr("\x1b")));
    EXPECT_TRUE(is_harmless(outcome.out));
    EXPECT_THAT(outcome.err, IsEmpty());
}

TEST(InventoryOutput, TerminalSeesProgressThatIsErased) {
    const std::string seen = vpdctl_on_terminal({"inventory", "--server", server_file("ddr5-2s")}, 100).out;

    EXPECT_THAT(seen, HasSubstr("Reading FRUs 12/59"));
    const std::size_t last = seen.rfind("Reading FRUs");
    const std::size_t table = seen.find("Inventory of");
    const std::size_t erased = seen.find("\r\x1b[K", last);
    EXPECT_LT(last, erased);
    EXPECT_LT(erased, table);
}

TEST(InventoryOutput, EveryComponentIsInTheTableAtEveryWidth) {
    const std::string server = server_file("ddr5-2s");
    Json json = inventory(server);
    for (const std::string columns : {"80", "100", "120", "300"}) {
        const std::string out = vpdctl({"inventory", "--server", server}, {{"COLUMNS", columns}}).out;
        for (const char* group : {"Processors", "Memory", "PowerSupplies", "DriveBackplanes", "Others"}) {
            for (const Json& component : json[group]) {
                for (const char* property : {"Name", "Manufacturer", "SerialNumber", "ManufactureDate", "Version"}) {
                    if (component.contains(property)) {
                        EXPECT_THAT(out, HasSubstr(component[property].get<std::string>()));
                    }
                }
            }
        }
        for (const Json& component : json["NotRead"])
            EXPECT_THAT(out, HasSubstr(component["Reason"].get<std::string>()));
    }
}

TEST(InventoryOutput, KeepsWithinTheWidthOfTheTerminal) {
    for (const unsigned short columns : {80, 100, 120}) {
        const std::string out =
            vpdctl({"inventory", "--server", "ddr5-2s"}, {{"COLUMNS", std::to_string(columns)}}).out;
        for (const std::string& line : lines_of(out)) EXPECT_LE(line.size(), columns) << line;
    }
}

TEST(InventoryOutput, WideTerminalHasOneMemoryTable) {
    const std::string out = vpdctl({"inventory", "--server", "ddr5-2s"}, {{"COLUMNS", "200"}}).out;

    std::size_t count = 0;
    for (const std::string& line : lines_of(out)) count += line.find("DIMM 7 ") == std::string::npos ? 0 : 1;
    EXPECT_EQ(count, 1U);
}

TEST(InventoryOutput, NumbersAreAlignedRight) {
    const std::vector<std::string> lines = lines_of(vpdctl({"inventory", "--server", "ddr5-2s"}).out);

    const auto one_digit = std::find_if(
        lines.begin(), lines.end(), [](const std::string& line) { return line.find("DIMM 1 ") != std::string::npos; });
    const auto two_digits = std::find_if(
        lines.begin(), lines.end(), [](const std::string& line) { return line.find("DIMM 10 ") != std::string::npos; });
    ASSERT_NE(one_digit, lines.end());
    ASSERT_NE(two_digits, lines.end());
    EXPECT_THAT(*one_digit, StartsWith("    3  DIMM 1 "));
    EXPECT_THAT(*two_digits, StartsWith("   12  DIMM 10 "));
    EXPECT_EQ(one_digit->find("64 GiB"), two_digits->find("64 GiB"));
}

TEST(InventoryOutput, LogHasTheLibrarysMessages) {
    const ScratchFolder folder;
    const std::string server = server_file("ddr3-small");

    vpdctl({"inventory", "--server", server, "--log", folder.path("log")});
    const Outcome on_error = vpdctl({"inventory", "--server", server, "--log", "-"});

    EXPECT_THAT(read_file(folder.path("log")), HasSubstr("Get component VPD by FRU ID(0)"));
    EXPECT_THAT(on_error.err, AllOf(HasSubstr("user.emerg "), HasSubstr("trace.2 [")));
    EXPECT_THAT(on_error.out, Not(HasSubstr("user.emerg")));
}

TEST(InventoryOutput, LogThatCannotBeWrittenIsAFailure) {
    EXPECT_EQ(vpdctl({"inventory", "--server", "ddr3-small", "--log", "/nonexistent/log"}).code, exit_failure);
}

TEST(InventoryOutput, StateFolderKeepsTheVariables) {
    const ScratchFolder folder;

    const Outcome outcome = vpdctl({"inventory", "--server", "ddr3-small", "--state", folder.path("state")});

    EXPECT_EQ(outcome.code, exit_ok);
    EXPECT_FALSE(std::filesystem::is_empty(folder.path("state")));
}

// ---- servers of this test

/// A server whose FRUs hold these images.
class TestServer {
public:
    TestServer& fru(const std::string& name, int fru_id, const Json& entity, const std::vector<uint8_t>& image,
                    Json more = Json::object()) {
        const std::string file = "image-" + std::to_string(frus_.size());
        folder_.file(file, image);
        Json fru = {
            {"name", name}, {"fru_id", fru_id}, {"entity", entity}, {"instance", 1}, {"content", {{"raw", file}}}};
        fru.update(more);
        frus_.push_back(fru);
        return *this;
    }

    /// A record of the SDR repository behind those of the FRUs.
    TestServer& sdr(uint16_t record_id, const images::Bytes& record) {
        std::string digits;
        for (const uint8_t byte : record) {
            char text[3];
            std::snprintf(text, sizeof text, "%02X", byte);
            digits += text;
        }
        sdr_records_.push_back({{"record_id", record_id}, {"bytes", digits}});
        return *this;
    }

    /// The host's table.
    TestServer& smbios(const images::SmbiosImage& table) {
        folder_.file("smbios", table.file());
        smbios_ = {{"raw", "smbios"}};
        return *this;
    }

    std::string path() const {
        Json server = {{"name", "test"}, {"machine", Json::object()}, {"frus", frus_}};
        if (!sdr_records_.empty()) server["sdr_records"] = sdr_records_;
        if (!smbios_.empty()) server["smbios"] = smbios_;
        return folder_.file("server.json", server.dump());
    }
    Json json() const { return inventory(path()); }
    Outcome table() const { return vpdctl({"inventory", "--server", path()}); }

private:
    ScratchFolder folder_;
    Json frus_ = Json::array();
    Json sdr_records_ = Json::array();
    Json smbios_ = Json::object();
};

std::vector<uint8_t> board(const images::Field& serial) {
    return images::FruImage().board({.manufacturer = "ACME", .serial = serial, .part = "PART"}).build();
}

TEST(Inventory, OfAServerWithoutComponentsIsEmpty) {
    TestServer server;
    server.sdr(1, images::full_sensor_record(1, "Inlet"));

    EXPECT_EQ(server.table().code, exit_ok);
    EXPECT_THAT(server.table().out, HasSubstr("0 components, 0 read"));
    EXPECT_EQ(server.json()["Totals"]["Components"], 0);
    EXPECT_THAT(server.json()["Processors"], Json::array());
}

TEST(Inventory, ShowsComponentsThatShareAFruId) {
    TestServer server;
    server.fru("Card A", 7, "add-in card", board("SERIAL-A"));
    server.sdr(11, images::FruLocator(7, "Card B").record_id(11).entity(0x0B, 2));
    server.sdr(12, images::FruLocator(7, "Card C").record_id(12).entity(0x0B, 3));

    EXPECT_THAT(names(server.json()["Others"]), testing::UnorderedElementsAre("Card A", "Card B", "Card C"));
}

TEST(Inventory, ShowsComponentsBehindTheFruIds0And255) {
    TestServer server;
    server.fru("First", 5, "fan", board("S5")).fru("Zero", 0, "fan", board("S0")).fru("Last", 255, "fan", board("SF"));
    server.fru("Behind", 9, "fan", board("S9"));

    EXPECT_THAT(names(server.json()["Others"]), ElementsAre("First", "Zero", "Last", "Behind"));
}

TEST(Inventory, EscapesHostileTexts) {
    TestServer server;
    server.fru("Card", 7, "add-in card", board("S\x1b]0;owned\x07\xff"));

    const Outcome outcome = server.table();

    EXPECT_TRUE(is_harmless(outcome.out));
    EXPECT_THAT(outcome.out, HasSubstr("S\\x1B]0;owned\\x07\\xFF"));
    EXPECT_EQ(server.json()["Others"][0]["SerialNumber"], std::string("S\x1b]0;owned\x07\xEF\xBF\xBD"));
}

TEST(Inventory, NamesAreAlignedByTheirWidthOnTheScreen) {
    TestServer server;
    server.fru("A", 1, "add-in card", board("電源"))
        .fru("B", 2, "add-in card", board("ü"))
        .fru("C", 3, "add-in card", board("abcdef"));
    // A custom field stands in the last column.
    server.fru("D", 4, "add-in card", images::FruImage().board({.serial = "xy", .custom = {"END"}}).build());

    const std::vector<std::string> lines = lines_of(server.table().out);
    std::vector<std::string> rows;
    for (const std::string& line : lines) {
        if (line.find("1996-01-01") != std::string::npos) rows.push_back(line);
    }

    ASSERT_EQ(rows.size(), 4U);
    // 電源 is six bytes in four columns, ü two bytes in one.
    EXPECT_EQ(rows[0].find("1996-01-01"), rows[2].find("1996-01-01") + 2);
    EXPECT_EQ(rows[1].find("1996-01-01"), rows[2].find("1996-01-01") + 1);
}

TEST(Inventory, GroupsComponentsByTheirEntity) {
    TestServer server;
    server.fru("Fan A", 1, "fan", board("S1"))
        .fru("Card", 2, "add-in card", board("S2"))
        .fru("Fan B", 3, "fan", board("S3"));

    const std::string out = server.table().out;

    EXPECT_LT(out.find("  Add-in card\n"), out.find("Card  "));
    EXPECT_LT(out.find("  Fan\n"), out.find("Fan A"));
    EXPECT_LT(out.find("Card  "), out.find("  Fan\n"));
}

TEST(Inventory, NarrowTableRepeatsOnlyRowsThatHaveMoreToShow) {
    TestServer server;
    const std::string wide(24, 'W');
    const auto card = [&](const std::vector<images::Field>& custom) {
        return images::FruImage().board({.manufacturer = wide, .serial = wide, .custom = custom}).build();
    };
    server.fru("With", 1, "fan", card({"CUSTOM"})).fru("Without", 2, "fan", card({}));

    const std::string out = vpdctl({"inventory", "--server", server.path()}, {{"COLUMNS", "78"}}).out;

    const std::size_t second_block = out.find("Custom\n");
    EXPECT_LT(second_block, out.find("With ", second_block));
    EXPECT_EQ(out.find("Without", second_block), std::string::npos);
    EXPECT_THAT(out, HasSubstr("Without"));
}

TEST(Inventory, SaysWhyAModuleIsNotDecoded) {
    TestServer server;
    Json dimm = {{"modifier", 1}};
    server.fru("DIMM 1", 1, "memory device", images::Ddr3Image().seal().byte(126, 1).byte(127, 2).build(), dimm);
    server.fru("DIMM 2", 2, "memory device", images::Ddr4Image().byte(2, 0x08).build(), dimm);

    Json unread = server.json()["NotRead"];

    EXPECT_EQ(named(unread, "DIMM 1")["Reason"], "wrong SPD checksum");
    EXPECT_EQ(named(unread, "DIMM 2")["Reason"], "memory type 0x08 is not decoded");
}

TEST(Inventory, SaysWhyAFruIsNotDecoded) {
    TestServer server;
    server.fru("No areas", 1, "fan", images::FruImage().padded_to(64).build());
    server.fru("Cartridge", 2, "fan", board("S"), {{"modifier", 3}});
    server.fru("No size", 3, "fan", board("S"), {{"fault", {{"size_completion_code", "0xFF"}}}});
    server.fru("Not there", 4, "fan", board("S"), {{"fault", {{"read_completion_code", "0xCB"}}}});

    Json unread = server.json()["NotRead"];

    EXPECT_EQ(named(unread, "No areas")["Reason"], "no chassis, board, product or multirecord area");
    EXPECT_EQ(named(unread, "Cartridge")["Reason"], "processor cartridge format, not decoded");
    EXPECT_EQ(named(unread, "No size")["Reason"], "its size cannot be read");
    EXPECT_EQ(named(unread, "Not there")["Reason"], "not present (completion code 0xCB)");
    EXPECT_EQ(server.table().code, exit_incomplete);
}

TEST(Inventory, EndsWithAFailureWhenTheCacheCannotBeCreated) {
    TestServer server;
    server.fru("DIMM 1", 1, "memory device", images::Ddr5Image().byte(0, 0).seal().build(), {{"modifier", 1}});

    // The library gives the module's image up for lost, as it is to do; LeakSanitizer would end with a code of its own.
    const Outcome outcome = vpdctl({"inventory", "--server", server.path()}, {{"ASAN_OPTIONS", "detect_leaks=0"}});

    EXPECT_EQ(outcome.code, exit_failure);
    EXPECT_THAT(outcome.out, IsEmpty());
    EXPECT_THAT(outcome.err, HasSubstr("does not state the size of its SPD image"));
}

TEST(Inventory, OfAMissingServerIsRefused) {
    const Outcome outcome = vpdctl({"inventory", "--server", "/nonexistent/server.json"});

    EXPECT_EQ(outcome.code, exit_bad_input);
    EXPECT_THAT(outcome.err, HasSubstr("/nonexistent/server.json"));
}

TEST(Inventory, OfABrokenDescriptionIsRefusedWithTheLine) {
    const ScratchFolder folder;

    const Outcome outcome =
        vpdctl({"inventory", "--server", folder.file("broken.json", std::string_view("{\n  \"name\": \n}"))});

    EXPECT_EQ(outcome.code, exit_bad_input);
    EXPECT_THAT(outcome.err, HasSubstr("line 3"));
}

// ---- SMBIOS beside the SPD

std::vector<uint8_t> ddr4_module_of_16_gib() {
    // 2 ranks x 64 bit / 8 bit x 8 Gbit = 16 GiB.
    return images::Ddr4Image().density_gbit(8).device_width(8).ranks(2).speed(3200).serial(0x12345678).seal().build();
}

/// A module whose SMBIOS entry says something else.
Json module_beside(const Json& smbios, int size_gib = 16) {
    const ScratchFolder folder;
    Json dimm = {{"generation", "DDR4"},
                 {"module", "RDIMM"},
                 {"size_gib", size_gib},
                 {"ranks", 2},
                 {"device_width", 8},
                 {"speed", 3200},
                 {"maker", "Samsung"},
                 {"part_number", "PART"},
                 {"serial_number", "12345678"},
                 {"year", 2022},
                 {"week", 9},
                 {"smbios", smbios}};
    Json fru = {
        {"fru_id", 1}, {"name", "DIMM 1"}, {"entity", "memory device"}, {"instance", 1}, {"content", {{"dimm", dimm}}}};
    Json server = {{"name", "test"}, {"machine", Json::object()}, {"frus", Json::array({fru})}};
    const std::string path = folder.file("server.json", server.dump());
    Json module = inventory(path)["Memory"][0];
    module["Table"] = vpdctl({"inventory", "--server", path}).out;
    return module;
}

TEST(Inventory, OfAServerWithoutFrusIsBadInput) {
    const ScratchFolder folder;
    const std::string path =
        folder.file("server.json", std::string_view(R"({"name": "x", "machine": {}, "frus": []})"));

    const Outcome outcome = vpdctl({"inventory", "--server", path});

    EXPECT_EQ(outcome.code, exit_bad_input);
    EXPECT_THAT(outcome.out, testing::IsEmpty());
    EXPECT_EQ(outcome.err, "vpdctl: " + path + ": the server has no FRUs\n");
}

TEST(SmbiosCheck, AgreesWhenEverythingIsTheSame) {
    Json module = module_beside(Json::object());

    EXPECT_EQ(module["Smbios"]["Size"], "Agrees");
    EXPECT_EQ(module["Smbios"]["Speed"], "Agrees");
    EXPECT_EQ(module["Smbios"]["ConfiguredSpeed"], "Agrees");
    EXPECT_THAT(module["Table"].get<std::string>(), HasSubstr("agrees"));
}

TEST(SmbiosCheck, AgreesWithASpeedThatIsRoundedOtherwise) {
    Json module = module_beside({{"speed", 3199}});

    EXPECT_EQ(module["Smbios"]["Speed"], "Agrees");
    EXPECT_EQ(module["Smbios"]["SpeedMTs"], 3199);
}

TEST(SmbiosCheck, TellsWhatDiffers) {
    Json module = module_beside({{"speed", 2666}, {"configured_speed", 2400}});

    EXPECT_EQ(module["Smbios"]["Size"], "Agrees");
    EXPECT_EQ(module["Smbios"]["Speed"], "Differs");
    EXPECT_EQ(module["Smbios"]["SpeedMTs"], 2666);
    EXPECT_EQ(module["Smbios"]["ConfiguredSpeed"], "Differs");
    EXPECT_EQ(module["OperatingSpeedMhz"], 2400);
    EXPECT_THAT(module["Table"].get<std::string>(), HasSubstr("speed 2666, configured 2400"));
}

TEST(SmbiosCheck, IsUnknownWithoutAnEntry) {
    Json module = module_beside({{"absent", true}});

    EXPECT_EQ(module["Smbios"]["Size"], "Unknown");
    EXPECT_EQ(module["Smbios"]["SizeMiB"], nullptr);
    EXPECT_EQ(module["OperatingSpeedMhz"], nullptr);
    EXPECT_THAT(module["Table"].get<std::string>(), HasSubstr("unknown"));
}

TEST(SmbiosCheck, LeavesAnExtendedSizeOpen) {
    Json module = module_beside(Json::object(), 64);

    EXPECT_EQ(module["Smbios"]["Size"], "Unknown");
    EXPECT_EQ(module["Smbios"]["SizeIsExtended"], true);
    EXPECT_THAT(module["Table"].get<std::string>(), AllOf(HasSubstr("speeds agree"), HasSubstr("32 GiB and more")));
}

/// What becomes of the Size word of the entry for a module of 16 GiB.
Json size_check(uint16_t word) {
    TestServer server;
    server.fru("DIMM 1", 1, "memory device", ddr4_module_of_16_gib(), {{"modifier", 1}});
    server.smbios(images::SmbiosImage().memory_array(1, 0).memory_device(
        images::MemoryDeviceImage().size(word).device_locator("DIMM 1").serial_number("12345678").speed(3200)));
    return server.json()["Memory"][0]["Smbios"];
}

TEST(SmbiosCheck, SizeWordCountsMebibytes) {
    EXPECT_EQ(size_check(16384)["Size"], "Agrees");
    EXPECT_EQ(size_check(16384)["SizeMiB"], 16384);
    EXPECT_EQ(size_check(8192)["Size"], "Differs");
}

TEST(SmbiosCheck, SizeWordWithBit15CountsKibibytes) {
    Json check = size_check(0x8000 | 2048);

    EXPECT_EQ(check["Size"], "Differs");
    EXPECT_EQ(check["SizeMiB"], 2);
}

TEST(SmbiosCheck, SizeWordFFFFIsUnknown) {
    EXPECT_EQ(size_check(0xFFFF)["Size"], "Unknown");
    EXPECT_EQ(size_check(0xFFFF)["SizeMiB"], nullptr);
}

TEST(SmbiosCheck, SizeWord7FFFDiffersFromASmallModule) {
    EXPECT_EQ(size_check(0x7FFF)["Size"], "Differs");
    EXPECT_EQ(size_check(0x7FFF)["SizeIsExtended"], true);
}

TEST(SmbiosCheck, SpeedWordsOf0And0xFFFFAreUnknown) {
    Json module = module_beside({{"speed", 0}, {"configured_speed", 65535}});

    EXPECT_EQ(module["Smbios"]["Speed"], "Unknown");
    EXPECT_EQ(module["Smbios"]["ConfiguredSpeed"], "Unknown");
    EXPECT_THAT(module["Table"].get<std::string>(), HasSubstr("speed unknown, configured unknown"));
}

}  // namespace
}  // namespace vpdd::test
