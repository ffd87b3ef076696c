// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>

#include "vpdctl_process.h"

namespace vpdd::test {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

Json machine(const std::string& server, const std::vector<std::string>& options = {}) {
    std::vector<std::string> arguments = {"machine", "--server", server};
    arguments.insert(arguments.end(), options.begin(), options.end());
    return vpdctl_json(arguments);
}

std::string described(const ScratchFolder& folder, const std::string& machine) {
    return folder.file("server.json",
                       std::string_view(R"({"name": "one", "machine": {)" + machine + R"(}, "frus": []})"));
}

TEST(Machine, OfTheSevenDigitFormHasItsIdentity) {
    const Json json = machine(server_file("ddr3-small"));

    EXPECT_EQ(json["TypeModel"], "ET110A1");
    EXPECT_EQ(json["SerialNumber"], "E339825");
    EXPECT_EQ(json["VpdVersion"], "0x0200");
    EXPECT_EQ(json["CardManufactureDate"], "2013-06-17");  // Monday of week 25
    EXPECT_FALSE(json.contains("SerialNumberFormat")) << "only from VPD version 0x0300 on";
}

TEST(Machine, OfTheTenDigitFormHasItsIdentity) {
    const Json json = machine(server_file("ddr4-2s"));

    EXPECT_EQ(json["TypeModel"], "ER420A0210");
    EXPECT_EQ(json["SerialNumber"], "J1FK6RW95");
    EXPECT_EQ(json["SerialNumberFormat"], "11S");
    EXPECT_EQ(json["UUID"], "5E0A1C2B-7D41-11EC-9A03-02005E420000");
    EXPECT_EQ(json["IanaNumber"], "32473");
    EXPECT_EQ(json["Manufacturer"], "Example Systems");
    EXPECT_THAT(json["HostMacAddresses"],
                ElementsAre("02:00:5E:42:00:00", "02:00:5E:42:00:01", "02:00:5E:42:00:02", "02:00:5E:42:00:03"));
    EXPECT_THAT(json["PortMacAddresses"], ElementsAre("02:00:5E:42:F0:00", "02:00:5E:42:F0:01"));
    EXPECT_THAT(json["CodeLevels"], ElementsAre("BMC420B", "HFW311C", "PRV105A", "DIA210D"));
}

TEST(Machine, OfAnOemShowsItsOwnIdentity) {
    const Json json = machine(server_file("ddr5-2s"));

    EXPECT_EQ(json["TypeModel"], "PRAIRIE-560");
    EXPECT_EQ(json["SerialNumber"], "PX24-0098115");
    EXPECT_EQ(json["CardPartNumber"], "PXB-77120");
    EXPECT_EQ(json["ManufacturerId"], "PRAIRIE");
}

TEST(Machine, IsATableForPeople) {
    const Outcome outcome = vpdctl({"machine", "--server", server_file("ddr4-2s")});

    EXPECT_EQ(outcome.code, exit_ok);
    EXPECT_THAT(outcome.out, AllOf(HasSubstr("  Type/model            ER420A0210\n"),
                                   HasSubstr("  Code levels           BMC420B, HFW311C, PRV105A, DIA210D\n")));
    EXPECT_THAT(outcome.out, Not(HasSubstr("-->"))) << "the library's traces do not belong there";
}

TEST(Machine, WithoutAnythingInItsSystemVpdHasNoValues) {
    const ScratchFolder folder;
    const Json json = machine(described(folder, ""));

    EXPECT_EQ(json["VpdVersion"], "0x0300");
    EXPECT_FALSE(json.contains("SerialNumber"));
    EXPECT_THAT(json["HostMacAddresses"], IsEmpty());
}

TEST(Machine, ShowsHostileBytesHarmlessly) {
    const ScratchFolder folder;
    const std::string server = described(folder, R"("fields": {"8": "1B5B324A9BC3A9FF", "27": "FF1B"})");

    EXPECT_TRUE(is_harmless(vpdctl({"machine", "--server", server}).out));
    EXPECT_TRUE(is_harmless(vpdctl({"machine", "--server", server, "--json"}).out));
}

TEST(OemMachine, HasTheLabelsOfFruZeroInTheirOrder) {
    const Json labels = machine(server_file("ddr5-2s"), {"--oem"})["Labels"];

    ASSERT_EQ(labels.size(), 7U);
    EXPECT_EQ(labels[0]["Label"], "Model");
    EXPECT_EQ(labels[0]["Value"], "PRAIRIE-560");
    EXPECT_EQ(labels[1]["Label"], "Serial");
    EXPECT_EQ(labels[2]["Value"], "PXB-77120");
    EXPECT_EQ(labels[4]["Label"], "Order");
    EXPECT_EQ(labels[5]["Value"], "PRAIRIE");
    EXPECT_EQ(labels[6]["Value"], "RACK 03 U 08");
}

TEST(OemMachine, ShowsAPairThatTheLibraryRepeatsOnce) {
    const Json labels = machine(server_file("ddr4-2s"), {"--oem"})["Labels"];

    ASSERT_EQ(labels.size(), 2U);
    EXPECT_EQ(labels[0]["Label"], "MTM");
}

TEST(OemMachine, CarriesTheStandardRecordsFields) {
    const Json json = machine(server_file("ddr5-2s"), {"--oem"});

    EXPECT_EQ(json["ProductManufacturer"], "oem");
    EXPECT_EQ(json["ProductName"], "Rack Server ER560");
    EXPECT_EQ(json["SerialNumberFormat"], "11S");
    EXPECT_EQ(json["EcLevel"], "EC 02");
    EXPECT_EQ(json["IsmpName"], "ISMP 2.0");
    EXPECT_EQ(json["Manufacturer"], "Example Systems");
    EXPECT_EQ(json["IanaNumber"], "32473");
    EXPECT_THAT(json["HostMacAddresses"], ElementsAre("02:00:5E:56:00:00", "02:00:5E:56:00:01"));
    EXPECT_THAT(json["CodeLevels"], ElementsAre("BMC112A", "HFW204B", "PRV301C"));
}

TEST(OemMachine, WithoutLabelsSaysSo) {
    const Outcome outcome = vpdctl({"machine", "--oem", "--server", server_file("ddr3-small")});

    EXPECT_EQ(outcome.code, exit_ok);
    EXPECT_THAT(outcome.out, HasSubstr("none: this is no OEM machine"));
}

TEST(OemMachine, WithoutFruZeroCannotBeRead) {
    const ScratchFolder folder;
    const Outcome outcome = vpdctl({"machine", "--oem", "--server", described(folder, "")});

    EXPECT_EQ(outcome.code, exit_failure);
    EXPECT_EQ(outcome.err, "vpdctl: the OEM machine record cannot be read: result -9\n");
    EXPECT_THAT(outcome.out, IsEmpty());
}

TEST(Machine, TracesOfTheLibraryGoToTheLog) {
    const Outcome outcome = vpdctl({"machine", "--oem", "--json", "--log", "-", "--server", server_file("ddr5-2s")});

    EXPECT_TRUE(Json::accept(outcome.out));
    EXPECT_THAT(outcome.err, AllOf(HasSubstr("stdout --> leave GetMachineFields\n"), HasSubstr("productmfg=oem")));
}

class MachineCache : public testing::Test {
protected:
    void SetUp() override {
        if (!private_roots_are_allowed()) GTEST_SKIP() << "this machine allows no private root";
    }
};

TEST_F(MachineCache, HoldsWhatTheDeviceHolds) {
    const std::vector<std::string> cached = {"--from-cache"};

    for (const std::string name : {"ddr3-small", "ddr4-2s", "ddr5-2s"}) {
        EXPECT_EQ(machine(server_file(name), cached), machine(server_file(name))) << name;
        EXPECT_EQ(machine(server_file(name), {"--oem", "--from-cache"}), machine(server_file(name), {"--oem"})) << name;
    }
}

TEST_F(MachineCache, LiesInTheStateDirectoryOnly) {
    const ScratchFolder folder;
    const FileTimes before = files_at_fixed_paths();

    const Outcome outcome =
        vpdctl({"machine", "--from-cache", "--server", server_file("ddr4-2s"), "--state", folder.path("state")});

    EXPECT_EQ(outcome.code, exit_ok) << outcome.err;
    EXPECT_EQ(std::filesystem::file_size(folder.path("state/tmp/machine.cache")), 1106U);
    EXPECT_EQ(std::filesystem::file_size(folder.path("state/tmp/oemMachine.cache")), 1342U);
    EXPECT_EQ(files_at_fixed_paths(), before);
}

TEST_F(MachineCache, WithoutAStateDirectoryLeavesNothing) {
    const FileTimes before = files_at_fixed_paths();

    vpdctl({"machine", "--from-cache", "--server", server_file("ddr4-2s")});

    EXPECT_EQ(files_at_fixed_paths(), before);
}

}  // namespace
}  // namespace vpdd::test
