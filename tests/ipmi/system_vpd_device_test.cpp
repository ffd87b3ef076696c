// SPDX-License-Identifier: Apache-2.0
#include <numeric>

#include "failing_allocator.h"
#include "fake_platform.h"

using namespace vpdd::test;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

/// Completion code and `count` bytes that count up from `first`.
IpmiReply answer(uint8_t code, uint8_t first, std::size_t count) {
    Bytes bytes(1 + count);
    bytes[0] = code;
    std::iota(bytes.begin() + 1, bytes.end(), first);
    return {0, bytes};
}

Bytes counting(uint8_t first, std::size_t count) {
    Bytes bytes(count);
    std::iota(bytes.begin(), bytes.end(), first);
    return bytes;
}

Bytes slice(const Bytes& bytes, std::size_t first, std::size_t count) {
    const auto begin = bytes.begin() + static_cast<std::ptrdiff_t>(first);
    return Bytes(begin, begin + static_cast<std::ptrdiff_t>(count));
}

class ReadVpdFromIpmi : public PlatformTest {
protected:
    int read(uint32_t length) {
        dest.assign(length, 0xEE);
        return readvpd_from_ipmi(length, dest.data());
    }

    Bytes dest;
};

TEST_F(ReadVpdFromIpmi, SendsARawFrame) {
    read(3);
    const auto calls = platform.ipmi_raw.calls();
    ASSERT_THAT(calls, SizeIs(1));
    EXPECT_THAT(calls[0].frame, ElementsAre(0x20, 0x3A, 0x00, 0x0B, 0x00, 0x00, 0x10, 3));
    EXPECT_EQ(calls[0].room, 256U);
    EXPECT_EQ(platform.ipmi.count(), 0U);
}

TEST_F(ReadVpdFromIpmi, DropsTheFirstCompletionCode) {
    platform.ipmi_raw.always(answer(0x5A, 1, 3));
    EXPECT_EQ(read(3), 0);
    EXPECT_THAT(dest, ElementsAre(1, 2, 3));
}

TEST_F(ReadVpdFromIpmi, SendsOneFrameForLengthZero) {
    uint8_t guard = 0xEE;
    EXPECT_EQ(readvpd_from_ipmi(0, &guard), 0);
    EXPECT_EQ(guard, 0xEE);
    const auto calls = platform.ipmi_raw.calls();
    ASSERT_THAT(calls, SizeIs(1));
    EXPECT_EQ(calls[0].frame.back(), 0);
}

TEST_F(ReadVpdFromIpmi, TakesAnEmptyAnswerForLengthZero) {
    uint8_t guard = 0xEE;
    platform.ipmi_raw.always({0, {}, 0});
    EXPECT_EQ(readvpd_from_ipmi(0, &guard), 0);
}

TEST_F(ReadVpdFromIpmi, ReportsTheStacksResultForLengthZero) {
    uint8_t guard = 0xEE;
    platform.ipmi_raw.always({9});
    EXPECT_EQ(readvpd_from_ipmi(0, &guard), 9);
}

TEST_F(ReadVpdFromIpmi, Reads244BytesInOneFrame) {
    platform.ipmi_raw.always(answer(0, 1, 244));
    EXPECT_EQ(read(244), 0);
    EXPECT_EQ(platform.ipmi_raw.count(), 1U);
    EXPECT_EQ(dest, counting(1, 244));
}

TEST_F(ReadVpdFromIpmi, KeepsTheSecondCompletionCodeInsideTheData) {
    platform.ipmi_raw.then(answer(0x11, 1, 244));
    platform.ipmi_raw.then(answer(0x5A, 77, 1));
    EXPECT_EQ(read(245), 0);

    const auto calls = platform.ipmi_raw.calls();
    ASSERT_THAT(calls, SizeIs(2));
    EXPECT_THAT(calls[1].frame, ElementsAre(0x20, 0x3A, 0x00, 0x0B, 244, 0x00, 0x10, 1));
    EXPECT_EQ(slice(dest, 0, 244), counting(1, 244));
    EXPECT_EQ(dest[244], 0x5A);
}

TEST_F(ReadVpdFromIpmi, LosesAsManyBytesAtTheEndAsItKeepsCompletionCodes) {
    platform.ipmi_raw.then(answer(0x11, 1, 244));
    platform.ipmi_raw.then(answer(0x22, 50, 244));
    platform.ipmi_raw.then(answer(0x33, 99, 1));
    EXPECT_EQ(read(489), 0);

    const auto calls = platform.ipmi_raw.calls();
    ASSERT_THAT(calls, SizeIs(3));
    EXPECT_THAT(slice(calls[2].frame, 4, 4), ElementsAre(0xE8, 0x01, 0x10, 1));  // offset 488
    EXPECT_EQ(slice(dest, 0, 244), counting(1, 244));
    EXPECT_EQ(dest[244], 0x22);
    EXPECT_EQ(slice(dest, 245, 244), counting(50, 244));
}

TEST_F(ReadVpdFromIpmi, StatesTheWholeRoomForTheAnswerToEachFrame) {
    platform.ipmi_raw.then(answer(0, 1, 244));
    platform.ipmi_raw.then(answer(0, 1, 250));
    platform.ipmi_raw.then(answer(0, 1, 12));

    EXPECT_EQ(read(500), 0);

    const auto calls = platform.ipmi_raw.calls();
    ASSERT_THAT(calls, SizeIs(3));
    for (const IpmiCall& call : calls) EXPECT_EQ(call.room, 256U);
}

TEST_F(ReadVpdFromIpmi, WrapsTheOffsetAt16Bits) {
    EXPECT_EQ(read(66000), 0);
    const auto calls = platform.ipmi_raw.calls();
    ASSERT_THAT(calls, SizeIs(271));
    // The last chunk begins at 270 x 244 = 65880 and is 120 bytes long.
    EXPECT_THAT(slice(calls.back().frame, 4, 4), ElementsAre(0x58, 0x01, 0x10, 120));
}

TEST_F(ReadVpdFromIpmi, EndsWithTheStacksResult) {
    platform.ipmi_raw.at(2, {7, {0, 1, 2}});
    EXPECT_EQ(read(700), 7);
    EXPECT_EQ(platform.ipmi_raw.count(), 2U);
    EXPECT_THAT(dest, Each(0));
    EXPECT_THAT(platform.sleeps(), IsEmpty());
}

TEST_F(ReadVpdFromIpmi, FailsWhenTheChunkIsLongerThanTheAnswer) {
    platform.ipmi_raw.always(answer(0, 1, 8));
    EXPECT_EQ(read(10), -1);
    EXPECT_THAT(dest, Each(0));
}

TEST_F(ReadVpdFromIpmi, TakesAnAnswerAsLongAsTheChunk) {
    platform.ipmi_raw.always(answer(0, 1, 9));  // completion code included it is 10 bytes
    EXPECT_EQ(read(10), 0);
    EXPECT_THAT(dest, ElementsAre(1, 2, 3, 4, 5, 6, 7, 8, 9, 0));
}

TEST_F(ReadVpdFromIpmi, IgnoresTheCompletionCode) {
    platform.ipmi_raw.always(answer(0xCB, 1, 4));
    EXPECT_EQ(read(4), 0);
    EXPECT_THAT(dest, ElementsAre(1, 2, 3, 4));
}

TEST_F(ReadVpdFromIpmi, AppendsAnAnswerThatIsLongerThanAsked) {
    platform.ipmi_raw.then(answer(0x11, 1, 255));
    platform.ipmi_raw.then(answer(0x22, 50, 16));
    EXPECT_EQ(read(260), 0);
    EXPECT_EQ(slice(dest, 0, 255), counting(1, 255));
    EXPECT_EQ(dest[255], 0x22);
    EXPECT_EQ(slice(dest, 256, 4), counting(50, 4));
}

TEST_F(ReadVpdFromIpmi, StaysInsideItsBuffersWhateverLengthTheAnswerClaims) {
    for (const int64_t claimed : {257LL, 4096LL, 0x7FFFFFFFLL, 0xFFFFFFFFLL}) {
        platform.reset();
        IpmiReply reply = answer(0, 1, 244);
        reply.length = claimed;
        platform.ipmi_raw.always(reply);
        EXPECT_EQ(read(489), 0);
        EXPECT_EQ(slice(dest, 0, 244), counting(1, 244)) << claimed;
    }
}

TEST_F(ReadVpdFromIpmi, RefusesANullDestination) {
    EXPECT_EQ(readvpd_from_ipmi(4, nullptr), -1);
    EXPECT_EQ(platform.ipmi_raw.count(), 0U);
}

TEST_F(ReadVpdFromIpmi, GivesItsScratchBufferBackOnEveryEnd) {
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer owns malloc";
    const AllocationWatch watch;
    read(10);
    platform.ipmi_raw.then(ipmi_dead());
    read(10);
    platform.ipmi_raw.then(answer(0, 1, 2));
    read(10);
    EXPECT_GT(watch.allocations(), 0U);
    EXPECT_EQ(watch.live_blocks(), 0U);
}

TEST_F(ReadVpdFromIpmi, FailsWithoutMemory) {
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer owns malloc";
    const AllocationWatch watch(1);
    EXPECT_EQ(read(10), -1);
    EXPECT_TRUE(watch.has_failed());
}

using SystemVpdDevice = PlatformTest;

TEST_F(SystemVpdDevice, IsReadAsInstanceZero) {
    platform.device({1, 2, 3, 4, 5});
    Bytes buffer(3);
    EXPECT_EQ(sysvpd_read(2, 3, buffer.data()), buffer.data());
    EXPECT_THAT(buffer, ElementsAre(3, 4, 5));
    const auto calls = platform.device_read.calls();
    ASSERT_THAT(calls, SizeIs(1));
    EXPECT_EQ(calls[0].instance, 0U);
    EXPECT_EQ(calls[0].offset, 2U);
    EXPECT_EQ(calls[0].length, 3U);
}

TEST_F(SystemVpdDevice, ReportsAFailedRead) {
    platform.device_read.fail_always();
    Bytes buffer(3);
    EXPECT_EQ(sysvpd_read(0, 3, buffer.data()), nullptr);
}

TEST_F(SystemVpdDevice, IsNotReadWithoutABuffer) {
    EXPECT_EQ(sysvpd_read(0, 3, nullptr), nullptr);
    EXPECT_EQ(platform.device_read.count(), 0U);
}

TEST_F(SystemVpdDevice, IsWrittenAsInstanceZeroWithFlagOne) {
    Bytes buffer{7, 8};
    platform.device_write.always(42);
    EXPECT_EQ(sysvpd_write(0x123, 2, buffer.data()), 42);
    const auto calls = platform.device_write.calls();
    ASSERT_THAT(calls, SizeIs(1));
    EXPECT_EQ(calls[0].instance, 0U);
    EXPECT_EQ(calls[0].offset, 0x123U);
    EXPECT_THAT(calls[0].bytes, ElementsAre(7, 8));
    EXPECT_EQ(calls[0].flag, 1);
}

TEST_F(SystemVpdDevice, IsNotWrittenWithoutABuffer) {
    platform.device_write.always(42);
    EXPECT_EQ(sysvpd_write(0, 3, nullptr), 0);
    EXPECT_EQ(platform.device_write.count(), 0U);
}

}  // namespace
