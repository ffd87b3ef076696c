// SPDX-License-Identifier: Apache-2.0
#include "fake_platform.h"

using namespace vpdd::test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

constexpr int64_t pause = 300000;  // microseconds
constexpr int informational = 14;

const IpmiReply empty_success{0, {0x00}, 0};
const IpmiReply dead_with_cb{-1, {0xCB}};

class IpmiCommand : public PlatformTest {
protected:
    int send() { return ipmi_cmd_retry(&request); }

    const Bytes data{1, 2, 3};
    Bytes response = Bytes(32);
    IpmiRequest request{data.data(), response.data(), static_cast<uint32_t>(data.size()), 0, 0x2E, 0x55};
};

TEST_F(IpmiCommand, HandsTheRequestToTheStackAndTheAnswerBack) {
    platform.ipmi.always(ipmi_data({7, 8}));

    EXPECT_EQ(send(), 0);

    EXPECT_THAT(platform.requests(), ElementsAre(IpmiCall{0x2E, 0x55, {1, 2, 3}}));
    EXPECT_EQ(Bytes(response.begin(), response.begin() + 4), (Bytes{0, 7, 8, 0}));
    EXPECT_EQ(request.response_length, 3);
    EXPECT_THAT(platform.sleeps(), IsEmpty());
}

TEST_F(IpmiCommand, NeverReachesTheStackWithoutAResponseBuffer) {
    request.response = nullptr;
    EXPECT_EQ(send(), -1);
    EXPECT_THAT(platform.journal(), IsEmpty());
}

TEST_F(IpmiCommand, NeverReachesTheStackWithoutARequest) {
    EXPECT_EQ(ipmi_cmd_retry(nullptr), -1);
    EXPECT_THAT(platform.journal(), IsEmpty());
}

TEST_F(IpmiCommand, SendsARequestWithoutData) {
    request.request = nullptr;
    request.request_length = 0;
    platform.ipmi.always(ipmi_completion(0));
    EXPECT_EQ(send(), 0);
    EXPECT_THAT(platform.requests(), ElementsAre(IpmiCall{0x2E, 0x55, {}}));
}

TEST_F(IpmiCommand, ReportsNotPresentAtOnceAndWithoutSleeping) {
    platform.ipmi.always(ipmi_completion(0xCB));
    EXPECT_EQ(send(), VPDD_IPMI_NOT_PRESENT);
    EXPECT_EQ(VPDD_IPMI_NOT_PRESENT, 203);
    EXPECT_THAT(platform.journal(), ElementsAre("ipmi 2E/55"));
}

TEST_F(IpmiCommand, ReportsNotPresentWhateverTheLengthOfTheAnswer) {
    platform.ipmi.always({0, {0xCB}, 0});
    EXPECT_EQ(send(), VPDD_IPMI_NOT_PRESENT);
    EXPECT_EQ(platform.ipmi.count(), 1U);
}

TEST_F(IpmiCommand, ReportsNotPresentOfALaterAttemptAtOnce) {
    platform.ipmi.then(ipmi_dead());
    platform.ipmi.then(ipmi_completion(0xCB));
    EXPECT_EQ(send(), VPDD_IPMI_NOT_PRESENT);
    EXPECT_THAT(platform.journal(), ElementsAre("ipmi 2E/55", "sleep 300000", "ipmi 2E/55"));
}

TEST_F(IpmiCommand, SucceedsOnTheThirdAttempt) {
    platform.ipmi.then(ipmi_dead());
    platform.ipmi.then(ipmi_completion(0xC0));
    platform.ipmi.then(ipmi_data({9}));
    EXPECT_EQ(send(), 0);
    EXPECT_EQ(response[1], 9);
    EXPECT_THAT(platform.journal(),
                ElementsAre("ipmi 2E/55", "sleep 300000", "ipmi 2E/55", "sleep 300000", "ipmi 2E/55"));
}

TEST_F(IpmiCommand, SleepsAfterTheThirdFailedAttemptToo) {
    platform.ipmi.fail_always();
    EXPECT_EQ(send(), -1);
    EXPECT_THAT(platform.journal(),
                ElementsAre("ipmi 2E/55", "sleep 300000", "ipmi 2E/55", "sleep 300000", "ipmi 2E/55", "sleep 300000"));
}

TEST_F(IpmiCommand, StatesTheWholeRoomForTheAnswerInEachAttempt) {
    request.response_length = static_cast<int32_t>(response.size());
    platform.ipmi.then(empty_success);
    platform.ipmi.then({0, {0xC1, 1, 2, 3}});
    platform.ipmi.then(ipmi_data({7}));

    EXPECT_EQ(send(), 0);

    const auto calls = platform.ipmi.calls();
    ASSERT_THAT(calls, SizeIs(3));
    for (const IpmiCall& call : calls) EXPECT_EQ(call.room, 32U);
}

TEST_F(IpmiCommand, DoesNotTellOtherCompletionCodesApart) {
    for (const uint8_t code : {0x01, 0x80, 0xC0, 0xC1, 0xCA, 0xCC, 0xFF}) {
        platform.reset();
        platform.ipmi.always(ipmi_completion(code));
        EXPECT_EQ(send(), -1) << int{code};
        EXPECT_EQ(platform.ipmi.count(), 3U);
        EXPECT_THAT(platform.sleeps(), ElementsAre(pause, pause, pause));
    }
}

TEST_F(IpmiCommand, RetriesAnEmptySuccessAndReportsItAsSuccess) {
    platform.ipmi.always(empty_success);
    EXPECT_EQ(send(), 0);
    EXPECT_EQ(platform.ipmi.count(), 3U);
    EXPECT_THAT(platform.sleeps(), ElementsAre(pause, pause, pause));
}

TEST_F(IpmiCommand, RetriesASuccessOfNegativeLength) {
    platform.ipmi.always({0, {0x00}, -5});
    EXPECT_EQ(send(), 0);
    EXPECT_EQ(platform.ipmi.count(), 3U);
}

TEST_F(IpmiCommand, JudgesAnEmptySuccessByTheLastAttempt) {
    platform.ipmi.then(ipmi_dead());
    platform.ipmi.then(ipmi_completion(0xC1));
    platform.ipmi.then(empty_success);
    EXPECT_EQ(send(), 0);
}

TEST_F(IpmiCommand, ForgetsAnEmptySuccessBeforeADeadStack) {
    platform.ipmi.then(empty_success);
    platform.ipmi.then(empty_success);
    platform.ipmi.then(ipmi_dead());
    EXPECT_EQ(send(), -1);
}

TEST_F(IpmiCommand, ReportsNotPresentOfADeadStackOnlyAfterThreeAttempts) {
    platform.ipmi.always(dead_with_cb);
    EXPECT_EQ(send(), VPDD_IPMI_NOT_PRESENT);
    EXPECT_EQ(platform.ipmi.count(), 3U);
    EXPECT_THAT(platform.sleeps(), ElementsAre(pause, pause, pause));
}

TEST_F(IpmiCommand, LogsNothing) {
    platform.ipmi.fail_always();
    send();
    EXPECT_TRUE(platform.logged_nothing());
    EXPECT_THAT(platform.trace(), IsEmpty());
}

using IpmiStackProbe = PlatformTest;

TEST_F(IpmiStackProbe, SendsGetDeviceId) {
    EXPECT_EQ(test_ipmi_stack(), 0);
    EXPECT_THAT(platform.requests(), ElementsAre(IpmiCall{0x06, 0x01, {}}));
}

TEST_F(IpmiStackProbe, MapsEveryFailureToMinusOne) {
    for (const IpmiReply& reply : {ipmi_dead(), ipmi_completion(0xCB), ipmi_completion(0xC1), dead_with_cb}) {
        platform.reset();
        platform.ipmi.always(reply);
        EXPECT_EQ(test_ipmi_stack(), -1);
    }
}

TEST_F(IpmiStackProbe, TakesAnEmptySuccess) {
    platform.ipmi.always(empty_success);
    EXPECT_EQ(test_ipmi_stack(), 0);
    EXPECT_THAT(platform.requests(), SizeIs(3));
}

using SensorAgent = PlatformTest;

const LogLine agent_ready{informational, "is_ipmi_sensor_ready() IPMI Sensor is ready\n"};
const LogLine agent_failed{informational, "is_ipmi_sensor_ready() Check IPMI Sensor ready is fail\n"};

LogLine agent_answer(const char* status) {
    return {informational, std::string("is_ipmi_sensor_ready() NET:0x0a, CMD:0x2c, CC:0x00, ST:") + status + "\n"};
}

TEST_F(SensorAgent, AsksForTheStatusOnly) {
    is_ipmi_sensor_ready();
    EXPECT_THAT(platform.requests(), ElementsAre(IpmiCall{0x0A, 0x2C, {0x00}}));
}

TEST_F(SensorAgent, IsReadyAtStatusOne) {
    platform.ipmi.always(ipmi_data({1}));
    EXPECT_EQ(is_ipmi_sensor_ready(), 1);
    EXPECT_THAT(platform.log(), ElementsAre(agent_answer("0x01"), agent_ready));
}

TEST_F(SensorAgent, IsNotReadyAtAnyOtherStatus) {
    platform.ipmi.then(ipmi_data({0}));
    platform.ipmi.then(ipmi_data({0x81}));
    EXPECT_EQ(is_ipmi_sensor_ready(), 0);
    EXPECT_EQ(is_ipmi_sensor_ready(), 0);
    EXPECT_THAT(platform.log(), ElementsAre(agent_answer("0x00"), agent_answer("0x81")));
}

TEST_F(SensorAgent, IsNotReadyAfterAnEmptySuccess) {
    platform.ipmi.always(empty_success);
    EXPECT_EQ(is_ipmi_sensor_ready(), 0);
    EXPECT_THAT(platform.log(), ElementsAre(agent_answer("0x00")));
}

TEST_F(SensorAgent, LogsAFailedRequest) {
    for (const IpmiReply& reply : {ipmi_dead(), ipmi_completion(0xCB), ipmi_completion(0xD5)}) {
        platform.reset();
        platform.ipmi.always(reply);
        EXPECT_EQ(is_ipmi_sensor_ready(), 0);
        EXPECT_THAT(platform.log(), ElementsAre(agent_failed));
    }
}

}  // namespace
