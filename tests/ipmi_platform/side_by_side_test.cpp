// SPDX-License-Identifier: Apache-2.0
// One simulated BMC, asked by vpdctl, ipmitool and ipmi-fru. With VPDD_SIDE_BY_SIDE=1 in the environment the values are
// printed as a table for docs/ipmi-platform.md.
#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <iostream>
#include <set>

#include "bmc_contents.h"
#include "fields.h"

namespace vpdd::test {
namespace {

/// A field for which vpdctl has another value than a tool, on purpose.
struct Difference {
    const char* fru;    ///< id, or name of the sample
    const char* field;  ///< "Board.*" is every field of the board, "*" every field
    const char* tool;
    const char* told;
    const char* shown;  ///< by vpdctl; "*" is whatever it shows
    const char* reason;
};

constexpr Difference differences[] = {
    {"0", "Record.Custom", "ipmitool", "Board revision C", "Board revisi", "the record has 12 characters for it"},
    {"1", "Record.PartNumber", "ipmitool", "CPU-8480", "Xeon 8480+",
     "the record of a part without a board has the product's version as part number"},
    {"7", "Record.PartNumber", "ipmitool", "CPU-8480", "Xeon 8480+",
     "the record of a part without a board has the product's version as part number"},
    {"3", "Board.*", "ipmi-fru", "", "*", "ipmi-fru refuses an area for its checksum; vpdctl shows and marks it"},
    {"6", "Board.SerialNumber", "ipmi-fru", "Error 'FRU invalid BCD encoding'", "123456",
     "ipmi-fru refuses packed digits"},
    {"6", "Record.Manufacturer", "ipmitool", "EXAMPLE SYSTEMS", "*", "the record keeps 6-bit text packed"},
    {"6", "Record.PartNumber", "ipmitool", "cafe01", "*", "the record has binary data as they are"},
    {"6", "Record.SerialNumber", "ipmitool", "123456", "???", "the record takes a byte of BCD plus for one digit"},
    {"AD-FMCDAQ2-EBZ", "Record.Custom", "ipmitool", "0043", "", "binary data that begin with 0 are an empty text"},
    {"AD9783-DPG2-EBZ", "Record.Custom", "ipmitool", "0042", "", "binary data that begin with 0 are an empty text"},
    {"ADRV9009-W", "Record.Custom", "ipmitool", "00303142", "", "binary data that begin with 0 are an empty text"},
    {"drtm-clkft", "Record.Manufacturer", "ipmitool", "Deutsches Elektronen-Synchrotron",
     "Deutsches Elektronen-Synchrotr", "the record has 30 characters for it"},
    {"opalkelly_default_2k", "Board.Date", "ipmitool", "Unspecified", "1996-01-01 00:00", "0 minutes: no date"},
    {"opalkelly_default_2k", "Record.Date", "ipmitool", "Unspecified", "1996-01-01", "0 minutes: no date"},
    {"synthetic_unspecified_date", "Board.Date", "ipmitool", "Unspecified", "1996-01-01 00:00", "0 minutes: no date"},
    {"synthetic_unspecified_date", "Record.Date", "ipmitool", "Unspecified", "1996-01-01", "0 minutes: no date"},
    {"vadatech_utc017", "Board.Date", "ipmitool", "Unspecified", "1996-01-01 00:00", "0 minutes: no date"},
    {"vadatech_utc017", "Record.Date", "ipmitool", "Unspecified", "1996-01-01", "0 minutes: no date"},
    {"synthetic_bad_board_checksum", "Board.*", "ipmi-fru", "", "*",
     "ipmi-fru refuses an area for its checksum; vpdctl shows and marks it"},
    {"synthetic_truncated", "*", "ipmitool", "", "*", "ipmitool ends with a segmentation fault, before it prints"},
    {"synthetic_truncated", "Board.*", "ipmi-fru", "", "*",
     "an area that the image ends in is shown as far as it goes"},
};

/// A value of a tool that is not that of vpdctl.
struct Deviation {
    std::string fru, field, tool, told, shown;
};

void PrintTo(const Deviation& deviation, std::ostream* out) {
    *out << '{' << deviation.fru << ", " << deviation.field << ", " << deviation.tool << ", " << deviation.told << ", "
         << deviation.shown << '}';
}

bool matches(const std::string& text, const std::string& pattern) {
    if (!pattern.ends_with('*')) return text == pattern;
    return text.starts_with(pattern.substr(0, pattern.size() - 1));
}

bool explains(const Difference& row, const Deviation& deviation) {
    return deviation.fru == row.fru && matches(deviation.field, row.field) && deviation.tool == row.tool &&
           deviation.told == row.told && matches(deviation.shown, row.shown);
}

bool is_explained(const Deviation& deviation) {
    return std::ranges::any_of(differences, [&](const Difference& row) { return explains(row, deviation); });
}

class SideBySide : public testing::Test {
protected:
    struct World {
        Samples samples = fru_samples();
        SimulatedBmc contents = large_server();
        Simulator simulator{contents};
        PlatformFile file{simulator.port()};
        Json inventory = vpdctl_json({"inventory", "--platform", "ipmi", "--bmc", file.path()});
        FieldsByFru vpdctl;
        FieldsByFru ipmitool;
        FieldsByFru ipmi_fru;

        World() {
            const ScratchFolder cache;
            std::vector<uint8_t> ids{fru_absent};
            for (const auto& [id, image] : contents.frus) ids.push_back(id);
            for (const uint8_t id : ids) {
                vpdctl[id] = vpdctl_fields(file, id);
                ipmitool[id] = ipmitool_fields(simulator.port(), id);
                ipmi_fru[id] = ipmi_fru_fields(simulator.port(), id, cache.path(""));
            }
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

    /// Of all FRUs: the areas by both tools, the inventory's record by ipmitool.
    static std::vector<Deviation> all_deviations();

private:
    static std::unique_ptr<World> world_;
};

std::unique_ptr<SideBySide::World> SideBySide::world_;

std::string value_of(const Fields& fields, const std::string& name) {
    const auto found = fields.find(name);
    return found == fields.end() ? std::string() : found->second;
}

/// Notes are no fields.
void compare(const std::string& fru, const std::string& tool, const Fields& shown, const Fields& told,
             std::vector<Deviation>& deviations) {
    std::set<std::string> names;
    for (const auto& field : shown) names.insert(field.first);
    for (const auto& field : told) names.insert(field.first);
    names.erase(note);
    for (const std::string& name : names) {
        if (value_of(shown, name) == value_of(told, name)) continue;
        deviations.push_back({fru, name, tool, value_of(told, name), value_of(shown, name)});
    }
}

std::vector<Deviation> SideBySide::all_deviations() {
    std::vector<Deviation> deviations;
    for (const auto& [id, fields] : world().vpdctl) {
        const std::string fru = world().name(id);
        compare(fru, "ipmitool", fields, world().ipmitool.at(id), deviations);
        compare(fru, "ipmi-fru", fields, world().ipmi_fru.at(id), deviations);
        if (id == fru_module) continue;  // has no FRU areas
        compare(fru, "ipmitool", record_fields_of_component(component(id)), record_fields(world().ipmitool.at(id)),
                deviations);
    }
    return deviations;
}

TEST_F(SideBySide, EveryFieldIsWhatTheToolsSayUnlessTheTableExplainsIt) {
    const std::vector<Deviation> deviations = all_deviations();
    for (const Deviation& deviation : deviations) {
        EXPECT_TRUE(is_explained(deviation)) << testing::PrintToString(deviation);
    }
    for (const Difference& row : differences) {
        const bool is_missing_sample = world().samples.names.empty() && std::isdigit(row.fru[0]) == 0;
        const bool is_needed =
            std::ranges::any_of(deviations, [&](const Deviation& deviation) { return explains(row, deviation); });
        EXPECT_TRUE(is_needed || is_missing_sample) << row.fru << ' ' << row.field << ' ' << row.tool;
    }
}

TEST_F(SideBySide, ManyFieldsAreCompared) {
    std::size_t fields = 0;
    for (const auto& fru : world().vpdctl) fields += fru.second.size();

    EXPECT_GE(fields, 50U);
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

TEST_F(SideBySide, AMemoryModuleIsDecodedFromItsSpd) {
    const Json module = component(fru_module);

    EXPECT_EQ(module["PartNumber"], "M393A2K40DB3-CWE");
    EXPECT_EQ(module["SerialNumber"], "12345678");
}

TEST_F(SideBySide, WhatIsAbsentIsListedAsNotRead) {
    EXPECT_THAT(world().ipmitool.at(fru_absent), testing::ElementsAre(testing::Pair(note, "exit code 1")));
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
    EXPECT_EQ(presence["CPU 1"], "present");
    EXPECT_EQ(presence["CPU 2"], "absent");
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
