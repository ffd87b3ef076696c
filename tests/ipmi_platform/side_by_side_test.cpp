// SPDX-License-Identifier: Apache-2.0
// One simulated BMC, asked by vpdctl, ipmitool and ipmi-fru. With VPDD_SIDE_BY_SIDE=1 in the environment the values are
// printed as a table for docs/ipmi-platform.md.
#include <gmock/gmock.h>

#include <array>
#include <cstdlib>
#include <iostream>
#include <set>

#include "bmc_contents.h"
#include "fields.h"

namespace vpdd::test {
namespace {

using testing::HasSubstr;

/// A field for which vpdctl has another value than a tool, on purpose.
struct Difference {
    const char* fru;  ///< id, or name of the sample
    const char* field;
    const char* tool;
    const char* told;
    const char* shown;  ///< by vpdctl
    const char* reason;
};

constexpr Difference differences[] = {};

class SideBySide : public testing::Test {
protected:
    struct World {
        Samples samples = fru_samples();
        SimulatedBmc contents = large_server();
        Simulator simulator{contents};
        PlatformFile file{simulator.port()};
        Json inventory = vpdctl_json({"inventory", "--platform", "ipmi", "--bmc", file.path()});
        FieldsByFru vpdctl;
        FieldsByFru ipmitool = ipmitool_fields(simulator.port());
        FieldsByFru ipmi_fru = ipmi_fru_fields(simulator.port());

        World() {
            for (const auto& [id, image] : contents.frus) vpdctl[id] = vpdctl_fields(file, id);
            vpdctl[fru_absent] = vpdctl_fields(file, fru_absent);
        }

        std::string name(uint8_t fru) const {
            const auto sample = samples.names.find(fru);
            return sample == samples.names.end() ? std::to_string(fru) : sample->second;
        }
    };

    static void SetUpTestSuite() {
        if (simulator_is_installed()) world_ = std::make_unique<World>();
    }
    static void TearDownTestSuite() { world_.reset(); }

    void SetUp() override {
        if (!world_) GTEST_SKIP() << "openipmi, ipmitool or freeipmi-tools is not installed";
    }

    static const World& world() { return *world_; }

    /// The component with this FRU id, wherever it stands in the inventory; null without.
    static Json component(uint8_t fru) {
        for (const auto& [group, content] : world().inventory.items()) {
            if (!content.is_array()) continue;
            for (const Json& part : content) {
                if (part.value("FruId", -1) == fru) return part;
            }
        }
        return {};
    }

private:
    static std::unique_ptr<World> world_;
};

std::unique_ptr<SideBySide::World> SideBySide::world_;

/// The values of a tool that are not those of vpdctl, each as a row.
std::vector<std::string> rows_that_differ(const std::string& fru, const std::string& tool, const Fields& shown,
                                          const Fields& told) {
    std::set<std::string> names;
    for (const auto& [name, value] : shown) names.insert(name);
    for (const auto& [name, value] : told) names.insert(name);
    const auto value_of = [](const Fields& fields, const std::string& name) {
        const auto found = fields.find(name);
        return found == fields.end() ? std::string() : found->second;
    };
    std::vector<std::string> rows;
    for (const std::string& name : names) {
        if (value_of(shown, name) == value_of(told, name)) continue;
        rows.push_back(fru + " / " + name + " / " + tool + " / " + value_of(told, name) + " / " +
                       value_of(shown, name));
    }
    return rows;
}

TEST_F(SideBySide, EveryFieldIsWhatTheToolsSayUnlessTheTableExplainsIt) {
    std::vector<std::string> found;
    const auto compare = [&found](const std::string& tool, const FieldsByFru& frus) {
        for (const auto& entry : world().vpdctl) {
            const auto told = frus.find(entry.first);
            const auto rows = rows_that_differ(world().name(entry.first), tool, entry.second,
                                               told == frus.end() ? Fields() : told->second);
            found.insert(found.end(), rows.begin(), rows.end());
        }
    };
    compare("ipmitool", world().ipmitool);
    compare("ipmi-fru", world().ipmi_fru);
    std::vector<std::string> explained;
    for (const Difference& row : differences) {
        const bool is_missing_sample = world().samples.names.empty() && std::isdigit(row.fru[0]) == 0;
        if (is_missing_sample) continue;
        explained.push_back(std::string(row.fru) + " / " + row.field + " / " + row.tool + " / " + row.told + " / " +
                            row.shown);
    }

    EXPECT_THAT(found, testing::UnorderedElementsAreArray(explained));
}

TEST_F(SideBySide, TheInventoryHasEveryLocator) {
    std::size_t locators = 0;
    for (const images::Bytes& record : world().contents.sdr) {
        constexpr std::size_t type = 3;
        locators += record[type] == 0x11 ? 1U : 0U;
    }

    EXPECT_EQ(world().inventory["Totals"]["Components"], locators);
    EXPECT_GE(locators, 10U);
}

TEST_F(SideBySide, RecordsHaveTheValuesOfTheBoardAsIpmitoolSaysThem) {
    for (const auto& [id, fields] : world().ipmitool) {
        const Json part = component(id);
        if (!fields.contains("Board.Manufacturer") || !part.contains("Manufacturer")) continue;
        if (world().name(id) != std::to_string(id) || id == fru_packed) continue;
        EXPECT_EQ(part["Manufacturer"], fields.at("Board.Manufacturer")) << int{id};
        EXPECT_EQ(part["SerialNumber"], fields.at("Board.SerialNumber")) << int{id};
        EXPECT_EQ(part["PartNumber"], fields.at("Board.PartNumber")) << int{id};
        EXPECT_EQ(part["ManufactureDate"], fields.at("Board.Date").substr(0, 10)) << int{id};
    }
}

TEST_F(SideBySide, ARecordWithoutABoardHasTheProductsVersionAsPartNumber) {
    const Fields& fields = world().ipmitool.at(fru_processor);
    const Json part = component(fru_processor);

    EXPECT_EQ(part["Manufacturer"], fields.at("Product.Manufacturer"));
    EXPECT_EQ(part["SerialNumber"], fields.at("Product.SerialNumber"));
    EXPECT_EQ(part["Version"], fields.at("Product.Version"));
    EXPECT_EQ(part["PartNumber"], fields.at("Product.Version"));
}

TEST_F(SideBySide, AMemoryModuleIsDecodedFromItsSpd) {
    const Json module = component(fru_module);

    EXPECT_EQ(module["PartNumber"], "M393A2K40DB3-CWE");
    EXPECT_EQ(module["SerialNumber"], "12345678");
}

TEST_F(SideBySide, WhatIsAbsentIsListedAsNotRead) {
    EXPECT_THAT(world().ipmitool.at(fru_absent).at(note), HasSubstr("Device not present"));
    EXPECT_TRUE(component(fru_absent).contains("Reason"));
    EXPECT_EQ(world().inventory["NotRead"].size(), 1U);
}

TEST_F(SideBySide, Ipmi15GivesTheSameInventory) {
    const PlatformFile file(world().simulator.port(), {{"interface", "lan"}});
    Json inventory = vpdctl_json({"inventory", "--bmc", file.path()});

    inventory["Server"] = world().inventory["Server"];
    EXPECT_EQ(inventory, world().inventory);
}

TEST_F(SideBySide, ProcessorsAreThereAsTheirSensorsSay) {
    if (!private_roots_are_allowed()) GTEST_SKIP() << "this machine allows no private root";
    const ScratchFolder state;
    const Json status = vpdctl_json({"status", "--bmc", world().file.path(), "--state", state.path("state")});

    std::map<std::string, std::string> presence;
    for (const Json& part : status["Components"]) presence[part["Name"]] = part["Presence"];
    EXPECT_EQ(presence["CPU 1"], "Present");
    EXPECT_EQ(presence["CPU 2"], "Absent");
}

TEST_F(SideBySide, TheTableForTheDocumentation) {
    if (std::getenv("VPDD_SIDE_BY_SIDE") == nullptr) GTEST_SKIP() << "printed with VPDD_SIDE_BY_SIDE=1";
    std::cout << "| FRU | Field | vpdctl | ipmitool | ipmi-fru |\n|---|---|---|---|---|\n";
    for (const auto& entry : world().vpdctl) {
        std::map<std::string, std::array<std::string, 3>> rows;
        std::size_t column = 0;
        for (const FieldsByFru* frus : {&world().vpdctl, &world().ipmitool, &world().ipmi_fru}) {
            const auto fru = frus->find(entry.first);
            if (fru != frus->end()) {
                for (const auto& field : fru->second) rows[field.first].at(column) = field.second;
            }
            ++column;
        }
        for (const auto& row : rows) {
            std::cout << "| " << world().name(entry.first) << " | " << row.first;
            for (const std::string& value : row.second) std::cout << " | " << value;
            std::cout << " |\n";
        }
    }
}

}  // namespace
}  // namespace vpdd::test
