// SPDX-License-Identifier: Apache-2.0
#include <cstring>

#include "failing_allocator.h"
#include "fake_platform.h"
#include "host/images/fru_image.h"

using namespace vpdd::test;
using testing::ElementsAre;
using testing::IsEmpty;
using vpdd::images::Field;

namespace {

constexpr int error = 11;

LogLine version_line(int type, int size, const char* which, const char* version) {
    return {error, formatted("pid = %d, get_psu_fw_version - type = %d, size = %d, %s %s", getpid(), type, size, which,
                             version)};
}

class PsuFirmware : public PlatformTest {
protected:
    PsuFirmware() { std::memset(&out, 0xEE, sizeof out); }

    /// The versions behind seven other fields, and whatever follows.
    int read(const std::vector<Field>& custom, const Bytes& behind = {0xC1, 0, 0}) {
        Bytes fields;
        for (const Field& field :
             {Field("maker"), Field("name"), Field(""), Field("v1"), Field("serial"), Field(""), Field("file")}) {
            vpdd::images::append(fields, field.bytes());
        }
        for (const Field& field : custom) vpdd::images::append(fields, field.bytes());
        vpdd::images::append(fields, behind);
        return get_psu_fw_version(fields.data(), &out, fields.data() + fields.size());
    }

    Bytes primary() const { return Bytes(out.primary, out.primary + 12); }
    Bytes secondary() const { return Bytes(out.secondary, out.secondary + 12); }

    PsuFwVersion out;
    const Bytes untouched = Bytes(12, 0xEE);
};

TEST_F(PsuFirmware, IsTheEighthAndTheNinthField) {
    EXPECT_EQ(read({"1.23", "4.56"}), 0);
    EXPECT_STREQ(out.primary, "1.23");
    EXPECT_STREQ(out.secondary, "4.56");
    EXPECT_THAT(platform.log(),
                ElementsAre(version_line(3, 4, "primary", "1.23"), version_line(3, 4, "secondary", "4.56")));
}

TEST_F(PsuFirmware, InBcdPlusIsWrittenAsTheLowerCaseCodesOfItsFirstTwoCharacters) {
    // '1' is 0x31, '2' 0x32, '.' 0x2E, '-' 0x2D.
    EXPECT_EQ(read(vpdd::images::power_supply_versions({1, 2, 3}, {12, 11})), 0);
    EXPECT_STREQ(out.primary, "3132");
    EXPECT_STREQ(out.secondary, "2e2d");
    EXPECT_THAT(platform.log(),
                ElementsAre(version_line(1, 3, "primary", "3132"), version_line(1, 2, "secondary", "2e2d")));
}

TEST_F(PsuFirmware, InBcdPlusTakesALargeByteForAQuestionMark) {
    EXPECT_EQ(read(vpdd::images::power_supply_versions({0x12, 0xFF}, {0})), 0);
    EXPECT_STREQ(out.primary, "3f3f");
    EXPECT_STREQ(out.secondary, "3000");  // behind a single character stands the terminator
}

TEST_F(PsuFirmware, IsCutAtElevenCharacters) {
    EXPECT_EQ(read({"ABCDEFGHIJKLMNOP", "12345678901"}), 0);
    EXPECT_STREQ(out.primary, "ABCDEFGHIJK");
    EXPECT_STREQ(out.secondary, "12345678901");
}

TEST_F(PsuFirmware, InBinaryIsTakenAsText) {
    EXPECT_EQ(read({Field::binary({'v', '7'}), Field::binary({'w', 0, 'x'})}), 0);
    EXPECT_STREQ(out.primary, "v7");
    EXPECT_STREQ(out.secondary, "w");
}

TEST_F(PsuFirmware, IsNotTrimmed) {
    EXPECT_EQ(read({" 1 ", "22"}), 0);
    EXPECT_STREQ(out.primary, " 1 ");
}

TEST_F(PsuFirmware, MayLackTheSecondary) {
    EXPECT_EQ(read({"1.23"}), 0);
    EXPECT_STREQ(out.primary, "1.23");
    EXPECT_EQ(secondary(), untouched);
    EXPECT_THAT(platform.log(), ElementsAre(version_line(3, 4, "primary", "1.23")));
}

TEST_F(PsuFirmware, MayLackThePrimary) {
    EXPECT_EQ(read({"", "4.56"}), 0);
    EXPECT_EQ(primary(), untouched);
    EXPECT_STREQ(out.secondary, "4.56");
    EXPECT_THAT(platform.log(), ElementsAre(version_line(3, 4, "secondary", "4.56")));
}

TEST_F(PsuFirmware, IsAbsentBehindAnEarlyEndMarker) {
    const Bytes fields{0xC2, 'a', 'b', 0xC1, 0xC2, 'c', 'd',  0xC2, 'c', 'd',  0xC2, 'c', 'd',  0xC2, 'c', 'd',
                       0xC2, 'c', 'd', 0xC2, 'c',  'd', 0xC2, 'c',  'd', 0xC2, 'c',  'd', 0xC2, 'c',  'd'};
    EXPECT_EQ(get_psu_fw_version(fields.data(), &out, fields.data() + fields.size()), 0);
    EXPECT_EQ(primary(), untouched);
    EXPECT_EQ(secondary(), untouched);
    EXPECT_TRUE(platform.logged_nothing());
}

TEST_F(PsuFirmware, MayEndExactlyAtTheEnd) {
    EXPECT_EQ(read({"1.23", "4.56"}, {}), 0);
    EXPECT_STREQ(out.secondary, "4.56");

    std::memset(&out, 0xEE, sizeof out);
    EXPECT_EQ(read({"1.23"}, {}), 0);
    EXPECT_STREQ(out.primary, "1.23");
    EXPECT_EQ(secondary(), untouched);
}

TEST_F(PsuFirmware, IsRefusedForANullField) {
    const uint8_t end = 0;
    EXPECT_EQ(get_psu_fw_version(nullptr, &out, &end), -1);
    EXPECT_THAT(
        platform.log(),
        ElementsAre(LogLine{
            error, formatted("pid = %d, get_psu_fw_version - input tlv or p_response_bufend is null", getpid())}));
    EXPECT_EQ(primary(), untouched);
}

TEST_F(PsuFirmware, FindsNothingWithoutAnEnd) {
    Bytes fields(7);  // seven empty ones
    vpdd::images::append(fields, Field("1.23").bytes());
    vpdd::images::append(fields, Field("4.56").bytes());
    EXPECT_EQ(get_psu_fw_version(fields.data(), &out, nullptr), 0);
    EXPECT_EQ(primary(), untouched);
    EXPECT_EQ(secondary(), untouched);
    EXPECT_THAT(platform.log(), IsEmpty());
}

TEST_F(PsuFirmware, KeepsNoMemory) {
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer owns malloc";
    const AllocationWatch watch;
    read({"1.23", "4.56"});
    EXPECT_EQ(watch.live_blocks(), 0U);
}

}  // namespace
