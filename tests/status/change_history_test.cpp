// SPDX-License-Identifier: Apache-2.0
// Rows for the change-history database, and the coming and going of its library.
#include <array>
#include <cstdio>
#include <cstdlib>
#include <limits>

#include "status_world.h"
#include "target_program.h"

using namespace vpdd::test;

namespace {

/// As the first of the program's own code finds it.
const bool was_there_before_main = dlopen("liborvadb_chghist.so", RTLD_LAZY | RTLD_NOLOAD) != nullptr;

using Row = std::array<uint8_t, 616>;

Row row_of(const ComponentVpdRecord& record) {
    ChangeHistoryRecord row{};
    EXPECT_EQ(get_chghist_md_data(&record, &row), 0);
    Row bytes{};
    static_assert(sizeof row == sizeof bytes);
    std::memcpy(bytes.data(), &row, sizeof row);
    return bytes;
}

ChangeHistoryRecord fields_of(const ComponentVpdRecord& record) {
    ChangeHistoryRecord row{};
    get_chghist_md_data(&record, &row);
    return row;
}

void put(Row& row, std::size_t offset, std::string_view text) {
    text.copy(reinterpret_cast<char*>(&row[offset]), text.size());
}

void put(Row& row, std::size_t offset, uint32_t value) {
    for (std::size_t i = 0; i < 4; ++i) row[offset + i] = static_cast<uint8_t>(value >> 8 * i);
}

testing::AssertionResult is_same_row(const Row& actual, const Row& expected) {
    std::string differences;
    for (std::size_t i = 0; i < actual.size(); ++i) {
        if (actual[i] != expected[i])
            differences += formatted("\n  byte %zu is %02X, should be %02X", i, actual[i], expected[i]);
    }
    if (differences.empty()) return testing::AssertionSuccess();
    return testing::AssertionFailure() << differences;
}

/// What the probe printed.
std::string probe(const char* library_folder, const char* actions) {
    const std::string command =
        formatted("LD_LIBRARY_PATH=%s %s %s %s 2>&1", library_folder, emulator().c_str(), LOADING_PROBE, actions);
    FILE* const output = popen(command.c_str(), "r");
    std::string text;
    char block[256];
    while (std::fgets(block, sizeof block, output) != nullptr) text += block;
    EXPECT_EQ(pclose(output), 0) << text;
    return text;
}

}  // namespace

// ---- rows

TEST(ChangeHistoryRow, OfAProcessorIsAsWorkedOutByHand) {
    ComponentVpdRecord cpu{};
    cpu.fru_id = 0x21;
    cpu.entity_id = processor;
    cpu.entity_instance = 2;
    cpu.status = present;
    cpu.timestamp = 1700000000;
    set_text(cpu.board_extra, "EXTRA");
    set_text(cpu.name, "CPU 2");
    std::memcpy(cpu.ppin, "\x01\x02\x03\x04\x05\x06\x07\x08\x09\x0A", 10);
    set_text(cpu.serial_number, "SERIAL");
    set_text(cpu.mfg_id, "Maker");
    set_text(cpu.part_number, "not this one");
    std::memcpy(cpu.oem_cpu.raw, "OEM PART", 9);

    Row expected{};
    put(expected, 4, "11/14/2023,22:13:20");
    put(expected, 68, "2023-11-14T22:13");
    put(expected, 132, 1700000000U);
    put(expected, 136, 1U);
    put(expected, 144, 1U);
    put(expected, 224, "EXTRA");
    put(expected, 288, "CPU 2");
    put(expected, 352, "SERIAL");
    put(expected, 416, "Maker");
    put(expected, 480, "OEM PART");
    put(expected, 544, 0x04030201U);
    put(expected, 548, 0x08070605U);
    put(expected, 552, 0x45530A09U);  // runs into the serial number: 09 0A 'S' 'E'
    put(expected, 608, 2U);
    EXPECT_TRUE(is_same_row(row_of(cpu), expected));
}

TEST(ChangeHistoryRow, OfAMemoryDeviceIsAsWorkedOutByHand) {
    ComponentVpdRecord dimm{};
    dimm.entity_id = memory_device;
    dimm.entity_instance = 0xFE;
    dimm.status = absent;
    dimm.timestamp = 86399;
    set_text(dimm.name, "DIMM 4");
    std::memset(dimm.ppin, 0x55, sizeof dimm.ppin);
    set_text(dimm.serial_number, "80CE01");
    set_text(dimm.mfg_id, "Maker");
    set_text(dimm.part_number, "M393A2K43");
    std::memcpy(dimm.oem_cpu.raw, "OEM PART", 9);

    Row expected{};
    put(expected, 4, "01/01/1970,23:59:59");
    put(expected, 68, "1970-01-01T23:59");
    put(expected, 132, 86399U);
    put(expected, 136, 1U);
    put(expected, 288, "DIMM 4");
    put(expected, 352, "80CE01");
    put(expected, 416, "Maker");
    put(expected, 480, "M393A2K43");
    put(expected, 608, 0xFEU);
    EXPECT_TRUE(is_same_row(row_of(dimm), expected));
}

TEST(ChangeHistoryRow, HoldsTheLocalTime) {
    setenv("TZ", "EET-2", 1);  // two hours east
    tzset();
    const ChangeHistoryRecord row = fields_of(make_entry(5, "A", present, 1700000000));
    EXPECT_STREQ(row.time_text, "11/15/2023,00:13:20");
    EXPECT_STREQ(row.time_iso, "2023-11-15T00:13");
    EXPECT_EQ(row.time, 1700000000U);
}

TEST(ChangeHistoryRow, HoldsTheLow32BitsOfTheTime) {
    const ChangeHistoryRecord row = fields_of(make_entry(5, "A", present, 0x200000001));
    EXPECT_EQ(row.time, 1U);
    EXPECT_STREQ(row.time_iso, "2242-03-16T12:56");
}

TEST(ChangeHistoryRow, HasNoTimeTextsForATimeThatCannotBeConverted) {
    for (const int64_t time : {std::numeric_limits<int64_t>::max(), std::numeric_limits<int64_t>::min()}) {
        const ChangeHistoryRecord row = fields_of(make_entry(5, "A", present, time));
        EXPECT_STREQ(row.time_text, "");
        EXPECT_STREQ(row.time_iso, "");
        EXPECT_EQ(row.time, static_cast<uint32_t>(time));
        EXPECT_STREQ(row.serial_number, "A");
        EXPECT_EQ(row.one, 1U);
    }
}

TEST(ChangeHistoryRow, CopesWithTheLastYearThatCanBeConverted) {
    const ChangeHistoryRecord row = fields_of(make_entry(5, "A", present, 67768036191676799));
    EXPECT_STREQ(row.time_text, "12/31/2147485547,23:59:59");
    EXPECT_STREQ(row.time_iso, "2147485547-12-31T23:59");
}

TEST(ChangeHistoryRow, HoldsTheWholeStatus) {
    EXPECT_EQ(fields_of(make_entry(5, "A", no_sensor)).status, 255);
    EXPECT_EQ(fields_of(make_entry(5, "A", -2)).status, -2);
}

TEST(ChangeHistoryRow, CutsItsTextsAt63Characters) {
    ComponentVpdRecord record = make_entry(5, "A");
    set_text(record.name, std::string(63, 'n'));
    EXPECT_EQ(std::string(fields_of(record).name), std::string(63, 'n'));
    set_text(record.name, std::string(64, 'n'));
    EXPECT_EQ(std::string(fields_of(record).name), std::string(63, 'n'));
    set_text(record.name, std::string(80, 'n'));
    EXPECT_EQ(std::string(fields_of(record).name), std::string(63, 'n'));

    ComponentVpdRecord cpu = make_cpu(5, 1, "A");
    std::memset(cpu.oem_cpu.raw, 'r', sizeof cpu.oem_cpu.raw);
    EXPECT_EQ(std::string(fields_of(cpu).part_number), std::string(63, 'r'));
}

TEST(ChangeHistoryRow, EndsUnterminatedTextsWithTheirFields) {
    ComponentVpdRecord record = make_entry(5, "");
    std::memset(record.board_extra, 'b', sizeof record.board_extra);
    std::memset(record.serial_number, 's', sizeof record.serial_number);
    std::memset(record.mfg_id, 'm', sizeof record.mfg_id);
    std::memset(record.part_number, 'p', sizeof record.part_number);
    const ChangeHistoryRecord row = fields_of(record);
    EXPECT_EQ(std::string(row.board_extra), std::string(13, 'b'));
    EXPECT_EQ(std::string(row.serial_number), std::string(25, 's'));
    EXPECT_EQ(std::string(row.mfg_id), std::string(31, 'm'));
    EXPECT_EQ(std::string(row.part_number), std::string(31, 'p'));
}

// ---- the library

TEST(ChangeHistoryLibrary, ComesAndGoesWithTheLibrary) {
    EXPECT_EQ(probe(CHGHIST_FOLDER, "state open state unload state log"), "not loaded\nloaded\nnot loaded\n");
}

TEST(ChangeHistoryLibrary, IsThereBeforeMain) { EXPECT_TRUE(was_there_before_main); }

TEST(ChangeHistoryLibrary, CanBeMissing) {
    EXPECT_EQ(probe("/nonexistent", "open log state load close"),
              "11 open liborvadb_chghist.so dl failed.\nnot loaded\n-1\n0\n");
}

TEST(ChangeHistoryLibrary, IsClosedAgainWithoutItsFunction) {
    const std::string text = probe(INCOMPLETE_CHGHIST_FOLDER, "open log state load close state");
    EXPECT_TRUE(text.starts_with("11 load func insert_hw_log failed, err = ")) << text;
    EXPECT_NE(text.find("undefined symbol: insert_hw_log.\n"), std::string::npos) << text;
    EXPECT_TRUE(text.ends_with("\nnot loaded\n-1\n0\nnot loaded\n")) << text;
}

TEST(ChangeHistoryLibrary, CanBeClosedAndLoadedAgain) {
    EXPECT_EQ(probe(CHGHIST_FOLDER, "open close state close load state close state log"),
              "0\nnot loaded\n0\n1\nloaded\n0\nnot loaded\n");
}

TEST_F(StatusTest, AClosedChangeHistoryLibraryGetsNoRowsAlthoughItsFunctionIsStillThere) {
    cache({make_entry(5, "A", absent)});
    insert(5);
    ASSERT_EQ(vpdd_close_chghist_lib(), 0);
    UpdateComponentStatus(poll_mode);
    EXPECT_EQ(announced(), (Words{"Fan 5"}));
    EXPECT_TRUE(recorded().empty());

    ASSERT_EQ(vpdd_load_chghist_lib(), 1);
    platform.remove_fru(5);
    UpdateComponentStatus(poll_mode);
    EXPECT_EQ(recorded(), (Words{"A 0"}));
}
