// SPDX-License-Identifier: Apache-2.0
#include <cstring>

#include "controller.h"

using namespace vpdd::test;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

constexpr char name[] = "vpdd_property_change_cache";
constexpr char lom[] = "/ac/zeltc/lom-active";
constexpr char xlom[] = "/ac/zeltc/xlom-active";
constexpr char no_mac[] = "00:00:00:00:00:00";
constexpr char untouched[] = "xxxxxxxxxxxxxxxxxxxxxxxxxx";

constexpr char wrong_lom[] = "LOM properties type or size is error.\n";
constexpr char wrong_xlom[] = "XLOM properties type or size is error.\n";
constexpr char too_many[] = "The number of LOM is larger than 8.\n";
constexpr char wrong_list[] = "vpdd_format_all_properties error.\n";

/// MAC n of the properties is 02:AB:C0:0F:00:n, of the system VPD 0A:...
Bytes property_mac(uint8_t n) { return {0x02, 0xAB, 0xC0, 0x0F, 0x00, n}; }
std::string property_text(int n) { return formatted("02:AB:C0:0F:00:%02X", static_cast<unsigned>(n)); }
Bytes field_mac(uint8_t n) { return {0x0A, 0xAB, 0xC0, 0x0F, 0x00, n, 0xEE, 0xEE}; }
std::string field_text(int n) { return formatted("0A:AB:C0:0F:00:%02X", static_cast<unsigned>(n)); }

Bytes pair(const Bytes& value) { return string_tlv("/ac/mac") + value; }
Bytes mac_pair(uint8_t n) { return pair(bytes_tlv(property_mac(n))); }
Bytes mac_pairs(uint8_t count) {
    Bytes data;
    for (uint8_t n = 1; n <= count; ++n) data = data + mac_pair(n);
    return data;
}

class PortMacs : public ControllerTest {
protected:
    PortMacs() {
        std::memset(host_mac_cache, 'x', sizeof host_mac_cache);
        isHostMacCache = 0;
    }
    ~PortMacs() override {
        std::memset(host_mac_cache, 0, sizeof host_mac_cache);
        isHostMacCache = 0;
    }

    int change(const char* path, const Bytes& data) {
        // In pages of 200 bytes, as long as there are more.
        std::size_t from = 0;
        for (; data.size() - from > 200; from += 200) {
            const auto first = data.begin() + static_cast<std::ptrdiff_t>(from);
            platform.ipmi.then(more(Bytes(first, first + 200), 1).reply());
        }
        pages({last(Bytes(data.begin() + static_cast<std::ptrdiff_t>(from), data.end()))});
        return vpdd_property_change_cache(path);
    }

    /// Whole slots. What a text leaves of its slot is zero.
    static std::vector<std::string> slots() {
        std::vector<std::string> texts;
        for (const auto& slot : host_mac_cache) {
            const std::string whole(slot, sizeof slot);
            const std::string text = whole.substr(0, whole.find('\0'));
            EXPECT_EQ(whole.find_first_not_of('\0', text.size()), std::string::npos);
            texts.push_back(text);
        }
        return texts;
    }
    /// These texts and empty slots behind them.
    static std::vector<std::string> then_empty(std::vector<std::string> texts) {
        texts.resize(8, no_mac);
        return texts;
    }

    /// All eight fields; those behind the first ones are zero.
    void fields(uint8_t first_ones) {
        for (uint8_t n = 1; n <= 8; ++n) platform.field(18U + n, n <= first_ones ? field_mac(n) : Bytes(8));
    }

    testing::AssertionResult announced() const {
        return platform.logged(informational, pid_line("%s - LOM properties Caching.\n", name));
    }
    std::size_t warnings() const { return platform.log(warning).size(); }
};

// ---- other paths

TEST_F(PortMacs, OfAnotherPathChangeNothing) {
    isHostMacCache = 7;
    for (const char* path :
         {"", "/ac/zeltc/lom", "/ac/zeltc/lom-active/", "/ac/zeltc/lom-activ", "foo", "/ac/zeltc/LOM-active"}) {
        platform.reset();
        EXPECT_EQ(vpdd_property_change_cache(path), -1) << path;
        EXPECT_THAT(slots(), Each(untouched));
        EXPECT_EQ(isHostMacCache, 7);
        EXPECT_TRUE(announced());
        EXPECT_THAT(platform.journal(), SizeIs(1));
    }
}

TEST_F(PortMacs, OfNoPathChangeNothing) {
    EXPECT_EQ(vpdd_property_change_cache(nullptr), -1);
    EXPECT_THAT(slots(), Each(untouched));
    EXPECT_EQ(isHostMacCache, 0);
    EXPECT_TRUE(announced());
}

// ---- on the system board

using Lom = PortMacs;

TEST_F(Lom, FillTheSlotsFromTheFirstOnAndEmptyTheRest) {
    EXPECT_EQ(change(lom, mac_pairs(3)), 0);
    EXPECT_EQ(slots(), then_empty({property_text(1), property_text(2), property_text(3)}));
    EXPECT_EQ(isHostMacCache, 1);
    EXPECT_EQ(platform.requests().at(0).data, (Bytes{2, 0, 22, 1} + string_tlv(lom)));
}

TEST_F(Lom, AreAnnouncedBeforeAnythingElse) {
    EXPECT_EQ(change(lom, mac_pairs(1)), 0);
    EXPECT_THAT(platform.journal(),
                ElementsAre("log 14 " + pid_line("%s - LOM properties Caching.\n", name), "ipmi 3A/C4"));
}

TEST_F(Lom, AreWrittenInUpperCase) {
    EXPECT_EQ(change(lom, pair(bytes_tlv({0xab, 0xcd, 0xef, 0x01, 0x00, 0x9f}))), 0);
    EXPECT_STREQ(host_mac_cache[0], "AB:CD:EF:01:00:9F");
}

TEST_F(Lom, UpToSevenAreKept) {
    EXPECT_EQ(change(lom, mac_pairs(7)), 0);
    EXPECT_EQ(slots().at(6), property_text(7));
    EXPECT_EQ(slots().at(7), no_mac);
    EXPECT_EQ(warnings(), 0U);
}

TEST_F(Lom, EightEndAsSevenAndAreLoggedOnce) {
    EXPECT_EQ(change(lom, mac_pairs(8)), 0);
    for (int n = 1; n <= 7; ++n) EXPECT_EQ(slots().at(static_cast<std::size_t>(n - 1)), property_text(n));
    EXPECT_EQ(slots().at(7), no_mac);
    EXPECT_EQ(times_warned(name, too_many), 1U);
}

TEST_F(Lom, NineEndAsSevenAndAreLoggedTwice) {
    EXPECT_EQ(change(lom, mac_pairs(9)), 0);
    for (int n = 1; n <= 7; ++n) EXPECT_EQ(slots().at(static_cast<std::size_t>(n - 1)), property_text(n));
    EXPECT_EQ(slots().at(7), no_mac);
    EXPECT_EQ(times_warned(name, too_many), 2U);
    EXPECT_EQ(warnings(), 2U);
}

TEST_F(Lom, OfAnotherSizeAreSkippedAndTheResultIsMinusOne) {
    EXPECT_EQ(change(lom, mac_pair(1) + pair(bytes_tlv({1, 2, 3, 4})) + mac_pair(2)), -1);
    EXPECT_EQ(slots(), then_empty({property_text(1), property_text(2)}));
    EXPECT_EQ(times_warned(name, wrong_lom), 1U);
    EXPECT_EQ(isHostMacCache, 1);
}

TEST_F(Lom, ThatAreTextsAreNoMacs) {
    EXPECT_EQ(change(lom, pair(string_tlv("123456")) + mac_pair(1) + pair(string_tlv("02:AB:C0:0F:00:01"))), -1);
    EXPECT_EQ(slots(), then_empty({property_text(1)}));
    EXPECT_EQ(times_warned(name, wrong_lom), 2U);
}

TEST_F(Lom, ThatAreAllWrongLeaveAllSlotsEmpty) {
    EXPECT_EQ(change(lom, pair(bytes_tlv(Bytes(7, 1)))), -1);
    EXPECT_EQ(slots(), then_empty({}));
    EXPECT_EQ(isHostMacCache, 1);
}

TEST_F(Lom, WithoutDataEmptyAllSlots) {
    pages({nothing()});
    EXPECT_EQ(vpdd_property_change_cache(lom), 0);
    EXPECT_EQ(slots(), then_empty({}));
    EXPECT_EQ(isHostMacCache, 1);
    EXPECT_EQ(warnings(), 0U);
}

TEST_F(Lom, WithAnEmptyPageEmptyAllSlots) {
    EXPECT_EQ(change(lom, {}), 0);
    EXPECT_EQ(slots(), then_empty({}));
    EXPECT_EQ(warnings(), 0U);
}

TEST_F(Lom, ThatCannotBeReadKeepTheSlots) {
    platform.ipmi.fail_always();
    EXPECT_EQ(vpdd_property_change_cache(lom), -1);
    EXPECT_THAT(slots(), Each(untouched));
    EXPECT_EQ(isHostMacCache, 1);
    EXPECT_TRUE(warned(name, "vpdd_get_properties error.\n"));
}

TEST_F(Lom, ThatDoNotDecodeEmptyAllSlots) {
    EXPECT_EQ(change(lom, mac_pair(1) + pair(words_tlv({1, 2}))), -1);
    EXPECT_EQ(slots(), then_empty({}));
    EXPECT_EQ(isHostMacCache, 1);
    EXPECT_TRUE(warned(name, wrong_list));
}

// ---- on the extra module

using Xlom = PortMacs;

TEST_F(Xlom, FollowThoseOfTheSystemVpd) {
    fields(2);
    EXPECT_EQ(change(xlom, mac_pairs(2)), 0);
    EXPECT_EQ(slots(), then_empty({field_text(1), field_text(2), property_text(1), property_text(2)}));
    EXPECT_EQ(isHostMacCache, 1);
    EXPECT_EQ(platform.requests().at(0).data, (Bytes{2, 0, 23, 1} + string_tlv(xlom)));
    EXPECT_TRUE(announced());
    EXPECT_EQ(warnings(), 0U);
}

TEST_F(Xlom, FollowTheHighestSlotThatIsNotZero) {
    fields(0);
    platform.field(18 + 5, field_mac(5));
    EXPECT_EQ(change(xlom, mac_pairs(1)), 0);
    EXPECT_EQ(slots(), then_empty({no_mac, no_mac, no_mac, no_mac, field_text(5), property_text(1)}));
}

TEST_F(Xlom, FillTheSlotsFromTheFirstOnWhenTheSystemVpdHasNone) {
    fields(0);
    EXPECT_EQ(change(xlom, mac_pairs(1)), 0);
    EXPECT_EQ(slots(), then_empty({property_text(1)}));
}

TEST_F(Xlom, CountAnyNonZeroByteOfTheSixAsAnAddress) {
    for (std::size_t byte = 0; byte < 6; ++byte) {
        fields(0);
        Bytes mac(8);
        mac[byte] = 1;
        platform.field(18 + 1, mac);
        EXPECT_EQ(change(xlom, mac_pairs(1)), 0);
        EXPECT_EQ(slots().at(1), property_text(1)) << byte;
    }
}

TEST_F(Xlom, DoNotCountTheTwoBytesBehindAnAddress) {
    fields(0);
    platform.field(18 + 1, Bytes{0, 0, 0, 0, 0, 0, 1, 1});
    EXPECT_EQ(change(xlom, mac_pairs(1)), 0);
    EXPECT_EQ(slots(), then_empty({property_text(1)}));
}

TEST_F(Xlom, ReadFields19To26InTheirOrder) {
    fields(8);
    EXPECT_EQ(change(xlom, {}), 0);
    std::vector<uint32_t> ids;
    for (const FieldCall& call : platform.field_read.calls()) ids.push_back(call.id);
    EXPECT_THAT(ids, ElementsAre(19, 20, 21, 22, 23, 24, 25, 26));
    for (int n = 1; n <= 8; ++n) EXPECT_EQ(slots().at(static_cast<std::size_t>(n - 1)), field_text(n));
}

TEST_F(Xlom, BeyondTheEighthSlotAreDroppedSilently) {
    fields(6);
    EXPECT_EQ(change(xlom, mac_pairs(4)), 0);
    EXPECT_EQ(slots().at(5), field_text(6));
    EXPECT_EQ(slots().at(6), property_text(1));
    EXPECT_EQ(slots().at(7), property_text(2));
    EXPECT_EQ(warnings(), 0U);
}

TEST_F(Xlom, AreNotLookedAtBeyondTheEighthSlot) {
    fields(7);
    EXPECT_EQ(change(xlom, mac_pair(1) + pair(bytes_tlv({1}))), 0);
    EXPECT_EQ(slots().at(7), property_text(1));
    EXPECT_EQ(warnings(), 0U);
}

TEST_F(Xlom, AllHaveNoSlotWhenTheSystemVpdFillsThem) {
    fields(8);
    EXPECT_EQ(change(xlom, pair(bytes_tlv({1})) + mac_pairs(2)), 0);
    EXPECT_EQ(slots().at(7), field_text(8));
    EXPECT_EQ(warnings(), 0U);
    EXPECT_EQ(isHostMacCache, 1);
}

TEST_F(Xlom, ThatDoNotDecodeAreAnErrorAlsoWhenTheSystemVpdFillsTheSlots) {
    fields(8);
    EXPECT_EQ(change(xlom, mac_pair(1) + Bytes{0x80}), -1);
    EXPECT_EQ(slots().at(7), field_text(8));
    EXPECT_EQ(isHostMacCache, 1);
    EXPECT_TRUE(warned(name, wrong_list));
}

TEST_F(Xlom, OfAnotherTypeOrSizeAreSkippedAndTheResultIsMinusOne) {
    fields(1);
    EXPECT_EQ(change(xlom, pair(string_tlv("123456")) + mac_pair(1) + pair(bytes_tlv(Bytes(5, 1))) + mac_pair(2)), -1);
    EXPECT_EQ(slots(), then_empty({field_text(1), property_text(1), property_text(2)}));
    EXPECT_EQ(times_warned(name, wrong_xlom), 2U);
    EXPECT_EQ(isHostMacCache, 1);
}

TEST_F(Xlom, EndAtOnceAtAFieldThatCannotBeRead) {
    fields(8);
    platform.field_read.fail_when([](const FieldCall& call) { return call.id == 18 + 3; });
    EXPECT_EQ(vpdd_property_change_cache(xlom), -1);
    EXPECT_TRUE(warned(name, "read MAC 3 Fail\n"));
    EXPECT_EQ(warnings(), 1U);
    EXPECT_THAT(platform.requests(), IsEmpty());
    EXPECT_EQ(isHostMacCache, 0);
    EXPECT_EQ(slots().at(1), field_text(2));
    EXPECT_EQ(slots().at(2), untouched);
    EXPECT_EQ(slots().at(3), untouched);
    EXPECT_THAT(platform.field_read.calls(), SizeIs(3));
}

TEST_F(Xlom, LeaveTheFlagAsItWasAtAFieldThatCannotBeRead) {
    isHostMacCache = 1;
    platform.field_read.fail_always();
    EXPECT_EQ(vpdd_property_change_cache(xlom), -1);
    EXPECT_EQ(isHostMacCache, 1);
}

TEST_F(Xlom, ThatCannotBeReadAreNoFailure) {
    fields(2);
    platform.ipmi.fail_always();
    EXPECT_EQ(vpdd_property_change_cache(xlom), 0);
    EXPECT_EQ(slots(), then_empty({field_text(1), field_text(2)}));
    EXPECT_EQ(isHostMacCache, 1);
    EXPECT_EQ(times_warned(name, "vpdd_get_properties error.\n"), 0U);
}

TEST_F(Xlom, WithoutDataLeaveThoseOfTheSystemVpd) {
    fields(2);
    pages({nothing()});
    EXPECT_EQ(vpdd_property_change_cache(xlom), 0);
    EXPECT_EQ(slots(), then_empty({field_text(1), field_text(2)}));
    EXPECT_EQ(isHostMacCache, 1);
    EXPECT_EQ(warnings(), 0U);
}

TEST_F(Xlom, ThatDoNotDecodeLeaveThoseOfTheSystemVpd) {
    fields(2);
    EXPECT_EQ(change(xlom, mac_pair(1) + Bytes{0x80}), -1);
    EXPECT_EQ(slots(), then_empty({field_text(1), field_text(2)}));
    EXPECT_EQ(isHostMacCache, 1);
    EXPECT_TRUE(warned(name, wrong_list));
}

// ---- both

class EitherKind : public PortMacs, public testing::WithParamInterface<const char*> {};

TEST_P(EitherKind, SetsTheFlagBehindTheLastRequest) {
    fields(3);
    std::vector<int> flags;
    platform.ipmi.during([&](const IpmiCall&) { flags.push_back(isHostMacCache); });
    pages({more(mac_pairs(1), 1), last(mac_pairs(1))});
    EXPECT_EQ(vpdd_property_change_cache(GetParam()), 0);
    EXPECT_THAT(flags, ElementsAre(0, 0));
    EXPECT_EQ(isHostMacCache, 1);
}

TEST_P(EitherKind, FreesWhatItHoldsAndTakesNoLock) {
    for (const Bytes& data : {mac_pairs(9), mac_pair(1) + Bytes{0x80}, pair(bytes_tlv({1})), Bytes{}}) {
        platform.reset();
        fields(3);
        const AllocationWatch watch;
        const LockJournal locks;
        change(GetParam(), data);
        EXPECT_EQ(watch.live_blocks(), 0U);
        for (const std::string& line : platform.journal()) EXPECT_FALSE(line.starts_with("lock")) << line;
    }
}

TEST_P(EitherKind, FreesWhatItHoldsWhicheverAllocationFails) {
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer owns malloc";
    for (std::size_t failing = 1;; ++failing) {
        platform.reset();
        fields(3);
        const AllocationWatch watch(failing);
        const int result = change(GetParam(), mac_pairs(3));
        EXPECT_EQ(watch.live_blocks(), 0U) << failing;
        EXPECT_EQ(isHostMacCache, 1);
        if (!watch.has_failed()) {
            EXPECT_EQ(result, 0);
            EXPECT_GT(failing, 10U);
            break;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(All, EitherKind, testing::Values(lom, xlom),
                         [](const auto& row) { return std::string(row.index == 0 ? "Lom" : "Xlom"); });

}  // namespace
