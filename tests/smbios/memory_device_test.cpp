// SPDX-License-Identifier: Apache-2.0
#include <array>
#include <cstring>

#include "smbios_test.h"

using namespace vpdd::test;
using testing::ElementsAre;
using vpdd::images::MemoryDeviceImage;
using vpdd::images::SmbiosImage;
using vpdd::images::SmbiosStructure;

namespace {

constexpr uint32_t untouched = 0xA5A5A5A5;
constexpr char fru_serial[] = "80AD01221512345678";

// Offsets of a Memory Device structure (SMBIOS type 17).
constexpr uint8_t type_offset = 0x00, device_locator_offset = 0x10, serial_number_offset = 0x18;

MemoryDeviceImage six_strings() {
    return MemoryDeviceImage()
        .part_number("part")
        .asset_tag("tag")
        .serial_number("serial")
        .manufacturer("maker")
        .bank_locator("bank")
        .device_locator("locator");
}

MemoryDeviceImage device_with_serial(std::string_view serial) {
    return MemoryDeviceImage().device_locator("DIMM 1").serial_number(serial);
}

MemoryDeviceImage device_at(std::string_view locator) { return MemoryDeviceImage().device_locator(locator); }

// ---- getStringFromDimmSmbiosEntry

using StringFetch = SmbiosTest;

struct Fetched {
    int result;
    std::string text;

    bool operator==(const Fetched&) const = default;
};
void PrintTo(const Fetched& fetched, std::ostream* stream) {
    *stream << fetched.result << ' ' << testing::PrintToString(fetched.text);
}

/// Fetches into a buffer of exactly `size` bytes that held "old".
Fetched fetch(const Bytes& structure, int index, uint32_t size = 255) {
    const LoneEntry lone(structure);
    const auto buffer = std::make_unique<char[]>(size);
    std::strncpy(buffer.get(), "old", size);
    const int result = getStringFromDimmSmbiosEntry(&lone.entry, index, buffer.get(), size);
    return {result, std::string(buffer.get(), strnlen(buffer.get(), size))};
}

TEST_F(StringFetch, MapsEachIndexToItsField) {
    const Bytes device = six_strings().bytes();

    EXPECT_EQ(fetch(device, 0), (Fetched{0, "locator"}));
    EXPECT_EQ(fetch(device, 1), (Fetched{0, "bank"}));
    EXPECT_EQ(fetch(device, 2), (Fetched{0, "maker"}));
    EXPECT_EQ(fetch(device, 3), (Fetched{0, "serial"}));
    EXPECT_EQ(fetch(device, 4), (Fetched{0, "tag"}));
    EXPECT_EQ(fetch(device, 5), (Fetched{0, "part"}));
    EXPECT_TRUE(platform.logged_nothing());
}

TEST_F(StringFetch, TakesTheMemoryTypeForAStringNumberAtIndexSeven) {
    EXPECT_EQ(fetch(six_strings().memory_type(4).bytes(), 7), (Fetched{0, "maker"}));
}

TEST_F(StringFetch, EmptiesTheBufferForAnInvalidIndex) {
    const Bytes device = six_strings().bytes();

    for (const int index : {6, 8, 9, 255, 256, -1, INT32_MIN, INT32_MAX}) {
        EXPECT_EQ(fetch(device, index), (Fetched{-4, ""})) << index;
    }
    EXPECT_TRUE(platform.logged_nothing());
}

TEST_F(StringFetch, EmptiesTheBufferForStringNumberZero) {
    debug();

    EXPECT_EQ(fetch(device_at("DIMM 1").bytes(), 3), (Fetched{-4, ""}));

    EXPECT_TRUE(platform.logged_nothing());
}

TEST_F(StringFetch, WritesNothingIntoABufferWithoutRoom) {
    const LoneEntry lone(device_at("DIMM 1").bytes());
    char guard = 'x';

    EXPECT_EQ(getStringFromDimmSmbiosEntry(&lone.entry, 3, &guard, 0), -4);
    EXPECT_EQ(getStringFromDimmSmbiosEntry(&lone.entry, 0, &guard, 0), -5);

    EXPECT_EQ(guard, 'x');
}

TEST_F(StringFetch, FillsTheBufferToItsLastByte) {
    EXPECT_EQ(fetch(device_at("1234567").bytes(), 0, 8), (Fetched{0, "1234567"}));
    EXPECT_EQ(fetch(device_at(std::string(254, 'L')).bytes(), 0, 255), (Fetched{0, std::string(254, 'L')}));
}

TEST_F(StringFetch, RefusesAStringOneCharacterLonger) {
    EXPECT_EQ(fetch(device_at("12345678").bytes(), 0, 8).result, -5);
    EXPECT_EQ(fetch(device_at(std::string(255, 'L')).bytes(), 0, 255).result, -5);
    EXPECT_TRUE(platform.logged_nothing());
}

TEST_F(StringFetch, NamesTheLengthOfAStringThatIsTooLongWhenDebugging) {
    debug();

    EXPECT_EQ(fetch(device_at("12345678").bytes(), 0, 4).result, -5);

    EXPECT_THAT(platform.log(),
                ElementsAre(debug_line("getStringFromDimmSmbiosEntry", "Memory size is less than 8\n")));
}

TEST_F(StringFetch, KeepsALocatorOfSixtyFourCharactersInsideItsBuffer) {
    const std::string locator(64, '7');
    std::array<char, 80> out{};
    out.fill('g');
    const LoneEntry lone(device_at(locator).bytes());

    EXPECT_EQ(getStringFromDimmSmbiosEntry(&lone.entry, 0, out.data(), 64), -5);
    EXPECT_EQ(std::string(out.begin(), out.end()), std::string(80, 'g'));

    EXPECT_EQ(getStringFromDimmSmbiosEntry(&lone.entry, 0, out.data(), 65), 0);
    EXPECT_EQ(std::string(out.begin(), out.end()), locator + '\0' + std::string(15, 'g'));
}

TEST_F(StringFetch, CopiesBytesAboveSevenBitsAsTheyAre) {
    EXPECT_EQ(fetch(device_at("\xC3\x84 \xFF").bytes(), 0), (Fetched{0, "\xC3\x84 \xFF"}));
}

TEST_F(StringFetch, CountsStringsAboveOneHundredTwentySeven) {
    SmbiosStructure device(17, 0x22);
    for (int number = 1; number <= 200; ++number) device.string(device_locator_offset, "s" + std::to_string(number));

    EXPECT_EQ(fetch(device.bytes(), 0), (Fetched{0, "s200"}));
}

TEST_F(StringFetch, FindsTheStringsBehindALongFormattedArea) {
    EXPECT_EQ(fetch(device_at("DIMM 1").length(0xC8).bytes(), 0), (Fetched{0, "DIMM 1"}));
}

TEST_F(StringFetch, FindsTheStringsOfAnOldShortStructure) {
    const Bytes device = six_strings().length(0x1B).bytes();

    EXPECT_EQ(fetch(device, 0), (Fetched{0, "locator"}));
    EXPECT_EQ(fetch(device, 5), (Fetched{0, "part"}));
}

TEST_F(StringFetch, DoesNotTakeStringsForFieldsThatTheStructureLacks) {
    // SMBIOS 2.1 ends before the Speed word: what lies at the offset of Serial Number is the fourth byte of the
    // strings.
    SmbiosStructure device(17, 0x15);
    device.string(device_locator_offset, "DIM\x01\x01\x01");

    EXPECT_EQ(fetch(device.bytes(), 3), (Fetched{-4, ""}));
    EXPECT_EQ(fetch(device.bytes(), 0), (Fetched{0, "DIM\x01\x01\x01"}));
}

TEST_F(StringFetch, SurvivesAStructureOfNothingButItsHeader) {
    for (int index = 0; index < 9; ++index) {
        EXPECT_EQ(fetch(SmbiosStructure(17, 4).bytes(), index), (Fetched{-4, ""})) << index;
        EXPECT_EQ(fetch({17, 0, 0, 0, 0, 0}, index), (Fetched{-4, ""})) << index;
    }
}

TEST_F(StringFetch, DoesNotWalkPastTheEndOfTheStrings) {
    MemoryDeviceImage device = device_at("DIMM 1").bank_locator("bank");

    device.structure().byte(serial_number_offset, 4);
    EXPECT_EQ(fetch(device.bytes(), 3), (Fetched{-4, ""}));

    device.structure().byte(serial_number_offset, 255);
    EXPECT_EQ(fetch(device.bytes(), 3), (Fetched{-4, ""}));
}

TEST_F(StringFetch, DoesNotWalkPastTheEndOfAnEmptyStringSet) {
    MemoryDeviceImage device;
    device.structure().byte(serial_number_offset, 2);

    EXPECT_EQ(fetch(device.bytes(), 3), (Fetched{-4, ""}));
}

TEST_F(StringFetch, ReadsTheStringBehindTheLastOneAsEmpty) {
    MemoryDeviceImage device = device_at("DIMM 1");
    device.structure().byte(serial_number_offset, 2);

    EXPECT_EQ(fetch(device.bytes(), 3), (Fetched{0, ""}));
}

TEST_F(StringFetch, RefusesAnotherTypeOfStructure) {
    Bytes device = six_strings().bytes();
    device[type_offset] = 0xC6;

    EXPECT_EQ(fetch(device, 0), (Fetched{-3, "old"}));
    EXPECT_TRUE(platform.logged_nothing());

    debug();
    EXPECT_EQ(fetch(device, 0).result, -3);
    EXPECT_THAT(platform.log(),
                ElementsAre(debug_line("getStringFromDimmSmbiosEntry", "This is not dimm type 0x11(c6)\n")));
}

TEST_F(StringFetch, RefusesANullEntryOrBuffer) {
    const LoneEntry lone(six_strings().bytes());
    const SmbiosEntry hollow{};
    char out[8];
    const auto complaint = debug_line("getStringFromDimmSmbiosEntry", "Entry or pSerialNumber is NULL\n");

    EXPECT_EQ(getStringFromDimmSmbiosEntry(nullptr, 0, out, sizeof out), -2);
    EXPECT_TRUE(platform.logged_nothing());

    debug();
    EXPECT_EQ(getStringFromDimmSmbiosEntry(nullptr, 0, out, sizeof out), -2);
    EXPECT_EQ(getStringFromDimmSmbiosEntry(&lone.entry, 0, nullptr, 8), -2);
    EXPECT_EQ(getStringFromDimmSmbiosEntry(&hollow, 0, out, sizeof out), -2);
    EXPECT_THAT(platform.log(), ElementsAre(complaint, complaint, complaint));
}

TEST_F(StringFetch, ComplainsOfTheBufferBeforeTheType) {
    debug();
    const LoneEntry bios(SmbiosStructure(0, 0x18).bytes());

    EXPECT_EQ(getStringFromDimmSmbiosEntry(&bios.entry, 0, nullptr, 8), -2);
}

TEST_F(StringFetch, ComplainsOfTheTypeBeforeTheIndex) {
    const LoneEntry bios(SmbiosStructure(0, 0x18).bytes());
    char out[8] = "old";

    EXPECT_EQ(getStringFromDimmSmbiosEntry(&bios.entry, 6, out, sizeof out), -3);
    EXPECT_STREQ(out, "old");
}

// ---- vpdd_get_the_smbios_dimm_info

using SerialMatch = SmbiosTest;
constexpr char serial_match[] = "vpdd_get_the_smbios_dimm_info";

LogLine match_line(const std::string& tail, const std::string& serial) {
    return {info, "Match! DIMM SN (FRU):[" + tail + "] (SMBIOS):[" + serial + "]\n"};
}

LogLine unexpected_line(const std::string& fru, const std::string& serial) {
    return {plain_error, "Unexpected! DIMM SN (FRU):[" + fru + "] (SMBIOS):[" + serial + "]"};
}

LogLine no_serial_line(const std::string& fru) {
    return error_line(plain_error, serial_match, "There is no " + fru + " infomation\n");
}

TEST_F(SerialMatch, FindsTheModuleByTheLastEightDigits) {
    auto* group = group_of({device_with_serial("87654321"), device_with_serial("12345678")});

    EXPECT_EQ(vpdd_get_the_smbios_dimm_info(group, fru_serial), entry(group, 1));

    EXPECT_THAT(platform.log(), ElementsAre(match_line("12345678", "12345678")));
}

TEST_F(SerialMatch, TakesAnyLengthOfSuffix) {
    for (const char* serial : {"345678", "8", "512345678", "80AD01221512345678"}) {
        auto* group = group_of({device_with_serial(serial)});
        EXPECT_EQ(vpdd_get_the_smbios_dimm_info(group, fru_serial), entry(group, 0)) << serial;
        EXPECT_TRUE(platform.logged(info, match_line(serial, serial).text));
    }
}

TEST_F(SerialMatch, WantsASuffixNotAPartFurtherInFront) {
    auto* group = group_of({device_with_serial("1234567"), device_with_serial("80AD0122")});

    EXPECT_EQ(vpdd_get_the_smbios_dimm_info(group, fru_serial), nullptr);
}

TEST_F(SerialMatch, IgnoresCaseAndLogsEachTextAsItIs) {
    auto* group = group_of({device_with_serial("aBcDeF01")});

    EXPECT_EQ(vpdd_get_the_smbios_dimm_info(group, "80AD012215ABcdEf01"), entry(group, 0));

    EXPECT_THAT(platform.log(), ElementsAre(match_line("ABcdEf01", "aBcDeF01")));
}

TEST_F(SerialMatch, ReturnsTheFirstOfSeveralMatches) {
    auto* group = group_of({device_with_serial("678"), device_with_serial("12345678")});

    EXPECT_EQ(vpdd_get_the_smbios_dimm_info(group, fru_serial), entry(group, 0));
}

TEST_F(SerialMatch, EndsTheWholeSearchAtALongerSerial) {
    auto* group = group_of({device_with_serial("0123456789012345678"), device_with_serial("12345678")});

    EXPECT_EQ(vpdd_get_the_smbios_dimm_info(group, fru_serial), nullptr);

    EXPECT_THAT(platform.log(), ElementsAre(unexpected_line(fru_serial, "0123456789012345678")));
}

TEST_F(SerialMatch, DoesNotSeeALongerSerialBehindTheMatch) {
    auto* group = group_of({device_with_serial("12345678"), device_with_serial("0123456789012345678")});

    EXPECT_EQ(vpdd_get_the_smbios_dimm_info(group, fru_serial), entry(group, 0));
}

TEST_F(SerialMatch, NeverMatchesAnEmptySerial) {
    MemoryDeviceImage blank = device_at("DIMM 1");
    blank.structure().byte(serial_number_offset, 2);  // behind the last string
    auto* group = group_of({blank, device_with_serial("12345678")});

    EXPECT_EQ(vpdd_get_the_smbios_dimm_info(group, fru_serial), entry(group, 1));

    EXPECT_EQ(vpdd_get_the_smbios_dimm_info(group_of({blank}), ""), nullptr);
    EXPECT_EQ(vpdd_get_the_smbios_dimm_info(group_of({blank}), fru_serial), nullptr);
}

TEST_F(SerialMatch, SkipsEntriesWhoseSerialCannotBeFetched) {
    Bytes another_type = device_with_serial("12345678").bytes();
    another_type[type_offset] = 18;
    const LoneEntry wrong(another_type);
    auto* group =
        group_of({device_at("no serial"), device_with_serial(std::string(255, '1')), device_with_serial("12345678")});
    SmbiosEntry hollow{nullptr, group->entries};
    SmbiosEntry first{wrong.entry.raw, &hollow};
    SmbiosTypeGroup longer{17, 5, &first, nullptr};

    EXPECT_EQ(vpdd_get_the_smbios_dimm_info(&longer, fru_serial), entry(group, 2));

    EXPECT_THAT(platform.log(), ElementsAre(match_line("12345678", "12345678")));
}

TEST_F(SerialMatch, FetchesASerialOf254Characters) {
    const std::string serial(254, '5');

    auto* group = group_of({device_with_serial(serial)});

    EXPECT_EQ(vpdd_get_the_smbios_dimm_info(group, serial.c_str()), entry(group, 0));
}

TEST_F(SerialMatch, LogsASearchInVainAlsoWithoutDebugging) {
    auto* group = group_of({device_with_serial("87654321")});

    EXPECT_EQ(vpdd_get_the_smbios_dimm_info(group, fru_serial), nullptr);

    EXPECT_THAT(platform.log(), ElementsAre(no_serial_line(fru_serial)));
}

TEST_F(SerialMatch, LooksAtNoMoreEntriesThanTheGroupCounts) {
    auto* group = group_of({device_with_serial("87654321"), device_with_serial("12345678")});
    group->count = 1;

    EXPECT_EQ(vpdd_get_the_smbios_dimm_info(group, fru_serial), nullptr);

    EXPECT_THAT(platform.log(), ElementsAre(no_serial_line(fru_serial)));
}

TEST_F(SerialMatch, StopsWhereTheListEndsBeforeItsCount) {
    auto* group = group_of({device_with_serial("87654321")});
    group->count = 255;

    EXPECT_EQ(vpdd_get_the_smbios_dimm_info(group, fru_serial), nullptr);

    EXPECT_THAT(platform.log(), ElementsAre(no_serial_line(fru_serial)));
}

TEST_F(SerialMatch, FindsNothingInAnEmptyGroup) {
    SmbiosTypeGroup empty{17, 0, nullptr, nullptr};

    EXPECT_EQ(vpdd_get_the_smbios_dimm_info(&empty, fru_serial), nullptr);

    EXPECT_THAT(platform.log(), ElementsAre(no_serial_line(fru_serial)));
}

TEST_F(SerialMatch, TakesPercentSignsOfASerialAsText) {
    auto* group = group_of({device_with_serial("%s%n%d")});

    EXPECT_EQ(vpdd_get_the_smbios_dimm_info(group, "80%s%n%d"), entry(group, 0));
    EXPECT_EQ(vpdd_get_the_smbios_dimm_info(group, "%n%n%n%n"), nullptr);
    EXPECT_EQ(vpdd_get_the_smbios_dimm_info(group, "%s"), nullptr);

    EXPECT_THAT(platform.log(), ElementsAre(match_line("%s%n%d", "%s%n%d"), no_serial_line("%n%n%n%n"),
                                            unexpected_line("%s", "%s%n%d")));
}

TEST_F(SerialMatch, RefusesANullGroupAndAnotherTypeOfGroup) {
    SmbiosTypeGroup bios{0, 1, nullptr, nullptr};

    EXPECT_EQ(vpdd_get_the_smbios_dimm_info(nullptr, fru_serial), nullptr);
    EXPECT_EQ(vpdd_get_the_smbios_dimm_info(&bios, fru_serial), nullptr);
    EXPECT_TRUE(platform.logged_nothing());

    debug();
    EXPECT_EQ(vpdd_get_the_smbios_dimm_info(nullptr, fru_serial), nullptr);
    EXPECT_EQ(vpdd_get_the_smbios_dimm_info(&bios, fru_serial), nullptr);
    EXPECT_THAT(platform.log(), ElementsAre(debug_line(serial_match, "smbiosType is NULL\n"),
                                            debug_line(serial_match, "It is not memory type\n")));
}

TEST_F(SerialMatch, SaysThatTheSerialIsNullOnlyWhenDebugging) {
    debug();

    EXPECT_EQ(vpdd_get_the_smbios_dimm_info(group_of({device_with_serial("12345678")}), nullptr), nullptr);

    EXPECT_THAT(platform.log(), ElementsAre(debug_line(serial_match, "name is NULL\n")));
}

TEST_F(SerialMatch, RefusesANullSerial) {
    SmbiosTypeGroup empty{17, 0, nullptr, nullptr};

    EXPECT_EQ(vpdd_get_the_smbios_dimm_info(group_of({device_with_serial("12345678")}), nullptr), nullptr);
    EXPECT_EQ(vpdd_get_the_smbios_dimm_info(group_of({device_with_serial("")}), nullptr), nullptr);
    EXPECT_EQ(vpdd_get_the_smbios_dimm_info(&empty, nullptr), nullptr);
    EXPECT_EQ(vpdd_get_the_smbios_dimm_info(nullptr, nullptr), nullptr);
    EXPECT_TRUE(platform.logged_nothing());
}

// ---- vpdd_get_the_smbios_dimm_info_by_device_locator

using SlotMatch = SmbiosTest;
constexpr char slot_match[] = "vpdd_get_the_smbios_dimm_info_by_device_locator";

/// Whether a locator is found under a slot text.
bool slot_matches(const std::string& locator, const char* slot) {
    const LoneEntry lone(device_at(locator).bytes());
    SmbiosEntry entry = lone.entry;
    SmbiosTypeGroup group{17, 1, &entry, nullptr};
    return vpdd_get_the_smbios_dimm_info_by_device_locator(&group, slot) == &entry;
}

TEST_F(SlotMatch, ComparesDecimalValues) {
    EXPECT_TRUE(slot_matches("DIMM 12", "12"));
    EXPECT_TRUE(slot_matches("DIMM 12", "012"));
    EXPECT_TRUE(slot_matches("DIMM 07", "7"));
    EXPECT_TRUE(slot_matches("DIMM 010", "10"));
    EXPECT_FALSE(slot_matches("DIMM 12", "2"));
    EXPECT_FALSE(slot_matches("DIMM 12", "0x0C"));
    EXPECT_FALSE(slot_matches("DIMM 8", "010"));
    EXPECT_TRUE(platform.logged_nothing());
}

TEST_F(SlotMatch, ReadsTheSlotTextAsANumberWithWhatStandsAroundIt) {
    EXPECT_TRUE(slot_matches("DIMM 7", "7A"));
    EXPECT_TRUE(slot_matches("DIMM 7", " 7"));
    EXPECT_TRUE(slot_matches("DIMM 7", "\t+7 8"));
    EXPECT_FALSE(slot_matches("DIMM 7", "A7")) << "no number in front";
    EXPECT_FALSE(slot_matches("DIMM 78", "7 8"));
    EXPECT_TRUE(platform.logged_nothing());
}

TEST_F(SlotMatch, TakesASlotTextWithoutANumberForZero) {
    for (const char* slot : {"A", "A7", " ", "-", "DIMM 7"}) {
        EXPECT_TRUE(slot_matches("DIMM 0", slot)) << slot;
        EXPECT_FALSE(slot_matches("DIMM 7", slot)) << slot;
        EXPECT_FALSE(slot_matches("DIMM", slot)) << slot;
    }
}

TEST_F(SlotMatch, CountsEveryDigitOfTheLocator) {
    EXPECT_FALSE(slot_matches("CPU1_DIMM_07", "7"));
    EXPECT_TRUE(slot_matches("CPU1_DIMM_07", "107"));
    EXPECT_TRUE(slot_matches("1a2b3c", "123"));
}

TEST_F(SlotMatch, KeepsTheFirstNineDigits) {
    EXPECT_TRUE(slot_matches("DIMM 1234567890", "123456789"));
    EXPECT_FALSE(slot_matches("DIMM 1234567890", "1234567890"));
    EXPECT_TRUE(slot_matches("0000000005", "0"));
    EXPECT_TRUE(slot_matches("999999999", "999999999"));
    EXPECT_TRUE(slot_matches(std::string(254, '9'), "999999999"));
}

TEST_F(SlotMatch, NeverMatchesALocatorWithoutDigits) {
    EXPECT_FALSE(slot_matches("DIMM A", "0"));
    EXPECT_FALSE(slot_matches("DIMM A", "A"));
    EXPECT_TRUE(slot_matches("DIMM 0", "0"));
}

TEST_F(SlotMatch, TakesOnlyAsciiDigitsForDigits) { EXPECT_TRUE(slot_matches("\xB2\xB3 \xD9\xA3 4", "4")); }

TEST_F(SlotMatch, DoesNotWrapAHugeSlotNumber) {
    EXPECT_FALSE(slot_matches("DIMM 7", "4294967303"));            // 2^32 + 7
    EXPECT_FALSE(slot_matches("DIMM 7", "18446744073709551623"));  // 2^64 + 7
    EXPECT_FALSE(slot_matches("DIMM 7", "-7"));
}

TEST_F(SlotMatch, ReturnsTheFirstMatchInListOrder) {
    auto* group = group_of({device_at("DIMM 1"), device_at("DIMM 2"), device_at("DIMM 02")});

    EXPECT_EQ(vpdd_get_the_smbios_dimm_info_by_device_locator(group, "2"), entry(group, 1));
}

TEST_F(SlotMatch, SkipsEntriesWithoutALocator) {
    auto* group = group_of({device_at(""), device_at(std::string(255, '2')), device_at("DIMM 2")});

    EXPECT_EQ(vpdd_get_the_smbios_dimm_info_by_device_locator(group, "2"), entry(group, 2));
}

TEST_F(SlotMatch, LooksAtNoMoreEntriesThanTheGroupCountsAndTheListHolds) {
    auto* group = group_of({device_at("DIMM 1"), device_at("DIMM 2")});

    group->count = 1;
    EXPECT_EQ(vpdd_get_the_smbios_dimm_info_by_device_locator(group, "2"), nullptr);
    group->count = 255;
    EXPECT_EQ(vpdd_get_the_smbios_dimm_info_by_device_locator(group, "3"), nullptr);
}

TEST_F(SlotMatch, NamesTheSlotOfASearchInVainOnlyWhenDebugging) {
    auto* group = group_of({device_at("DIMM 1")});

    EXPECT_EQ(vpdd_get_the_smbios_dimm_info_by_device_locator(group, "02"), nullptr);
    EXPECT_TRUE(platform.logged_nothing());

    debug();
    EXPECT_EQ(vpdd_get_the_smbios_dimm_info_by_device_locator(group, "02"), nullptr);
    EXPECT_THAT(platform.log(), ElementsAre(debug_line(slot_match, "There is no 02 infomation\n")));
}

TEST_F(SlotMatch, TellsItsRefusalsApartWhenDebugging) {
    SmbiosTypeGroup bios{0, 0, nullptr, nullptr};
    SmbiosTypeGroup empty{17, 0, nullptr, nullptr};
    const auto refuse_all = [&] {
        EXPECT_EQ(vpdd_get_the_smbios_dimm_info_by_device_locator(nullptr, nullptr), nullptr);
        EXPECT_EQ(vpdd_get_the_smbios_dimm_info_by_device_locator(&bios, nullptr), nullptr);
        EXPECT_EQ(vpdd_get_the_smbios_dimm_info_by_device_locator(&bios, ""), nullptr);
        EXPECT_EQ(vpdd_get_the_smbios_dimm_info_by_device_locator(&bios, "7"), nullptr);
        EXPECT_EQ(vpdd_get_the_smbios_dimm_info_by_device_locator(&empty, "7"), nullptr);
    };

    refuse_all();
    EXPECT_TRUE(platform.logged_nothing());

    debug();
    refuse_all();
    EXPECT_THAT(platform.log(), ElementsAre(debug_line(slot_match, "smbiosType is NULL\n"),
                                            debug_line(slot_match, "searchDeviceLocator is NULL\n"),
                                            debug_line(slot_match, "searchDeviceLocator is NULL\n"),
                                            debug_line(slot_match, "It is not memory type\n"),
                                            debug_line(slot_match, "There is no 7 infomation\n")));
}

// ---- vpdd_get_size_speed_from_smbios_by_device_locator

/// Outputs that a reader may or may not touch.
struct Values {
    uint32_t size = untouched;
    uint32_t speed = untouched;

    bool operator==(const Values&) const = default;
};
void PrintTo(const Values& values, std::ostream* stream) {
    *stream << std::hex << "size 0x" << values.size << " speed 0x" << values.speed;
}

using SizeAndSpeedBySlot = SmbiosTest;
constexpr char by_slot[] = "vpdd_get_size_speed_from_smbios_by_device_locator";

TEST_F(SizeAndSpeedBySlot, ReducesTheLocatorToItsDigits) {
    auto* table = table_of({device_at("DIMM 1").size(1).speed(2), device_at("DIMM 12").size(16384).speed(3200)});
    Values values;

    EXPECT_EQ(vpdd_get_size_speed_from_smbios_by_device_locator(table, "Slot 0-1-2", &values.size, &values.speed), 0);

    EXPECT_EQ(values, (Values{16384, 3200}));
    EXPECT_TRUE(platform.logged_nothing());
}

TEST_F(SizeAndSpeedBySlot, DoesNotDecodeTheWords) {
    // 0x7FFF: see Extended Size; bit 15: kilobytes; 0xFFFF: unknown, see the extended speed.
    auto* table = table_of({device_at("DIMM 1").size(0x7FFF).extended_size(65536).speed(0xFFFF).extended_speed(70000),
                            device_at("DIMM 2").size(0x8200).speed(0x8001), device_at("DIMM 3").size(0xFFFF)});
    Values values;

    EXPECT_EQ(vpdd_get_size_speed_from_smbios_by_device_locator(table, "1", &values.size, &values.speed), 0);
    EXPECT_EQ(values, (Values{0x7FFF, 0xFFFF}));
    EXPECT_EQ(vpdd_get_size_speed_from_smbios_by_device_locator(table, "2", &values.size, &values.speed), 0);
    EXPECT_EQ(values, (Values{0x8200, 0x8001}));
    EXPECT_EQ(vpdd_get_size_speed_from_smbios_by_device_locator(table, "3", &values.size, &values.speed), 0);
    EXPECT_EQ(values, (Values{0xFFFF, 0}));
}

TEST_F(SizeAndSpeedBySlot, KeepsTheFirstNineDigitsOfTheLocator) {
    auto* table = table_of({device_at("DIMM 123456789").size(5).speed(6)});
    Values values;

    EXPECT_EQ(vpdd_get_size_speed_from_smbios_by_device_locator(table, "1234567890", &values.size, &values.speed), 0);

    EXPECT_EQ(values, (Values{5, 6}));
}

TEST_F(SizeAndSpeedBySlot, ReadsNoFurtherThanTheNinthDigit) {
    auto* table = table_of({device_at("DIMM 111111111").size(5).speed(6)});
    const auto locator = std::make_unique<char[]>(64);  // without a terminator
    std::memset(locator.get(), '1', 64);
    Values values;

    EXPECT_EQ(vpdd_get_size_speed_from_smbios_by_device_locator(table, locator.get(), &values.size, &values.speed), 0);

    EXPECT_EQ(values, (Values{5, 6}));
}

TEST_F(SizeAndSpeedBySlot, ReadsAMissingSpeedAsZero) {
    auto* table = table_of({device_at("DIMM 1").size(512).length(0x15)});  // SMBIOS 2.1
    Values values;

    EXPECT_EQ(vpdd_get_size_speed_from_smbios_by_device_locator(table, "1", &values.size, &values.speed), 0);

    EXPECT_EQ(values, (Values{512, 0}));
}

TEST_F(SizeAndSpeedBySlot, LeavesTheOutputsAloneWhenNothingIsFound) {
    SmbiosImage no_memory;
    no_memory.bios("maker", "1", "01/02/2024");
    auto* table = table_of(no_memory);
    Values values;

    EXPECT_EQ(vpdd_get_size_speed_from_smbios_by_device_locator(table, "DIMM 2", &values.size, &values.speed), -3);
    table = table_of({device_at("DIMM 1")});
    EXPECT_EQ(vpdd_get_size_speed_from_smbios_by_device_locator(table, "DIMM 2", &values.size, &values.speed), -3);
    EXPECT_EQ(vpdd_get_size_speed_from_smbios_by_device_locator(table, "no digits", &values.size, &values.speed), -3);

    EXPECT_EQ(values, Values{});
    EXPECT_TRUE(platform.logged_nothing());
}

TEST_F(SizeAndSpeedBySlot, SaysWhenDebuggingThatThereIsNoMemoryDevice) {
    debug();
    SmbiosTable table{};
    Values values;

    EXPECT_EQ(vpdd_get_size_speed_from_smbios_by_device_locator(&table, "2", &values.size, &values.speed), -3);

    EXPECT_THAT(platform.log(), ElementsAre(debug_line(by_slot, "There is no DIMM type(0x11) in SMBIOS Table\n")));
}

TEST_F(SizeAndSpeedBySlot, NamesTheCallersLocatorWhenDebugging) {
    debug();
    auto* table = table_of({device_at("DIMM 1")});
    Values values;

    EXPECT_EQ(vpdd_get_size_speed_from_smbios_by_device_locator(table, "DIMM 02", &values.size, &values.speed), -3);

    EXPECT_THAT(platform.log(), ElementsAre(debug_line(slot_match, "There is no 02 infomation\n"),
                                            debug_line(by_slot, "Can't find the DIMM 02 in smbios table\n")));
}

TEST_F(SizeAndSpeedBySlot, NamesALongLocatorWhole) {
    debug();
    auto* table = table_of({device_at("DIMM 1")});
    Values values;
    const std::string locator = "2" + std::string(900, 'x');

    EXPECT_EQ(vpdd_get_size_speed_from_smbios_by_device_locator(table, locator.c_str(), &values.size, &values.speed),
              -3);

    EXPECT_THAT(platform.log(), ElementsAre(debug_line(slot_match, "There is no 2 infomation\n"),
                                            debug_line(by_slot, "Can't find the " + locator + " in smbios table\n")));
}

TEST_F(SizeAndSpeedBySlot, SearchesNoSlotForALocatorWithoutDigits) {
    debug();
    auto* table = table_of({device_at("DIMM 0")});
    Values values;

    EXPECT_EQ(vpdd_get_size_speed_from_smbios_by_device_locator(table, "DIMM %n", &values.size, &values.speed), -3);

    EXPECT_THAT(platform.log(), ElementsAre(debug_line(slot_match, "searchDeviceLocator is NULL\n"),
                                            debug_line(by_slot, "Can't find the DIMM %n in smbios table\n")));
}

TEST_F(SizeAndSpeedBySlot, NamesTheFirstNullArgument) {
    SmbiosTable table{};
    Values values;
    const auto refuse_all = [&] {
        EXPECT_EQ(vpdd_get_size_speed_from_smbios_by_device_locator(nullptr, nullptr, nullptr, nullptr), -2);
        EXPECT_EQ(vpdd_get_size_speed_from_smbios_by_device_locator(&table, nullptr, nullptr, nullptr), -2);
        EXPECT_EQ(vpdd_get_size_speed_from_smbios_by_device_locator(&table, "1", nullptr, nullptr), -2);
        EXPECT_EQ(vpdd_get_size_speed_from_smbios_by_device_locator(&table, "1", &values.size, nullptr), -2);
    };

    refuse_all();
    EXPECT_TRUE(platform.logged_nothing());

    debug();
    refuse_all();
    EXPECT_THAT(
        platform.log(),
        ElementsAre(debug_line(by_slot, "pSMTSMBiosTable is NULL\n"), debug_line(by_slot, "pdeviceLocator is NULL\n"),
                    debug_line(by_slot, "size is NULL\n"), debug_line(by_slot, "speed is NULL\n")));
    EXPECT_EQ(values, Values{});
}

// ---- vpdd_get_size_speed_from_smbios_by_serial_number

using SizeAndSpeedBySerial = SmbiosTest;
constexpr char by_serial[] = "vpdd_get_size_speed_from_smbios_by_serial_number";

TEST_F(SizeAndSpeedBySerial, ReadsTheWordsOfTheMatchingModule) {
    auto* table = table_of({device_with_serial("87654321").size(1).speed(2),
                            device_with_serial("12345678").size(0x8400).speed(0x0C80).configured_memory_speed(9)});
    Values values;

    EXPECT_EQ(vpdd_get_size_speed_from_smbios_by_serial_number(table, fru_serial, &values.size, &values.speed), 0);

    EXPECT_EQ(values, (Values{0x8400, 0x0C80}));
    EXPECT_THAT(platform.log(), ElementsAre(match_line("12345678", "12345678")));
}

TEST_F(SizeAndSpeedBySerial, LeavesTheOutputsAloneWhenNothingIsFound) {
    SmbiosTable empty{};
    Values values;

    EXPECT_EQ(vpdd_get_size_speed_from_smbios_by_serial_number(&empty, fru_serial, &values.size, &values.speed), -3);
    EXPECT_TRUE(platform.logged_nothing());
    auto* table = table_of({device_with_serial("87654321")});
    EXPECT_EQ(vpdd_get_size_speed_from_smbios_by_serial_number(table, fru_serial, &values.size, &values.speed), -3);

    EXPECT_EQ(values, Values{});
    EXPECT_THAT(platform.log(), ElementsAre(no_serial_line(fru_serial)));
}

TEST_F(SizeAndSpeedBySerial, SaysMoreWhenDebugging) {
    debug();
    SmbiosTable empty{};
    auto* table = table_of({device_with_serial("87654321")});
    Values values;

    EXPECT_EQ(vpdd_get_size_speed_from_smbios_by_serial_number(&empty, fru_serial, &values.size, &values.speed), -3);
    EXPECT_EQ(vpdd_get_size_speed_from_smbios_by_serial_number(table, fru_serial, &values.size, &values.speed), -3);

    EXPECT_THAT(
        platform.log(),
        ElementsAre(debug_line(by_serial, "There is no DIMM type(0x11) in SMBIOS Table\n"), no_serial_line(fru_serial),
                    debug_line(by_serial, "Can't find the 80AD01221512345678 in smbios table\n")));
}

TEST_F(SizeAndSpeedBySerial, NamesTheFirstNullArgument) {
    SmbiosTable table{};
    Values values;
    const auto refuse_all = [&] {
        EXPECT_EQ(vpdd_get_size_speed_from_smbios_by_serial_number(nullptr, nullptr, nullptr, nullptr), -2);
        EXPECT_EQ(vpdd_get_size_speed_from_smbios_by_serial_number(&table, nullptr, nullptr, nullptr), -2);
        EXPECT_EQ(vpdd_get_size_speed_from_smbios_by_serial_number(&table, "1", nullptr, nullptr), -2);
        EXPECT_EQ(vpdd_get_size_speed_from_smbios_by_serial_number(&table, "1", &values.size, nullptr), -2);
    };

    refuse_all();
    EXPECT_TRUE(platform.logged_nothing());

    debug();
    refuse_all();
    EXPECT_THAT(platform.log(),
                ElementsAre(debug_line(by_serial, "pSMTSMBiosTable is NULL\n"), debug_line(by_serial, "name is NULL\n"),
                            debug_line(by_serial, "size is NULL\n"), debug_line(by_serial, "speed is NULL\n")));
    EXPECT_EQ(values, Values{});
}

// ---- vpdd_get_config_speed_from_smbios_by_serial_number

using ConfiguredSpeed = SmbiosTest;
constexpr char configured_speed[] = "vpdd_get_config_speed_from_smbios_by_serial_number";

TEST_F(ConfiguredSpeed, IsTheConfiguredMemorySpeedWord) {
    auto* table = table_of({device_with_serial("12345678").speed(3200).configured_memory_speed(0x8B75)});
    uint32_t speed = untouched;

    EXPECT_EQ(vpdd_get_config_speed_from_smbios_by_serial_number(table, fru_serial, &speed), 0);

    EXPECT_EQ(speed, 0x8B75u);
}

TEST_F(ConfiguredSpeed, IsReadFromAStructureThatEndsWithIt) {
    auto* table = table_of({device_with_serial("12345678").configured_memory_speed(1333).length(0x22)});  // SMBIOS 2.7
    uint32_t speed = untouched;

    EXPECT_EQ(vpdd_get_config_speed_from_smbios_by_serial_number(table, fru_serial, &speed), 0);

    EXPECT_EQ(speed, 1333u);
}

TEST_F(ConfiguredSpeed, IsZeroInAStructureThatLacksItOrHalfOfIt) {
    for (const uint8_t length : {0x1B, 0x20, 0x21}) {
        auto* table = table_of({device_with_serial("12345678").configured_memory_speed(1333).length(length)});
        uint32_t speed = untouched;

        EXPECT_EQ(vpdd_get_config_speed_from_smbios_by_serial_number(table, fru_serial, &speed), 0);

        EXPECT_EQ(speed, 0u) << int{length};
    }
}

TEST_F(ConfiguredSpeed, StaysUntouchedWhenNothingIsFound) {
    SmbiosTable empty{};
    uint32_t speed = untouched;

    EXPECT_EQ(vpdd_get_config_speed_from_smbios_by_serial_number(&empty, fru_serial, &speed), -3);
    auto* table = table_of({device_with_serial("87654321")});
    EXPECT_EQ(vpdd_get_config_speed_from_smbios_by_serial_number(table, fru_serial, &speed), -3);

    EXPECT_EQ(speed, untouched);
    EXPECT_THAT(platform.log(), ElementsAre(no_serial_line(fru_serial)));
}

TEST_F(ConfiguredSpeed, IsMissedByNameWhenDebugging) {
    debug();
    SmbiosTable empty{};
    auto* table = table_of({device_with_serial("87654321")});
    uint32_t speed = untouched;

    EXPECT_EQ(vpdd_get_config_speed_from_smbios_by_serial_number(&empty, fru_serial, &speed), -3);
    EXPECT_EQ(vpdd_get_config_speed_from_smbios_by_serial_number(table, fru_serial, &speed), -3);

    EXPECT_THAT(platform.log(),
                ElementsAre(debug_line(configured_speed, "There is no DIMM type(0x11) in SMBIOS Table\n"),
                            no_serial_line(fru_serial),
                            debug_line(configured_speed, "Can't find the 80AD01221512345678 in smbios table\n")));
}

TEST_F(ConfiguredSpeed, NamesTheFirstNullArgument) {
    SmbiosTable table{};
    const auto refuse_all = [&] {
        EXPECT_EQ(vpdd_get_config_speed_from_smbios_by_serial_number(nullptr, nullptr, nullptr), -2);
        EXPECT_EQ(vpdd_get_config_speed_from_smbios_by_serial_number(&table, nullptr, nullptr), -2);
        EXPECT_EQ(vpdd_get_config_speed_from_smbios_by_serial_number(&table, "1", nullptr), -2);
    };

    refuse_all();
    EXPECT_TRUE(platform.logged_nothing());

    debug();
    refuse_all();
    EXPECT_THAT(platform.log(), ElementsAre(debug_line(configured_speed, "pSMTSMBiosTable is NULL\n"),
                                            debug_line(configured_speed, "name is NULL\n"),
                                            debug_line(configured_speed, "configSpeed is NULL\n")));
}

// ---- vpdd_get_serial_num_from_smbios_by_serial_number

using SerialNumber = SmbiosTest;
constexpr char serial_number[] = "vpdd_get_serial_num_from_smbios_by_serial_number";

TEST_F(SerialNumber, IsTheStringOfTheHostNotOfTheFru) {
    auto* table = table_of({device_with_serial("00000000"), device_with_serial("abcd")});
    char out[5];

    EXPECT_EQ(vpdd_get_serial_num_from_smbios_by_serial_number(table, "80AD0122151234ABCD", out, sizeof out), 0);

    EXPECT_STREQ(out, "abcd");
}

TEST_F(SerialNumber, ThatDoesNotFitIsNoSerialNumber) {
    debug();
    auto* table = table_of({device_with_serial("12345678")});
    char out[8] = "old";

    EXPECT_EQ(vpdd_get_serial_num_from_smbios_by_serial_number(table, fru_serial, out, sizeof out), -4);

    EXPECT_THAT(platform.log(), ElementsAre(match_line("12345678", "12345678"),
                                            debug_line("getStringFromDimmSmbiosEntry", "Memory size is less than 8\n"),
                                            debug_line(serial_number, "There is no serial number\n")));
}

TEST_F(SerialNumber, ThatDoesNotFitIsReportedSilentlyByDefault) {
    auto* table = table_of({device_with_serial("12345678")});
    char out[8];

    EXPECT_EQ(vpdd_get_serial_num_from_smbios_by_serial_number(table, fru_serial, out, sizeof out), -4);

    EXPECT_THAT(platform.log(), ElementsAre(match_line("12345678", "12345678")));
}

TEST_F(SerialNumber, IsNotFoundWithoutMemoryDevicesOrAMatch) {
    debug();
    SmbiosTable empty{};
    char out[8] = "old";

    EXPECT_EQ(vpdd_get_serial_num_from_smbios_by_serial_number(&empty, fru_serial, out, sizeof out), -3);
    auto* table = table_of({device_with_serial("87654321")});
    EXPECT_EQ(vpdd_get_serial_num_from_smbios_by_serial_number(table, fru_serial, out, sizeof out), -3);

    EXPECT_STREQ(out, "old");
    EXPECT_THAT(platform.log(),
                ElementsAre(debug_line(serial_number, "There is no DIMM type(0x11) in SMBIOS Table\n"),
                            no_serial_line(fru_serial),
                            debug_line(serial_number, "Can't find the 80AD01221512345678 in smbios table\n")));
}

TEST_F(SerialNumber, NamesTheFirstNullArgument) {
    SmbiosTable table{};
    const auto refuse_all = [&] {
        EXPECT_EQ(vpdd_get_serial_num_from_smbios_by_serial_number(nullptr, nullptr, nullptr, 0), -2);
        EXPECT_EQ(vpdd_get_serial_num_from_smbios_by_serial_number(&table, nullptr, nullptr, 0), -2);
        EXPECT_EQ(vpdd_get_serial_num_from_smbios_by_serial_number(&table, "1", nullptr, 0), -2);
    };

    refuse_all();
    EXPECT_TRUE(platform.logged_nothing());

    debug();
    refuse_all();
    EXPECT_THAT(platform.log(), ElementsAre(debug_line(serial_number, "pSMTSMBiosTable is NULL\n"),
                                            debug_line(serial_number, "name is NULL\n"),
                                            debug_line(serial_number, "serialNum is NULL\n")));
}

}  // namespace
