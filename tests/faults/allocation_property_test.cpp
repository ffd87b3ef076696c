// SPDX-License-Identifier: Apache-2.0
// Each allocation fails in the encoding of properties and in the queries for them.
#include "faults/each_allocation.h"
#include "property/controller.h"

using namespace vpdd::test;
using testing::AnyOf;

namespace {

constexpr int no_memory = -3;

/// Runs one conversion, whose output is freed behind it.
template <class Output, class Conversion>
void expect_no_memory(const Conversion& conversion) {
    for_each_failing_allocation([&](FaultyRun& run) {
        Output* output = nullptr;
        int result = 77;
        run([&] { result = conversion(&output); });

        EXPECT_EQ(result, run.has_failed() ? no_memory : 0);
        EXPECT_EQ(output == nullptr, run.has_failed());
        EXPECT_EQ(run.left(), run.has_failed() ? 0U : 1U);
        std::free(output);
    });
}

TEST(PropertyAllocationFailure, LeavesNothingEncoded) {
    expect_no_memory<uint8_t>([](uint8_t** out) { return vpdd_string2tlv("/path", out); });
    expect_no_memory<uint8_t>([](uint8_t** out) {
        const uint8_t bytes[3] = {1, 2, 3};
        return vpdd_byte2tlv(bytes, out, sizeof bytes);
    });
}

TEST(PropertyAllocationFailure, LeavesNothingDecoded) {
    uint32_t length = 0;
    expect_no_memory<char>([&](char** out) { return vpdd_tlv2string(string_tlv("text").data(), out, &length); });
    expect_no_memory<uint8_t>([&](uint8_t** out) { return vpdd_tlv2byte(bytes_tlv({1, 2}).data(), out, &length); });
    expect_no_memory<uint16_t>([&](uint16_t** out) {
        return vpdd_tlv2word(words_tlv({'A', 'B'}).data(), out, &length);
    });
}

class QueryAllocationFailure : public ControllerTest {
protected:
    /// Runs a query that hands out `value`, and frees that.
    template <class Value, class Query>
    void for_each_fault(const Query& query, std::initializer_list<int> failures) {
        for_each_failing_allocation([&](FaultyRun& run) {
            Value* value = nullptr;
            uint32_t length = 77;
            int result = 77;
            run([&] { result = query(&value, &length); });

            const bool is_known = std::find(failures.begin(), failures.end(), result) != failures.end();
            EXPECT_TRUE(run.has_failed() ? is_known : result == 0) << result;
            EXPECT_EQ(value == nullptr, run.has_failed());
            EXPECT_EQ(run.left(), run.has_failed() ? 0U : 1U);
            std::free(value);
        });
    }
};

TEST_F(QueryAllocationFailure, LeavesASinglePropertyWithoutValue) {
    constexpr int undecodable = -4;
    set("/path", "value");
    const Bytes path = string_tlv("/path");
    for_each_fault<void>(
        [&](void** value, uint32_t* length) { return vpdd_get_single_property(path.data(), value, length); },
        {undecodable});
    for_each_fault<void>([](void** value, uint32_t* length) { return vpdd_get_property("/path", value, length); },
                         {-1});
}

TEST_F(QueryAllocationFailure, LeavesTheBufferOfATextOrOfBytesAlone) {
    set("/path", " value ");
    for (auto* const query : {GetStringPropertyViaVpdd, GetBytePropertyViaVpdd}) {
        for_each_failing_allocation([&](FaultyRun& run) {
            char buffer[128] = {};
            uint32_t length = 77;
            int result = 77;
            run([&] { result = query(&length, sizeof buffer, "/path", buffer); });

            EXPECT_EQ(result, run.has_failed() ? -1 : 0);
            EXPECT_EQ(buffer[0] == '\0', run.has_failed());
            EXPECT_EQ(run.left(), 0U);
        });
    }
}

TEST_F(QueryAllocationFailure, LeavesATransferWithoutData) {
    constexpr int transfer_without_memory = -6;
    const Bytes key = string_tlv("/below");
    const Bytes pair = string_tlv("/below/a") + string_tlv("1");
    for_each_fault<uint8_t>(
        [&](uint8_t** data, uint32_t* length) {
            pages({more(pair, 5), more(pair, 6), last(pair)});
            return vpdd_get_all_properties(key.data(), data, length);
        },
        {-1, transfer_without_memory});
    for_each_fault<uint8_t>(
        [&](uint8_t** data, uint32_t* length) {
            pages({more(pair, 5), last(pair)});
            return vpdd_get_properties("/below", data, length);
        },
        {-1});
}

TEST_F(QueryAllocationFailure, LeavesNoPartOfAList) {
    const Bytes data = string_tlv("/a") + string_tlv("1") + string_tlv("/b") + bytes_tlv({1, 2});
    for_each_failing_allocation([&](FaultyRun& run) {
        VpddAllProperties* list = nullptr;
        int result = 77;
        run([&] {
            result = vpdd_format_all_properties(data.data(), static_cast<uint32_t>(data.size()), &list);
            if (result == 0) freeVpddAllProperites(&list);
        });

        EXPECT_TRUE(run.has_failed() ? result == -3 || result == -4 : result == 0) << result;
        EXPECT_EQ(list, nullptr);
        EXPECT_EQ(run.left(), 0U);
    });
}

TEST_F(QueryAllocationFailure, LeavesStarsInAFirmwareRecord) {
    for_each_failing_allocation([&](FaultyRun& run) {
        FirmwareVpd record{};
        uint32_t size = 0;
        int result = 77;
        run([&] { result = GetFirmwareVPD(&size, 0, "orva", &record); });

        EXPECT_EQ(result, 0);
        EXPECT_EQ(size, sizeof record);
        EXPECT_STREQ(record.build_id, "*") << "nothing is set, whatever fails";
        EXPECT_EQ(run.left(), 0U);
    });
}

TEST_F(QueryAllocationFailure, FailsTheRewritingOfThePortsAddresses) {
    const Bytes pair = string_tlv("/ac/zeltc/lom-active/1") + string_tlv("00:11:22:33:44:55");
    for_each_failing_allocation([&](FaultyRun& run) {
        int result = 77;
        run([&] {
            pages({more(pair, 5), last(pair)});
            result = vpdd_property_change_cache("/ac/zeltc/lom-active");
        });

        EXPECT_THAT(result, AnyOf(0, -1));
        EXPECT_EQ(run.left(), 0U);
    });
}

}  // namespace
