// SPDX-License-Identifier: Apache-2.0
// A component's way from the server through the activity log to the change history.
#include <gmock/gmock.h>

#include <algorithm>
#include <future>

#include "vpdctl_process.h"

namespace vpdd::test {
namespace {

using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::Not;
using testing::SizeIs;

// A board, two processors with sensors, a module that is logged (entity 8) and one that is not (entity 32), a fan, and
// a fan without a part.
constexpr std::string_view description = R"({"name": "one", "machine": {}, "frus": [
  {"fru_id": 1, "name": "CPU 1", "entity": "processor", "instance": 1, "content": {"areas": {
    "product": {"version": "ES-1", "serial_number": "EC1"}, "ppin": "123456781"}}},
  {"fru_id": 2, "name": "CPU 2", "entity": "processor", "instance": 2, "content": {"areas": {
    "product": {"version": "ES-1", "serial_number": "EC2"}, "ppin": "123456782"}}},
  {"fru_id": 4, "name": "DIMM 2", "entity": "memory device", "instance": 2, "content": {"dimm": {
    "generation": "DDR4", "module": "RDIMM", "size_gib": 16, "ranks": 1, "device_width": 4, "speed": 3200,
    "maker": "Samsung", "part_number": "M393A2K40DB3", "serial_number": "00000011", "year": 2023, "week": 5}}},
  {"fru_id": 5, "name": "Fan 1", "entity": "fan", "instance": 1, "content": {"areas": {
    "board": {"manufacturer": "Example Fans", "serial_number": "FN1", "part_number": "EXF-1"}}}},
  {"fru_id": 6, "name": "Fan 2", "entity": "fan", "instance": 2, "content": {"absent": true}}],
  "sensors": [{"name": "CPU 1 Status", "type": 7, "state": 128}, {"name": "CPU 2 Status", "type": 7, "state": 128}]})";

class Status : public testing::Test {
protected:
    void SetUp() override {
        if (!private_roots_are_allowed()) GTEST_SKIP() << "this machine allows no private root";
        describe(std::string(description));
    }

    void describe(const std::string& text) { server = folder.file("server.json", std::string_view(text)); }

    std::vector<std::string> with_server(std::vector<std::string> arguments) const {
        arguments.insert(arguments.end(), {"--server", server, "--state", state()});
        return arguments;
    }

    Outcome simulate(const std::string& action, const std::string& fru,
                     const std::vector<std::string>& more = {}) const {
        std::vector<std::string> arguments = with_server({"simulate", action, fru});
        arguments.insert(arguments.end(), more.begin(), more.end());
        return vpdctl(arguments);
    }

    Json status() const { return vpdctl_json(with_server({"status"})); }
    Json log() const { return vpdctl_json({"log", "--state", state()})["Entries"]; }
    Json history() const { return vpdctl_json({"history", "--state", state()})["Changes"]; }

    /// The sentences of the history from one on, without their times.
    std::vector<std::string> sentences(std::size_t first) const {
        std::vector<std::string> texts;
        for (const Json& change : history()) texts.push_back(change["Text"]);
        return {texts.begin() + static_cast<std::ptrdiff_t>(std::min(first, texts.size())), texts.end()};
    }

    std::string state() const { return folder.path("state"); }

    ScratchFolder folder;
    std::string server;
};

constexpr std::size_t installed_at_first = 3;  // two processors and a fan

const Json& named(const Json& components, const std::string& name) {
    const auto found =
        std::find_if(components.begin(), components.end(), [&](const Json& item) { return item["Name"] == name; });
    if (found == components.end()) throw std::out_of_range(name);
    return *found;
}

TEST_F(Status, OfANewServerInstallsWhatIsThere) {
    const Json json = status();

    EXPECT_EQ(json["Totals"]["Components"], 5);
    EXPECT_EQ(json["Totals"]["Present"], 4);
    EXPECT_EQ(json["Totals"]["Absent"], 1);
    EXPECT_EQ(json["Totals"]["Changed"], 3);
    const Json& fan = named(json["Components"], "Fan 1");
    EXPECT_EQ(fan["Presence"], "present");
    EXPECT_EQ(fan["Status"], "installed");
    EXPECT_EQ(fan["SerialNumber"], "FN1");
    EXPECT_THAT(fan["Since"].get<std::string>(), MatchesRegex("20..-..-..T..:..:..Z"));
    EXPECT_EQ(named(json["Components"], "Fan 2")["Presence"], "absent");
}

TEST_F(Status, OfManyAtOnceRecordsEachChangeOnce) {
    std::vector<std::future<Outcome>> runs(6);
    for (auto& run : runs) {
        run = std::async(std::launch::async, [this] { return vpdctl(with_server({"status"})); });
    }

    for (auto& run : runs) {
        const Outcome outcome = run.get();
        EXPECT_EQ(outcome.code, exit_ok);
        EXPECT_EQ(outcome.err, "");
    }
    EXPECT_THAT(log(), SizeIs(installed_at_first));
    EXPECT_THAT(history(), SizeIs(installed_at_first));
}

TEST_F(Status, DoesNotChangeByItself) {
    const Json first = status();
    const Json second = status();

    EXPECT_EQ(second["Totals"]["Changed"], 0);
    const Json& fan = named(second["Components"], "Fan 1");
    EXPECT_EQ(fan["Status"], "unchanged");
    EXPECT_EQ(fan["Since"], named(first["Components"], "Fan 1")["Since"]) << "the log has kept it";
    EXPECT_THAT(log(), SizeIs(installed_at_first));
    EXPECT_THAT(history(), SizeIs(installed_at_first));
}

TEST_F(Status, OfAMemoryDeviceIsNeitherLoggedNorRecorded) {
    status();
    simulate("swap", "DIMM 2");
    const Json module = named(status()["Components"], "DIMM 2");

    EXPECT_EQ(module["SerialNumber"], "00000012");
    EXPECT_EQ(module["Presence"], "present");
    EXPECT_EQ(module["Logged"], false);
    EXPECT_FALSE(module.contains("Since"));
    EXPECT_FALSE(module.contains("Status"));
    EXPECT_THAT(log(), SizeIs(installed_at_first));
    EXPECT_THAT(history(), SizeIs(installed_at_first));
}

TEST_F(Status, OfAPulledFanIsRemoved) {
    status();
    EXPECT_EQ(simulate("pull", "Fan 1").out, "Fan 1: pulled (serial FN1)\n");
    const Json fan = named(status()["Components"], "Fan 1");

    EXPECT_EQ(fan["Presence"], "absent");
    EXPECT_EQ(fan["Status"], "removed");
    EXPECT_EQ(fan["SerialNumber"], "FN1") << "it was never read in this process: the log knows it";
    EXPECT_EQ(log().back()["Event"], "removed");
    EXPECT_EQ(log().back()["SerialNumber"], "FN1");
    EXPECT_THAT(sentences(installed_at_first), ElementsAre("Fan 1: removed (serial FN1)"));
    EXPECT_EQ(named(status()["Components"], "Fan 1")["Status"], "unchanged");
}

TEST_F(Status, OfAPulledProcessorFollowsItsSensor) {
    status();
    simulate("pull", "CPU 2");
    const Json json = status();

    EXPECT_EQ(named(json["Components"], "CPU 2")["Status"], "removed");
    EXPECT_EQ(named(json["Components"], "CPU 1")["Status"], "unchanged");
    EXPECT_THAT(sentences(installed_at_first), ElementsAre("CPU 2: removed (serial EC2)"));
}

TEST_F(Status, OfAFanThatComesBackIsInstalledAgain) {
    status();
    simulate("pull", "Fan 1");
    status();
    EXPECT_EQ(simulate("insert", "Fan 1").out, "Fan 1: inserted (serial FN1)\n");

    EXPECT_EQ(named(status()["Components"], "Fan 1")["Status"], "installed");
    EXPECT_THAT(sentences(installed_at_first),
                ElementsAre("Fan 1: removed (serial FN1)", "Fan 1: installed again (serial FN1)"));
}

TEST_F(Status, OfASwappedFanIsReplaced) {
    status();
    EXPECT_EQ(simulate("swap", "5").out, "Fan 1: swapped, serial FN1 for FN2\n");
    const Json fan = named(status()["Components"], "Fan 1");

    EXPECT_EQ(fan["Presence"], "present");
    EXPECT_EQ(fan["Status"], "replaced");
    EXPECT_EQ(fan["SerialNumber"], "FN2");
    EXPECT_THAT(sentences(installed_at_first), ElementsAre("Fan 1: serial FN1 replaced by FN2"));
    ASSERT_THAT(log(), SizeIs(installed_at_first + 2));
    EXPECT_EQ(log()[3]["Event"], "removed");
    EXPECT_EQ(log()[3]["SerialNumber"], "FN1");
    EXPECT_EQ(log()[4]["Event"], "installed");
    EXPECT_EQ(log()[4]["SerialNumber"], "FN2");
}

TEST_F(Status, OfASwappedProcessorIsReplaced) {
    status();
    simulate("swap", "CPU 1", {"--serial", "OTHER"});

    EXPECT_EQ(named(status()["Components"], "CPU 1")["Status"], "replaced");
    EXPECT_THAT(sentences(installed_at_first), ElementsAre("CPU 1: serial EC1 replaced by OTHER"));
}

TEST_F(Status, OfAProcessorWithOtherDataIsNoReplacement) {
    status();
    std::string text(description);
    text.replace(text.find("EC1"), 3, "EC9");  // the PPIN stays
    describe(text);

    EXPECT_EQ(named(status()["Components"], "CPU 1")["Status"], "data changed");
    EXPECT_THAT(sentences(installed_at_first), IsEmpty());
    EXPECT_THAT(log(), SizeIs(installed_at_first));
}

TEST_F(Status, OfAFanThatWasPulledAndSwappedIsInstalledInPlaceOfTheOldOne) {
    status();
    simulate("pull", "Fan 1");
    status();
    simulate("insert", "Fan 1");
    simulate("swap", "Fan 1");
    status();

    EXPECT_EQ(sentences(installed_at_first).back(), "Fan 1: installed (serial FN2 in place of FN1)");
}

TEST_F(Status, WithoutProcessorSensorsSaysSo) {
    std::string text(description);
    text.replace(text.find(",\n  \"sensors\""), std::string::npos, "}");
    describe(text);

    const Json json = status();

    EXPECT_EQ(named(json["Components"], "CPU 1")["Presence"], "no sensor");
    EXPECT_EQ(json["Totals"]["NoSensor"], 2);
    EXPECT_EQ(sentences(0)[0], "CPU 1: its presence sensor is missing (serial EC1)");
}

TEST_F(Status, OfAFruThatCannotBeReadIsIncompleteAndSaysWhy) {
    std::string text(description);
    text.replace(text.find("\"EXF-1\"}}}"), 10,
                 R"("EXF-1"}}}, "fault": {"read_completion_code": "0xC3", "read_from": 16})");
    describe(text);

    const Outcome outcome = vpdctl(with_server({"status", "--json"}));

    EXPECT_EQ(outcome.code, exit_incomplete);
    const Json fan = named(Json::parse(outcome.out)["Components"], "Fan 1");
    EXPECT_EQ(fan["Presence"], "not read");
    EXPECT_THAT(fan["Reason"].get<std::string>(), HasSubstr("reading fails at byte 0"));
}

TEST_F(Status, IsATableForPeople) {
    const Outcome outcome = vpdctl(with_server({"status"}));

    EXPECT_EQ(outcome.code, exit_ok) << outcome.err;
    const std::vector<std::string> lines = lines_of(outcome.out);
    ASSERT_THAT(lines, SizeIs(8));
    EXPECT_EQ(lines[0], "  5 components: 4 present, 1 absent; 3 changed");
    EXPECT_EQ(lines[2], "  FRU  Name    Presence  Status      Since                Serial number");
    EXPECT_THAT(lines[5], MatchesRegex("    4  DIMM 2  present   not logged +00000011"));
    EXPECT_THAT(lines[6], MatchesRegex("    5  Fan 1   present   installed   20..-..-.. ..:..:..  FN1"));
    EXPECT_EQ(lines[7], "    6  Fan 2   absent    unchanged");
    EXPECT_THAT(outcome.err, IsEmpty());
}

TEST_F(Status, MayShowOnlyWhatHasChanged) {
    status();
    simulate("pull", "Fan 1");

    const Outcome outcome = vpdctl(with_server({"status", "--changed"}));

    EXPECT_THAT(outcome.out, AllOf(HasSubstr("1 changed"), HasSubstr("Fan 1"), Not(HasSubstr("CPU"))));
    EXPECT_EQ(vpdctl(with_server({"status", "--changed"})).out, "  5 components: 3 present, 2 absent; 0 changed\n");
}

TEST_F(Status, TouchesNothingOutsideItsStateDirectory) {
    const FileTimes before = files_at_fixed_paths();

    status();
    log();

    EXPECT_EQ(files_at_fixed_paths(), before);
    EXPECT_TRUE(std::filesystem::exists(state() + "/flash/data0/component_activity.log"));
    EXPECT_TRUE(std::filesystem::exists(state() + "/tmp/vpdd_lock"));
}

TEST_F(Status, WorksInAStateDirectoryBehindALink) {
    std::filesystem::create_directory(folder.path("real"));
    std::filesystem::create_directory_symlink(folder.path("real"), folder.path("state"));

    EXPECT_EQ(status()["Totals"]["Present"], 4);
    EXPECT_TRUE(std::filesystem::exists(folder.path("real/change_history.sqlite")));
}

TEST_F(Status, WithoutAServerThatCanBeReadIsBadInput) {
    EXPECT_EQ(vpdctl({"status", "--server", "/nonexistent", "--state", state()}).code, exit_bad_input);
    EXPECT_EQ(vpdctl({"status", "--server", server}).code, exit_usage);
}

TEST_F(Status, ShowsHostileTextsHarmlessly) {
    status();
    const Outcome wrong = simulate("pull", "\x1b[2J");

    EXPECT_EQ(wrong.code, exit_usage);
    EXPECT_TRUE(is_harmless(wrong.err));
}

TEST_F(Status, SimulationRefusesWhatCannotBe) {
    EXPECT_EQ(simulate("insert", "Fan 1").code, exit_usage);
    EXPECT_EQ(simulate("insert", "Fan 1").err, "vpdctl: Fan 1 is there already\n");
    EXPECT_EQ(simulate("pull", "Fan 2").code, exit_usage);
    EXPECT_EQ(simulate("explode", "Fan 1").code, exit_usage);
    EXPECT_EQ(simulate("pull", "Fan 1", {"--serial", "X1"}).err, "vpdctl: --serial is for swap only\n");
    EXPECT_EQ(simulate("swap", "DIMM 2", {"--serial", "none"}).code, exit_usage);
}

TEST_F(Status, SimulationHasItsValuesForPrograms) {
    const Json pulled = vpdctl_json(with_server({"simulate", "pull", "Fan 1"}));
    const Json inserted = vpdctl_json(with_server({"simulate", "insert", "Fan 1"}));
    const Json swapped = vpdctl_json(with_server({"simulate", "swap", "Fan 1"}));

    EXPECT_EQ(pulled,
              Json::parse(R"({"Event": "Pulled", "FruId": 5, "Name": "Fan 1", "PreviousSerialNumber": "FN1"})"));
    EXPECT_EQ(inserted, Json::parse(R"({"Event": "Inserted", "FruId": 5, "Name": "Fan 1", "SerialNumber": "FN1"})"));
    EXPECT_EQ(swapped, Json::parse(R"({"Event": "Swapped", "FruId": 5, "Name": "Fan 1", "SerialNumber": "FN2",
                                       "PreviousSerialNumber": "FN1"})"));
}

TEST_F(Status, OfAnotherStateDirectoryKnowsNothingOfAChange) {
    simulate("pull", "Fan 1");
    const Json other = vpdctl_json({"status", "--server", server, "--state", folder.path("other")});

    EXPECT_EQ(named(other["Components"], "Fan 1")["Presence"], "present");
}

TEST_F(Status, ChangesAreSeenByTheInventoryOfTheSameStateDirectory) {
    simulate("swap", "Fan 1");
    const Json json = vpdctl_json(with_server({"inventory"}));

    EXPECT_EQ(named(json["Others"], "Fan 1")["SerialNumber"], "FN2");
}

TEST_F(Status, HistoryIsOfSentencesWithTheirMinute) {
    status();

    const Outcome outcome = vpdctl({"history", "--state", state()});

    EXPECT_EQ(outcome.code, exit_ok);
    const std::vector<std::string> lines = lines_of(outcome.out);
    ASSERT_THAT(lines, SizeIs(installed_at_first));
    EXPECT_THAT(lines, Each(MatchesRegex("20..-..-.. ..:.. .*: installed .serial .*")));
    EXPECT_THAT(lines[2], EndsWith(" Fan 1: installed (serial FN1)"));
}

TEST_F(Status, HistoryHasItsValuesForPrograms) {
    status();
    simulate("swap", "Fan 1");
    status();

    const Json change = history().back();

    EXPECT_EQ(change["Event"], "Replaced");
    EXPECT_EQ(change["Name"], "Fan 1");
    EXPECT_EQ(change["EntityInstance"], 1);
    EXPECT_EQ(change["SerialNumber"], "FN2");
    EXPECT_EQ(change["PreviousSerialNumber"], "FN1");
    EXPECT_EQ(change["PartNumber"], "EXF-1");
    EXPECT_EQ(change["Manufacturer"], "Example Fans");
}

TEST_F(Status, HistoryLeavesOutAPartNumberOfRawBytes) {
    std::string text(description);
    const std::string product = R"("product": {"version": "ES-1", "serial_number": "EC1"})";
    text.replace(text.find(product), product.size(),
                 product + R"(, "oem_cpu": {"index": 1, "texts": ["Example CPU"], "raw": "06F80800"})");
    describe(text);
    status();

    const Json changes = history();

    EXPECT_EQ(changes[0]["Name"], "CPU 1");
    EXPECT_FALSE(changes[0].contains("PartNumber")) << changes[0];
    EXPECT_EQ(changes[2]["PartNumber"], "EXF-1");
}

TEST_F(Status, HistoryOfANewStateDirectoryIsEmpty) {
    std::filesystem::create_directory(state());

    EXPECT_EQ(vpdctl({"history", "--state", state()}).out, "Nothing has changed.\n");
    EXPECT_THAT(history(), IsEmpty());
}

TEST_F(Status, HistoryOfADirectoryThatIsNotThereIsBadInput) {
    const Outcome outcome = vpdctl({"history", "--state", state()});

    EXPECT_EQ(outcome.code, exit_bad_input);
    EXPECT_EQ(outcome.err, "vpdctl: " + state() + ": is no directory\n");
}

TEST_F(Status, HistoryThatIsNoDatabaseIsAFailure) {
    std::filesystem::create_directory(state());
    folder.file("state/change_history.sqlite",
                std::string_view("This is no database, and longer than its header, which "
                                 "has a hundred bytes: they are all of another kind."));

    const Outcome outcome = vpdctl({"history", "--state", state()});

    EXPECT_EQ(outcome.code, exit_failure);
    EXPECT_EQ(outcome.err, "vpdctl: " + state() + ": the change history cannot be read: " + state() +
                               "/change_history.sqlite: file is not a database\n");
}

}  // namespace
}  // namespace vpdd::test
