// SPDX-License-Identifier: Apache-2.0
#include <utility>

#include "orva_vpdd.h"
#include "platform_calls.h"

using namespace vpdd::test;

namespace {

/// A server whose FRU 5 has the bytes of a file.
class Ipmi : public testing::Test {
protected:
    void serve(const std::string& image, const std::string& fault = "") {
        folder.write("image.bin", image);
        const std::string text = server_text(fru_text(5, "Board", R"({"raw": "image.bin"})", fault) + "," +
                                             fru_text(6, "Empty slot", R"({"absent": true})"));
        ASSERT_EQ(vpdd_host_open_text(text.c_str(), text.size(), folder.c_str(), nullptr, nullptr, 0), 0);
    }
    void TearDown() override { vpdd_host_close(); }

    TemporaryFolder folder;
};

TEST_F(Ipmi, GetDeviceIdTellsIpmi20AndTheMakersNumber) {
    serve("");

    const Bytes answer = ask(0x06, 0x01, {});

    ASSERT_EQ(answer.size(), 12U);
    EXPECT_EQ(answer[0], 0x00);
    EXPECT_EQ(answer[5], 0x02);
    EXPECT_EQ((Bytes(answer.begin() + 7, answer.begin() + 10)), (Bytes{0xD9, 0x7E, 0x00}));  // 32473
}

TEST_F(Ipmi, TheInitializationAgentHasRun) {
    serve("");

    EXPECT_EQ(ask(0x0A, 0x2C, {0x00}), (Bytes{0x00, 0x01}));
}

TEST_F(Ipmi, AFrusSizeIsLittleEndianAndInBytes) {
    serve(std::string(0x123, 'x'));

    EXPECT_EQ(fru_size(5), (Bytes{0x00, 0x23, 0x01, 0x00}));
}

TEST_F(Ipmi, AReadGetsTheCountAndTheBytes) {
    serve("0123456789");

    EXPECT_EQ(read_fru_data(5, 2, 3), (Bytes{0x00, 3, '2', '3', '4'}));
}

TEST_F(Ipmi, AReadUsesBothBytesOfTheOffset) {
    serve(std::string(0x102, 'x') + "y");

    EXPECT_EQ(read_fru_data(5, 0x102, 1), (Bytes{0x00, 1, 'y'}));
}

TEST_F(Ipmi, AReadOverTheEndGetsWhatIsThere) {
    serve("0123456789");

    EXPECT_EQ(read_fru_data(5, 8, 128), (Bytes{0x00, 2, '8', '9'}));
}

TEST_F(Ipmi, AReadBehindTheEndIsOutOfRange) {
    serve("0123456789");

    EXPECT_EQ(read_fru_data(5, 10, 1), (Bytes{0xC9}));
    EXPECT_EQ(read_fru_data(5, 0xFFFF, 1), (Bytes{0xC9}));
}

TEST_F(Ipmi, AReadOfMoreThanAResponseHoldsIsRefused) {
    serve(std::string(300, 'x'));

    EXPECT_EQ(read_fru_data(5, 0, 254).size(), 256U);
    EXPECT_EQ(read_fru_data(5, 0, 255), (Bytes{0xCA}));
}

TEST_F(Ipmi, AnAbsentFruAndAnUnknownOneAreNotPresent) {
    serve("x");

    for (const uint8_t id : {6, 77}) {
        EXPECT_EQ(fru_size(id), (Bytes{0xCB}));
        EXPECT_EQ(read_fru_data(id, 0, 1), (Bytes{0xCB}));
    }
}

TEST_F(Ipmi, AnUnknownCommandIsInvalid) {
    serve("");

    EXPECT_EQ(ask(0x06, 0x02, {}), (Bytes{0xC1}));
    EXPECT_EQ(ask(0x0B, 0x10, {5}), (Bytes{0xC1}));
}

TEST_F(Ipmi, ARequestOfAnotherLengthIsInvalid) {
    serve("x");

    EXPECT_EQ(ask(0x0A, 0x10, {}), (Bytes{0xC7}));
    EXPECT_EQ(ask(0x0A, 0x11, {5, 0, 0}), (Bytes{0xC7}));
    EXPECT_EQ(ask(0x06, 0x01, {1}), (Bytes{0xC7}));
}

TEST_F(Ipmi, AFaultOfTheSizeAnswersWithItsCompletionCode) {
    serve("0123456789", R"(, "fault": {"size_completion_code": "0xD3"})");

    EXPECT_EQ(fru_size(5), (Bytes{0xD3}));
    EXPECT_EQ(read_fru_data(5, 0, 1), (Bytes{0x00, 1, '0'}));
}

TEST_F(Ipmi, AFaultOfReadingBeginsAtItsOffset) {
    serve("0123456789", R"(, "fault": {"read_completion_code": "0xC3", "read_from": 4})");

    EXPECT_EQ(read_fru_data(5, 0, 4), (Bytes{0x00, 4, '0', '1', '2', '3'}));
    EXPECT_EQ(read_fru_data(5, 0, 5), (Bytes{0xC3}));
    EXPECT_EQ(read_fru_data(5, 8, 1), (Bytes{0xC3}));
}

TEST_F(Ipmi, AShortImageEndsWhereTheFaultSays) {
    serve("0123456789", R"(, "fault": {"short_size": 3})");

    EXPECT_EQ(fru_size(5), (Bytes{0x00, 3, 0, 0}));
    EXPECT_EQ(read_fru_data(5, 0, 8), (Bytes{0x00, 3, '0', '1', '2'}));
}

TEST_F(Ipmi, AStackWithoutAServerFails) {
    vpdd_host_close();
    uint8_t response[256];
    int32_t length = 0;
    uint32_t request_length = 4;

    EXPECT_NE(IPMI_DoIPMICmd(0x06, 0x01, nullptr, 0, response, &length), 0);
    EXPECT_NE(send_ipmi_cmd(Bytes{0x20, 0x06, 0, 0x01}.data(), &request_length, response, &request_length), 0);
}

TEST_F(Ipmi, ARawFrameIsCarriedOutLikeACommand) {
    serve("0123456789");
    const Bytes frame{0x20, 0x0A, 0x00, 0x11, 5, 1, 0, 2};
    auto frame_length = static_cast<uint32_t>(frame.size());
    Bytes response(256);
    auto length = static_cast<uint32_t>(response.size());

    ASSERT_EQ(send_ipmi_cmd(frame.data(), &frame_length, response.data(), &length), 0);

    response.resize(length);
    EXPECT_EQ(response, (Bytes{0x00, 2, '1', '2'}));
}

TEST_F(Ipmi, ARawFramesResponseIsCutToItsRoom) {
    serve("0123456789");
    const Bytes frame{0x20, 0x0A, 0x00, 0x11, 5, 0, 0, 8};
    auto frame_length = static_cast<uint32_t>(frame.size());
    Bytes response(4, 0xEE);
    uint32_t length = 3;

    ASSERT_EQ(send_ipmi_cmd(frame.data(), &frame_length, response.data(), &length), 0);

    EXPECT_EQ(length, 3U);
    EXPECT_EQ(response, (Bytes{0x00, 8, '0', 0xEE}));
}

TEST_F(Ipmi, ARawFrameShorterThanItsHeaderFails) {
    serve("");
    const Bytes frame{0x20, 0x06, 0x00};
    auto frame_length = static_cast<uint32_t>(frame.size());
    uint8_t response[8];
    uint32_t length = sizeof response;

    EXPECT_NE(send_ipmi_cmd(frame.data(), &frame_length, response, &length), 0);
}

TEST_F(Ipmi, TheLibraryReadsAFruThroughTheStack) {
    serve("0123456789");
    uint32_t size = 0;
    uint8_t bytes[4] = {};

    EXPECT_EQ(test_ipmi_stack(), 0);
    EXPECT_EQ(is_ipmi_sensor_ready(), 1);
    EXPECT_EQ(read_fru_size(5, &size), 0);
    EXPECT_EQ(size, 10U);
    EXPECT_EQ(read_fru(5, 6, 4, bytes), 0);
    EXPECT_EQ(Bytes(bytes, bytes + 4), (Bytes{'6', '7', '8', '9'}));
    EXPECT_EQ(read_fru_size(6, &size), VPDD_IPMI_NOT_PRESENT);
}

}  // namespace
