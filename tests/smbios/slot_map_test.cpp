// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "fake_platform.h"
#include "orva_vpdd.h"

using namespace vpdd::test;

namespace {

constexpr int error = 3;  // a bare level, without facility

struct ExpectedRow {
    uint32_t platform_id;
    uint32_t slots;
    const DimmSlotMapRow* map;
    const char* file;  ///< that the map is made from
};

const ExpectedRow expected_rows[] = {
    {0x0050005E, 16, mem_slots_0050005e, "0050005e"}, {0x00500062, 32, mem_slots_00500062, "00500062"},
    {0x00500063, 32, mem_slots_00500063, "00500063"}, {0x00500061, 32, mem_slots_00500061, "00500061"},
    {0x0050006D, 24, mem_slots_0050006d, "0050006d"}, {0x00500070, 24, mem_slots_00500070, "00500070"},
    {0x00500071, 12, mem_slots_00500071, "00500071"}, {0x00500072, 12, mem_slots_00500072, "00500072"},
    {0x01500071, 24, mem_slots_01500071, "01500071"}, {0x01500072, 24, mem_slots_01500072, "01500072"},
    {0x0050006C, 24, mem_slots_0050006c, "0050006c"}, {0x0050006F, 24, mem_slots_0050006f, "0050006f"},
    {0x00500074, 64, mem_slots_00500074, "00500074"}, {0x0050005C, 10, mem_slots_0050005c, "0050005c"},
    {0x00500073, 4, mem_slots_00500073, "00500073"},  {0x00500078, 4, mem_slots_00500078, "00500078"},
    {0x00500079, 4, mem_slots_00500079, "00500079"},  {0x00500076, 128, mem_slots_00500076, "00500076"},
    {0x04500076, 64, mem_slots_04500076, "04500076"}, {0x02500076, 32, mem_slots_02500076, "02500076"},
    {0x00500077, 6, mem_slots_00500077, "00500077"},  {0x0050007A, 16, mem_slots_0050007a, "0050007a"},
    {0x0050007C, 12, mem_slots_0050007c, "0050007c"}, {0x0050007E, 12, mem_slots_0050007c, "0050007c"},
    {0x00500083, 16, mem_slots_00500083, "00500083"}, {0x0050008A, 24, mem_slots_0050006f, "0050006f"},
    {0x00500084, 4, mem_slots_00500084, "00500084"},  {0x00500088, 2, mem_slots_00500088, "00500088"},
    {0x00500085, 32, mem_slots_00500085, "00500085"}, {0x0050008B, 32, mem_slots_0050008b, "0050008b"},
};

using Fields = std::tuple<uint32_t, uint32_t, uint32_t, uint32_t, uint32_t>;

Fields fields(const DimmSlotMapRow& row) {
    return {row.socket, row.controller, row.channel, row.dimm_in_channel, row.slot};
}

std::vector<Fields> rows_of(const DimmSlotMapRow* rows, std::size_t count) {
    std::vector<Fields> all;
    for (std::size_t index = 0; index < count; ++index) all.push_back(fields(rows[index]));
    return all;
}

std::vector<Fields> rows_of_file(const std::string& name) {
    std::ifstream file(std::string(VPDD_SLOT_MAP_FOLDER "/") + name + ".csv");
    std::vector<Fields> rows;
    for (std::string line; std::getline(file, line);) {
        unsigned socket, controller, channel, position, slot;
        if (std::sscanf(line.c_str(), "%u,%u,%u,%u,%u", &socket, &controller, &channel, &position, &slot) == 5)
            rows.emplace_back(socket, controller, channel, position, slot);
    }
    return rows;
}

/// The table and the environment as they are at the start of a process.
class GetMemSlotTest : public PlatformTest {
protected:
    GetMemSlotTest() { std::copy(std::begin(platMemSlots), std::end(platMemSlots), std::begin(table_)); }
    ~GetMemSlotTest() override {
        std::copy(std::begin(table_), std::end(table_), std::begin(platMemSlots));
        unsetenv("hw_rev");
        unsetenv("VSK_NUM_SOCKETS");
    }

    const DimmSlotMapRef* slot_map_of(uint32_t platform_id) {
        platform.variable("tarn_var_int_platform_id", static_cast<int32_t>(platform_id));
        return GetMemSlot();
    }
    static void hardware_revision(const char* text) { setenv("hw_rev", text, 1); }
    static void sockets(const char* text) { setenv("VSK_NUM_SOCKETS", text, 1); }

private:
    PlatMemSlot table_[30];
};

TEST_F(GetMemSlotTest, FindsTheMapOfEachOfTheThirtyPlatforms) {
    ASSERT_EQ(std::size(expected_rows), 30U);
    for (std::size_t row = 0; row < 30; ++row) {
        SCOPED_TRACE(expected_rows[row].file);
        const DimmSlotMapRef* const map = slot_map_of(expected_rows[row].platform_id);

        ASSERT_EQ(map, &platMemSlots[row].map);
        EXPECT_EQ(map->count, expected_rows[row].slots);
        EXPECT_EQ(map->rows, expected_rows[row].map);
    }
    EXPECT_TRUE(platform.logged_nothing());
}

TEST_F(GetMemSlotTest, AsksForThePlatformIdOnce) {
    slot_map_of(0x00500088);

    ASSERT_EQ(platform.configuration_read.count(), 1U);
    EXPECT_EQ(platform.configuration_read.calls()[0].name, "tarn_var_int_platform_id");
    EXPECT_TRUE(platform.configuration().empty());
}

TEST_F(GetMemSlotTest, WithoutAPlatformIdFindsNothing) {
    EXPECT_EQ(GetMemSlot(), nullptr);

    EXPECT_EQ(platform.log(), (std::vector<LogLine>{{error, "GET TARN VAR[tarn_var_int_platform_id] FAIL\n"}}));
}

TEST_F(GetMemSlotTest, TakesAnyResultButZeroForAPlatformId) {
    platform.configuration_read.always({-1, 0x00500088});

    EXPECT_EQ(GetMemSlot(), &platMemSlots[27].map);
}

TEST_F(GetMemSlotTest, OfAnUnknownPlatformLogsEightHexDigits) {
    EXPECT_EQ(slot_map_of(0xABC), nullptr);
    EXPECT_EQ(slot_map_of(0x8050005E), nullptr);

    EXPECT_EQ(platform.log(), (std::vector<LogLine>{{error, "MISMATCH PLATFORM[00000abc]\n"},
                                                    {error, "MISMATCH PLATFORM[8050005e]\n"}}));
}

TEST_F(GetMemSlotTest, ChoosesTheVariantOfTwoPlatformsByHardwareRevisionOneOrAboveNine) {
    struct {
        const char* revision;
        bool is_variant;
    } const cases[] = {{"0", false}, {"1", true},   {"2", false},         {"3", false},
                       {"6", false}, {"7", false},  {"9", false},         {"10", true},
                       {"11", true}, {"-1", false}, {"2147483648", true}, {"99999999999999999999", true}};
    for (const auto& [revision, is_variant] : cases) {
        SCOPED_TRACE(revision);
        hardware_revision(revision);
        EXPECT_EQ(slot_map_of(0x00500071), &platMemSlots[is_variant ? 8 : 6].map);
        EXPECT_EQ(slot_map_of(0x00500072), &platMemSlots[is_variant ? 9 : 7].map);
    }
}

TEST_F(GetMemSlotTest, WithoutAHardwareRevisionTakesNoVariant) {
    EXPECT_EQ(slot_map_of(0x00500071)->count, 12U);
    EXPECT_EQ(slot_map_of(0x00500072)->count, 12U);
}

TEST_F(GetMemSlotTest, ReadsTheHardwareRevisionAsADecimalNumber) {
    hardware_revision("010");  // 8 in octal
    EXPECT_EQ(slot_map_of(0x00500072), &platMemSlots[9].map);

    hardware_revision("1 B");
    EXPECT_EQ(slot_map_of(0x00500072), &platMemSlots[9].map);

    hardware_revision("0x0A");
    EXPECT_EQ(slot_map_of(0x00500072), &platMemSlots[7].map);

    hardware_revision("");
    EXPECT_EQ(slot_map_of(0x00500072), &platMemSlots[7].map);
}

TEST_F(GetMemSlotTest, LeavesOtherPlatformsToTheirMapWhateverTheRevision) {
    hardware_revision("10");
    EXPECT_EQ(slot_map_of(0x00500073), &platMemSlots[14].map);
    EXPECT_EQ(slot_map_of(0x00500076), &platMemSlots[17].map);
    EXPECT_EQ(slot_map_of(0x01500072), &platMemSlots[9].map);
}

TEST_F(GetMemSlotTest, RenumbersRowsTwoAndThreeFromRevisionSevenOn) {
    hardware_revision("6");
    EXPECT_EQ(slot_map_of(0x00500063), &platMemSlots[2].map);
    EXPECT_EQ(slot_map_of(0x00500061), &platMemSlots[3].map);
    EXPECT_EQ(platMemSlots[2].platform_id, 0x00500063U);
    EXPECT_EQ(platMemSlots[3].platform_id, 0x00500061U);

    hardware_revision("7");
    EXPECT_EQ(slot_map_of(0x0050002F), &platMemSlots[2].map);
    EXPECT_EQ(slot_map_of(0x00500030), &platMemSlots[3].map);
    EXPECT_EQ(platMemSlots[2].platform_id, 0x0050002FU);
    EXPECT_EQ(platMemSlots[3].platform_id, 0x00500030U);
    EXPECT_TRUE(platform.logged_nothing());

    EXPECT_EQ(slot_map_of(0x00500063), nullptr);
    EXPECT_EQ(slot_map_of(0x00500061), nullptr);
    EXPECT_EQ(platform.log(), (std::vector<LogLine>{{error, "MISMATCH PLATFORM[00500063]\n"},
                                                    {error, "MISMATCH PLATFORM[00500061]\n"}}));
}

TEST_F(GetMemSlotTest, RenumbersForTheLifeOfTheProcess) {
    hardware_revision("7");
    slot_map_of(0x00500088);
    unsetenv("hw_rev");

    EXPECT_EQ(slot_map_of(0x00500063), nullptr);
    EXPECT_EQ(slot_map_of(0x0050002F), &platMemSlots[2].map);
}

TEST_F(GetMemSlotTest, RenumbersBeforeItAsksForThePlatformId) {
    hardware_revision("7");
    uint32_t ids_during_the_call[2] = {};
    platform.configuration_read.during([&](const ConfigurationRead&) {
        ids_during_the_call[0] = platMemSlots[2].platform_id;
        ids_during_the_call[1] = platMemSlots[3].platform_id;
    });

    EXPECT_EQ(GetMemSlot(), nullptr);

    EXPECT_EQ(ids_during_the_call[0], 0x0050002FU);
    EXPECT_EQ(ids_during_the_call[1], 0x00500030U);
}

TEST_F(GetMemSlotTest, ChoosesTheMapOfASocketCount) {
    struct {
        const char* sockets;
        std::size_t row;
    } const cases[] = {{"2", 19},  {"4", 18}, {"8", 17},  {"0", 17}, {"3", 17},
                       {"-4", 17}, {"", 17},  {"04", 18}, {"x", 17}};
    for (const auto& [count, row] : cases) {
        SCOPED_TRACE(count);
        sockets(count);
        EXPECT_EQ(slot_map_of(0x00500076), &platMemSlots[row].map);
    }
    unsetenv("VSK_NUM_SOCKETS");
    EXPECT_EQ(slot_map_of(0x00500076), &platMemSlots[17].map);
    EXPECT_TRUE(platform.logged_nothing());
}

TEST_F(GetMemSlotTest, OfSixSocketsEndsInTheMismatch) {
    sockets("6");

    EXPECT_EQ(slot_map_of(0x00500076), nullptr);

    EXPECT_EQ(platform.log(), (std::vector<LogLine>{{error, "MISMATCH PLATFORM[06500076]\n"}}));
}

TEST_F(GetMemSlotTest, AsksForSocketsOnOnePlatformOnly) {
    sockets("4");

    EXPECT_EQ(slot_map_of(0x00500074), &platMemSlots[12].map);
    EXPECT_EQ(slot_map_of(0x00500085), &platMemSlots[28].map);
}

TEST_F(GetMemSlotTest, SearchesTheProgramsOwnTableInOrder) {
    platMemSlots[29].platform_id = 0x12345678;
    EXPECT_EQ(slot_map_of(0x12345678), &platMemSlots[29].map);

    platMemSlots[11].platform_id = 0x12345678;
    EXPECT_EQ(slot_map_of(0x12345678), &platMemSlots[11].map);

    platMemSlots[0].platform_id = 0x06500076;
    sockets("6");
    EXPECT_EQ(slot_map_of(0x00500076), &platMemSlots[0].map);
}

TEST(PlatMemSlots, HoldsThePlatformsInTheirOrder) {
    for (std::size_t row = 0; row < 30; ++row) {
        SCOPED_TRACE(row);
        EXPECT_EQ(platMemSlots[row].platform_id, expected_rows[row].platform_id);
        EXPECT_EQ(platMemSlots[row].map.count, expected_rows[row].slots);
        EXPECT_EQ(platMemSlots[row].map.rows, expected_rows[row].map);
    }
}

TEST(PlatMemSlots, SharesTwoOfItsTwentyEightMaps) {
    std::set<const DimmSlotMapRow*> maps;
    for (const PlatMemSlot& row : platMemSlots) maps.insert(row.map.rows);

    EXPECT_EQ(maps.size(), 28U);
    EXPECT_EQ(platMemSlots[22].map.rows, platMemSlots[23].map.rows);
    EXPECT_EQ(platMemSlots[11].map.rows, platMemSlots[25].map.rows);
}

TEST(SlotMap, HoldsTheRowsOfItsFile) {
    for (const ExpectedRow& row : expected_rows) {
        SCOPED_TRACE(row.file);
        EXPECT_EQ(rows_of(row.map, row.slots), rows_of_file(row.file));
    }
}

TEST(SlotMap, NumbersItsSlotsFromOneAndPutsEachIntoAPlaceOfItsOwn) {
    for (const PlatMemSlot& platform : platMemSlots) {
        SCOPED_TRACE(formatted("%08x", platform.platform_id));
        std::set<std::tuple<uint32_t, uint32_t, uint32_t>> places;
        for (uint32_t index = 0; index < platform.map.count; ++index) {
            const DimmSlotMapRow& row = platform.map.rows[index];
            EXPECT_EQ(row.slot, index + 1);
            EXPECT_LE(row.dimm_in_channel, 1U);
            places.emplace(row.socket, row.channel, row.dimm_in_channel);
        }
        EXPECT_EQ(places.size(), platform.map.count);
    }
}

TEST(SlotMap, OfTwoSlotsHasAChannelOfEachController) {
    EXPECT_EQ(rows_of(mem_slots_00500088, 2), (std::vector<Fields>{{0, 0, 1, 0, 1}, {0, 1, 2, 0, 2}}));
}

TEST(SlotMap, OfFourSlotsBeginsWithTheFarSlotOfTheLastChannel) {
    EXPECT_EQ(rows_of(mem_slots_00500073, 4),
              (std::vector<Fields>{{0, 0, 1, 1, 1}, {0, 0, 1, 0, 2}, {0, 0, 0, 1, 3}, {0, 0, 0, 0, 4}}));
}

TEST(SlotMap, OfTwoSocketsBeginsWithTheLastChannelAndItsSecondSocketWithTheFourth) {
    EXPECT_EQ(rows_of(mem_slots_00500085, 4),
              (std::vector<Fields>{{0, 3, 7, 0, 1}, {0, 3, 7, 1, 2}, {0, 3, 6, 0, 3}, {0, 3, 6, 1, 4}}));
    EXPECT_EQ(fields(mem_slots_00500085[16]), Fields(1, 1, 3, 0, 17));
    EXPECT_EQ(mem_slots_00500085[15].socket, 0U);
    EXPECT_EQ(mem_slots_00500085[31].socket, 1U);
}

TEST(SlotMap, OfAVariantWithFewerSocketsBeginsTheWholeBoards) {
    EXPECT_EQ(rows_of(mem_slots_04500076, 64), rows_of(mem_slots_00500076, 64));
    EXPECT_EQ(rows_of(mem_slots_02500076, 32), rows_of(mem_slots_00500076, 32));
}

}  // namespace
