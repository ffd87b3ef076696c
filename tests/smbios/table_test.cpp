// SPDX-License-Identifier: Apache-2.0
#include "smbios_test.h"

using namespace vpdd::test;
using testing::ElementsAre;

namespace {

using LoadTable = SmbiosTest;
using FreeTable = SmbiosTest;
using GroupLookup = SmbiosTest;

TEST_F(LoadTable, OpensTheStoredTableOfTheHost) {
    SmbiosTable stored{};
    platform.smbios(&stored);
    SmbiosTable* table = nullptr;

    EXPECT_EQ(vpdd_load_smbios_table(&table), 0);

    EXPECT_EQ(table, &stored);
    const auto calls = platform.smbios_open.calls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].flags, 0);
    EXPECT_EQ(calls[0].name, "smbios-table");
    EXPECT_EQ(calls[0].directory, "/var/DS/");
    EXPECT_TRUE(platform.logged_nothing());
}

TEST_F(LoadTable, ReportsAFailureAlsoWithoutDebugging) {
    platform.smbios_open.always({0x0A, nullptr});
    SmbiosTable* table = nullptr;

    EXPECT_EQ(vpdd_load_smbios_table(&table), -1);

    EXPECT_THAT(platform.log(), ElementsAre(error_line(14, "vpdd_load_smbios_table", "smbt_init failed,ret=0x0a\n")));
}

TEST_F(LoadTable, TakesEveryNonZeroResultAsAFailure) {
    platform.smbios_open.always({-1, nullptr});
    SmbiosTable* table = nullptr;

    EXPECT_EQ(vpdd_load_smbios_table(&table), -1);

    EXPECT_THAT(platform.log(),
                ElementsAre(error_line(14, "vpdd_load_smbios_table", "smbt_init failed,ret=0xffffffff\n")));
}

TEST_F(LoadTable, LeavesWhatAFailedOpeningPutIntoTheHandle) {
    SmbiosTable stored{};
    platform.smbios_open.always({-1, &stored});
    SmbiosTable* table = nullptr;

    EXPECT_EQ(vpdd_load_smbios_table(&table), -1);

    EXPECT_EQ(table, &stored) << "the caller may look it up, and has to free it";
    EXPECT_EQ(platform.smbios_release.count(), 0u);
}

TEST_F(FreeTable, ReleasesTheTableAndClearsTheHandle) {
    SmbiosTable stored{};
    SmbiosTable* table = &stored;

    vpdd_free_smbios_table(&table);

    EXPECT_EQ(table, nullptr);
    EXPECT_THAT(platform.smbios_release.calls(), ElementsAre(&stored));
}

TEST_F(FreeTable, LeavesANullHandleAlone) {
    SmbiosTable* table = nullptr;

    vpdd_free_smbios_table(&table);
    vpdd_free_smbios_table(nullptr);

    EXPECT_EQ(platform.smbios_release.count(), 0u);
}

TEST_F(GroupLookup, FindsTheFirstGroupOfTheType) {
    SmbiosTypeGroup second{17, 2, nullptr, nullptr};
    SmbiosTypeGroup first{17, 1, nullptr, &second};
    SmbiosTypeGroup bios{0, 1, nullptr, &first};
    SmbiosTable table{&bios};

    EXPECT_EQ(vpdd_get_the_smbios_info(&table, 17), &first);
    EXPECT_EQ(vpdd_get_the_smbios_info(&table, 0), &bios);
}

TEST_F(GroupLookup, FindsNothingWithoutAGroupOfTheType) {
    debug();
    SmbiosTypeGroup bios{0, 1, nullptr, nullptr};
    SmbiosTable table{&bios};
    SmbiosTable empty{};

    EXPECT_EQ(vpdd_get_the_smbios_info(&table, 17), nullptr);
    EXPECT_EQ(vpdd_get_the_smbios_info(&empty, 17), nullptr);

    EXPECT_TRUE(platform.logged_nothing());
}

TEST_F(GroupLookup, SaysThatTheTableIsNullOnlyWhenDebugging) {
    EXPECT_EQ(vpdd_get_the_smbios_info(nullptr, 17), nullptr);
    EXPECT_TRUE(platform.logged_nothing());

    debug();
    EXPECT_EQ(vpdd_get_the_smbios_info(nullptr, 17), nullptr);
    EXPECT_THAT(platform.log(), ElementsAre(debug_line("vpdd_get_the_smbios_info", "pSMTSMBiosTable is NULL\n")));
}

TEST_F(GroupLookup, IsDebuggedWithAnyNonZeroValue) {
    vpdd_smbios_debug = -1;

    EXPECT_EQ(vpdd_get_the_smbios_info(nullptr, 17), nullptr);

    EXPECT_EQ(platform.log().size(), 1u);
}

}  // namespace
