// SPDX-License-Identifier: Apache-2.0
#include <cstring>

#include "controller.h"

using namespace vpdd::test;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

constexpr uint32_t maker = VPDD_MAKER_IANA;
constexpr char single_query[] = "vpdd_get_single_property";

// Refusals are remembered as long as the process lives, so each test that expects their line has a path of its own.

// No output begins as zero, so that each test sees whether it was set.
uint8_t somewhere;

struct Value {
    int result;
    std::unique_ptr<void, Freed> value;
    uint32_t length;

    const char* text() const { return static_cast<const char*>(value.get()); }
    Bytes bytes(std::size_t count) const {
        const auto* first = static_cast<const uint8_t*>(value.get());
        return {first, first + count};
    }
};

Value read(const Bytes& path_tlv) {
    void* value = &somewhere;
    uint32_t length = 77;
    const int result = vpdd_get_single_property(path_tlv.data(), &value, &length);
    return {result, std::unique_ptr<void, Freed>(value), length};
}

Value read(const std::string& path) { return read(string_tlv(path)); }

Value read_by_text(const char* path) {
    void* value = &somewhere;
    uint32_t length = 77;
    const int result = vpdd_get_property(path, &value, &length);
    return {result, std::unique_ptr<void, Freed>(value), length};
}

void expect_failed(const Value& value, int result) {
    EXPECT_EQ(value.result, result);
    EXPECT_EQ(value.value, nullptr);
    EXPECT_EQ(value.length, 0U);
}

using SingleProperty = ControllerTest;

// ---- the request

TEST_F(SingleProperty, IsAskedForWithTheMakersNumberAndTheSizeOfThePath) {
    set("/v2/abc", "value");

    EXPECT_EQ(read("/v2/abc").result, 0);

    const Bytes head{
        static_cast<uint8_t>(maker), static_cast<uint8_t>(maker >> 8), static_cast<uint8_t>(maker >> 16), 0, 0, 8};
    EXPECT_THAT(platform.requests(), ElementsAre(IpmiCall{0x2E, 0x32, head + string_tlv("/v2/abc")}));
    EXPECT_EQ(platform.requests().at(0).room, 256U);
}

TEST_F(SingleProperty, MayHaveAPathOf127Characters) {
    const std::string path(127, 'p');
    set(path, "value");

    EXPECT_EQ(read(path).result, 0);

    const Bytes data = platform.requests().at(0).data;
    ASSERT_EQ(data.size(), 127U + 7U);
    EXPECT_EQ(data[5], 128);
    EXPECT_EQ(data[6], 0xFF);
}

TEST_F(SingleProperty, IsAskedForByTheLengthInTheHeadAlone) {
    set("ab", "value");

    EXPECT_EQ(read(Bytes{0x82, 'a', 'b', 'c', 'd'}).result, 0);

    EXPECT_THAT(platform.requests().at(0).data, SizeIs(2 + 7));
}

TEST_F(SingleProperty, OfAPathOf128CharactersIsAskedForByAnEmptyOne) {
    set("", "value");

    EXPECT_STREQ(read_by_text(std::string(128, 'p').c_str()).text(), "value");

    EXPECT_THAT(platform.requests().at(0).data, SizeIs(7));
    EXPECT_EQ(platform.requests().at(0).data[5], 1);
    EXPECT_EQ(platform.requests().at(0).data[6], 0x80);
}

// ---- values

TEST_F(SingleProperty, MayBeAText) {
    set("/text", "some text");
    const Value value = read("/text");
    EXPECT_EQ(value.result, 0);
    EXPECT_STREQ(value.text(), "some text");
    EXPECT_EQ(value.length, 9U);
    EXPECT_TRUE(platform.logged_nothing());
}

TEST_F(SingleProperty, MayBeTheLongestText) {
    const std::string longest(127, 'v');
    set("/text", longest);
    const Value value = read("/text");
    EXPECT_EQ(value.text(), longest);
    EXPECT_EQ(value.length, 127U);
}

TEST_F(SingleProperty, MayBeBytes) {
    set("/bytes", bytes_tlv({0, 1, 2, 0xFF}));
    const Value value = read("/bytes");
    EXPECT_EQ(value.result, 0);
    EXPECT_EQ(value.length, 4U);
    EXPECT_EQ(value.bytes(5), (Bytes{0, 1, 2, 0xFF, 0}));
}

TEST_F(SingleProperty, MayBeWordsWhoseLengthIsTheirCount) {
    set("/words", words_tlv({0x34, 0x12, 0x78, 0x56}));
    const Value value = read("/words");
    EXPECT_EQ(value.result, 0);
    ASSERT_EQ(value.length, 2U);
    uint16_t words[2];
    std::memcpy(words, value.value.get(), sizeof words);
    EXPECT_THAT(words, ElementsAre(0x1234, 0x5678));
}

TEST_F(SingleProperty, IsOfTheFirstOfTheTypesThatItsHeadNames) {
    set("/string", Bytes{0xB1} + Bytes(0x31, 's'));
    EXPECT_EQ(read("/string").length, 0x31U);
    set("/bytes", Bytes{0x72, 5, 6});
    EXPECT_EQ(read("/bytes").bytes(3), (Bytes{5, 6, 0}));
    set("/words", Bytes{0x62, 5, 6});
    EXPECT_EQ(read("/words").length, 1U);
}

TEST_F(SingleProperty, IsDecodedByItsHeadWhateverTheLengthInTheAnswer) {
    platform.ipmi.always(single_answer(0, 0xFF, 1, string_tlv("abc")));
    EXPECT_STREQ(read("/a").text(), "abc");
}

TEST_F(SingleProperty, OfAShortAnswerIsFilledUpWithZeros) {
    platform.ipmi.always(single_answer(0, 0, 9, {0x84, 'a', 'b'}));
    const Value value = read("/a");
    EXPECT_EQ(value.length, 4U);
    EXPECT_EQ(value.bytes(5), (Bytes{'a', 'b', 0, 0, 0}));
}

// ---- failures

TEST_F(SingleProperty, TakesNothingFromAnAttemptThatWasRefused) {
    platform.ipmi.then({0, Bytes{0xC3, 0, 0, 0, 0, 0, 4} + string_tlv("old")});
    platform.ipmi.then(ipmi_completion(0));
    expect_failed(read("/v2/name"), -3);
}

TEST_F(SingleProperty, FailsWhenTheRequestDoes) {
    platform.ipmi.fail_always();
    expect_failed(read("/a"), -2);
    EXPECT_THAT(platform.log(),
                ElementsAre(LogLine{warning, pid_line("vpdd_get_single_property - Send IPMI Command Failed.\n")}));
    EXPECT_THAT(platform.requests(), SizeIs(3));
    EXPECT_THAT(platform.sleeps(), Each(300000));
}

TEST_F(SingleProperty, FailsAlikeWhenTheControllerDoesNotHaveIt) {
    platform.ipmi.always(ipmi_completion(0xCB));
    expect_failed(read("/a"), -2);
    EXPECT_TRUE(warned(single_query, "Send IPMI Command Failed.\n"));
    EXPECT_THAT(platform.requests(), SizeIs(1));
}

TEST_F(SingleProperty, WithoutALengthFailsWhateverTheHighByte) {
    platform.ipmi.then(single_answer(0, 0, 0, string_tlv("abc")));
    expect_failed(read("/a"), -3);
    EXPECT_THAT(
        platform.log(),
        ElementsAre(LogLine{warning, pid_line("vpdd_get_single_property - Invalid firmware property length(00).\n")}));
    platform.ipmi.then(single_answer(0, 0x1A, 0, string_tlv("abc")));
    expect_failed(read("/a"), -3);
    EXPECT_TRUE(warned(single_query, "Invalid firmware property length(1a0).\n"));
}

TEST_F(SingleProperty, OfAnEmptySuccessHasNoLength) {
    platform.ipmi.always({0, {0x00}, 0});
    expect_failed(read("/a"), -3);
    EXPECT_TRUE(warned(single_query, "Invalid firmware property length(00).\n"));
    EXPECT_THAT(platform.requests(), SizeIs(3));
}

TEST_F(SingleProperty, OfAnotherTypeFails) {
    set("/a", Bytes{0x44, 1, 2, 3});
    expect_failed(read("/a"), -1);
    EXPECT_THAT(platform.log(),
                ElementsAre(LogLine{warning, pid_line("vpdd_get_single_property - Invalid BMC property head(44).\n")}));
    set("/a", Bytes{0x05, 1, 2, 3});
    expect_failed(read("/a"), -1);
    EXPECT_TRUE(warned(single_query, "Invalid BMC property head(5).\n"));
}

TEST_F(SingleProperty, ThatIsAStringWithoutCharactersDoesNotDecode) {
    set("/a", Bytes{0x80, 'a'});
    expect_failed(read("/a"), -4);
    EXPECT_THAT(platform.log(),
                ElementsAre(LogLine{warning, pid_line("vpdd_get_single_property - TLV 2 String Failed, First Byte = "
                                                      "0x80.\n")}));
}

TEST_F(SingleProperty, ThatIsWordsWithoutAWordDoesNotDecode) {
    set("/a", Bytes{0x21, 'a'});
    expect_failed(read("/a"), -4);
    EXPECT_THAT(
        platform.log(),
        ElementsAre(LogLine{warning, pid_line("vpdd_get_single_property - TLV 2 WORD Failed, First Byte = 0x21.\n")}));
}

TEST_F(SingleProperty, DoesNotDecodeWithoutMemory) {
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer owns malloc";
    struct {
        Bytes value;
        const char* text;
    } const rows[] = {{string_tlv("a"), "TLV 2 String Failed, First Byte = 0x81.\n"},
                      {bytes_tlv({1}), "TLV 2 Byte Failed, First Byte = 0x11.\n"},
                      {words_tlv({1, 2}), "TLV 2 WORD Failed, First Byte = 0x22.\n"}};
    for (const auto& row : rows) {
        set("/a", row.value);
        const AllocationWatch watch(1);
        expect_failed(read("/a"), -4);
        EXPECT_TRUE(warned(single_query, row.text));
        EXPECT_EQ(watch.live_blocks(), 0U);
    }
}

TEST_F(SingleProperty, LeavesNothingBehindAfterAnyFailure) {
    const Bytes path = string_tlv("/leak");
    const std::vector<IpmiReply> answers{
        ipmi_dead(),          ipmi_completion(0xCB),  single_answer(0x80, 0, 5, {}), single_answer(0, 0, 0, {}),
        value_answer({0x80}), value_answer({0x44, 1})};
    for (const IpmiReply& answer : answers) {
        platform.ipmi.reset();
        platform.ipmi.always(answer);
        const AllocationWatch watch;
        EXPECT_NE(read(path).result, 0);
        EXPECT_EQ(watch.live_blocks(), 0U);
    }
}

TEST_F(SingleProperty, RefusesNullArgumentsWithoutARequest) {
    const Bytes path = string_tlv("/a");
    void* value = &somewhere;
    uint32_t length = 77;
    EXPECT_EQ(vpdd_get_single_property(nullptr, &value, &length), -1);
    EXPECT_EQ(vpdd_get_single_property(path.data(), nullptr, &length), -1);
    EXPECT_EQ(vpdd_get_single_property(path.data(), &value, nullptr), -1);
    EXPECT_THAT(platform.journal(), IsEmpty());
}

// ---- refusals

std::string refusal(int status, const std::string& path) {
    return formatted("Invalid Response [4](%x), property(%s).\n", static_cast<unsigned>(status), path.c_str());
}

TEST_F(SingleProperty, ThatIsRefusedIsLoggedWithItsStatusAndPath) {
    platform.ipmi.always(single_answer(0x80, 0, 4, string_tlv("abc")));
    expect_failed(read("/refused"), -3);
    EXPECT_THAT(platform.log(),
                ElementsAre(LogLine{warning, pid_line("vpdd_get_single_property - Invalid Response [4](80), "
                                                      "property(/refused).\n")}));
}

TEST_F(SingleProperty, IsRefusedByEveryStatusButZero) {
    for (int status = 1; status <= 0xFF; ++status) {
        platform.ipmi.then(single_answer(static_cast<uint8_t>(status), 0, 4, string_tlv("abc")));
        expect_failed(read("/every"), -3);
        EXPECT_TRUE(warned(single_query, refusal(status, "/every")));
    }
}

TEST_F(SingleProperty, ThatIsRefusedTwiceInARowIsLoggedOnce) {
    platform.ipmi.always(single_answer(0x80, 0, 0, {}));
    expect_failed(read("/twice"), -3);
    expect_failed(read("/twice"), -3);
    EXPECT_EQ(times_warned(single_query, refusal(0x80, "/twice")), 1U);
}

TEST_F(SingleProperty, ThatIsRefusedAgainBehindAnotherOneIsLoggedAgain) {
    platform.ipmi.always(single_answer(0x80, 0, 0, {}));
    for (const char* path : {"/again/a", "/again/b", "/again/a"}) read(path);
    EXPECT_EQ(times_warned(single_query, refusal(0x80, "/again/a")), 2U);
    EXPECT_EQ(times_warned(single_query, refusal(0x80, "/again/b")), 1U);
}

TEST_F(SingleProperty, ThatIsRefusedWithAnotherStatusIsLoggedAgain) {
    platform.ipmi.then(single_answer(0x80, 0, 0, {}));
    platform.ipmi.then(single_answer(0x08, 0, 0, {}));
    read("/statuses");
    read("/statuses");
    EXPECT_TRUE(warned(single_query, refusal(0x80, "/statuses")));
    EXPECT_TRUE(warned(single_query, refusal(0x08, "/statuses")));
}

TEST_F(SingleProperty, WhosePathBeginsWithTheLastRefusedOneIsLogged) {
    platform.ipmi.always(single_answer(0x80, 0, 0, {}));
    for (const char* path : {"/prefix/long", "/prefix", "/prefix/long"}) read(path);
    EXPECT_EQ(times_warned(single_query, refusal(0x80, "/prefix/long")), 2U);
    EXPECT_EQ(times_warned(single_query, refusal(0x80, "/prefix")), 1U);
}

TEST_F(SingleProperty, ThatIsRefusedAgainBehindSuccessesAndOtherFailuresIsNotLoggedAgain) {
    set("/good", "value");
    set("/other", Bytes{0x44});
    read("/uncleared");
    read("/good");
    read("/other");
    platform.ipmi.then(single_answer(0, 0, 0, {}));
    read("/empty");
    read("/uncleared");
    EXPECT_EQ(times_warned(single_query, refusal(unknown_path, "/uncleared")), 1U);
}

TEST_F(SingleProperty, IsNamedUpToTheEndOfItsTlv) {
    platform.ipmi.always(single_answer(1, 0, 0, {}));
    // A block without a byte behind the path.
    const std::unique_ptr<uint8_t, Freed> tlv(static_cast<uint8_t*>(std::malloc(5)));
    std::memcpy(tlv.get(), "\x84/end", 5);
    void* value = nullptr;
    uint32_t length = 0;
    EXPECT_EQ(vpdd_get_single_property(tlv.get(), &value, &length), -3);
    EXPECT_TRUE(warned(single_query, refusal(1, "/end")));
}

TEST_F(SingleProperty, WithDirectivesInItsPathIsNamedAsItIs) {
    platform.ipmi.always(single_answer(1, 0, 0, {}));
    read("/%s%n%x%999d");
    EXPECT_TRUE(warned(single_query, refusal(1, "/%s%n%x%999d")));
}

TEST_F(SingleProperty, OfTheLongestPathIsNamedWhole) {
    platform.ipmi.always(single_answer(1, 0, 0, {}));
    read(std::string(127, 'q'));
    read(std::string(127, 'q'));
    EXPECT_EQ(times_warned(single_query, refusal(1, std::string(127, 'q'))), 1U);
}

TEST_F(SingleProperty, WhosePathDiffersInItsLastCharacterAloneIsLogged) {
    platform.ipmi.always(single_answer(1, 0, 0, {}));
    for (const char* end : {"a", "b", "a"}) read(std::string(126, 'r') + end);
    EXPECT_EQ(times_warned(single_query, refusal(1, std::string(126, 'r') + "a")), 2U);
    EXPECT_EQ(times_warned(single_query, refusal(1, std::string(126, 'r') + "b")), 1U);
}

// ---- by a path text

using PropertyByText = ControllerTest;

TEST_F(PropertyByText, IsTheValueAndItsLength) {
    set("/v2/abc", "value");
    const Value value = read_by_text("/v2/abc");
    EXPECT_EQ(value.result, 0);
    EXPECT_STREQ(value.text(), "value");
    EXPECT_EQ(value.length, 5U);
    EXPECT_THAT(asked_paths(), ElementsAre("/v2/abc"));
}

TEST_F(PropertyByText, IsReadUnderItsMutex) {
    set("/a", "value");
    const LockJournal locks;
    read_by_text("/a");
    EXPECT_THAT(platform.journal(),
                ElementsAre("lock compvpd_getproperty_mutex", "ipmi 2E/32", "unlock compvpd_getproperty_mutex"));
}

TEST_F(PropertyByText, MapsEveryFailureAndUnlocks) {
    const std::vector<IpmiReply> answers{
        ipmi_dead(),          ipmi_completion(0xCB),  single_answer(0x80, 0, 5, {}), single_answer(0, 0, 0, {}),
        value_answer({0x80}), value_answer({0x44, 1})};
    for (const IpmiReply& answer : answers) {
        platform.reset();
        platform.ipmi.always(answer);
        const AllocationWatch watch;
        const LockJournal locks;
        expect_failed(read_by_text("/a"), -1);
        EXPECT_EQ(platform.journal().front(), "lock compvpd_getproperty_mutex");
        EXPECT_EQ(platform.journal().back(), "unlock compvpd_getproperty_mutex");
        EXPECT_EQ(watch.live_blocks(), 0U);
    }
}

TEST_F(PropertyByText, WithoutAPathFailsUnderTheMutex) {
    const LockJournal locks;
    expect_failed(read_by_text(nullptr), -1);
    EXPECT_THAT(platform.journal(), ElementsAre("lock compvpd_getproperty_mutex",
                                                "log 12 " + pid_line("vpdd_get_property - String 2 TLV Failed\n"),
                                                "unlock compvpd_getproperty_mutex"));
}

TEST_F(PropertyByText, FailsWithoutMemory) {
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer owns malloc";
    set("/a", "value");
    {
        const AllocationWatch watch(1);
        expect_failed(read_by_text("/a"), -1);
        EXPECT_TRUE(warned("vpdd_get_property", "String 2 TLV Failed\n"));
        EXPECT_THAT(platform.requests(), IsEmpty());
        EXPECT_EQ(watch.live_blocks(), 0U);
    }
    const AllocationWatch watch(2);
    expect_failed(read_by_text("/a"), -1);
    EXPECT_TRUE(watch.has_failed());
    EXPECT_EQ(watch.live_blocks(), 0U);
}

TEST_F(PropertyByText, HandsOutOneBlockAndKeepsNone) {
    set("/a", "value");
    const AllocationWatch watch;
    const Value value = read_by_text("/a");
    if (allocator_can_fail) {
        EXPECT_THAT(watch.blocks(), ElementsAre(value.value.get()));
    }
}

TEST_F(PropertyByText, RefusesNullOutputs) {
    set("/a", "value");
    void* value = &somewhere;
    uint32_t length = 77;
    EXPECT_EQ(vpdd_get_property("/a", nullptr, &length), -1);
    EXPECT_EQ(vpdd_get_property("/a", &value, nullptr), -1);
}

// ---- copies

class CopiedProperty : public ControllerTest {
protected:
    using Copy = int (*)(uint32_t*, uint32_t, const char*, void*);

    int copy(Copy function, const char* path, uint32_t size = 0) {
        std::memset(destination, 0xEE, sizeof destination);
        length = 77;
        return function(&length, size, path, destination);
    }
    Bytes copied(std::size_t count) const { return Bytes(destination, destination + count); }

    uint8_t destination[200];
    uint32_t length = 0;
};

TEST_F(CopiedProperty, AsATextHasNoTerminator) {
    set("/a", "value");
    EXPECT_EQ(copy(GetStringPropertyViaVpdd, "/a"), 0);
    EXPECT_EQ(length, 5U);
    EXPECT_EQ(copied(6), bytes_of("value") + Bytes{0xEE});
}

TEST_F(CopiedProperty, AsATextIsStrippedButHasTheLengthOfBefore) {
    set("/a", "value \n ");
    EXPECT_EQ(copy(GetStringPropertyViaVpdd, "/a"), 0);
    EXPECT_EQ(length, 8U);
    EXPECT_EQ(copied(9), (bytes_of("value") + Bytes{0, 0, 0, 0xEE}));

    set("/a", "\t value ");
    EXPECT_EQ(copy(GetStringPropertyViaVpdd, "/a"), 0);
    EXPECT_EQ(length, 8U);
    EXPECT_EQ(copied(6), bytes_of("value") + Bytes{0});
    EXPECT_EQ(destination[8], 0xEE);
}

TEST_F(CopiedProperty, OfBlanksIsEmpty) {
    set("/a", "   ");
    EXPECT_EQ(copy(GetStringPropertyViaVpdd, "/a"), 0);
    EXPECT_EQ(length, 3U);
    EXPECT_EQ(copied(4), (Bytes{0, 0, 0, 0xEE}));
}

TEST_F(CopiedProperty, OfTheLongestTextIsWhole) {
    set("/a", std::string(127, 'x'));
    EXPECT_EQ(copy(GetStringPropertyViaVpdd, "/a"), 0);
    EXPECT_EQ(length, 127U);
    EXPECT_EQ(copied(128), Bytes(127, 'x') + Bytes{0xEE});
}

TEST_F(CopiedProperty, IsCopiedWhateverTheSize) {
    set("/a", "value");
    for (const uint32_t size : {0U, 1U, 5U, 0xFFFFFFFFU}) {
        for (const Copy function : {GetStringPropertyViaVpdd, GetBytePropertyViaVpdd}) {
            EXPECT_EQ(copy(function, "/a", size), 0);
            EXPECT_EQ(copied(6), bytes_of("value") + Bytes{0xEE}) << size;
        }
    }
}

TEST_F(CopiedProperty, AsBytesIsNotStripped) {
    set("/a", bytes_tlv({' ', 1, 0, 2, ' ', '\n'}));
    EXPECT_EQ(copy(GetBytePropertyViaVpdd, "/a"), 0);
    EXPECT_EQ(length, 6U);
    EXPECT_EQ(copied(7), (Bytes{' ', 1, 0, 2, ' ', '\n', 0xEE}));

    set("/a", " text ");
    EXPECT_EQ(copy(GetBytePropertyViaVpdd, "/a"), 0);
    EXPECT_EQ(copied(7), bytes_of(" text ") + Bytes{0xEE});
}

TEST_F(CopiedProperty, OfBytesIsStrippedWhenATextIsWanted) {
    set("/a", bytes_tlv({' ', 'x', ' '}));
    EXPECT_EQ(copy(GetStringPropertyViaVpdd, "/a"), 0);
    EXPECT_EQ(length, 3U);
    EXPECT_EQ(copied(2), (Bytes{'x', 0}));
}

TEST_F(CopiedProperty, OfWordsIsNeverTakenForAText) {
    // Blanks throughout: stripping would look for their end behind the words.
    set("/a", words_tlv(Bytes(14, ' ')));
    EXPECT_EQ(copy(GetStringPropertyViaVpdd, "/a"), 0);
    EXPECT_EQ(length, 7U);
    EXPECT_EQ(copied(8), Bytes(7, ' ') + Bytes{0xEE});
    EXPECT_EQ(copy(GetBytePropertyViaVpdd, "/a"), 0);
    EXPECT_EQ(copied(8), Bytes(7, ' ') + Bytes{0xEE});
}

struct CopyRow {
    const char* name;
    int (*function)(uint32_t*, uint32_t, const char*, void*);
    const char* mutex;
};

void PrintTo(const CopyRow& row, std::ostream* stream) { *stream << row.name; }

class CopyingQuery : public CopiedProperty, public testing::WithParamInterface<CopyRow> {
protected:
    const std::string lock = std::string("lock ") + GetParam().mutex;
    const std::string unlock = std::string("unlock ") + GetParam().mutex;
};

TEST_P(CopyingQuery, HoldsItsOwnMutexAroundTheOneOfTheQuery) {
    set("/a", "value");
    const LockJournal locks;
    copy(GetParam().function, "/a");
    EXPECT_THAT(platform.journal(), ElementsAre(lock, "lock compvpd_getproperty_mutex", "ipmi 2E/32",
                                                "unlock compvpd_getproperty_mutex", unlock));
}

TEST_P(CopyingQuery, FailsWithoutADestinationAndUnlocks) {
    const LockJournal locks;
    EXPECT_EQ(GetParam().function(&length, 100, "/a", nullptr), -1);
    EXPECT_THAT(platform.journal(), ElementsAre(lock, unlock));
}

TEST_P(CopyingQuery, FailsWithoutAPlaceForTheLengthAndUnlocks) {
    const LockJournal locks;
    EXPECT_EQ(GetParam().function(nullptr, 100, "/a", destination), -1);
    EXPECT_THAT(platform.journal(), ElementsAre(lock, unlock));
}

TEST_P(CopyingQuery, FailsAsTheQueryDoesAndUnlocksAndCopiesNothing) {
    const LockJournal locks;
    EXPECT_EQ(copy(GetParam().function, "/not/set"), -1);
    EXPECT_EQ(length, 0U);
    EXPECT_EQ(platform.journal().front(), lock);
    EXPECT_EQ(platform.journal().back(), unlock);
    EXPECT_THAT(destination, Each(0xEE));
}

TEST_P(CopyingQuery, FreesTheValue) {
    set("/a", "value");
    const AllocationWatch watch;
    copy(GetParam().function, "/a");
    if (allocator_can_fail) {
        EXPECT_GT(watch.allocations(), 0U);
    }
    EXPECT_EQ(watch.live_blocks(), 0U);
}

INSTANTIATE_TEST_SUITE_P(Both, CopyingQuery,
                         testing::Values(CopyRow{"Text", GetStringPropertyViaVpdd, "compvpd_getstringproperty_mutex"},
                                         CopyRow{"Bytes", GetBytePropertyViaVpdd, "compvpd_getbyteproperty_mutex"}),
                         [](const auto& row) { return row.param.name; });

}  // namespace
