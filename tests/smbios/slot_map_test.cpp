// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cstdlib>
#include <set>
#include <span>
#include <string>
#include <tuple>
#include <vector>

#include "cksum.h"
#include "fake_platform.h"
#include "orva_vpdd.h"

using namespace vpdd::test;

namespace {

constexpr int error = 3;  // a bare level, without facility

struct ExpectedRow {
    uint32_t platform_id;
    uint32_t slots;
    const DimmSlotMapRow* map;
    uint32_t cksum;  ///< of the map's rows: grep '^[0-9]' smbios/slot_maps/MAP.csv | cksum
};

const ExpectedRow expected_rows[] = {
    {0x0050005E, 16, mem_slots_0050005e, 2910580703}, {0x00500062, 32, mem_slots_00500062, 407564079},
    {0x00500063, 32, mem_slots_00500063, 875497992},  {0x00500061, 32, mem_slots_00500061, 988320971},
    {0x0050006D, 24, mem_slots_0050006d, 2332225585}, {0x00500070, 24, mem_slots_00500070, 1631536970},
    {0x00500071, 12, mem_slots_00500071, 2828740432}, {0x00500072, 12, mem_slots_00500072, 3491295712},
    {0x01500071, 24, mem_slots_01500071, 2332225585}, {0x01500072, 24, mem_slots_01500072, 476923308},
    {0x0050006C, 24, mem_slots_0050006c, 861753191},  {0x0050006F, 24, mem_slots_0050006f, 576489425},
    {0x00500074, 64, mem_slots_00500074, 2781327351}, {0x0050005C, 10, mem_slots_0050005c, 3592142951},
    {0x00500073, 4, mem_slots_00500073, 344375446},   {0x00500078, 4, mem_slots_00500078, 1996162718},
    {0x00500079, 4, mem_slots_00500079, 3021899643},  {0x00500076, 128, mem_slots_00500076, 1470527076},
    {0x04500076, 64, mem_slots_04500076, 2781327351}, {0x02500076, 32, mem_slots_02500076, 1530707911},
    {0x00500077, 6, mem_slots_00500077, 1946190782},  {0x0050007A, 16, mem_slots_0050007a, 940114050},
    {0x0050007C, 12, mem_slots_0050007c, 2192387686}, {0x0050007E, 12, mem_slots_0050007c, 2192387686},
    {0x00500083, 16, mem_slots_00500083, 3250095571}, {0x0050008A, 24, mem_slots_0050006f, 576489425},
    {0x00500084, 4, mem_slots_00500084, 1834702968},  {0x00500088, 2, mem_slots_00500088, 370259365},
    {0x00500085, 32, mem_slots_00500085, 1530707911}, {0x0050008B, 32, mem_slots_0050008b, 2678816470},
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

/// As in the file that the map is made from.
std::string text_of(const DimmSlotMapRow* rows, std::size_t count) {
    std::string text;
    for (const auto& [socket, controller, channel, position, slot] : std::span(rows, count))
        text += formatted("%u,%u,%u,%u,%u\n", socket, controller, channel, position, slot);
    return text;
}

/// The table and the environment as they are at the start of a process.
class GetMemSlotTest : public PlatformTest {
protected:
    GetMemSlotTest() { std::copy(std::begin(platMemSlots), std::end(platMemSlots), std::begin(table_)); }
    ~GetMemSlotTest() override {
        restore_table();
        unsetenv("hw_rev");
        unsetenv("VSK_NUM_SOCKETS");
    }

    const DimmSlotMapRef* slot_map_of(uint32_t platform_id) {
        platform.variable("tarn_var_int_platform_id", static_cast<int32_t>(platform_id));
        return GetMemSlot();
    }
    void restore_table() const { std::copy(std::begin(table_), std::end(table_), std::begin(platMemSlots)); }
    static void hardware_revision(const char* text) { setenv("hw_rev", text, 1); }
    static void sockets(const char* text) { setenv("VSK_NUM_SOCKETS", text, 1); }

private:
    PlatMemSlot table_[30];
};

TEST_F(GetMemSlotTest, FindsTheMapOfEachOfTheThirtyPlatforms) {
    ASSERT_EQ(std::size(expected_rows), 30U);
    for (std::size_t row = 0; row < 30; ++row) {
        SCOPED_TRACE(row);
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
    for (const char* revision : {"1", "10"}) {
        hardware_revision(revision);
        for (std::size_t row = 0; row < 30; ++row) {
            const bool has_variant = row == 6 || row == 7;
            const bool is_renumbered = (row == 2 || row == 3) && std::string_view(revision) == "10";
            if (has_variant || is_renumbered) continue;
            EXPECT_EQ(slot_map_of(expected_rows[row].platform_id), &platMemSlots[row].map) << revision << " " << row;
        }
    }
}

TEST_F(GetMemSlotTest, RenumbersRowsTwoAndThreeFromRevisionSevenOn) {
    hardware_revision("6");
    EXPECT_EQ(slot_map_of(0x00500063), &platMemSlots[2].map);
    EXPECT_EQ(slot_map_of(0x00500061), &platMemSlots[3].map);
    EXPECT_EQ(platMemSlots[2].platform_id, 0x00500063U);
    EXPECT_EQ(platMemSlots[3].platform_id, 0x00500061U);

    for (const char* revision : {"7", "10", "99", "100", "65536", "2147483648", "99999999999999999999"}) {
        SCOPED_TRACE(revision);
        restore_table();
        hardware_revision(revision);
        EXPECT_EQ(slot_map_of(0x0050002F), &platMemSlots[2].map);
        EXPECT_EQ(slot_map_of(0x00500030), &platMemSlots[3].map);
        EXPECT_EQ(platMemSlots[2].platform_id, 0x0050002FU);
        EXPECT_EQ(platMemSlots[3].platform_id, 0x00500030U);
    }
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
    for (const char* count : {"2", "4", "6"}) {
        sockets(count);
        for (std::size_t row = 0; row < 30; ++row) {
            if (expected_rows[row].platform_id == 0x00500076) continue;
            EXPECT_EQ(slot_map_of(expected_rows[row].platform_id), &platMemSlots[row].map) << count << " " << row;
        }
    }
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

TEST(SlotMap, IsTheOneOfItsBoard) {
    for (const ExpectedRow& row : expected_rows)
        EXPECT_EQ(cksum(text_of(row.map, row.slots)), row.cksum) << formatted("%08x", row.platform_id);
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
