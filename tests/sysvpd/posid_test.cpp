// SPDX-License-Identifier: Apache-2.0
#include "fake_platform.h"
#include "orva_vpdd.h"

using namespace vpdd::test;
using testing::ElementsAre;

namespace {

constexpr int read_failed = 0, standard_machine = 1, oem_machine = 2, unrecognised = 3;

class ReadPosIdExtension : public PlatformTest {
protected:
    int with(uint8_t first, uint8_t second) {
        platform.ipmi.then(ipmi_data({first, second}));
        return read_POSID_ext();
    }
};

TEST_F(ReadPosIdExtension, SendsTheOemReadOfTwoBytes) {
    with(0, 0);

    EXPECT_THAT(platform.requests(), ElementsAre(IpmiCall{0x3A, 0x0B, {0x0A, 0x00, 0x10, 0x02}}));
}

TEST_F(ReadPosIdExtension, KnowsAStandardMachineByTwoZeros) { EXPECT_EQ(with(0x00, 0x00), standard_machine); }

TEST_F(ReadPosIdExtension, KnowsAnOemMachineByFFEE) { EXPECT_EQ(with(0xFF, 0xEE), oem_machine); }

TEST_F(ReadPosIdExtension, RecognisesNothingElse) {
    EXPECT_EQ(with(0x00, 0x01), unrecognised);
    EXPECT_EQ(with(0x00, 0xEE), unrecognised);
    EXPECT_EQ(with(0xFF, 0x00), unrecognised);
    EXPECT_EQ(with(0xFF, 0xFF), unrecognised);
    EXPECT_EQ(with(0xEE, 0xFF), unrecognised);
    EXPECT_EQ(with(0x01, 0xEE), unrecognised);
    EXPECT_EQ(with(0x01, 0x00), unrecognised);
}

TEST_F(ReadPosIdExtension, FailsWithTheRequest) {
    platform.ipmi.always(ipmi_dead());

    EXPECT_EQ(read_POSID_ext(), read_failed);

    EXPECT_EQ(platform.ipmi.count(), 3u);
}

TEST_F(ReadPosIdExtension, FailsWhenTheDataAreNotPresent) {
    platform.ipmi.always(ipmi_completion(0xCB));

    EXPECT_EQ(read_POSID_ext(), read_failed);

    EXPECT_EQ(platform.ipmi.count(), 1u);
}

TEST_F(ReadPosIdExtension, TakesMissingBytesForZeros) {
    platform.ipmi.then(ipmi_data({}));

    EXPECT_EQ(read_POSID_ext(), standard_machine);
}

}  // namespace
