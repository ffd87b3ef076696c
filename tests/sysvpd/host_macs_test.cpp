// SPDX-License-Identifier: Apache-2.0
#include <cstring>
#include <string>

#include "fake_platform.h"
#include "orva_vpdd.h"

using namespace vpdd::test;
using testing::IsEmpty;

namespace {

constexpr int failure_level = 4;

class HostMacs : public PlatformTest {
protected:
    HostMacs() {
        std::memset(host_mac_cache, 'x', sizeof host_mac_cache);
        isHostMacCache = 0;
    }
    ~HostMacs() override {
        std::memset(host_mac_cache, 0, sizeof host_mac_cache);
        isHostMacCache = 0;
    }

    /// MAC n is 0A:1B:2C:FF:00:n, in a field of 8 bytes.
    void all_macs() {
        for (uint8_t n = 1; n <= 8; ++n) platform.field(18U + n, Bytes{0x0A, 0x1B, 0x2C, 0xFF, 0x00, n, 0xEE, 0xEE});
    }

    static std::string slot(int n) { return {host_mac_cache[n - 1], sizeof host_mac_cache[0]}; }

    /// A whole slot: the text and zeros.
    static std::string filled(const std::string& text) {
        return text + std::string(sizeof host_mac_cache[0] - text.size(), '\0');
    }
};

TEST_F(HostMacs, AreTheFirstSixBytesOfTheirFields) {
    all_macs();

    updateSysvpdMacAddressCache();

    for (int n = 1; n <= 8; ++n) EXPECT_EQ(slot(n), filled(formatted("0A:1B:2C:FF:00:%02X", n))) << n;
    EXPECT_EQ(isHostMacCache, 1);
    EXPECT_THAT(platform.trace(), IsEmpty());
}

TEST_F(HostMacs, StandInFields19To26InTheirOrder) {
    all_macs();

    updateSysvpdMacAddressCache();

    const auto reads = platform.field_read.calls();
    ASSERT_EQ(reads.size(), 8u);
    for (uint32_t n = 0; n < 8; ++n) EXPECT_EQ(reads[n].id, 19 + n);
}

TEST_F(HostMacs, ThatCannotBeReadLeaveTheirSlotEmptyAndTheOthersFilled) {
    all_macs();
    platform.field_read.fail_when([](const FieldCall& call) { return call.id == 18 + 3; });

    updateSysvpdMacAddressCache();

    EXPECT_EQ(slot(3), filled(""));
    EXPECT_EQ(slot(2), filled("0A:1B:2C:FF:00:02"));
    EXPECT_EQ(slot(4), filled("0A:1B:2C:FF:00:04"));
    EXPECT_EQ(isHostMacCache, 1);
    EXPECT_EQ(platform.trace().size(), 2u);
    EXPECT_TRUE(platform.traced(failure_level, "sysvpd_read_field", "c_vpd_read_field FAIL, offset[00000015]"));
    EXPECT_TRUE(platform.traced(failure_level, "updateSysvpdMacAddressCache", "READ MAC 3 FAIL"));
}

TEST_F(HostMacs, AreNotMarkedReadBeforeTheLastOneIs) {
    all_macs();
    std::vector<int> flags;
    platform.field_read.during([&](const FieldCall&) { flags.push_back(isHostMacCache); });

    updateSysvpdMacAddressCache();

    EXPECT_EQ(flags, std::vector<int>(8, 0));
    EXPECT_EQ(isHostMacCache, 1);
}

TEST_F(HostMacs, AreMarkedReadAlsoWhenNoneCouldBe) {
    updateSysvpdMacAddressCache();

    for (int n = 1; n <= 8; ++n) {
        EXPECT_EQ(slot(n), filled("")) << n;
        EXPECT_TRUE(platform.traced(failure_level, "updateSysvpdMacAddressCache", formatted("READ MAC %d FAIL", n)));
    }
    EXPECT_EQ(isHostMacCache, 1);
}

TEST_F(HostMacs, OfAShortFieldAreFilledUpWithZeros) {
    all_macs();
    platform.field(19, Bytes{0xAA, 0xBB});

    updateSysvpdMacAddressCache();

    EXPECT_EQ(slot(1), filled("AA:BB:00:00:00:00"));
}

TEST_F(HostMacs, AreReadAgainWhateverTheFlagSays) {
    all_macs();
    isHostMacCache = 1;

    updateSysvpdMacAddressCache();

    EXPECT_EQ(slot(8), filled("0A:1B:2C:FF:00:08"));
}

}  // namespace
