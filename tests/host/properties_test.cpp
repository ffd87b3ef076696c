// SPDX-License-Identifier: Apache-2.0
#include <chrono>

#include "host/images/property_tlv.h"
#include "platform_calls.h"

using namespace vpdd::test;
using vpdd::images::property_tlv;

namespace {

const Bytes enterprise_number{0xD9, 0x7E, 0x00};

Bytes text_tlv(const std::string& text) { return property_tlv(std::string_view(text)); }

Bytes joined(const std::vector<Bytes>& parts) {
    Bytes bytes;
    for (const Bytes& part : parts) bytes.insert(bytes.end(), part.begin(), part.end());
    return bytes;
}

/// The value of one path, from the completion code on.
Bytes ask_for(const std::string& path) {
    const Bytes tlv = text_tlv(path);
    return ask(0x2E, 0x32, joined({enterprise_number, {0, 0, static_cast<uint8_t>(tlv.size())}, tlv}));
}

/// The answer to ask_for() when the property has this value.
Bytes value_answer(const Bytes& tlv) {
    return joined({{0x00}, enterprise_number, {0, 0, static_cast<uint8_t>(tlv.size())}, tlv});
}

Bytes status_answer(uint8_t status) { return joined({{0x00}, enterprise_number, {status, 0, 0}}); }

Bytes ask_for_page(const Bytes& key) {
    return ask(0x3A, 0xC4, joined({{0x02, 0x00, static_cast<uint8_t>(key.size() + 1), 0x01}, key}));
}

Bytes ask_below(const std::string& path) { return ask_for_page(text_tlv(path)); }
Bytes ask_further(uint8_t handle) { return ask_for_page({0x11, handle}); }

Bytes page_data(const Bytes& page) { return {page.begin() + 5, page.end()}; }

std::string with_properties(const std::string& tree, const std::string& access = "{}") {
    return server_text("", R"(, "properties": )" + tree + R"(, "property_access": )" + access);
}

const std::string two_values = R"({"v2": {"name": "node", "mac": [2, 0, 94, 1, 2, 255]}})";

Bytes pairs_of_two_values() {
    return joined({text_tlv("/v2/mac"), {0x16, 2, 0, 94, 1, 2, 255}, text_tlv("/v2/name"), text_tlv("node")});
}

TEST(HostProperty, OfATextIsAStringTlv) {
    const OpenServer server(with_properties(two_values));

    EXPECT_EQ(ask_for("/v2/name"), (Bytes{0x00, 0xD9, 0x7E, 0x00, 0, 0, 5, 0x84, 'n', 'o', 'd', 'e'}));
}

TEST(HostProperty, OfAnArrayIsABytesTlv) {
    const OpenServer server(with_properties(two_values));

    EXPECT_EQ(ask_for("/v2/mac"), value_answer({0x16, 2, 0, 94, 1, 2, 255}));
}

TEST(HostProperty, OfSixteenBytesHasALengthOfZeroInItsHead) {
    const OpenServer server(with_properties(R"({"x": [0,1,2,3,4,5,6,7,8,9,10,11,12,13,14,15]})"));

    EXPECT_EQ(ask_for("/x"), value_answer({0x10, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15}));
}

TEST(HostProperty, OfTheLongestTextFits) {
    const std::string text(127, 'x');
    const OpenServer server(with_properties(R"({"x": ")" + text + R"("})"));

    EXPECT_EQ(ask_for("/x"), value_answer(text_tlv(text)));
}

TEST(HostProperty, OfAnEmptyTextIsNoValue) {
    const OpenServer server(with_properties(R"({"x": ""})"));

    EXPECT_EQ(ask_for("/x"), status_answer(0));
}

TEST(HostProperty, ThatThereIsNotHasTheStatus0x80) {
    const OpenServer server(with_properties(two_values));

    for (const char* path : {"/v2/nam", "/v2/names", "/v2", "/", "v2/name"}) {
        EXPECT_EQ(ask_for(path), status_answer(0x80)) << path;
    }
}

TEST(HostProperty, RepeatsTheEnterpriseNumberOfItsRequest) {
    const OpenServer server(with_properties(R"({"x": "y"})"));

    EXPECT_EQ(ask(0x2E, 0x32, {1, 2, 3, 0, 0, 3, 0x82, '/', 'x'}), (Bytes{0x00, 1, 2, 3, 0, 0, 2, 0x81, 'y'}));
}

TEST(HostProperty, AskedForWithAnotherLengthIsRefused) {
    const OpenServer server(with_properties(R"({"x": "y"})"));

    EXPECT_EQ(ask(0x2E, 0x32, {0xD9, 0x7E, 0, 0, 0, 0}), (Bytes{0xC7}));
    EXPECT_EQ(ask(0x2E, 0x32, {0xD9, 0x7E, 0, 0, 0, 4, 0x82, '/', 'x'}), (Bytes{0xC7}));
    EXPECT_EQ(ask(0x2E, 0x32, {0xD9, 0x7E, 0, 0, 0, 2, 0x82, '/', 'x'}), (Bytes{0xC7}));
    EXPECT_EQ(ask(0x2E, 0x32, {}), (Bytes{0xC7}));
}

TEST(HostProperty, AskedForByWhatIsNoPathIsRefused) {
    const OpenServer server(with_properties(R"({"x": "y"})"));

    EXPECT_EQ(ask(0x2E, 0x32, {0xD9, 0x7E, 0, 0, 0, 3, 0x12, '/', 'x'}), (Bytes{0xCC}));
    EXPECT_EQ(ask(0x2E, 0x32, {0xD9, 0x7E, 0, 0, 0, 3, 0x83, '/', 'x'}), (Bytes{0xCC}));
    EXPECT_EQ(ask(0x2E, 0x32, {0xD9, 0x7E, 0, 0, 0, 1, 0x80}), (Bytes{0xCC}));
}

TEST(HostProperties, OnOnePageAreTheLastPage) {
    const OpenServer server(with_properties(two_values));
    const Bytes pairs = pairs_of_two_values();

    EXPECT_EQ(ask_below("/v2"), joined({{0x00, 9, 0, static_cast<uint8_t>(pairs.size() + 1), 0}, pairs}));
}

TEST(HostProperties, GoOverPagesOfTheirSizeWhoseHandlesContinueThem) {
    const OpenServer server(with_properties(two_values, R"({"page_size": 12})"));
    const Bytes pairs = pairs_of_two_values();
    ASSERT_EQ(pairs.size(), 29U);

    const Bytes first = ask_below("/v2");
    const Bytes second = ask_further(first.at(4));
    const Bytes third = ask_further(second.at(4));

    EXPECT_EQ((Bytes{first.begin(), first.begin() + 4}), (Bytes{0x00, 0, 0, 13}));
    EXPECT_EQ((Bytes{second.begin(), second.begin() + 4}), (Bytes{0x00, 0, 0, 13}));
    EXPECT_EQ((Bytes{third.begin(), third.begin() + 4}), (Bytes{0x00, 9, 0, 6}));
    EXPECT_NE(first[4], second[4]);
    EXPECT_EQ(joined({page_data(first), page_data(second), page_data(third)}), pairs);
}

TEST(HostProperties, ThatFillTheirPageAreTheLastPage) {
    const OpenServer server(with_properties(two_values, R"({"page_size": 29})"));

    EXPECT_EQ(ask_below("/v2").at(1), 9);
}

TEST(HostProperties, FillAResponseOf256BytesUnlessAPageSizeIsGiven) {
    std::string tree = "{";
    for (int number = 10; number < 30; ++number) {
        tree += (number > 10 ? R"(, "n)" : R"("n)") + std::to_string(number) + R"(": "a value of some length")";
    }
    const OpenServer server(with_properties(tree + "}"));

    const Bytes page = ask_below("/");

    EXPECT_EQ(page.size(), 256U);
    EXPECT_EQ(page.at(1), 0);
    EXPECT_EQ(page.at(3), 252);
}

TEST(HostProperties, AreAskedForAgainWithTheSameHandle) {
    const OpenServer server(with_properties(two_values, R"({"page_size": 12})"));
    const Bytes first = ask_below("/v2");

    EXPECT_EQ(page_data(ask_further(first.at(4))), page_data(ask_further(first.at(4))));
}

TEST(HostProperties, OfTwoTransfersDoNotMix) {
    const OpenServer server(with_properties(R"({"a": {"x": "1111"}, "b": {"x": "2222"}})", R"({"page_size": 5})"));
    const Bytes first_of_a = ask_below("/a");
    const Bytes first_of_b = ask_below("/b");

    EXPECT_EQ(page_data(ask_further(first_of_a.at(4))), (Bytes{0x84, '1', '1', '1', '1'}));
    EXPECT_EQ(page_data(ask_further(first_of_b.at(4))), (Bytes{0x84, '2', '2', '2', '2'}));
}

TEST(HostProperties, BelowAPathWithoutAnyAreNothing) {
    const OpenServer server(
        with_properties(R"({"a": {"x": "1", "e": ""}, "ab": {"y": "2"}, "c": {}, "d": {"e": ""}})"));
    const Bytes nothing{0x00, 8, 0, 0, 0};

    EXPECT_EQ(ask_below("/none"), nothing);
    EXPECT_EQ(ask_below("/c"), nothing);
    EXPECT_EQ(ask_below("/d"), nothing);
    EXPECT_EQ(ask_below("/a/x"), nothing);
    EXPECT_EQ(page_data(ask_below("/a")), joined({text_tlv("/a/x"), text_tlv("1")}));
    EXPECT_EQ(page_data(ask_below("/a/")), joined({text_tlv("/a/x"), text_tlv("1")}));
    EXPECT_EQ(page_data(ask_below("/")), joined({text_tlv("/a/x"), text_tlv("1"), text_tlv("/ab/y"), text_tlv("2")}));
}

TEST(HostProperties, OfADescriptionWithoutAnyAreNothing) {
    const OpenServer server(server_text(""));

    EXPECT_EQ(ask_below("/"), (Bytes{0x00, 8, 0, 0, 0}));
    EXPECT_EQ(ask_for("/x"), status_answer(0x80));
}

TEST(HostProperties, AskedForByAnUnknownKeyAreRefused) {
    const OpenServer server(with_properties(two_values));

    EXPECT_EQ(ask_further(77), (Bytes{0xCC}));
    EXPECT_EQ(ask_for_page(joined({{0x10}, Bytes(16, 1)})), (Bytes{0xCC}));
    EXPECT_EQ(ask_for_page({0x12, 1, 1}), (Bytes{0xCC}));
    EXPECT_EQ(ask_for_page({0x22, 1, 1}), (Bytes{0xCC}));
}

TEST(HostProperties, AskedForWithAnotherLengthAreRefused) {
    const OpenServer server(with_properties(two_values));

    EXPECT_EQ(ask(0x3A, 0xC4, {}), (Bytes{0xC7}));
    EXPECT_EQ(ask(0x3A, 0xC4, {0x02, 0x00, 0x01, 0x01}), (Bytes{0xC7}));
    EXPECT_EQ(ask(0x3A, 0xC4, {0x02, 0x00, 0x02, 0x01, 0x82, '/'}), (Bytes{0xC7}));
}

TEST(HostPropertyFault, OfACompletionCodeIsTheWholeAnswer) {
    const OpenServer server(with_properties(two_values, R"({"faults": [{"path": "/v2/name", "completion_code": "0xCB"},
                                                   {"path": "/v2", "completion_code": "0xC3"}]})"));

    EXPECT_EQ(ask_for("/v2/name"), (Bytes{0xCB}));
    EXPECT_EQ(ask_below("/v2"), (Bytes{0xC3}));
    EXPECT_EQ(ask_for("/v2/mac").size(), 14U);
}

TEST(HostPropertyFault, OfAStatusLeavesTheValueOut) {
    const OpenServer server(with_properties(two_values, R"({"faults": [{"path": "/v2/name", "status": "0x81"},
                                                                       {"path": "/none", "status": "0x02"}]})"));

    EXPECT_EQ(ask_for("/v2/name"), status_answer(0x81));
    EXPECT_EQ(ask_for("/none"), status_answer(0x02));
    EXPECT_EQ(ask_below("/none"), (Bytes{0x00, 0x02, 0, 0, 0}));
}

TEST(HostPropertyFault, OfALaterPageLeavesTheOthersAsTheyAre) {
    const OpenServer server(
        with_properties(two_values, R"({"page_size": 12, "faults": [{"path": "/v2", "page": 2, "status": "0x08"}]})"));

    const Bytes first = ask_below("/v2");

    EXPECT_EQ(first.at(1), 0);
    EXPECT_EQ(ask_further(first.at(4)), (Bytes{0x00, 8, 0, 0, 0}));
}

TEST(HostPropertyFault, OfADelayWaitsInTheServersTime) {
    const std::string text = with_properties(two_values, R"({"faults": [{"path": "/v2/name", "delay_ms": 40}]})");
    const auto milliseconds_of = [&](double sleep_factor) {
        VpddHostOptions options{};
        options.sleep_factor = sleep_factor;
        const OpenServer server(text, options);
        const auto begin = std::chrono::steady_clock::now();
        EXPECT_EQ(ask_for("/v2/name"), value_answer(text_tlv("node")));
        return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begin).count();
    };

    EXPECT_GE(milliseconds_of(1), 40);
    EXPECT_LT(milliseconds_of(0), 40);
}

TEST(HostPropertyFault, OfTheSamePathTwiceIsRefused) {
    EXPECT_EQ(refusal(with_properties("{}", R"({"faults": [{"path": "/a", "status": "0x01"},
                                                           {"path": "/a", "status": "0x02"}]})")),
              R"(/property_access/faults/1/path: "/a" is there twice.)");
}

TEST(HostPropertyFault, OfNothingIsRefused) {
    EXPECT_EQ(refusal(with_properties("{}", R"({"faults": [{"path": "/a"}]})")).find("/property_access/faults/0: "),
              0U);
}

TEST(PropertyTree, WithAPageSizeOutOfRangeIsRefused) {
    EXPECT_EQ(refusal(with_properties("{}", R"({"page_size": 252})")),
              "/property_access/page_size: must be at most 251, but is 252");
    EXPECT_EQ(refusal(with_properties("{}", R"({"page_size": 0})")),
              "/property_access/page_size: must be at least 1, but is 0");
}

TEST(PropertyTree, WithAPathBeyondItsTlvIsRefused) {
    const auto named = [](std::size_t length) {
        return refusal(with_properties(R"({"a": {")" + std::string(length, 'x') + R"(": "y"}})"));
    };

    EXPECT_EQ(named(124), "");
    EXPECT_NE(named(125).find("The path exceeds 127 characters."), std::string::npos);
}

TEST(PropertyTree, WithATextOfMoreBytesThanItsTlvHoldsIsRefused) {
    std::string text;
    for (int count = 0; count < 64; ++count) text += "\u00E4";  // two bytes each

    EXPECT_NE(refusal(with_properties(R"({"a": ")" + text + R"("})")).find("must have at most 127 characters"),
              std::string::npos);
}

TEST(PropertyTree, WithASlashInANameIsRefused) {
    EXPECT_NE(refusal(with_properties(R"({"a/b": "x"})")), "");
    EXPECT_NE(refusal(with_properties(R"({"": "x"})")), "");
}

/// The firmware and network properties of the servers that come with the host platform.
class ShippedServer : public testing::TestWithParam<const char*> {};

TEST_P(ShippedServer, PublishesItsFirmwareAndItsMacs) {
    const std::string file = std::string(vpdd_host_server_folder()) + "/" + GetParam();
    char error[512] = "";
    ASSERT_EQ(vpdd_host_open_file(file.c_str(), nullptr, error, sizeof error), 0) << error;

    for (const char* image : {"orva3/primary_", "orva3/", "orva3/backup_", "bios/"}) {
        for (const char* part : {"build_id", "build_date", "build_version"}) {
            const std::string path = std::string("/v2/zeltc/dm/fw/") + image + part;
            EXPECT_EQ(ask_for(path).at(4), 0) << path;
        }
    }
    const Bytes mac = ask_for("/ac/zeltc/lom-active/mac2");
    ASSERT_EQ(mac.size(), 14U);
    EXPECT_EQ(mac[7], 0x16);
    EXPECT_EQ(mac[13], 1);
    vpdd_host_close();
}

INSTANTIATE_TEST_SUITE_P(All, ShippedServer, testing::Values("ddr3-small.json", "ddr4-2s.json", "ddr5-2s.json"));

TEST(ShippedDdr5Server, PublishesEveryPathOfAFirmwareImage) {
    const std::string file = std::string(vpdd_host_server_folder()) + "/ddr5-2s.json";
    ASSERT_EQ(vpdd_host_open_file(file.c_str(), nullptr, nullptr, 0), 0);

    for (const char* image :
         {"/v2/zeltc/dm/fw/orva3/primary_", "/v2/zeltc/dm/fw/orva3/", "/v2/zeltc/dm/fw/orva3/backup_pending_",
          "/v2/zeltc/dm/fw/orva3/backup_", "/v2/zeltc/dm/fw/orva3/primary_pending_", "/v2/zeltc/dm/fw/bios/",
          "/v2/zeltc/dm/fw/bios/pending_", "/v2/qsv/", "/v2/zeltc/dm/fw/drvwn/", "/v2/zeltc/dm/fw/drvln/",
          "/v2/zeltc/dm/fw/nexol/", "/v2/nexol/"}) {
        for (const char* part : {"build_id", "build_date", "build_version"}) {
            EXPECT_EQ(ask_for(std::string(image) + part).at(4), 0) << image << part;
        }
    }
    vpdd_host_close();
}

}  // namespace
