// SPDX-License-Identifier: Apache-2.0
#include <cerrno>
#include <cstdlib>

#include "failing_allocator.h"
#include "fake_platform.h"
#include "host/images/fru_image.h"

using namespace vpdd::test;
using testing::ElementsAre;
using vpdd::images::Field;

namespace {

// ---- common header

FruAreaPointers parsed(const Bytes& image) {
    const uint8_t untouched = 0;
    FruAreaPointers areas{&untouched, &untouched, &untouched, &untouched};
    EXPECT_EQ(parse_fru_header(image.data(), &areas), 0);
    return areas;
}

TEST(FruHeader, FindsTheFourAreas) {
    const Bytes image{1, 9, 1, 2, 3, 4, 0, 0};
    const FruAreaPointers areas = parsed(image);
    EXPECT_EQ(areas.chassis, image.data() + 8);
    EXPECT_EQ(areas.board, image.data() + 16);
    EXPECT_EQ(areas.product, image.data() + 24);
    EXPECT_EQ(areas.multirecord, image.data() + 32);
}

TEST(FruHeader, LeavesOutAbsentAreas) {
    const FruAreaPointers areas = parsed(Bytes(8));
    EXPECT_EQ(areas.chassis, nullptr);
    EXPECT_EQ(areas.board, nullptr);
    EXPECT_EQ(areas.product, nullptr);
    EXPECT_EQ(areas.multirecord, nullptr);
}

TEST(FruHeader, TakesOffsetsUpTo31AndOfTheProductAreaUpTo63) {
    for (unsigned offset = 0; offset <= 0xFF; ++offset) {
        const auto byte = static_cast<uint8_t>(offset);
        const Bytes image{1, 0, byte, byte, byte, byte, 0, 0};
        const uint8_t* const position = image.data() + offset * 8;
        const uint8_t* const up_to_31 = offset >= 1 && offset <= 31 ? position : nullptr;
        const uint8_t* const up_to_63 = offset >= 1 && offset <= 63 ? position : nullptr;

        const FruAreaPointers areas = parsed(image);

        EXPECT_EQ(areas.chassis, up_to_31) << offset;
        EXPECT_EQ(areas.board, up_to_31) << offset;
        EXPECT_EQ(areas.product, up_to_63) << offset;
        EXPECT_EQ(areas.multirecord, up_to_31) << offset;
    }
}

TEST(FruHeader, FindsAProductAreaAt320ButNoBoardAreaThere) {
    const Bytes image{1, 0, 0, 40, 40, 0, 0, 0};
    const FruAreaPointers areas = parsed(image);
    EXPECT_EQ(areas.product, image.data() + 320);
    EXPECT_EQ(areas.board, nullptr);
}

TEST(FruHeader, LooksAtNoOtherByte) {
    const Bytes image{0xFF, 0xFF, 1, 0, 0, 0, 0xFF, 0xFF};
    EXPECT_EQ(parsed(image).chassis, image.data() + 8);
}

TEST(FruHeader, FailsForNullPointers) {
    const Bytes image(8);
    FruAreaPointers areas{};
    EXPECT_EQ(parse_fru_header(nullptr, &areas), -1);
    EXPECT_EQ(parse_fru_header(image.data(), nullptr), -1);
}

// ---- fields

/// One decoded field that frees its data. It begins with values that no field has.
struct Decoded {
    explicit Decoded(const uint8_t* field, const uint8_t* end) { result = fru_tlv2raw(field, &out, &next, end); }
    explicit Decoded(const Bytes& bytes) : Decoded(bytes.data(), bytes.data() + bytes.size()) {}
    ~Decoded() { std::free(out.data); }
    Decoded(const Decoded&) = delete;
    Decoded& operator=(const Decoded&) = delete;

    Bytes data() const { return Bytes(out.data, out.data + out.length); }

    int result = 0;
    FruField out{0x77, 0x88, nullptr};
    const uint8_t untouched = 0;
    const uint8_t* next = &untouched;
};

Bytes field_bytes(std::initializer_list<Field> fields) {
    Bytes bytes;
    for (const Field& field : fields) vpdd::images::append(bytes, field.bytes());
    return bytes;
}

TEST(FruField, CopiesTextWithATerminator) {
    const Bytes bytes = field_bytes({"ACME", "next"});
    const Decoded field(bytes);
    EXPECT_EQ(field.result, 0);
    EXPECT_EQ(field.out.type, 3);
    EXPECT_EQ(field.out.length, 4);
    EXPECT_STREQ(reinterpret_cast<const char*>(field.out.data), "ACME");
    EXPECT_EQ(field.next, bytes.data() + 5);
}

TEST(FruField, CopiesBinaryBytes) {
    const Bytes bytes = field_bytes({Field::binary({0x00, 0xFF, 0x10}), "next"});
    const Decoded field(bytes);
    EXPECT_EQ(field.out.type, 0);
    EXPECT_THAT(field.data(), ElementsAre(0x00, 0xFF, 0x10));
}

TEST(FruField, CopiesTheLongestField) {
    const Bytes bytes = field_bytes({std::string(63, 'x'), "next"});
    const Decoded field(bytes);
    EXPECT_EQ(field.out.length, 63);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(field.out.data)), std::string(63, 'x'));
    EXPECT_EQ(field.next, bytes.data() + 64);
}

TEST(FruField, LeavesSixBitTextPacked) {
    const Bytes bytes = field_bytes({Field::six_bit("IPMI"), "next"});
    const Decoded field(bytes);
    EXPECT_EQ(field.out.type, 2);
    EXPECT_EQ(field.out.length, 3);
    EXPECT_THAT(field.data(), ElementsAre(0x29, 0xDC, 0xA6));
}

TEST(FruField, DecodesBcdPlusOneCharacterAByte) {
    const Bytes bytes = field_bytes({Field::bcd_plus({0x01, 0x0B, 0x1F}), "next"});
    const Decoded field(bytes);
    EXPECT_EQ(field.out.type, 1);
    EXPECT_EQ(field.out.length, 3);
    EXPECT_STREQ(reinterpret_cast<const char*>(field.out.data), "1-?");
}

TEST(FruField, DecodesEveryBcdPlusByte) {
    for (unsigned value = 0; value <= 0xFF; ++value) {
        const Bytes bytes{0x41, static_cast<uint8_t>(value), 0xC1};
        const char expected = value <= 15 ? "0123456789 -.???"[value] : '?';
        const Decoded field(bytes);
        EXPECT_EQ(field.data(), Bytes{static_cast<uint8_t>(expected)}) << value;
    }
}

TEST(FruField, PassesAnEmptyFieldAndKeepsTheType) {
    for (const uint8_t type_length : {0x00, 0x40, 0x80, 0xC0}) {
        const Bytes bytes{type_length, 0xC2, 'a', 'b'};
        const Decoded field(bytes);
        EXPECT_EQ(field.result, 0);
        EXPECT_EQ(field.out.type, 0x77);
        EXPECT_EQ(field.out.length, 0);
        EXPECT_EQ(field.out.data, nullptr);
        EXPECT_EQ(field.next, bytes.data() + 1);
    }
}

TEST(FruField, EndsTheWalkWithAnEmptyFieldAtTheEnd) {
    const Bytes bytes{0xC0};
    const Decoded field(bytes);
    EXPECT_EQ(field.result, 0);
    EXPECT_EQ(field.out.length, 0);
    EXPECT_EQ(field.next, nullptr);
}

TEST(FruField, EndsTheWalkAtTheEndMarker) {
    const Bytes bytes{0xC1, 'a', 'b', 'c'};
    const Decoded field(bytes);
    EXPECT_EQ(field.result, 0);
    EXPECT_EQ(field.out.type, 0x77);
    EXPECT_EQ(field.out.length, 0);
    EXPECT_EQ(field.out.data, nullptr);
    EXPECT_EQ(field.next, nullptr);
}

TEST(FruField, TakesASingleByteOfAnotherTypeForAField) {
    for (const uint8_t type_length : {0x01, 0x41, 0x81}) {
        const Bytes bytes{type_length, 0x05, 0xC1};
        const Decoded field(bytes);
        EXPECT_EQ(field.out.length, 1);
        EXPECT_EQ(field.out.type, type_length >> 6);
        EXPECT_EQ(field.next, bytes.data() + 2);
    }
}

TEST(FruField, GivesDataThatEndsExactlyAtTheEndAndEndsTheWalk) {
    const Bytes bytes = field_bytes({"abc"});
    const Decoded field(bytes);
    EXPECT_THAT(field.data(), ElementsAre('a', 'b', 'c'));
    EXPECT_EQ(field.next, nullptr);
}

TEST(FruField, GoesOnWhenOneByteIsLeft) {
    const Bytes bytes = field_bytes({"abc", ""});
    const Decoded field(bytes);
    EXPECT_EQ(field.next, bytes.data() + 4);
}

TEST(FruField, DecodesAFieldThatRunsOverTheEndWhole) {
    const Bytes bytes = field_bytes({"abcdef", "next"});
    const Decoded field(bytes.data(), bytes.data() + 3);
    EXPECT_EQ(field.result, 0);
    EXPECT_THAT(field.data(), ElementsAre('a', 'b', 'c', 'd', 'e', 'f'));
    EXPECT_EQ(field.next, nullptr);
}

TEST(FruField, DecodesAFieldThatBeginsAtOrBeyondTheEndWhole) {
    const Bytes bytes = field_bytes({"xyz", "abc", "next"});
    for (const std::size_t end : {4, 2, 0}) {
        const Decoded field(bytes.data() + 4, bytes.data() + end);
        EXPECT_EQ(field.result, 0);
        EXPECT_THAT(field.data(), ElementsAre('a', 'b', 'c'));
        EXPECT_EQ(field.next, nullptr);
    }
}

TEST(FruField, EndsTheWalkWithAnEmptyFieldBeyondTheEnd) {
    const Bytes bytes{0xC0, 0xC0, 0xC0};
    const Decoded field(bytes.data() + 2, bytes.data() + 1);
    EXPECT_EQ(field.result, 0);
    EXPECT_EQ(field.next, nullptr);
}

TEST(FruField, FailsForNullPointers) {
    const Bytes bytes = field_bytes({"abc", "next"});
    const uint8_t* const end = bytes.data() + bytes.size();
    const uint8_t* next = bytes.data();
    FruField out{0x77, 0x88, nullptr};
    EXPECT_EQ(fru_tlv2raw(nullptr, &out, &next, end), -1);
    EXPECT_EQ(fru_tlv2raw(bytes.data(), nullptr, &next, end), -1);
    EXPECT_EQ(fru_tlv2raw(bytes.data(), &out, nullptr, end), -1);
    EXPECT_EQ(fru_tlv2raw(bytes.data(), &out, &next, nullptr), -1);
    EXPECT_EQ(out.type, 0x77);
    EXPECT_EQ(out.length, 0x88);
    EXPECT_EQ(next, bytes.data());
}

TEST(FruField, ReportsAFailedAllocationAndKeepsThePosition) {
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer owns malloc";
    const Bytes bytes = field_bytes({"abc", "next"});
    const uint8_t* next = bytes.data();
    uint8_t stale = 0;
    FruField out{0x77, 0x88, &stale};
    std::string error;
    int result = 0;
    {
        const CaptureStderr capture;
        const AllocationWatch watch(1);
        result = fru_tlv2raw(bytes.data(), &out, &next, bytes.data() + bytes.size());
        error = capture.text();
    }
    EXPECT_EQ(result, ENOMEM);
    EXPECT_EQ(error, "malloc: Cannot allocate memory\n");
    EXPECT_EQ(out.data, nullptr);
    EXPECT_EQ(next, bytes.data());
}

TEST(FruBcdArray, HoldsTheBcdPlusAlphabet) {
    EXPECT_EQ(sizeof fru_bcd_array, 17U);
    EXPECT_STREQ(fru_bcd_array, "0123456789 -.???");
}

// ---- checksums

TEST(FruChecksum, IsThePlainSumModulo256) {
    const Bytes bytes{0xF0, 0x0F, 0x03};
    EXPECT_EQ(ipmi_fru_get_checksum(bytes.data(), 1), 0xF0);
    EXPECT_EQ(ipmi_fru_get_checksum(bytes.data(), 2), 0xFF);
    EXPECT_EQ(ipmi_fru_get_checksum(bytes.data(), 3), 0x02);
}

TEST(FruChecksum, IsZeroOfAValidHeader) {
    const Bytes image = vpdd::images::FruImage().chassis({}).build();
    EXPECT_EQ(ipmi_fru_get_checksum(image.data(), 8), 0);
}

TEST(FruChecksum, IsZeroOfAnEmptyRange) {
    const uint8_t byte = 5;
    EXPECT_EQ(ipmi_fru_get_checksum(&byte, 0), 0);
    EXPECT_EQ(ipmi_fru_get_checksum(&byte, -1), 0);
    EXPECT_EQ(ipmi_fru_get_checksum(nullptr, 0), 0);
}

}  // namespace
