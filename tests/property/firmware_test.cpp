// SPDX-License-Identifier: Apache-2.0
#include <array>
#include <cstring>

#include "controller.h"

using namespace vpdd::test;
using testing::AllOf;
using testing::AnyOfArray;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

using Paths = std::array<std::string, 3>;

/// One image: where its id, date and version stand.
struct ImageRow {
    const char* request;
    const char* name;
    Paths paths;
    Paths fallback = {};

    bool has_fallback() const { return !fallback[0].empty(); }
};
void PrintTo(const ImageRow& row, std::ostream* stream) { *stream << row.request; }

const Paths primary{"/v2/zeltc/dm/fw/orva3/primary_build_id", "/v2/zeltc/dm/fw/orva3/primary_build_date",
                    "/v2/zeltc/dm/fw/orva3/primary_build_version"};
const Paths active{"/v2/zeltc/dm/fw/orva3/build_id", "/v2/zeltc/dm/fw/orva3/build_date",
                   "/v2/zeltc/dm/fw/orva3/build_version"};
const Paths backup_pending{"/v2/zeltc/dm/fw/orva3/backup_pending_build_id",
                           "/v2/zeltc/dm/fw/orva3/backup_pending_build_date",
                           "/v2/zeltc/dm/fw/orva3/backup_pending_build_version"};
const Paths backup{"/v2/zeltc/dm/fw/orva3/backup_build_id", "/v2/zeltc/dm/fw/orva3/backup_build_date",
                   "/v2/zeltc/dm/fw/orva3/backup_build_version"};

const ImageRow images[] = {
    {"orva_primary", "ORVA2(Primary)", primary},
    {"orva2_primary", "ORVA2(Primary)", primary},
    {"orva3_primary", "BMC(Primary)", primary},
    {"orva", "ORVA2(Active)", active},
    {"orva2", "ORVA2(Active)", active},
    {"orva3", "BMC(Active)", active},
    {"orva_backup", "ORVA2(Backup)", backup_pending, backup},
    {"orva2_backup", "ORVA2(Backup)", backup_pending, backup},
    {"orva3_backup", "BMC(Backup)", backup_pending, backup},
    {"orva3_primary_pending",
     "BMC(Primary)",
     {"/v2/zeltc/dm/fw/orva3/primary_pending_build_id", "/v2/zeltc/dm/fw/orva3/primary_pending_build_date",
      "/v2/zeltc/dm/fw/orva3/primary_pending_build_version"}},
    {"uefi",
     "UEFI",
     {"/v2/zeltc/dm/fw/bios/build_id", "/v2/zeltc/dm/fw/bios/build_date", "/v2/zeltc/dm/fw/bios/build_version"}},
    {"uefi_pending",
     "UEFI",
     {"/v2/zeltc/dm/fw/bios/pending_build_id", "/v2/zeltc/dm/fw/bios/pending_build_date",
      "/v2/zeltc/dm/fw/bios/pending_build_version"}},
    {"qsv", "KVRN", {"/v2/qsv/build_id", "/v2/qsv/build_date", "/v2/qsv/build_version"}},
    {"drvwn",
     "KVRN Windows Drivers",
     {"/v2/zeltc/dm/fw/drvwn/build_id", "/v2/zeltc/dm/fw/drvwn/build_date", "/v2/zeltc/dm/fw/drvwn/build_version"}},
    {"drvln",
     "KVRN Linux Drivers",
     {"/v2/zeltc/dm/fw/drvln/build_id", "/v2/zeltc/dm/fw/drvln/build_date", "/v2/zeltc/dm/fw/drvln/build_version"}},
    {"nexol",
     "NEXOL",
     {"/v2/zeltc/dm/fw/nexol/build_id", "/v2/zeltc/dm/fw/nexol/build_date", "/v2/zeltc/dm/fw/nexol/build_version"},
     {"/v2/nexol/build_id", "/v2/nexol/build_date", "/v2/nexol/build_version"}},
};

class FirmwareTest : public ControllerTest {
protected:
    FirmwareTest() { std::memset(&out, 0xEE, sizeof out); }

    void read(const char* image) {
        EXPECT_EQ(GetFirmwareVPD(&size, 0xFFFFFFFF, image, &out), 0);
        EXPECT_EQ(size, 74U);
    }
    void set_all(const Paths& paths, const std::string& id, const std::string& date, const std::string& version) {
        set(paths[0], id);
        set(paths[1], date);
        set(paths[2], version);
    }
    void expect_build(const std::string& id, const std::string& date, const std::string& version) const {
        EXPECT_EQ(whole(out.build_id), filled(id, sizeof out.build_id));
        EXPECT_EQ(whole(out.build_date), filled(date, sizeof out.build_date));
        EXPECT_EQ(whole(out.build_version), filled(version, sizeof out.build_version));
    }
    void expect_name(const std::string& name) const { EXPECT_EQ(whole(out.name), filled(name, sizeof out.name)); }

    template <std::size_t Size>
    static std::string whole(const char (&field)[Size]) {
        return {field, Size};
    }
    /// A whole field: the text and zeros.
    static std::string filled(std::string text, std::size_t size) {
        text.resize(size);
        return text;
    }

    FirmwareVpd out;
    uint32_t size = 0;
};

// ---- each image

class EveryImage : public FirmwareTest, public testing::WithParamInterface<ImageRow> {
protected:
    /// In the order in which the properties are read.
    std::vector<std::size_t> order() const {
        if (std::string_view(GetParam().request) == "orva3_primary_pending") return {0, 2, 1};
        return {0, 1, 2};
    }
};

TEST_P(EveryImage, IsReadFromItsPathsInTheirOrder) {
    set_all(GetParam().paths, "AB12", "2026/11/20", "1.23");

    read(GetParam().request);

    expect_name(GetParam().name);
    expect_build("AB12", "2026/11/20", "1.23");
    std::vector<std::string> expected;
    for (const std::size_t i : order()) expected.push_back(GetParam().paths[i]);
    EXPECT_EQ(asked_paths(), expected);
}

TEST_P(EveryImage, ThatCannotBeReadShowsAStarForEachValueAndItsName) {
    read(GetParam().request);

    expect_name(GetParam().name);
    expect_build("*", "*", "*");
    std::vector<std::string> expected;
    for (const std::size_t i : order()) {
        expected.push_back(GetParam().paths[i]);
        if (GetParam().has_fallback()) expected.push_back(GetParam().fallback[i]);
    }
    EXPECT_EQ(asked_paths(), expected);
}

TEST_P(EveryImage, OfASilentControllerShowsAStarForEachValue) {
    platform.ipmi.fail_always();
    read(GetParam().request);
    expect_name(GetParam().name);
    expect_build("*", "*", "*");
    const LogLine line{warning, pid_line("vpdd_get_single_property - Send IPMI Command Failed.\n")};
    EXPECT_EQ(platform.log(), std::vector<LogLine>(GetParam().has_fallback() ? 6 : 3, line)) << "and no line more";
}

TEST_P(EveryImage, ShowsAStarForTheOneValueThatCannotBeRead) {
    set(GetParam().paths[0], "AB12");
    set(GetParam().paths[2], "1.23");
    read(GetParam().request);
    expect_build("AB12", "*", "1.23");
}

TEST_P(EveryImage, WithABlankValueLeavesTheFieldEmpty) {
    set_all(GetParam().paths, "   ", "\n", "\t ");
    if (GetParam().has_fallback()) set_all(GetParam().fallback, "no", "not", "never");
    read(GetParam().request);
    expect_build("", "", "");
}

INSTANTIATE_TEST_SUITE_P(All, EveryImage, testing::ValuesIn(images),
                         [](const auto& row) { return std::string(row.param.request); });

// ---- fallbacks

class ImageWithAFallback : public EveryImage {};

TEST_P(ImageWithAFallback, IsReadFromItWhereTheFirstPathFails) {
    set_all(GetParam().fallback, "OLD1", "2020/01/01", "0.9");
    read(GetParam().request);
    expect_build("OLD1", "2020/01/01", "0.9");

    set(GetParam().paths[1], "2026/11/20");
    read(GetParam().request);
    expect_build("OLD1", "2026/11/20", "0.9");
}

INSTANTIATE_TEST_SUITE_P(All, ImageWithAFallback, testing::Values(images[6], images[7], images[8], images[15]),
                         [](const auto& row) { return std::string(row.param.request); });

// ---- values

using FirmwareValues = FirmwareTest;

TEST_F(FirmwareValues, AreCutTo16And15Characters) {
    set_all(active, "0123456789abcdefg", "ABCDEFGHIJKLMNOPQ", "abcdefghijklmnopq");
    read("orva");
    expect_build("0123456789abcdef", "ABCDEFGHIJKLMNOP", "abcdefghijklmno");
}

TEST_F(FirmwareValues, Of16CharactersFillIdAndDateAndLoseOneInTheVersion) {
    set_all(active, "0123456789abcdef", "ABCDEFGHIJKLMNOP", "abcdefghijklmnop");
    read("orva");
    expect_build("0123456789abcdef", "ABCDEFGHIJKLMNOP", "abcdefghijklmno");
}

TEST_F(FirmwareValues, Of15CharactersAreWhole) {
    set_all(active, "0123456789abcde", "ABCDEFGHIJKLMNO", "abcdefghijklmno");
    read("orva");
    expect_build("0123456789abcde", "ABCDEFGHIJKLMNO", "abcdefghijklmno");
}

TEST_F(FirmwareValues, AreStrippedBeforeTheyAreCut) {
    set_all(active, "    0123456789abcdef   ", " \t2026/11/20 \n", "      abcdefghijklmno");
    read("orva");
    expect_build("0123456789abcdef", "2026/11/20", "abcdefghijklmno");
}

TEST_F(FirmwareValues, MayBeBytes) {
    set(active[0], bytes_tlv({'A', 'B', ' '}));
    read("orva");
    EXPECT_STREQ(out.build_id, "AB");
}

TEST_F(FirmwareValues, OfWordsAreNoText) {
    const Bytes words = words_tlv(Bytes(14, 'w'));
    set(active[0], words);
    set(images[15].paths[0], words);
    set(images[15].fallback[0], "fallback");
    read("orva");
    expect_build("*", "*", "*");
    read("nexol");
    expect_build("fallback", "*", "*");
}

TEST_F(FirmwareValues, OfWordsOfAPendingBackupLeaveTheFieldEmpty) {
    for (const std::string& path : backup_pending) set(path, words_tlv(Bytes(14, 'w')));
    set_all(backup, "regular", "regular", "regular");
    for (const char* image : {"orva_backup", "orva2_backup", "orva3_backup"}) {
        read(image);
        expect_build("", "", "");
    }
    EXPECT_THAT(asked_paths(), AllOf(SizeIs(9), Each(AnyOfArray(backup_pending))));
}

TEST_F(FirmwareValues, OfWordsOfTheRegularBackupCannotBeRead) {
    set(backup[0], words_tlv(Bytes(14, 'w')));
    read("orva_backup");
    expect_build("*", "*", "*");
}

TEST_F(FirmwareValues, OfTheGenerationsAreTheSameAndOnlyTheNameDiffers) {
    set_all(active, "AB12", "2026/11/20", "1.23");
    read("orva2");
    const FirmwareVpd second = out;
    read("orva3");
    EXPECT_STREQ(second.name, "ORVA2(Active)");
    EXPECT_STREQ(out.name, "BMC(Active)");
    EXPECT_EQ(std::memcmp(second.build_id, out.build_id, sizeof out - sizeof out.name), 0);
}

// ---- the call

using Firmware = FirmwareTest;

class OtherName : public FirmwareTest, public testing::WithParamInterface<const char*> {};

TEST_P(OtherName, SendsNothingAndLeavesTheRecordZero) {
    read(GetParam());
    const auto* bytes = reinterpret_cast<const uint8_t*>(&out);
    EXPECT_THAT(Bytes(bytes, bytes + sizeof out), Each(0));
    EXPECT_THAT(platform.journal(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(All, OtherName,
                         testing::Values("foo", "", "orv", "orva4", "orva_", "ORVA", " orva", "orva ", "orva_pending",
                                         "orva2_primary_pending", "uefi_pendin", "nexol2"),
                         [](const auto& row) { return std::to_string(row.index); });

TEST_F(Firmware, RefusesANullNameOrRecordWithoutTheMutex) {
    const LockJournal locks;
    EXPECT_EQ(GetFirmwareVPD(&size, 0, nullptr, &out), -1);
    EXPECT_EQ(GetFirmwareVPD(&size, 0, "orva", nullptr), -1);
    EXPECT_EQ(size, 0U);
    const std::string line = "log 12 " + pid_line("GetFirmwareVPD - response buffer is null or invalid request.\n");
    EXPECT_THAT(platform.journal(), ElementsAre(line, line));
}

TEST_F(Firmware, NeedsNoPlaceForTheSize) {
    set_all(active, "AB12", "2026/11/20", "1.23");
    EXPECT_EQ(GetFirmwareVPD(nullptr, 0, "orva", &out), 0);
    expect_build("AB12", "2026/11/20", "1.23");
}

TEST_F(Firmware, IsReadUnderItsMutexAndInsideItTheOneOfEachQuery) {
    set_all(active, "AB12", "2026/11/20", "1.23");
    const LockJournal locks;
    read("orva");
    EXPECT_THAT(platform.journal(),
                ElementsAre("lock fwvpd_access_mutex",                                                           //
                            "lock compvpd_getproperty_mutex", "ipmi 2E/32", "unlock compvpd_getproperty_mutex",  //
                            "lock compvpd_getproperty_mutex", "ipmi 2E/32", "unlock compvpd_getproperty_mutex",  //
                            "lock compvpd_getproperty_mutex", "ipmi 2E/32", "unlock compvpd_getproperty_mutex",  //
                            "unlock fwvpd_access_mutex"));
}

TEST_F(Firmware, UnlocksAfterFailuresAndForAnotherName) {
    const LockJournal locks;
    read("orva");
    EXPECT_EQ(platform.journal().back(), "unlock fwvpd_access_mutex");
    read("foo");
    EXPECT_EQ(platform.journal().back(), "unlock fwvpd_access_mutex");
}

TEST_F(Firmware, FreesEveryValueWhicheverAllocationFails) {
    set_all(backup_pending, "AB12", "2026/11/20", "1.23");
    set_all(backup, "OLD1", "2020/01/01", "0.9");
    {
        const AllocationWatch watch;
        read("orva_backup");
        EXPECT_EQ(watch.live_blocks(), 0U);
    }
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer owns malloc";
    // Two allocations for each property: the path and the value.
    for (const std::size_t failing : {1U, 2U}) {
        const AllocationWatch watch(failing);
        read("orva_backup");
        expect_build("OLD1", "2026/11/20", "1.23");
        EXPECT_TRUE(watch.has_failed());
        EXPECT_EQ(watch.live_blocks(), 0U);
    }
    const AllocationWatch watch(1, Failing::from_then_on);
    read("orva_backup");
    expect_build("*", "*", "*");
    EXPECT_EQ(watch.live_blocks(), 0U);
}

}  // namespace
