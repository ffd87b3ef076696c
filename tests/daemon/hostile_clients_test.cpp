// SPDX-License-Identifier: Apache-2.0
// Clients that are slow, silent or mean, and those who must not notice them.
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <memory>
#include <thread>

#include "small_server.h"

namespace vpdd::test {
namespace {

using testing::SizeIs;
using namespace std::chrono_literals;

class HostileClients : public DaemonTest {
protected:
    void start(const std::vector<std::string>& more = {}) {
        daemon_.emplace(arguments(more));
        ASSERT_TRUE(daemon_->becomes_ready()) << daemon_->output();
    }
    void TearDown() override {
        EXPECT_EQ(daemon_->wait(0ms), -1) << "the daemon has ended: " << daemon_->output();
        daemon_.reset();
        DaemonTest::TearDown();
    }

    static bool is_served_at_once() {
        const auto begin = std::chrono::steady_clock::now();
        const bool is_right = records_of<ComponentVpdRecord>(ask("components\n")).size() == 4;
        return is_right && std::chrono::steady_clock::now() - begin < 2s;
    }

private:
    std::optional<DaemonProcess> daemon_;
};

TEST_F(HostileClients, SilentOnesKeepNobodyWaitingAndLoseTheirPlaceAfterFiveSeconds) {
    start();
    const std::vector<Connection> silent(32);

    EXPECT_TRUE(is_served_at_once());
    EXPECT_FALSE(silent[0].is_closed_by_daemon(1s));
    EXPECT_TRUE(silent[0].is_closed_by_daemon(10s));
}

TEST_F(HostileClients, HalfARequestIsNotAnswered) {
    start();
    const Connection without_room;
    without_room.send("status\n\1\2");
    const Connection without_end;
    without_end.send("stat");

    EXPECT_TRUE(is_served_at_once());
    EXPECT_TRUE(without_room.receive(10s).is_empty());
    EXPECT_TRUE(without_end.receive(10s).is_empty());
}

TEST_F(HostileClients, ARequestMayComeByteByByte) {
    start();
    const Connection slow;
    for (const char byte : request("component 5\n", 1512)) {
        slow.send({&byte, 1});
        std::this_thread::sleep_for(1ms);
    }

    EXPECT_THAT(slow.receive().data, SizeIs(1512));
}

TEST_F(HostileClients, AGiantRequestIsRefusedUnread) {
    start();
    const Connection giant;
    const std::string much(1 << 16, 'x');

    giant.send(much);

    EXPECT_TRUE(giant.is_closed_by_daemon(3s));
    EXPECT_TRUE(is_served_at_once());
}

TEST_F(HostileClients, ARequestOfExactlyTheLongestLengthIsLookedAtAndALongerOneIsNot) {
    start();
    const std::string longest = std::string(127, 'x') + '\n';

    EXPECT_EQ(ask(longest).word, VPDD_REPLY_UNKNOWN);
    const Connection longer;
    longer.send(std::string(128, 'x'));
    EXPECT_EQ(longer.receive().word, VPDD_REPLY_MALFORMED);
}

TEST_F(HostileClients, AClientThatLeavesInTheMiddleOfItsAnswerHarmsNobody) {
    start();
    for (int i = 0; i < 50; ++i) {
        const Connection leaving;
        leaving.send(request("components\n", 1 << 20));
    }

    EXPECT_TRUE(is_served_at_once());
}

TEST_F(HostileClients, AClientThatTakesNothingHoldsUpNobody) {
    start();
    const std::vector<Connection> takers(16);
    for (const Connection& taker : takers) {
        const int little = 1;
        setsockopt(taker.fd(), SOL_SOCKET, SO_RCVBUF, &little, sizeof little);
        taker.send(request("components\n", 1 << 20));
    }

    EXPECT_TRUE(is_served_at_once());
}

TEST_F(HostileClients, SixtyFourClientsAtOnceAreAllServed) {
    start();
    std::vector<Connection> clients(64);
    for (const Connection& client : clients) ASSERT_TRUE(client.is_open());
    for (const Connection& client : clients) client.send(request("components\n", 1 << 20));

    for (const Connection& client : clients) EXPECT_THAT(client.receive().data, SizeIs(4 * 1512));
}

TEST_F(HostileClients, WhenAllPlacesAreTakenASilentClientLosesItsOwn) {
    start({"--clients", "8"});
    const std::vector<Connection> silent(8);

    EXPECT_TRUE(is_served_at_once());
    EXPECT_TRUE(silent[0].is_closed_by_daemon(1s));
    EXPECT_FALSE(silent[7].is_closed_by_daemon(0ms));
}

TEST_F(HostileClients, WhoWaitsForAChangeKeepsNobodyFromBeingServed) {
    start({"--clients", "8"});
    const std::vector<Connection> waiting(8);
    for (const Connection& client : waiting) client.send(request("changes 2 30\n", 1 << 16));

    EXPECT_TRUE(is_served_at_once());
}

/// Runs as another user. @return its exit code; 77: this machine does not let us
int as_another_user(const std::function<int()>& action) {
    constexpr uid_t nobody = 65534;
    const pid_t child = fork();
    if (child == 0) {
        if (setresgid(nobody, nobody, nobody) != 0 || setresuid(nobody, nobody, nobody) != 0) _exit(77);
        _exit(action());
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST_F(HostileClients, AnotherUserMayReadButChangeNothing) {
    start();

    const int read = as_another_user([] { return ask("components\n").data.size() == 4 * 1512 ? 0 : 1; });
    if (read == 77) GTEST_SKIP() << "this machine lets the test be no other user";
    EXPECT_EQ(read, 0);
    EXPECT_EQ(as_another_user([] { return ask("refresh\n").word; }), VPDD_REPLY_NOT_PERMITTED);
    EXPECT_EQ(as_another_user([] { return ask("clean-log\n").word; }), VPDD_REPLY_NOT_PERMITTED);
    EXPECT_THAT(records_of<ComponentVpdRecord>(ask("log\n")), SizeIs(2));
}

TEST_F(HostileClients, AnotherUserCannotConnectWhereTheSocketsModeForbidsIt) {
    start({"--socket-mode", "0600"});

    const int code = as_another_user([] { return Connection().is_open() ? 1 : 0; });
    if (code == 77) GTEST_SKIP() << "this machine lets the test be no other user";
    EXPECT_EQ(code, 0);
    EXPECT_TRUE(is_served_at_once());
}

TEST_F(HostileClients, AnotherUserNeverHasMoreThanHalfOfThePlaces) {
    start({"--clients", "8"});

    const int code = as_another_user([] {
        const std::vector<Connection> silent(8);
        int closed = 0;
        for (const Connection& client : silent) closed += client.is_closed_by_daemon(50ms) ? 1 : 0;
        return closed;
    });
    if (code == 77) GTEST_SKIP() << "this machine lets the test be no other user";
    EXPECT_EQ(code, 4);
}

TEST_F(HostileClients, OfAnotherUsersClientsTheOldestSilentOneLosesItsPlace) {
    start({"--clients", "8"});

    const int code = as_another_user([] {
        const std::vector<Connection> silent(4);
        const bool is_answered = ask("components\n").data.size() == 4 * 1512;
        if (!is_answered) return 1;
        if (!silent[0].is_closed_by_daemon(1s)) return 2;
        return silent[1].is_closed_by_daemon(0ms) ? 3 : 0;
    });
    if (code == 77) GTEST_SKIP() << "this machine lets the test be no other user";
    EXPECT_EQ(code, 0);
}

TEST_F(HostileClients, TheDaemonsOwnUserMayChangeThings) {
    start();

    EXPECT_EQ(ask("refresh\n").word, VPDD_REPLY_OK);
    EXPECT_EQ(ask("clean-log\n").word, VPDD_REPLY_OK);
    EXPECT_THAT(records_of<ComponentVpdRecord>(ask("log\n")), SizeIs(0));
}

}  // namespace
}  // namespace vpdd::test
