// SPDX-License-Identifier: Apache-2.0
#include "controller.h"

using namespace vpdd::test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

constexpr char transfer_name[] = "vpdd_get_all_properties";
constexpr std::size_t most_data = 251;  // of a page: 256 bytes less the five in front
constexpr std::size_t most_pages = 4096;

// No output begins as null, so that each test sees whether it was set.
uint8_t somewhere;

struct Data {
    int result;
    std::unique_ptr<uint8_t, Freed> block;
    uint32_t length;

    Bytes bytes() const { return {block.get(), block.get() + length}; }
};

Data read(const Bytes& key) {
    uint8_t* data = &somewhere;
    uint32_t length = 77;
    const int result = vpdd_get_all_properties(key.data(), &data, &length);
    return {result, std::unique_ptr<uint8_t, Freed>(data), length};
}

Data read_by_text(const char* path) {
    uint8_t* data = &somewhere;
    uint32_t length = 77;
    const int result = vpdd_get_properties(path, &data, &length);
    return {result, std::unique_ptr<uint8_t, Freed>(data), length};
}

void expect_failed(const Data& data, int result) {
    EXPECT_EQ(data.result, result);
    EXPECT_EQ(data.block, nullptr);
    EXPECT_EQ(data.length, 0U);
}

void expect_nothing(const Data& data) { expect_failed(data, 0); }

Bytes page_request(const Bytes& key) { return Bytes{0x02, 0x00, static_cast<uint8_t>(key.size() + 1), 0x01} + key; }

const Bytes key = string_tlv("/ac");

class Pages : public ControllerTest {
protected:
    /// The answers to the transfer, in order. The last one is repeated, because a failed request is.
    void answer(const std::vector<IpmiReply>& replies) {
        for (std::size_t i = 0; i + 1 < replies.size(); ++i) platform.ipmi.then(replies[i]);
        platform.ipmi.always(replies.back());
    }

    std::vector<Bytes> requests() const {
        std::vector<Bytes> data;
        for (const IpmiCall& call : platform.requests()) {
            EXPECT_TRUE(call.is(0x3A, 0xC4));
            EXPECT_EQ(call.room, 256U);
            data.push_back(call.data);
        }
        return data;
    }

    testing::AssertionResult logged_only(const char* text) const {
        if (platform.log().size() != 1) return testing::AssertionFailure() << platform.log().size() << " lines";
        return warned(transfer_name, text);
    }
};

// ---- the transfer

TEST_F(Pages, MayBeASingleOne) {
    pages({last({1, 2, 3})});
    const Data data = read(key);
    EXPECT_EQ(data.result, 0);
    EXPECT_EQ(data.bytes(), (Bytes{1, 2, 3}));
    EXPECT_THAT(requests(), ElementsAre(page_request(key)));
    EXPECT_TRUE(platform.logged_nothing());
}

TEST_F(Pages, AreAskedForByTheHandleOfTheOneBeforeAndPutTogetherInOrder) {
    pages({more({1, 2}, 0x00), more({3}, 0xFE), last({4, 5, 6})});
    const Data data = read(key);
    EXPECT_EQ(data.result, 0);
    EXPECT_EQ(data.bytes(), (Bytes{1, 2, 3, 4, 5, 6}));
    EXPECT_THAT(requests(), ElementsAre(page_request(key), page_request({0x11, 0x00}), page_request({0x11, 0xFE})));
    EXPECT_TRUE(platform.logged_nothing());
}

TEST_F(Pages, HoldUpTo251BytesOfDataEach) {
    pages({more(Bytes(most_data, 'a'), 1), more(Bytes(most_data, 'b'), 2), last(Bytes(most_data, 'c'))});
    EXPECT_EQ(read(key).bytes(), Bytes(most_data, 'a') + Bytes(most_data, 'b') + Bytes(most_data, 'c'));
}

TEST_F(Pages, WithNothingBelowTheKeyLeaveNoBuffer) {
    pages({nothing()});
    expect_nothing(read(key));
    EXPECT_TRUE(platform.logged_nothing());
}

TEST_F(Pages, DoNotLookAtTheDataOfAnAnswerOfNothing) {
    answer({Page{8, {1, 2, 3}}.reply()});
    expect_nothing(read(key));
}

TEST_F(Pages, AddNothingWhenADeeperOneIsNothing) {
    pages({more({1, 2}, 7), nothing()});
    const Data data = read(key);
    EXPECT_EQ(data.result, 0);
    EXPECT_EQ(data.bytes(), (Bytes{1, 2}));
}

TEST_F(Pages, MayBeEmpty) {
    pages({more({}, 1), more({1}, 2), more({}, 3), last({2})});
    EXPECT_EQ(read(key).bytes(), (Bytes{1, 2}));
    pages({more({}, 1), more({}, 2), last({3})});
    EXPECT_EQ(read(key).bytes(), (Bytes{3}));
    pages({more({}, 1), last({})});
    expect_nothing(read(key));
}

TEST_F(Pages, MayAllHaveTheSameHandle) {
    pages({more({1}, 5), more({2}, 5), more({3}, 5), last({4})});
    EXPECT_EQ(read(key).bytes(), (Bytes{1, 2, 3, 4}));
}

// ---- keys

TEST_F(Pages, MayBeAskedForByALongPath) {
    pages({last({1})});
    const Bytes longest = string_tlv(std::string(127, 'k'));
    EXPECT_EQ(read(longest).result, 0);
    EXPECT_THAT(requests(), ElementsAre(page_request(longest)));
    EXPECT_THAT(requests().at(0), SizeIs(132));
    EXPECT_EQ(requests().at(0).at(2), 129);
}

TEST_F(Pages, MayBeAskedForByAHandleOfTheCallers) {
    pages({last({1})});
    EXPECT_EQ(read(bytes_tlv({0x42})).result, 0);
    EXPECT_THAT(requests(), ElementsAre(page_request({0x11, 0x42})));
}

TEST_F(Pages, MayBeAskedForByAKeyOf16Bytes) {
    pages({last({1})});
    const Bytes sixteen = bytes_tlv(Bytes(16, 0xAB));
    ASSERT_EQ(sixteen.at(0), 0x10);
    EXPECT_EQ(read(sixteen).result, 0);
    EXPECT_THAT(requests(), ElementsAre(page_request(sixteen)));
}

TEST_F(Pages, TakeNoKeyOfAnotherType) {
    for (const uint8_t head : {0x22, 0x44, 0x00, 0x0F}) {
        platform.reset();
        expect_failed(read(Bytes{head} + Bytes(16, 1)), -5);
        EXPECT_TRUE(logged_only("the type of vpdd_tlv is error.\n"));
        EXPECT_THAT(platform.requests(), IsEmpty());
    }
}

TEST_F(Pages, RefuseNullArgumentsAndClearTheOutputs) {
    uint8_t* data = &somewhere;
    uint32_t length = 77;
    EXPECT_EQ(vpdd_get_all_properties(nullptr, &data, &length), -1);
    EXPECT_EQ(data, nullptr);
    EXPECT_EQ(length, 0U);
    data = &somewhere;
    length = 77;
    EXPECT_EQ(vpdd_get_all_properties(key.data(), nullptr, &length), -1);
    EXPECT_EQ(vpdd_get_all_properties(key.data(), &data, nullptr), -1);
    EXPECT_EQ(data, nullptr);
    EXPECT_THAT(platform.requests(), IsEmpty());
}

// ---- failures

/// What goes wrong with a page, what the first page returns then, and the message.
struct Fault {
    const char* name;
    IpmiReply reply;
    int result;
    const char* text;
};

Bytes raw_page(uint8_t status, uint16_t length) {
    return Bytes{status, static_cast<uint8_t>(length >> 8), static_cast<uint8_t>(length), 1} + Bytes(most_data, 'd');
}

const Fault faults[] = {
    {"Dead", ipmi_dead(), -2, "IPMI didn't complete.\n"},
    {"NotPresent", ipmi_completion(0xCB), -2, "IPMI didn't complete.\n"},
    {"Refused", ipmi_completion(0xC1), -2, "IPMI didn't complete.\n"},
    {"OtherStatus", ipmi_data(raw_page(1, 5)), -3, "IPMI didn't return correctly.\n"},
    {"MoreWithoutAHandle", ipmi_data(raw_page(0, 0)), -3, "IPMI didn't return correctly.\n"},
    {"LastWithoutAHandle", ipmi_data(raw_page(9, 0)), -3, "IPMI didn't return correctly.\n"},
    {"MoreThanAnAnswerHolds", ipmi_data(raw_page(0, 253)), -3, "IPMI didn't return correctly.\n"},
    {"LastThanAnAnswerHolds", ipmi_data(raw_page(9, 253)), -3, "IPMI didn't return correctly.\n"},
    {"LengthInTheHighByte", ipmi_data(raw_page(9, 0x0105)), -3, "IPMI didn't return correctly.\n"},
    {"GreatestLength", ipmi_data(raw_page(9, 0xFFFF)), -3, "IPMI didn't return correctly.\n"},
    {"EmptySuccess", {0, {0x00}, 0}, -3, "IPMI didn't return correctly.\n"},
};

class FaultyPage : public Pages, public testing::WithParamInterface<Fault> {};

TEST_P(FaultyPage, EndsTheTransferWithItsOwnResultWhenItIsTheFirst) {
    answer({GetParam().reply});
    const AllocationWatch watch;
    expect_failed(read(key), GetParam().result);
    EXPECT_TRUE(logged_only(GetParam().text));
    EXPECT_EQ(watch.live_blocks(), 0U);
}

TEST_P(FaultyPage, EndsTheTransferWithMinusOneWhenItIsTheSecond) {
    answer({more({1, 2}, 7).reply(), GetParam().reply});
    const AllocationWatch watch;
    expect_failed(read(key), -1);
    EXPECT_TRUE(logged_only(GetParam().text));
    EXPECT_EQ(watch.live_blocks(), 0U);
}

TEST_P(FaultyPage, EndsTheTransferWithMinusOneWhenItIsTheFourth) {
    answer({more({1, 2}, 7).reply(), more({}, 7).reply(), more({3}, 7).reply(), GetParam().reply});
    const AllocationWatch watch;
    expect_failed(read(key), -1);
    EXPECT_TRUE(logged_only(GetParam().text));
    EXPECT_EQ(watch.live_blocks(), 0U);
}

TEST_F(Pages, AreAskedForThreeTimesWithAPauseAfterEach) {
    answer({ipmi_completion(0xC1)});
    expect_failed(read(key), -2);
    EXPECT_THAT(requests(), SizeIs(3));
    EXPECT_THAT(platform.sleeps(), ElementsAre(300000, 300000, 300000));
}

TEST_F(Pages, ThatAreNotPresentAreAskedForOnce) {
    answer({ipmi_completion(0xCB)});
    expect_failed(read(key), -2);
    EXPECT_THAT(requests(), SizeIs(1));
}

TEST_F(Pages, HaveOneOfThreeStatuses) {
    for (unsigned status = 0; status <= 0xFF; ++status) {
        if (status == 0 || status == 8 || status == 9) continue;
        const IpmiReply reply = ipmi_data(raw_page(static_cast<uint8_t>(status), 5));
        SCOPED_TRACE(status);
        platform.reset();
        answer({reply});
        expect_failed(read(key), -3);
        EXPECT_TRUE(logged_only("IPMI didn't return correctly.\n"));
        platform.reset();
        answer({more({1, 2}, 7).reply(), reply});
        expect_failed(read(key), -1);
    }
}

INSTANTIATE_TEST_SUITE_P(All, FaultyPage, testing::ValuesIn(faults), [](const auto& row) { return row.param.name; });

TEST_F(Pages, OfTheGreatestLengthThatFitsAreRead) {
    answer({ipmi_data(raw_page(9, 252))});
    EXPECT_EQ(read(key).bytes(), Bytes(most_data, 'd'));
}

TEST_F(Pages, OfAShortAnswerAreFilledUpWithZeros) {
    answer({ipmi_data({9, 0, 5, 0, 'a', 'b'})});
    EXPECT_EQ(read(key).bytes(), (Bytes{'a', 'b', 0, 0}));
    answer({ipmi_data({9, 0, 5})});
    EXPECT_EQ(read(key).length, 4U);
}

TEST_F(Pages, DoNotTakeOverWhatTheAnswerBeforeHeld) {
    answer({more({1, 2, 3}, 7).reply(), ipmi_data({9, 0, 4})});
    EXPECT_EQ(read(key).bytes(), (Bytes{1, 2, 3, 0, 0, 0}));
}

TEST_F(Pages, WithoutAnEndEndInAnError) {
    platform.ipmi.always(more(Bytes(most_data, 'x'), 9).reply());
    const AllocationWatch watch;
    expect_failed(read(key), -1);
    EXPECT_THAT(platform.requests(), SizeIs(most_pages));
    EXPECT_TRUE(logged_only("IPMI didn't return correctly.\n"));
    EXPECT_EQ(watch.live_blocks(), 0U);
}

TEST_F(Pages, UpToTheBoundAreRead) {
    platform.ipmi.at(most_pages, last({2}).reply());
    platform.ipmi.always(more({1}, 9).reply());
    const Data data = read(key);
    EXPECT_EQ(data.result, 0);
    EXPECT_EQ(data.bytes(), Bytes(most_pages - 1, 1) + Bytes{2});
}

TEST_F(Pages, FailWithoutMemoryForTheFirst) {
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer owns malloc";
    pages({more({1}, 7), last({2})});
    const AllocationWatch watch(1);
    expect_failed(read(key), -6);
    EXPECT_TRUE(logged_only("cannot allocate the space.\n"));
    EXPECT_EQ(watch.live_blocks(), 0U);
}

TEST_F(Pages, FailWithoutMemoryForTheHandle) {
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer owns malloc";
    pages({more({1}, 7), last({2})});
    const AllocationWatch watch(2);
    expect_failed(read(key), -1);
    EXPECT_TRUE(logged_only("byte2tlv error.\n"));
    EXPECT_THAT(platform.requests(), SizeIs(1));
    EXPECT_EQ(watch.live_blocks(), 0U);
}

TEST_F(Pages, FailWithoutMemoryForADeeperOne) {
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer owns malloc";
    pages({more({1}, 7), last({2})});
    const AllocationWatch watch(3);
    expect_failed(read(key), -1);
    EXPECT_TRUE(logged_only("cannot allocate the space.\n"));
    EXPECT_EQ(watch.live_blocks(), 0U);
}

TEST_F(Pages, LeaveNothingBehindWhicheverAllocationFails) {
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer owns malloc";
    for (std::size_t failing = 1;; ++failing) {
        platform.ipmi.reset();
        pages({more({1}, 7), more({2}, 8), last({3})});
        const AllocationWatch watch(failing);
        const Data data = read_by_text("/ac");
        if (!watch.has_failed()) {
            EXPECT_EQ(data.bytes(), (Bytes{1, 2, 3}));
            EXPECT_GT(failing, 5U);
            break;
        }
        expect_failed(data, -1);
        EXPECT_EQ(watch.live_blocks(), 0U) << failing;
    }
}

// ---- by a path text

using PagesByText = Pages;

TEST_F(PagesByText, AreThoseBelowThePath) {
    pages({more({1}, 3), last({2})});
    const AllocationWatch watch;
    const Data data = read_by_text("/ac");
    EXPECT_EQ(data.result, 0);
    EXPECT_EQ(data.bytes(), (Bytes{1, 2}));
    EXPECT_THAT(requests(), ElementsAre(page_request(key), page_request({0x11, 3})));
    if (allocator_can_fail) {
        EXPECT_THAT(watch.blocks(), ElementsAre(data.block.get()));
    }
}

TEST_F(PagesByText, MapEveryFailureToMinusOne) {
    for (const Fault& fault : faults) {
        platform.ipmi.reset();
        answer({fault.reply});
        const AllocationWatch watch;
        expect_failed(read_by_text("/ac"), -1);
        EXPECT_EQ(watch.live_blocks(), 0U) << fault.name;
    }
}

TEST_F(PagesByText, WithoutAPathFailAndClearTheOutputs) {
    expect_failed(read_by_text(nullptr), -1);
    EXPECT_THAT(platform.journal(), IsEmpty());
}

TEST_F(PagesByText, FailWithoutPlacesForTheOutputs) {
    uint8_t* data = &somewhere;
    uint32_t length = 77;
    const AllocationWatch watch;
    EXPECT_EQ(vpdd_get_properties("/ac", nullptr, &length), -1);
    EXPECT_EQ(length, 0U);
    EXPECT_EQ(vpdd_get_properties("/ac", &data, nullptr), -1);
    EXPECT_EQ(data, nullptr);
    EXPECT_EQ(watch.live_blocks(), 0U);
}

TEST_F(PagesByText, FailWithoutMemoryForTheKeyAndClearTheOutputs) {
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer owns malloc";
    const AllocationWatch watch(1);
    expect_failed(read_by_text("/ac"), -1);
    EXPECT_THAT(platform.journal(), IsEmpty());
}

TEST_F(PagesByText, TakeNoLock) {
    pages({last({1})});
    const LockJournal locks;
    read_by_text("/ac");
    EXPECT_THAT(platform.journal(), ElementsAre("ipmi 3A/C4"));
}

}  // namespace
