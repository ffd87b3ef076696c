// SPDX-License-Identifier: Apache-2.0
// BMCs that refuse, delay, lose and vanish.
#include <gmock/gmock.h>

#include <cstdlib>

#include "bmc_contents.h"
#include "bmc_proxy.h"
#include "fields.h"

namespace vpdd::test {
namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;
using Clock = std::chrono::steady_clock;

constexpr uint8_t netfn_storage = 0x0A, get_sdr = 0x23, read_fru_data = 0x11;
constexpr uint8_t reservation_cancelled = 0xC5;

bool is_fru_read(const IpmiMessage& request) { return request.netfn == netfn_storage && request.cmd == read_fru_data; }

bool is_sdr_read(const IpmiMessage& request) { return request.netfn == netfn_storage && request.cmd == get_sdr; }

/// Get Channel Authentication Capabilities, IPMI 2.0 section 22.13.
bool begins_session(const IpmiMessage& request) { return request.netfn == 0x06 && request.cmd == 0x38; }

/// Bytes that the request asks for: its last one in both commands.
uint8_t count_of(const IpmiMessage& request) { return request.data.empty() ? 0 : request.data.back(); }

// What anybody may change on the way.
const Json plain_session = {{"interface", "lan"}, {"authentication", "none"}, {"timeout_ms", 1000}};

class BadBmc : public testing::Test {
protected:
    void SetUp() override {
        if (!simulator_is_installed()) GTEST_SKIP() << "openipmi, ipmitool or freeipmi-tools is not installed";
        simulator_ = std::make_unique<Simulator>(small_server());
    }

    /// The inventory through a proxy.
    Outcome inventory(const BmcProxy::Rule& rule, const Json& settings = Json::object()) {
        const BmcProxy proxy(simulator_->port(), rule);
        Json session = plain_session;
        session.update(settings);
        const PlatformFile file(proxy.port(), session);
        const auto begin = Clock::now();
        Outcome outcome = vpdctl({"inventory", "--bmc", file.path(), "--json"});
        taken_ = Clock::now() - begin;
        return outcome;
    }

    /// The same as from a BMC without faults.
    void expect_whole(const Outcome& outcome) {
        const PlatformFile file(simulator_->port());
        Json expected = vpdctl_json({"inventory", "--bmc", file.path()});
        ASSERT_EQ(outcome.code, exit_ok) << outcome.err;
        Json shown = Json::parse(outcome.out);
        expected.erase("Server");
        shown.erase("Server");
        EXPECT_EQ(shown, expected);
        EXPECT_EQ(shown["Others"][0]["SerialNumber"], "MB24180042");
    }

    std::unique_ptr<Simulator> simulator_;
    Clock::duration taken_{};
};

class RefusingBmc : public BadBmc, public testing::WithParamInterface<int> {};

TEST_P(RefusingBmc, LongReadsAreSplitAndTheSizeThatWorkedIsRemembered) {
    constexpr uint8_t limit = 16;
    const auto code = static_cast<uint8_t>(GetParam());
    std::map<uint8_t, int> refusals;
    std::map<uint8_t, int> carried_out;
    const Outcome outcome = inventory([&](const IpmiMessage& request) {
        if (!is_fru_read(request)) return Fate{};
        const bool is_refused = count_of(request) > limit;
        ++(is_refused ? refusals : carried_out)[request.data[0]];
        return is_refused ? refused(code) : Fate{};
    });

    expect_whole(outcome);
    // 128, 64 and 32 bytes, once for each device.
    EXPECT_EQ(refusals[fru_board], 3);
    EXPECT_EQ(refusals[fru_processor], 3);
    EXPECT_GE(carried_out[fru_board], 512 / limit);
}

INSTANTIATE_TEST_SUITE_P(CompletionCode, RefusingBmc, testing::Values(0xC7, 0xC8, 0xCA),
                         [](const auto& test) { return "Code" + std::to_string(test.param); });

TEST_F(BadBmc, ARefusalThatDoesNotEndIsPassedOn) {
    const Outcome outcome = inventory([&](const IpmiMessage& request) {
        const bool is_refused = is_fru_read(request) && request.data[0] == fru_processor;
        return is_refused ? refused(0xC8) : Fate{};
    });

    EXPECT_EQ(outcome.code, exit_incomplete);
    const Json shown = Json::parse(outcome.out);
    EXPECT_EQ(shown["Others"][0]["SerialNumber"], "MB24180042");
    EXPECT_EQ(shown["NotRead"][0]["FruId"], int{fru_processor});
}

TEST_F(BadBmc, AnswersShorterThanAskedForArePutTogether) {
    constexpr std::size_t longest = 2 + 10;  // completion code, count, bytes
    expect_whole(inventory([&](const IpmiMessage& request) {
        if (!is_fru_read(request)) return Fate{};
        return Fate{.change = [](std::vector<uint8_t>& answer) {
            if (answer.size() <= longest) return;
            answer.resize(longest);
            answer[1] = longest - 2;
        }};
    }));
}

TEST_F(BadBmc, RecordsOfTheRepositoryAreReadInPieces) {
    constexpr uint8_t limit = 16;
    expect_whole(inventory([&](const IpmiMessage& request) {
        const bool is_refused = is_sdr_read(request) && count_of(request) > limit;
        return is_refused ? refused(0xCA) : Fate{};
    }));
}

TEST_F(BadBmc, ACancelledReservationIsTakenAnew) {
    int reads = 0;
    const Outcome outcome = inventory([&](const IpmiMessage& request) {
        // In the middle of a record, and at the begin of another one.
        const bool is_cancelled = is_sdr_read(request) && (++reads == 2 || reads == 8);
        return is_cancelled ? refused(reservation_cancelled) : Fate{};
    });

    expect_whole(outcome);
    EXPECT_GE(reads, 6);
}

TEST_F(BadBmc, ARepositoryThatChangesAllTheTimeIsGivenUp) {
    int reads = 0;
    const Outcome outcome = inventory([&](const IpmiMessage& request) {
        if (!is_sdr_read(request)) return Fate{};
        ++reads;
        return refused(reservation_cancelled);
    });

    EXPECT_EQ(outcome.code, exit_failure);
    EXPECT_THAT(outcome.err, HasSubstr("the SDR repository cannot be read"));
    EXPECT_LE(reads, 20);
}

TEST_F(BadBmc, ASlowOneIsWaitedFor) {
    expect_whole(inventory([](const IpmiMessage&) { return Fate{.delay = 40ms}; }));
    EXPECT_GT(taken_, 500ms);
}

TEST_F(BadBmc, LostAnswersAreAskedForAgain) {
    int answers = 0;
    expect_whole(
        inventory([&](const IpmiMessage&) { return Fate{.is_dropped = ++answers % 8 == 0}; }, {{"timeout_ms", 2000}}));
}

TEST_F(BadBmc, OneThatIsTooSlowIsGivenUpInTime) {
    const Outcome outcome = inventory([](const IpmiMessage&) { return Fate{.delay = 3s}; }, {{"timeout_ms", 400}});

    EXPECT_EQ(outcome.code, exit_failure);
    EXPECT_THAT(outcome.err,
                testing::MatchesRegex("vpdctl: BMC 127.0.0.1:[0-9]+: .*timeout \\(400 ms for an answer\\)\n"));
    EXPECT_LT(taken_, 3s);
}

TEST_F(BadBmc, OneThatVanishesLeavesWhatWasReadAndAnError) {
    const Outcome outcome = inventory(
        [&](const IpmiMessage& request) {
            if (is_fru_read(request) && request.data[0] == fru_processor) simulator_->stop();
            return Fate{.is_dropped = is_fru_read(request) && request.data[0] == fru_processor};
        },
        {{"timeout_ms", 400}});

    EXPECT_EQ(outcome.code, exit_failure);
    EXPECT_THAT(outcome.err, testing::MatchesRegex("vpdctl: BMC 127.0.0.1:[0-9]+ no longer answers: .*\n"));
    const Json shown = Json::parse(outcome.out);
    EXPECT_EQ(shown["Others"][0]["SerialNumber"], "MB24180042");
    EXPECT_EQ(shown["NotRead"][0]["FruId"], int{fru_processor});
    EXPECT_LT(taken_, 5s);
}

TEST_F(BadBmc, OneThatVanishesWhileTheRepositoryIsReadIsNamed) {
    const Outcome outcome = inventory(
        [&](const IpmiMessage& request) {
            if (is_sdr_read(request)) simulator_->stop();
            return Fate{.is_dropped = is_sdr_read(request)};
        },
        {{"timeout_ms", 400}});

    EXPECT_EQ(outcome.code, exit_failure);
    EXPECT_THAT(outcome.out, testing::IsEmpty());
    EXPECT_THAT(outcome.err, HasSubstr("no longer answers"));
    EXPECT_LT(taken_, 5s);
}

TEST_F(BadBmc, OneThatHasForgottenTheSessionIsAskedInANewOne) {
    bool was_lost = false;
    bool is_lost = false;
    const Outcome outcome = inventory(
        [&](const IpmiMessage& request) {
            if (begins_session(request)) is_lost = false;
            if (is_fru_read(request) && request.data[0] == fru_processor && !was_lost) was_lost = is_lost = true;
            return Fate{.is_dropped = is_lost};
        },
        {{"timeout_ms", 500}});

    EXPECT_TRUE(was_lost);
    expect_whole(outcome);
}

TEST(NoBmc, NobodyAtTheAddressIsSaidInTime) {
    const PlatformFile file(free_port(), {{"timeout_ms", 300}});
    const auto begin = Clock::now();
    const Outcome outcome = vpdctl({"inventory", "--platform", "ipmi", "--bmc", file.path()});

    EXPECT_EQ(outcome.code, exit_failure);
    EXPECT_THAT(outcome.err, HasSubstr("timeout (300 ms for an answer)"));
    EXPECT_LT(Clock::now() - begin, 3s);
}

TEST_F(BadBmc, AWrongPasswordIsSaid) {
    const PlatformFile file(simulator_->port());
    const Outcome outcome = vpdctl({"inventory", "--bmc", file.path()}, {{"VPDD_BMC_PASSWORD", "wrong"}});

    EXPECT_EQ(outcome.code, exit_failure);
    EXPECT_THAT(outcome.err, HasSubstr("password"));
}

TEST_F(BadBmc, ThePasswordOfTheEnvironmentStandsBeforeTheFiles) {
    const PlatformFile file(simulator_->port(), {{"password_file", "none"}});

    EXPECT_EQ(vpdctl({"inventory", "--bmc", file.path()}, {{"VPDD_BMC_PASSWORD", simulated_password}}).code, exit_ok);
    EXPECT_EQ(vpdctl({"inventory", "--bmc", file.path()}).code, exit_bad_input);
}

}  // namespace
}  // namespace vpdd::test
