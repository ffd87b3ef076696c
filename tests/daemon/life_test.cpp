// SPDX-License-Identifier: Apache-2.0
// How the daemon starts, notices changes, and ends.
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <map>

#include "host/vpdd_host.h"
#include "small_server.h"

namespace vpdd::test {
namespace {

using testing::HasSubstr;
using testing::SizeIs;
using namespace std::chrono_literals;

constexpr int exit_no_platform = 3;
constexpr int exit_no_cache = 4;
constexpr int exit_no_socket = 5;

class Life : public DaemonTest {
protected:
    /// As `vpdctl simulate` does.
    static void simulate(VpddHostChange change, const char* fru) {
        const VpddHostOptions options{"/tmp/state", 0, nullptr, nullptr, nullptr, nullptr};
        char error[256] = "";
        ASSERT_EQ(vpdd_host_open_file("/tmp/server.json", &options, error, sizeof error), 0) << error;
        EXPECT_EQ(vpdd_host_change_fru(change, fru, nullptr, nullptr, error, sizeof error), 0) << error;
        vpdd_host_close();
    }

    static std::string described_with(const std::string& from, const std::string& to) {
        std::string text(small_description);
        text.replace(text.find(from), from.size(), to);
        return text;
    }

    static std::map<std::string, std::string> serial_numbers() {
        std::map<std::string, std::string> numbers;
        for (const auto& record : records_of<ComponentVpdRecord>(ask("components\n"))) {
            numbers[record.name] = record.serial_number;
        }
        return numbers;
    }

    static std::string newest_change() {
        const auto changes = changes_of(ask("changes 0\n"));
        if (changes.empty()) return "none";
        const VpddChangeEntry& change = changes.back();
        return std::to_string(change.event) + ' ' + change.name + ' ' + change.previous_serial_number + ' ' +
               change.serial_number;
    }
};

TEST_F(Life, OnSigtermTheSocketGoesAndTheExitCodeIsZero) {
    DaemonProcess daemon(arguments());
    ASSERT_TRUE(daemon.becomes_ready());

    daemon.send_signal(SIGTERM);

    EXPECT_EQ(daemon.wait(), 0) << daemon.output();
    EXPECT_FALSE(std::filesystem::exists(daemon_socket));
}

TEST_F(Life, SigtermEndsItAlsoWhileTheLibraryPauses) {
    // Creation begins with a pause of five seconds.
    DaemonProcess daemon(arguments({"--real-time"}));
    ASSERT_TRUE(eventually([] { return ask_status().find("state=starting") != std::string::npos; }));

    daemon.send_signal(SIGTERM);

    EXPECT_EQ(daemon.wait(3s), 0) << daemon.output();
}

TEST_F(Life, WithoutStandardFilesNothingElseTakesTheirPlace) {
    const std::string command = "exec " VPDD_PROGRAM " --server /tmp/server.json --state /tmp/state <&- >&- 2>&-";
    ChildProcess daemon({"/bin/sh", "-c", command}, "/tmp/vpdd.output");
    ASSERT_TRUE(eventually([] { return ask_status().find("\nstate=ready\n") != std::string::npos; }));

    for (const char* number : {"0", "1", "2"}) {
        const std::string link = "/proc/" + std::to_string(daemon.id()) + "/fd/" + number;
        EXPECT_EQ(std::filesystem::read_symlink(link), "/dev/null");
    }
}

TEST_F(Life, BeforeTheFirstInventoryOnlyTheStatusIsTold) {
    DaemonProcess daemon(arguments({"--real-time"}));
    ASSERT_TRUE(eventually([] { return ask_status().find("state=starting") != std::string::npos; }));

    EXPECT_EQ(ask("components\n").word, VPDD_REPLY_NOT_READY);
    EXPECT_EQ(ask("changes 0 5\n").word, VPDD_REPLY_NOT_READY);
}

TEST_F(Life, TheServiceManagerIsToldOfEachStep) {
    const int manager = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, "/tmp/notify");
    ASSERT_EQ(bind(manager, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    std::string told;
    const auto hears = [&](const std::string& word) {
        return eventually([&] {
            char text[512];
            for (ssize_t count = 0; (count = recv(manager, text, sizeof text, 0)) > 0;) {
                told.append(text, static_cast<std::size_t>(count)).push_back('\n');
            }
            return told.find(word) != std::string::npos;
        });
    };
    DaemonProcess daemon(arguments(), "/tmp/vpdd.output",
                         {{"NOTIFY_SOCKET", "/tmp/notify"}, {"WATCHDOG_USEC", "1000000"}});

    EXPECT_TRUE(hears("READY=1")) << told << daemon.output();
    EXPECT_TRUE(hears("WATCHDOG=1")) << told;
    daemon.send_signal(SIGHUP);
    EXPECT_TRUE(hears("RELOADING=1")) << told;
    told.erase(0, told.find("RELOADING=1"));  // what follows may have come at the same time
    EXPECT_TRUE(hears("READY=1")) << told;
    daemon.send_signal(SIGTERM);
    EXPECT_TRUE(hears("STOPPING=1")) << told;
    close(manager);
    unlink("/tmp/notify");
}

TEST_F(Life, TheSocketOfADeadDaemonIsReplaced) {
    DaemonProcess dead(arguments());
    ASSERT_TRUE(dead.becomes_ready());
    dead.send_signal(SIGKILL);
    dead.wait();
    ASSERT_TRUE(std::filesystem::exists(daemon_socket));

    DaemonProcess daemon(arguments());

    EXPECT_TRUE(daemon.becomes_ready()) << daemon.output();
}

TEST_F(Life, ASecondDaemonIsRefusedAndTheFirstOneServesOn) {
    DaemonProcess first(arguments());
    ASSERT_TRUE(first.becomes_ready());

    DaemonProcess second(arguments(), "/tmp/second.output");

    EXPECT_EQ(second.wait(), exit_no_socket);
    EXPECT_THAT(second.output(), HasSubstr("another vpdd serves it"));
    EXPECT_THAT(serial_numbers(), SizeIs(4));
}

TEST_F(Life, ASocketThatSomebodyRemovesIsMadeAnew) {
    DaemonProcess daemon(arguments());
    ASSERT_TRUE(daemon.becomes_ready());
    const Connection waiting;
    waiting.send(request("changes 2 1\n", 1 << 16));

    std::filesystem::remove(daemon_socket);

    EXPECT_TRUE(eventually([] { return std::filesystem::exists(daemon_socket); }));
    EXPECT_THAT(serial_numbers(), SizeIs(4));
    EXPECT_EQ(std::filesystem::status(daemon_socket).permissions(), std::filesystem::perms(0666));
    EXPECT_EQ(waiting.receive().word, VPDD_REPLY_OK);
    daemon.send_signal(SIGTERM);
    EXPECT_EQ(daemon.wait(), 0) << daemon.output();
    EXPECT_FALSE(std::filesystem::exists(daemon_socket));
    EXPECT_FALSE(std::filesystem::exists("/tmp/vpdd.sock.lock"));
}

TEST_F(Life, ASecondDaemonIsRefusedAlsoWhenTheSocketWasRemoved) {
    DaemonProcess first({"--server", "/tmp/server.json", "--state", "/tmp/state", "--poll", "60"});
    ASSERT_TRUE(first.becomes_ready());
    std::filesystem::remove(daemon_socket);

    DaemonProcess second(arguments(), "/tmp/second.output");

    EXPECT_EQ(second.wait(), exit_no_socket);
    EXPECT_THAT(second.output(), HasSubstr("another vpdd serves it"));
}

TEST_F(Life, APlantedLinkIsNeitherFollowedNorRemoved) {
    std::ofstream("/tmp/precious") << "precious";
    std::filesystem::create_symlink("/tmp/precious", daemon_socket);

    DaemonProcess daemon(arguments());

    EXPECT_EQ(daemon.wait(), exit_no_socket);
    EXPECT_THAT(daemon.output(), HasSubstr("a symbolic link of user"));
    EXPECT_TRUE(std::filesystem::is_symlink(daemon_socket));
    EXPECT_EQ(std::filesystem::file_size("/tmp/precious"), 8U);
}

TEST_F(Life, AnotherFileInThePlaceOfTheSocketStays) {
    std::ofstream(daemon_socket) << "mine";

    DaemonProcess daemon(arguments());

    EXPECT_EQ(daemon.wait(), exit_no_socket);
    EXPECT_EQ(std::filesystem::file_size(daemon_socket), 4U);
}

TEST_F(Life, TheSocketOfAnotherUserStays) {
    const int planted = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, daemon_socket);
    ASSERT_EQ(bind(planted, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    close(planted);
    if (chown(daemon_socket, 65534, 65534) != 0) GTEST_SKIP() << "this machine lets the test give no file away";

    DaemonProcess daemon(arguments());

    EXPECT_EQ(daemon.wait(), exit_no_socket);
    EXPECT_THAT(daemon.output(), HasSubstr("a socket of user 65534"));
    EXPECT_TRUE(std::filesystem::exists(daemon_socket));
}

TEST_F(Life, AtTheEndAnotherFileThatHasTakenThePlaceOfTheSocketStays) {
    DaemonProcess daemon(arguments());
    ASSERT_TRUE(daemon.becomes_ready());
    std::filesystem::remove(daemon_socket);
    std::ofstream(daemon_socket) << "mine";

    daemon.send_signal(SIGTERM);

    EXPECT_EQ(daemon.wait(), 0);
    EXPECT_TRUE(std::filesystem::exists(daemon_socket));
}

TEST_F(Life, APartThatIsSwappedIsReadAndTold) {
    DaemonProcess daemon(arguments());
    ASSERT_TRUE(daemon.becomes_ready());

    simulate(VPDD_HOST_SWAP, "Fan 1");

    EXPECT_TRUE(eventually([] { return newest_change() == "3 Fan 1 FN1 FN2"; })) << newest_change();
    EXPECT_EQ(serial_numbers().at("Fan 1"), "FN2");
    EXPECT_THAT(records_of<ComponentVpdRecord>(ask("log\n")), SizeIs(4));
}

TEST_F(Life, APartThatIsPulledAndComesBackIsTold) {
    DaemonProcess daemon(arguments());
    ASSERT_TRUE(daemon.becomes_ready());

    simulate(VPDD_HOST_PULL, "CPU 1");
    EXPECT_TRUE(eventually([] { return newest_change() == "2 CPU 1  EC1"; })) << newest_change();
    simulate(VPDD_HOST_INSERT, "CPU 1");
    EXPECT_TRUE(eventually([] { return newest_change() == "1 CPU 1  EC1"; })) << newest_change();
}

TEST_F(Life, WhoWaitsForAChangeIsToldAsItHappens) {
    DaemonProcess daemon(arguments());
    ASSERT_TRUE(daemon.becomes_ready());
    const Connection waiting;
    waiting.send(request("changes 2 30\n", 1 << 16));

    simulate(VPDD_HOST_SWAP, "Fan 1");

    const auto changes = changes_of(waiting.receive());
    ASSERT_THAT(changes, SizeIs(1));
    EXPECT_EQ(changes[0].sequence, 3U);
}

TEST_F(Life, WhatChangedWhileNoDaemonRanIsToldByTheNextOne) {
    {
        DaemonProcess former(arguments());
        ASSERT_TRUE(former.becomes_ready());
        former.send_signal(SIGTERM);
        ASSERT_EQ(former.wait(), 0);
    }
    simulate(VPDD_HOST_SWAP, "Fan 1");

    DaemonProcess daemon(arguments());

    ASSERT_TRUE(daemon.becomes_ready());
    EXPECT_THAT(changes_of(ask("changes 0\n")), SizeIs(1));
    EXPECT_EQ(newest_change(), "3 Fan 1 FN1 FN2");
}

TEST_F(Life, OnSighupTheDescriptionIsReadAgain) {
    DaemonProcess daemon(arguments());
    ASSERT_TRUE(daemon.becomes_ready());
    describe(described_with("MACHINE1", "MACHINE2"));

    daemon.send_signal(SIGHUP);

    EXPECT_TRUE(eventually([] {
        const auto machines = records_of<MachineVpdRecord>(ask("machine\n"));
        return !machines.empty() && std::string(machines[0].serial_number) == "MACHINE2";
    })) << daemon.output();
    EXPECT_EQ(changes_of(ask("changes 0\n")).back().event, VPDD_CHANGE_MACHINE);
}

TEST_F(Life, OnSighupAnotherSetOfComponentsIsTakenOver) {
    DaemonProcess daemon(arguments());
    ASSERT_TRUE(daemon.becomes_ready());
    describe(described_with("\"Fan 2\"", "\"Fan 9\""));

    daemon.send_signal(SIGHUP);

    EXPECT_TRUE(eventually([] { return serial_numbers().contains("Fan 9"); })) << daemon.output();
    EXPECT_EQ(changes_of(ask("changes 0\n")).back().event, VPDD_CHANGE_REBUILT);
}

TEST_F(Life, ADescriptionThatCannotBeReadChangesNothing) {
    DaemonProcess daemon(arguments());
    ASSERT_TRUE(daemon.becomes_ready());
    describe("{");

    daemon.send_signal(SIGHUP);

    EXPECT_TRUE(eventually([&] { return daemon.output().find("stays as it was") != std::string::npos; }));
    EXPECT_EQ(serial_numbers().at("Fan 1"), "FN1");
}

TEST_F(Life, AServerWithoutAnSdrRepositoryEndsIt) {
    describe(R"({"name": "none", "machine": {}, "frus": []})");

    DaemonProcess daemon(arguments());

    EXPECT_EQ(daemon.wait(), exit_no_cache) << daemon.output();
    EXPECT_THAT(daemon.output(), HasSubstr("the SDR repository cannot be read"));
    EXPECT_FALSE(std::filesystem::exists(daemon_socket));
}

TEST_F(Life, AnOemMachineHasARecordOfItsOwn) {
    std::filesystem::copy_file(SERVER_FOLDER "/ddr5-2s.json", "/tmp/server.json",
                               std::filesystem::copy_options::overwrite_existing);
    DaemonProcess daemon(arguments());
    ASSERT_TRUE(daemon.becomes_ready());

    const Answer answer = ask("machine oem\n");

    ASSERT_EQ(answer.size, 1342);
    EXPECT_EQ(std::memcmp(answer.data.data(), "_req_oem", 8), 0);
}

TEST_F(Life, APlatformThatIsNotThereIsNamed) {
    DaemonProcess daemon({"--platform", "nosuch"});

    EXPECT_EQ(daemon.wait(), exit_no_platform);
    EXPECT_THAT(daemon.output(), HasSubstr("the platform \"nosuch\" cannot be loaded"));
}

TEST_F(Life, ASettingThatThePlatformDoesNotKnowIsNamed) {
    DaemonProcess daemon(arguments({"--set", "colour=red"}));

    EXPECT_EQ(daemon.wait(), exit_no_platform);
    EXPECT_THAT(daemon.output(), HasSubstr("no setting \"colour\""));
}

}  // namespace
}  // namespace vpdd::test
