// SPDX-License-Identifier: Apache-2.0
#include "fake_platform.h"

#include <atomic>
#include <thread>

#include "platform/configuration.h"
#include "platform/debug_trace.h"
#include "platform/ipmi_stack.h"
#include "platform/messages.h"
#include "platform/sdr_repository.h"
#include "platform/smbios_store.h"
#include "platform/system_vpd.h"

#undef _FORTIFY_SOURCE
#include <syslog.h>

using namespace vpdd::test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

struct IpmiAnswer {
    int result;
    Bytes response;
    int32_t length;
};

IpmiAnswer ask(uint8_t netfn, uint8_t cmd, const Bytes& data) {
    IpmiAnswer answer{0, Bytes(300), -7};
    answer.result = IPMI_DoIPMICmd(netfn, cmd, data.data(), static_cast<uint32_t>(data.size()), answer.response.data(),
                                   &answer.length);
    return answer;
}

using FakePlatformTest = PlatformTest;

TEST_F(FakePlatformTest, ServesTheSizeAndTheDataOfAFruImage) {
    platform.fru(5, Bytes(0x123, 0xAB));

    const IpmiAnswer size = ask(0x0A, 0x10, {5});
    const IpmiAnswer data = ask(0x0A, 0x11, {5, 0x20, 0x01, 8});

    EXPECT_EQ(size.length, 4);
    EXPECT_EQ(Bytes(size.response.begin(), size.response.begin() + 4), (Bytes{0, 0x23, 0x01, 0}));
    EXPECT_EQ(data.length, 5);
    EXPECT_EQ(Bytes(data.response.begin(), data.response.begin() + 6), (Bytes{0, 3, 0xAB, 0xAB, 0xAB, 0}));
}

TEST_F(FakePlatformTest, AnswersAnAbsentFruWithCompletionCodeCb) {
    EXPECT_EQ(ask(0x0A, 0x10, {5}).response[0], 0xCB);
    EXPECT_EQ(ask(0x0A, 0x11, {5, 0, 0, 1}).response[0], 0xCB);
}

TEST_F(FakePlatformTest, AnswersByCallNumberThenByRuleThenByModel) {
    platform.ipmi.at(2, ipmi_dead());
    platform.ipmi.when([](const IpmiCall& call) { return call.cmd == 0x77; }, ipmi_completion(0xD5));

    EXPECT_EQ(ask(0x06, 0x77, {}).response[0], 0xD5);
    EXPECT_EQ(ask(0x06, 0x77, {}).result, -1);
    EXPECT_EQ(ask(0x06, 0x01, {}).response[0], 0);
}

TEST_F(FakePlatformTest, AnswersOneCallForEachOfSeveralRulesInARow) {
    platform.ipmi.then(ipmi_completion(1));
    platform.ipmi.then({0, {2, 0}, 77});

    EXPECT_EQ(ask(0x06, 0x01, {}).response[0], 1);
    const IpmiAnswer second = ask(0x06, 0x01, {});
    EXPECT_EQ(second.response[0], 2);
    EXPECT_EQ(second.length, 77);
    EXPECT_EQ(ask(0x06, 0x01, {}).response[0], 0);
}

TEST_F(FakePlatformTest, CountsTheCallsThatMatch) {
    platform.ipmi.nth_when(
        2, [](const IpmiCall& call) { return call.cmd == 1; }, ipmi_dead());

    EXPECT_EQ(ask(6, 1, {}).result, 0);
    EXPECT_EQ(ask(6, 2, {}).result, 0);
    EXPECT_EQ(ask(6, 1, {}).result, -1);
    EXPECT_EQ(ask(6, 1, {}).result, 0);
}

TEST_F(FakePlatformTest, DeadStackTouchesNothing) {
    platform.ipmi.fail_always();
    const IpmiAnswer answer = ask(6, 1, {});
    EXPECT_EQ(answer.length, -7);
    EXPECT_EQ(answer.response, Bytes(300));
}

TEST_F(FakePlatformTest, KeepsRequestsOfBothWaysInOrder) {
    ask(0x0A, 0x10, {5});
    const Bytes frame{0x20, 0x3A, 0x00, 0x0B, 1, 0, 0x10, 2};
    auto frame_length = static_cast<uint32_t>(frame.size());
    Bytes response(3);
    auto length = static_cast<uint32_t>(response.size());
    platform.device({9, 8, 7});

    ASSERT_EQ(send_ipmi_cmd(frame.data(), &frame_length, response.data(), &length), 0);

    EXPECT_EQ(response, (Bytes{0, 8, 7}));
    EXPECT_EQ(length, 3U);
    EXPECT_THAT(platform.requests(),
                ElementsAre(IpmiCall{0x0A, 0x10, {5}}, IpmiCall{0x3A, 0x0B, {1, 0, 0x10, 2}, frame}));
}

TEST_F(FakePlatformTest, WalksSparseSdrRecords) {
    platform.sdr({{0x10, 0x00, 0x51}, {0x05, 0x01, 0x51}});
    uint16_t next = 0;
    int32_t count = 0;
    Bytes buffer(64);

    ASSERT_EQ(mosk_sdr_get_entry(1, 0, 64, &next, &count, buffer.data()), 0);
    EXPECT_EQ(buffer[0], 0x10);
    EXPECT_EQ(count, 3);
    ASSERT_EQ(next, 0x0105);
    ASSERT_EQ(mosk_sdr_get_entry(1, next, 2, &next, &count, buffer.data()), 0);
    EXPECT_EQ(buffer[0], 0x05);
    EXPECT_EQ(count, 2);
    EXPECT_EQ(next, 0xFFFF);
    EXPECT_NE(mosk_sdr_get_entry(1, 0x11, 64, &next, &count, buffer.data()), 0);
}

TEST_F(FakePlatformTest, ServesSystemVpdFields) {
    platform.field(9, "SN1");
    uint8_t buffer[4] = {};

    EXPECT_EQ(c_vpd_read_field_size(0, 9), 3U);
    EXPECT_NE(c_vpd_read_field(0, 9, 4, buffer), 0);
    EXPECT_EQ(buffer[0], 'S');
    EXPECT_EQ(c_vpd_read_field(0, 10, 4, buffer), 0);
}

TEST_F(FakePlatformTest, KeepsConfigurationWritesInOrder) {
    tarn_config_set_int("count", 3, 1);
    tarn_config_set_str("name", "text", 0);
    tarn_config_set_str_n("other", "longer", 6, 2);

    EXPECT_THAT(platform.configuration(), ElementsAre(number_variable("count", 3, 1), text_variable("name", "text", 0),
                                                      counted_text_variable("other", "longer", 2)));
    int32_t value = 0;
    EXPECT_NE(tarn_config_get_int("count", &value), 0);
    EXPECT_EQ(value, 3);
    EXPECT_EQ(tarn_config_get_int("unset", &value), 0);
}

TEST_F(FakePlatformTest, KeepsLogTraceAndSleepsInOneJournal) {
    syslog(11, "value %d", 5);
    log_debug_log("/tmp/vpdd_trace.log", 4, "[%s]:%s", "f", "g");
    usleep(300000);
    sleep(2);

    EXPECT_TRUE(platform.logged(11, "value 5"));
    EXPECT_FALSE(platform.logged(12, "value 5"));
    EXPECT_FALSE(platform.logged(11, "value"));
    EXPECT_FALSE(platform.logged_nothing());
    EXPECT_TRUE(platform.traced(4, "f", "g"));
    EXPECT_THAT(platform.sleeps(), ElementsAre(300000, 2000000));
    EXPECT_THAT(platform.journal(), ElementsAre("log 11 value 5", "trace 4 [f]:g", "sleep 300000", "sleep 2000000"));
}

TEST_F(FakePlatformTest, FindsALineWhateverItsLineNumber) {
    syslog(14, "pid=%d, tid=%d, %s(%d) - %s", getpid(), gettid(), "f", 123, "text");
    EXPECT_TRUE(platform.logged_located(14, "f", "text"));
    EXPECT_FALSE(platform.logged_located(14, "f", "tex"));
    EXPECT_FALSE(platform.logged_located(11, "f", "text"));
}

TEST_F(FakePlatformTest, StartsEachTestFresh) {
    EXPECT_THAT(platform.journal(), IsEmpty());
    EXPECT_TRUE(platform.logged_nothing());
    EXPECT_EQ(platform.ipmi.count(), 0U);
    SmbiosTable* table = nullptr;
    EXPECT_NE(smbt_init(&table, 0, "smbios-table", "/var/DS/"), 0);
}

TEST_F(FakePlatformTest, LetsATestLookAroundInsideALogAndATraceLine) {
    std::vector<std::string> seen;
    // What is kept can be asked for, since nothing is locked.
    platform.during_log([&](const LogLine& line) { seen.push_back(line.text + " " + platform.journal().back()); });
    platform.during_trace([&](const TraceLine& line) { seen.push_back(line.text + " " + platform.journal().back()); });

    syslog(12, "one");
    log_debug_log("/tmp/trace", 4, "two");

    EXPECT_EQ(seen, (std::vector<std::string>{"one log 12 one", "two trace 4 two"}));
}

TEST_F(FakePlatformTest, BlocksACallWhileOthersGoOn) {
    std::atomic<bool> inside = false;
    std::atomic<bool> released = false;
    platform.ipmi.during([&](const IpmiCall& call) {
        if (call.cmd != 0x10) return;
        inside = true;
        while (!released) std::this_thread::yield();
    });
    std::thread blocked([] { ask(0x0A, 0x10, {5}); });
    while (!inside) std::this_thread::yield();

    EXPECT_EQ(ask(0x06, 0x01, {}).result, 0);

    released = true;
    blocked.join();
}

TEST_F(FakePlatformTest, DeliversReceivedDataInPieces) {
    platform.receive({1, 2, 3});
    uint8_t buffer[2] = {};
    EXPECT_EQ(pm_read_data(3, buffer, 2), 2);
    EXPECT_EQ(buffer[1], 2);
    EXPECT_EQ(pm_read_data(3, buffer, 2), 1);
    EXPECT_EQ(buffer[0], 3);
}

TEST_F(FakePlatformTest, CapturesStandardOutputAndError) {
    const CaptureStdout output;
    const CaptureStderr error;
    std::printf("to output");
    std::fprintf(stderr, "to error");
    EXPECT_EQ(output.text(), "to output");
    EXPECT_EQ(error.text(), "to error");
}

}  // namespace
