// SPDX-License-Identifier: Apache-2.0
#include <cstring>

#include "controller.h"

using namespace vpdd::test;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

constexpr char format_name[] = "vpdd_format_all_properties";
constexpr uint32_t string_type = 128, bytes_type = 16;

/// A list of the library's, freed as a caller frees it.
class List {
public:
    explicit List(const Bytes& data) : List(data, data.size()) {}

    /// The data stand in a block of just this length, so that a sanitizer sees what is read behind it.
    List(const Bytes& data, std::size_t length) {
        const std::unique_ptr<uint8_t, Freed> block(static_cast<uint8_t*>(std::malloc(length)));
        std::memcpy(block.get(), data.data(), length);
        result = vpdd_format_all_properties(block.get(), static_cast<uint32_t>(length), &head);
    }
    ~List() { freeVpddAllProperites(&head); }
    List(const List&) = delete;
    List& operator=(const List&) = delete;

    std::vector<const VpddAllProperties*> nodes() const {
        std::vector<const VpddAllProperties*> nodes;
        for (const auto* node = head; node != nullptr; node = node->next) nodes.push_back(node);
        return nodes;
    }

    VpddAllProperties* head = reinterpret_cast<VpddAllProperties*>(1);
    int result = 77;
};

Bytes whole_path(const VpddAllProperties& node) { return {node.path, node.path + sizeof node.path}; }
Bytes whole_value(const VpddAllProperties& node) { return {node.value, node.value + sizeof node.value}; }

/// A field of a node: these bytes and zeros.
Bytes filled(Bytes bytes) {
    bytes.resize(128);
    return bytes;
}

using PropertyList = ControllerTest;

TEST_F(PropertyList, HasANodeForEachPairInTheirOrder) {
    const List list(string_tlv("/a") + string_tlv("one") + string_tlv("/b/c") + bytes_tlv({0, 2, 0xFF}) +
                    string_tlv("/a") + string_tlv("3"));
    EXPECT_EQ(list.result, 0);
    const auto nodes = list.nodes();
    ASSERT_THAT(nodes, SizeIs(3));

    EXPECT_EQ(nodes[0]->type, string_type);
    EXPECT_EQ(nodes[0]->length, 3U);
    EXPECT_EQ(whole_path(*nodes[0]), filled(bytes_of("/a")));
    EXPECT_EQ(whole_value(*nodes[0]), filled(bytes_of("one")));

    EXPECT_EQ(nodes[1]->type, bytes_type);
    EXPECT_EQ(nodes[1]->length, 3U);
    EXPECT_EQ(whole_path(*nodes[1]), filled(bytes_of("/b/c")));
    EXPECT_EQ(whole_value(*nodes[1]), filled({0, 2, 0xFF}));

    EXPECT_EQ(whole_path(*nodes[2]), filled(bytes_of("/a")));
    EXPECT_EQ(whole_value(*nodes[2]), filled(bytes_of("3")));
    EXPECT_TRUE(platform.logged_nothing());
}

TEST_F(PropertyList, HoldsTheLongestPathAndValue) {
    const std::string longest(127, 'x');
    const List list(string_tlv(longest) + string_tlv(longest) + string_tlv("/b") + bytes_tlv(Bytes(16, 7)));
    const auto nodes = list.nodes();
    ASSERT_THAT(nodes, SizeIs(2));
    EXPECT_EQ(whole_path(*nodes[0]), filled(bytes_of(longest)));
    EXPECT_EQ(whole_value(*nodes[0]), filled(bytes_of(longest)));
    EXPECT_EQ(nodes[0]->length, 127U);
    EXPECT_EQ(whole_value(*nodes[1]), filled(Bytes(16, 7)));
    EXPECT_EQ(nodes[1]->length, 16U);
}

TEST_F(PropertyList, KeepsTheLengthOfTheHeadWhenAZeroByteEndsAText) {
    const List list(string_tlv("/a") + Bytes{0x84, 'x', 0, 'y', 'z'} + string_tlv("/b") + string_tlv("next"));
    const auto nodes = list.nodes();
    ASSERT_THAT(nodes, SizeIs(2));
    EXPECT_EQ(nodes[0]->length, 4U);
    EXPECT_EQ(whole_value(*nodes[0]), filled({'x'}));
    EXPECT_EQ(whole_path(*nodes[1]), filled(bytes_of("/b")));
}

TEST_F(PropertyList, TakesAHeadOfSeveralTypesForTheFirst) {
    const List list(Bytes{0xF1} + Bytes(0x71, 'p') + Bytes{0x72, 1, 2});
    const auto nodes = list.nodes();
    ASSERT_THAT(nodes, SizeIs(1));
    EXPECT_EQ(whole_path(*nodes[0]), filled(Bytes(0x71, 'p')));
    EXPECT_EQ(nodes[0]->type, bytes_type);
    EXPECT_EQ(nodes[0]->length, 2U);
}

TEST_F(PropertyList, OfNoDataIsEmpty) {
    const List list(Bytes{1}, 0);
    EXPECT_EQ(list.result, 0);
    EXPECT_EQ(list.head, nullptr);
    EXPECT_TRUE(platform.logged_nothing());
}

TEST_F(PropertyList, EndsWithItsLengthWhateverFollows) {
    const Bytes pair = string_tlv("/a") + string_tlv("one");
    const Bytes data = pair + pair;
    VpddAllProperties* head = nullptr;
    EXPECT_EQ(vpdd_format_all_properties(data.data(), static_cast<uint32_t>(pair.size()), &head), 0);
    ASSERT_NE(head, nullptr);
    EXPECT_EQ(head->next, nullptr);
    freeVpddAllProperites(&head);
}

TEST_F(PropertyList, RefusesNullArguments) {
    const Bytes data = string_tlv("/a") + string_tlv("one");
    auto* head = reinterpret_cast<VpddAllProperties*>(1);
    EXPECT_EQ(vpdd_format_all_properties(nullptr, 5, &head), -2);
    EXPECT_EQ(head, nullptr);
    EXPECT_EQ(vpdd_format_all_properties(nullptr, 0, &head), -2);
    EXPECT_EQ(vpdd_format_all_properties(data.data(), 5, nullptr), -2);
    EXPECT_EQ(times_warned(format_name, "the para is error.\n"), 3U);
    EXPECT_THAT(platform.log(), SizeIs(3));
}

// ---- failures

struct Damage {
    const char* name;
    Bytes data;
    int result;
    const char* text;
};

const Bytes good_path = string_tlv("/a");
constexpr char wrong_length[] = "the length of vpdd property is wrong.\n";
constexpr char wrong_path[] = "the path is not string.\n";
constexpr char wrong_value[] = "the type of value is not correct.\n";

const Damage damages[] = {
    {"PathWithoutCharacters", Bytes{0x80} + string_tlv("one"), -1, wrong_length},
    {"PathWithoutAType", Bytes{0x0F} + string_tlv("one"), -1, wrong_length},
    {"PathOfBytes", bytes_tlv({1, 2}) + string_tlv("one"), -4, wrong_path},
    {"PathOfWords", words_tlv({1, 2}) + string_tlv("one"), -4, wrong_path},
    {"PathOfTheOtherType", Bytes{0x44, 1} + string_tlv("one"), -4, wrong_path},
    {"PathHeadAlone", {0x82}, -1, wrong_length},
    {"PathCut", {0x83, '/', 'a'}, -1, wrong_length},
    {"LongestPathCut", Bytes{0xFF} + Bytes(126, 'x'), -1, wrong_length},
    {"NoValue", good_path, -1, wrong_length},
    {"ValueWithoutCharacters", good_path + Bytes{0x80}, -1, wrong_length},
    {"ValueWithoutAType", good_path + Bytes{0x00}, -1, wrong_length},
    {"ValueOfWords", good_path + words_tlv({1, 2}), -4, wrong_value},
    {"ValueOfTheOtherType", good_path + Bytes{0x44, 1}, -4, wrong_value},
};

class DamagedList : public PropertyList, public testing::WithParamInterface<Damage> {
protected:
    void expect_failed(const Bytes& data) {
        const AllocationWatch watch;
        const List list(data);
        EXPECT_EQ(list.result, GetParam().result);
        EXPECT_EQ(list.head, nullptr);
        EXPECT_THAT(platform.log(), SizeIs(1));
        EXPECT_TRUE(warned(format_name, GetParam().text));
        EXPECT_EQ(watch.live_blocks(), 0U);
    }
};

TEST_P(DamagedList, IsNone) { expect_failed(GetParam().data); }

TEST_P(DamagedList, IsNoneAlsoBehindGoodPairs) {
    expect_failed(string_tlv("/1") + string_tlv("one") + string_tlv("/2") + bytes_tlv({2}) + GetParam().data);
}

INSTANTIATE_TEST_SUITE_P(All, DamagedList, testing::ValuesIn(damages), [](const auto& row) { return row.param.name; });

// A value that reaches behind the length ends the list, as one that ends with it does.
TEST_F(PropertyList, EndsWithAValueThatReachesBehindItsLength) {
    const Bytes first = string_tlv("/a") + string_tlv("one") + string_tlv("/b");
    struct {
        Bytes value;
        uint32_t type, length;
        Bytes text;
    } const rows[] = {
        {{0x81}, string_type, 1, {}},
        {{0x83, 'o', 'n'}, string_type, 3, {'o', 'n'}},
        {Bytes{0xFF} + Bytes(126, 'x'), string_type, 127, Bytes(126, 'x')},
        {{0x11}, bytes_type, 1, {}},
        {Bytes{0x10} + Bytes(15, 1), bytes_type, 16, Bytes(15, 1)},
    };
    for (const auto& row : rows) {
        const Bytes data = first + row.value + Bytes(200, 0x5A);
        const List list(data, first.size() + row.value.size());
        ASSERT_EQ(list.result, 0);
        const auto nodes = list.nodes();
        ASSERT_THAT(nodes, SizeIs(2));
        EXPECT_EQ(nodes[1]->type, row.type);
        EXPECT_EQ(nodes[1]->length, row.length);
        EXPECT_EQ(whole_value(*nodes[1]), filled(row.text)) << "nothing behind the length is read";
    }
    EXPECT_TRUE(platform.logged_nothing());
}

TEST_F(PropertyList, IsNoneWhereThePathIsCutOrHasNoValue) {
    const Bytes pair = string_tlv("/a") + string_tlv("one");
    const Bytes data = pair + string_tlv("/b") + bytes_tlv(Bytes(16, 1));
    const auto ends_in_a_path = [&](std::size_t length) {
        return length % pair.size() >= 1 && length % pair.size() <= 3;
    };
    for (std::size_t length = 1; length <= 2 * pair.size(); ++length) {
        const AllocationWatch watch;
        const List list(data, length);
        EXPECT_EQ(list.result, ends_in_a_path(length) ? -1 : 0) << length;
        EXPECT_EQ(list.head == nullptr, ends_in_a_path(length)) << length;
    }
}

TEST_F(PropertyList, IsNotCompletedByWhatFollowsItsLength) {
    const Bytes data = string_tlv("/a") + words_tlv({1, 2}) + Bytes(200, 0x81);
    const auto format = [&](uint32_t length) {
        VpddAllProperties* head = nullptr;
        const int result = vpdd_format_all_properties(data.data(), length, &head);
        EXPECT_EQ(head, nullptr);
        return result;
    };
    EXPECT_EQ(format(1), -1);
    EXPECT_EQ(format(2), -1);
    EXPECT_EQ(format(3), -1);
    EXPECT_EQ(format(4), -4);
}

TEST_F(PropertyList, FailsWithoutMemory) {
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer owns malloc";
    const Bytes data = string_tlv("/a") + string_tlv("one") + string_tlv("/b") + bytes_tlv({2});
    struct {
        int result;
        const char* text;
    } const expected[] = {
        {-4, nullptr}, {-3, "vpdd_tlv2string error.\n"}, {-3, "vpdd_tlv2string error.\n"},
        {-4, nullptr}, {-3, "vpdd_tlv2string error.\n"}, {-3, "vpdd_tlv2byte error.\n"},
    };
    std::size_t failing = 0;
    for (const auto& row : expected) {
        platform.reset();
        const AllocationWatch watch(++failing);
        const List list(data);
        EXPECT_EQ(list.result, row.result) << failing;
        EXPECT_EQ(list.head, nullptr);
        EXPECT_EQ(watch.live_blocks(), 0U);
        if (row.text == nullptr) {
            EXPECT_TRUE(platform.logged_nothing());
        } else {
            EXPECT_THAT(platform.log(), SizeIs(1));
            EXPECT_TRUE(warned(format_name, row.text)) << failing;
        }
    }
}

// ---- freeing

TEST_F(PropertyList, IsFreedWholeAndItsHeadLeftNull) {
    const Bytes data = string_tlv("/a") + string_tlv("one") + string_tlv("/b") + bytes_tlv({2});
    const AllocationWatch watch;
    VpddAllProperties* head = nullptr;
    ASSERT_EQ(vpdd_format_all_properties(data.data(), static_cast<uint32_t>(data.size()), &head), 0);
    if (allocator_can_fail) {
        EXPECT_EQ(watch.live_blocks(), 2U);
    }
    freeVpddAllProperites(&head);
    EXPECT_EQ(head, nullptr);
    EXPECT_EQ(watch.live_blocks(), 0U);
}

TEST_F(PropertyList, ThatIsEmptyOrMissingIsFreedWithoutHarm) {
    VpddAllProperties* head = nullptr;
    freeVpddAllProperites(&head);
    freeVpddAllProperites(nullptr);
    EXPECT_EQ(head, nullptr);
}

}  // namespace
