// SPDX-License-Identifier: Apache-2.0
// vpdd over a simulated BMC. It serves at a fixed path: these tests run in a private root.
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstring>

#include "bmc_contents.h"
#include "daemon/vpdd_protocol.h"
#include "fields.h"
#include "orva_vpdd.h"

namespace vpdd::test {
namespace {

constexpr char socket_path[] = "/tmp/vpdd.sock";

/// Ends with the object.
class Daemon {
public:
    explicit Daemon(const PlatformFile& bmc) : process_(fork()) {
        if (process_ != 0) return;
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        const std::string setting = "bmc=" + bmc.path();
        execl(VPDD_PROGRAM, VPDD_PROGRAM, "--platform", "ipmi", "--set", setting.c_str(), "--state", "/tmp/state",
              "--log-level", "3", nullptr);
        _exit(exit_not_found);
    }
    ~Daemon() { stop(SIGKILL); }
    Daemon(const Daemon&) = delete;
    Daemon& operator=(const Daemon&) = delete;

    /// @return the exit code, or 128 and the signal that ended it
    int stop(int signal) {
        if (process_ < 0) return -1;
        int status = 0;
        kill(process_, signal);
        waitpid(process_, &status, 0);
        process_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }

private:
    pid_t process_;
};

/// All that the daemon sends before it closes the connection.
std::vector<uint8_t> answer_to(const std::string& text) {
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, socket_path, sizeof socket_path);
    std::vector<uint8_t> answer;
    if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
        constexpr uint32_t room = 1 << 20;
        std::string request = text;
        request.append(reinterpret_cast<const char*>(&room), sizeof room);
        send(fd, request.data(), request.size(), MSG_NOSIGNAL);
        std::array<uint8_t, 4096> buffer{};
        for (ssize_t count = 0; (count = recv(fd, buffer.data(), buffer.size(), 0)) > 0;) {
            answer.insert(answer.end(), buffer.begin(), buffer.begin() + count);
        }
    }
    close(fd);
    return answer;
}

/// The components as soon as the first inventory stands; none when that takes too long.
std::vector<ComponentVpdRecord> components() {
    constexpr std::size_t header = 3 * sizeof(uint32_t);
    constexpr int attempts = 300;
    constexpr int wait = 100;  // milliseconds
    for (int attempt = 0; attempt < attempts; ++attempt) {
        const std::vector<uint8_t> answer = answer_to(VPDD_REQUEST_COMPONENTS);
        if (answer.size() > header) {
            std::vector<ComponentVpdRecord> records((answer.size() - header) / sizeof(ComponentVpdRecord));
            std::memcpy(records.data(), answer.data() + header, records.size() * sizeof(ComponentVpdRecord));
            return records;
        }
        poll(nullptr, 0, wait);
    }
    return {};
}

TEST(Daemon, ServesWhatTheBmcHasAndEndsCleanly) {
    if (!simulator_is_installed()) GTEST_SKIP() << "openipmi, ipmitool or freeipmi-tools is not installed";
    const Simulator simulator(small_server());
    const PlatformFile file(simulator.port());
    Daemon daemon(file);

    const std::vector<ComponentVpdRecord> records = components();

    ASSERT_EQ(records.size(), 2U);
    EXPECT_STREQ(records[0].serial_number, "MB24180042");
    EXPECT_STREQ(records[1].name, "CPU 1");
    EXPECT_STREQ(records[1].serial_number, "CPU00001");
    EXPECT_EQ(daemon.stop(SIGTERM), 0);
    EXPECT_FALSE(std::filesystem::exists(socket_path));
}

TEST(Daemon, DoesNotStartWithoutABmc) {
    constexpr int no_platform = 3;
    const PlatformFile file(free_port(), {{"timeout_ms", 300}});
    const Outcome outcome = run_tool({VPDD_PROGRAM, "--platform", "ipmi", "--set", "bmc=" + file.path()});

    EXPECT_EQ(outcome.code, no_platform);
    EXPECT_THAT(outcome.err + outcome.out, testing::HasSubstr("timeout (300 ms for an answer)"));
}

TEST(Daemon, RefusesASettingThatThePlatformDoesNotHave) {
    constexpr int no_platform = 3;
    const Outcome outcome = run_tool({VPDD_PROGRAM, "--platform", "ipmi", "--set", "colour=blue"});

    EXPECT_EQ(outcome.code, no_platform);
    EXPECT_THAT(outcome.err + outcome.out, testing::HasSubstr("it has bmc and state"));
}

}  // namespace
}  // namespace vpdd::test
