// SPDX-License-Identifier: Apache-2.0
#include "controller.h"

using namespace vpdd::test;

namespace {

constexpr std::size_t encoded_size = 129;

/// What a conversion left behind.
template <class T>
struct Outcome {
    int result;
    std::unique_ptr<T, Freed> value;
    uint32_t length;
};

// No output begins as null, so that each test sees whether it was set.
uint8_t somewhere;

Outcome<uint8_t> encoded(const char* text) {
    uint8_t* tlv = &somewhere;
    const int result = vpdd_string2tlv(text, &tlv);
    return {result, std::unique_ptr<uint8_t, Freed>(tlv), 0};
}

Outcome<uint8_t> encoded(const Bytes& bytes, uint32_t count) {
    uint8_t* tlv = &somewhere;
    const int result = vpdd_byte2tlv(bytes.data(), &tlv, count);
    return {result, std::unique_ptr<uint8_t, Freed>(tlv), 0};
}

template <class T>
Outcome<T> decoded(int (*decoder)(const uint8_t*, T**, uint32_t*), const Bytes& tlv) {
    T* value = reinterpret_cast<T*>(&somewhere);
    uint32_t length = 77;
    const int result = decoder(tlv.data(), &value, &length);
    return {result, std::unique_ptr<T, Freed>(value), length};
}

Bytes whole(const Outcome<uint8_t>& outcome) { return Bytes(outcome.value.get(), outcome.value.get() + encoded_size); }

/// A TLV of 129 bytes: these ones and zeros.
Bytes padded(Bytes bytes) {
    bytes.resize(encoded_size);
    return bytes;
}

Bytes counting(std::size_t count) {
    Bytes bytes;
    for (std::size_t i = 1; i <= count; ++i) bytes.push_back(static_cast<uint8_t>(i));
    return bytes;
}

Bytes with_head(uint8_t head, const Bytes& data) { return Bytes{head} + data; }

// ---- encoding

TEST(StringTlv, IsTheLengthWithBit7AndTheCharactersAndZerosTo129Bytes) {
    const auto tlv = encoded("abc");
    EXPECT_EQ(tlv.result, 0);
    EXPECT_EQ(whole(tlv), padded({0x83, 'a', 'b', 'c'}));
}

TEST(StringTlv, OfAnEmptyTextHasTheLengthZero) {
    const auto tlv = encoded("");
    EXPECT_EQ(tlv.result, 0);
    EXPECT_EQ(whole(tlv), padded({0x80}));
}

TEST(StringTlv, Holds127Characters) {
    const std::string text(127, 'x');
    const auto tlv = encoded(text.c_str());
    EXPECT_EQ(tlv.result, 0);
    EXPECT_EQ(whole(tlv), padded(with_head(0xFF, bytes_of(text))));
}

TEST(StringTlv, Of128CharactersSucceedsWithTheLengthZeroAnd127Characters) {
    const auto tlv = encoded(std::string(128, 'x').c_str());
    EXPECT_EQ(tlv.result, 0);
    EXPECT_EQ(whole(tlv), padded(with_head(0x80, Bytes(127, 'x'))));
    EXPECT_EQ(decoded(vpdd_tlv2string, whole(tlv)).result, -2);
}

TEST(StringTlv, OfALongerTextHasTheLengthModulo128And127Characters) {
    const auto tlv = encoded(std::string(130, 'x').c_str());
    EXPECT_EQ(tlv.result, 0);
    EXPECT_EQ(whole(tlv), padded(with_head(0x82, Bytes(127, 'x'))));
    EXPECT_EQ(whole(encoded(std::string(300, 'x').c_str())).front(), 0x80 | 300 % 128);
}

TEST(StringTlv, RefusesNullArguments) {
    EXPECT_EQ(encoded(nullptr).result, -1);
    EXPECT_EQ(encoded(nullptr).value, nullptr);
    EXPECT_EQ(vpdd_string2tlv("a", nullptr), -1);
}

TEST(BytesTlv, IsTheCountWithBit4AndTheBytesAndZerosTo129Bytes) {
    for (uint8_t count = 1; count <= 15; ++count) {
        const auto tlv = encoded(counting(count), count);
        EXPECT_EQ(tlv.result, 0);
        EXPECT_EQ(whole(tlv), padded(with_head(0x10 | count, counting(count)))) << int{count};
    }
}

TEST(BytesTlv, Of16BytesHasNoLengthBit) {
    const auto tlv = encoded(counting(16), 16);
    EXPECT_EQ(tlv.result, 0);
    EXPECT_EQ(whole(tlv), padded(with_head(0x10, counting(16))));
}

TEST(BytesTlv, RefusesCountsOutside1To16AndLeavesTheOutputNull) {
    for (const uint32_t count : {0U, 17U, 0xFFFFFFFFU}) {
        const AllocationWatch watch;
        const auto tlv = encoded(counting(17), count);
        EXPECT_EQ(tlv.result, -4) << count;
        EXPECT_EQ(tlv.value, nullptr);
        EXPECT_EQ(watch.live_blocks(), 0U);
    }
}

TEST(BytesTlv, RefusesNullArguments) {
    uint8_t* tlv = &somewhere;
    EXPECT_EQ(vpdd_byte2tlv(nullptr, &tlv, 1), -1);
    EXPECT_EQ(tlv, nullptr);
    EXPECT_EQ(vpdd_byte2tlv(&somewhere, nullptr, 1), -1);
}

// ---- decoding

TEST(DecodedString, IsTheCharactersAndATerminator) {
    const auto text = decoded(vpdd_tlv2string, {0x83, 'a', 'b', 'c', 'd'});
    EXPECT_EQ(text.result, 0);
    EXPECT_STREQ(text.value.get(), "abc");
    EXPECT_EQ(text.length, 3U);
}

TEST(DecodedString, Has127CharactersAtMost) {
    const auto text = decoded(vpdd_tlv2string, with_head(0xFF, Bytes(127, 'x')));
    EXPECT_EQ(text.result, 0);
    EXPECT_EQ(text.value.get(), std::string(127, 'x'));
    EXPECT_EQ(text.length, 127U);
}

TEST(DecodedString, EndsAtAZeroByteButReportsTheLengthOfTheHead) {
    const auto text = decoded(vpdd_tlv2string, {0x85, 'a', 'b', 0, 'd', 'e'});
    EXPECT_EQ(text.result, 0);
    EXPECT_EQ(std::string(text.value.get(), 6), std::string("ab\0\0\0\0", 6));
    EXPECT_EQ(text.length, 5U);
}

TEST(DecodedString, IsToldByBit7Alone) {
    EXPECT_EQ(decoded(vpdd_tlv2string, with_head(0xB1, Bytes(0x31, 'x'))).length, 0x31U);
    for (const uint8_t head : {0x03, 0x13, 0x23, 0x43, 0x7F}) {
        const auto text = decoded(vpdd_tlv2string, with_head(head, Bytes(127, 'x')));
        EXPECT_EQ(text.result, -2) << int{head};
        EXPECT_EQ(text.value, nullptr);
    }
}

TEST(DecodedString, WithoutCharactersIsRefused) {
    const auto text = decoded(vpdd_tlv2string, {0x80});
    EXPECT_EQ(text.result, -2);
    EXPECT_EQ(text.value, nullptr);
}

TEST(DecodedBytes, AreTheBytesAndAZeroByte) {
    const auto bytes = decoded(vpdd_tlv2byte, {0x13, 1, 2, 3, 4});
    EXPECT_EQ(bytes.result, 0);
    EXPECT_EQ(Bytes(bytes.value.get(), bytes.value.get() + 4), (Bytes{1, 2, 3, 0}));
    EXPECT_EQ(bytes.length, 3U);
}

TEST(DecodedBytes, OfAHeadWithoutLengthBitsAreSixteen) {
    const auto bytes = decoded(vpdd_tlv2byte, with_head(0x10, counting(17)));
    EXPECT_EQ(bytes.result, 0);
    EXPECT_EQ(bytes.length, 16U);
    Bytes expected = counting(16);
    expected.push_back(0);
    EXPECT_EQ(Bytes(bytes.value.get(), bytes.value.get() + 17), expected);
}

TEST(DecodedBytes, OfAllLengthBitsAreFifteen) {
    const auto bytes = decoded(vpdd_tlv2byte, with_head(0x1F, counting(16)));
    EXPECT_EQ(bytes.result, 0);
    EXPECT_EQ(bytes.length, 15U);
    EXPECT_EQ(bytes.value.get()[14], 15);
    EXPECT_EQ(bytes.value.get()[15], 0);
}

TEST(DecodedBytes, KeepZeroBytes) {
    const auto bytes = decoded(vpdd_tlv2byte, {0x13, 0, 0, 9});
    EXPECT_EQ(Bytes(bytes.value.get(), bytes.value.get() + 3), (Bytes{0, 0, 9}));
}

TEST(DecodedBytes, AreToldByBit4Alone) {
    for (const uint8_t head : {0x92, 0x32, 0x52, 0xF2}) {
        const auto bytes = decoded(vpdd_tlv2byte, {head, 5, 6});
        EXPECT_EQ(bytes.result, 0) << int{head};
        EXPECT_EQ(bytes.length, 2U);
    }
    for (const uint8_t head : {0x82, 0x22, 0x42, 0xE2, 0x02, 0x00, 0x20}) {
        const auto bytes = decoded(vpdd_tlv2byte, with_head(head, counting(16)));
        EXPECT_EQ(bytes.result, -2) << int{head};
        EXPECT_EQ(bytes.value, nullptr);
    }
}

TEST(DecodedWords, StandLeastSignificantByteFirst) {
    const auto words = decoded(vpdd_tlv2word, {0x26, 0x01, 0x02, 0xFF, 0x80, 0x00, 0x7F});
    EXPECT_EQ(words.result, 0);
    ASSERT_EQ(words.length, 3U);
    EXPECT_EQ(words.value.get()[0], 0x0201);
    EXPECT_EQ(words.value.get()[1], 0x80FF);
    EXPECT_EQ(words.value.get()[2], 0x7F00);
}

TEST(DecodedWords, AreAtMostSevenAndBit0DoesNotCount) {
    const auto words = decoded(vpdd_tlv2word, with_head(0x2F, counting(14)));
    EXPECT_EQ(words.result, 0);
    ASSERT_EQ(words.length, 7U);
    EXPECT_EQ(words.value.get()[6], 14 << 8 | 13);
    EXPECT_EQ(decoded(vpdd_tlv2word, {0x23, 1, 2}).length, 1U);
}

TEST(DecodedWords, AreToldByBit5Alone) {
    for (const uint8_t head : {0xA2, 0x32, 0x62, 0xF2}) {
        const auto words = decoded(vpdd_tlv2word, {head, 5, 6});
        EXPECT_EQ(words.result, 0) << int{head};
        EXPECT_EQ(words.length, 1U);
    }
    for (const uint8_t head : {0x82, 0x12, 0x42, 0xD2, 0x02}) {
        const auto words = decoded(vpdd_tlv2word, with_head(head, counting(14)));
        EXPECT_EQ(words.result, -2) << int{head};
        EXPECT_EQ(words.value, nullptr);
    }
}

TEST(DecodedWords, WithoutAWordAreRefused) {
    for (const uint8_t head : {0x20, 0x21, 0x30}) {
        const auto words = decoded(vpdd_tlv2word, with_head(head, counting(16)));
        EXPECT_EQ(words.result, -2) << int{head};
        EXPECT_EQ(words.value, nullptr);
    }
}

template <class T>
void expect_null_arguments_refused(int (*decoder)(const uint8_t*, T**, uint32_t*), uint8_t head) {
    const Bytes tlv{head, 1, 2};
    T* value = reinterpret_cast<T*>(&somewhere);
    uint32_t length = 0;
    EXPECT_EQ(decoder(nullptr, &value, &length), -1);
    EXPECT_EQ(value, nullptr);
    EXPECT_EQ(decoder(tlv.data(), nullptr, &length), -1);
    value = reinterpret_cast<T*>(&somewhere);
    EXPECT_EQ(decoder(tlv.data(), &value, nullptr), -1);
    EXPECT_EQ(value, nullptr);
}

TEST(Decoders, RefuseNullArguments) {
    expect_null_arguments_refused(vpdd_tlv2string, 0x82);
    expect_null_arguments_refused(vpdd_tlv2byte, 0x12);
    expect_null_arguments_refused(vpdd_tlv2word, 0x22);
}

TEST(Tlv, ConversionsReportAFailedAllocationAndLeaveTheOutputNull) {
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer owns malloc";
    const auto expect_no_memory = [](const auto& conversion) {
        const AllocationWatch watch(1);
        const auto outcome = conversion();
        EXPECT_EQ(outcome.result, -3);
        EXPECT_EQ(outcome.value, nullptr);
        EXPECT_EQ(watch.live_blocks(), 0U);
    };
    expect_no_memory([] { return encoded("abc"); });
    expect_no_memory([] { return encoded(counting(3), 3); });
    expect_no_memory([] { return decoded(vpdd_tlv2string, {0x81, 'a'}); });
    expect_no_memory([] { return decoded(vpdd_tlv2byte, {0x11, 1}); });
    expect_no_memory([] { return decoded(vpdd_tlv2word, {0x22, 1, 2}); });
}

TEST(Tlv, SurvivesTheWayThereAndBack) {
    for (std::size_t length = 1; length <= 127; ++length) {
        const std::string text(length, 'k');
        const auto back = decoded(vpdd_tlv2string, whole(encoded(text.c_str())));
        EXPECT_EQ(back.value.get(), text);
        EXPECT_EQ(back.length, length);
    }
    for (uint32_t count = 1; count <= 16; ++count) {
        const auto back = decoded(vpdd_tlv2byte, whole(encoded(counting(count), count)));
        EXPECT_EQ(Bytes(back.value.get(), back.value.get() + back.length), counting(count));
    }
}

// ---- head bytes

TEST(PropertyType, IsTheFirstOfBits7And4And5AndElseBit6) {
    for (unsigned head = 0; head < 256; ++head) {
        const auto byte = static_cast<uint8_t>(head);
        int expected = head & 0x40;
        if ((head & 0x20) != 0) expected = 32;
        if ((head & 0x10) != 0) expected = 16;
        if ((head & 0x80) != 0) expected = 128;
        EXPECT_EQ(check_property_type(&byte), expected) << head;
    }
}

TEST(PropertyType, OfNothingIsNone) { EXPECT_EQ(check_property_type(nullptr), 0); }

struct HeadRow {
    uint8_t head;
    uint32_t size, type;
};

class PathSize : public testing::TestWithParam<HeadRow> {};

TEST_P(PathSize, IsTheLengthOfTheDataWithADefaultForEachType) {
    uint32_t type = 77;
    EXPECT_EQ(vpdd_path_size(GetParam().head, &type), GetParam().size);
    EXPECT_EQ(type, GetParam().type);
}

INSTANTIATE_TEST_SUITE_P(Heads, PathSize,
                         testing::Values(HeadRow{0x83, 3, 128}, HeadRow{0xFF, 127, 128}, HeadRow{0x80, 0, 128},
                                         HeadRow{0x90, 16, 128}, HeadRow{0x10, 16, 16}, HeadRow{0x11, 1, 16},
                                         HeadRow{0x1F, 15, 16}, HeadRow{0x30, 16, 16}, HeadRow{0x35, 5, 16},
                                         HeadRow{0x20, 8, 32}, HeadRow{0x21, 8, 32}, HeadRow{0x26, 3, 32},
                                         HeadRow{0x2F, 7, 32}, HeadRow{0x62, 1, 32}, HeadRow{0x40, 4, 64},
                                         HeadRow{0x43, 4, 64}, HeadRow{0x44, 1, 64}, HeadRow{0x4C, 3, 64},
                                         HeadRow{0x00, 0, 0}, HeadRow{0x0F, 0, 0}),
                         [](const auto& row) { return formatted("%02X", row.param.head); });

TEST(PathSizeWithoutAPlaceForTheType, IsZero) { EXPECT_EQ(vpdd_path_size(0x83, nullptr), 0U); }

}  // namespace
