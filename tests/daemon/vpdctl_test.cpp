// SPDX-License-Identifier: Apache-2.0
// vpdctl where a daemon runs, and where none does.
#include <csignal>

#include "host/vpdd_host.h"
#include "small_server.h"

namespace vpdd::test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

constexpr int exit_incomplete = 1;
constexpr int exit_failure = 4;
constexpr int exit_usage = 2;

class Vpdctl : public DaemonTest {
protected:
    struct Outcome {
        int code;
        std::string output;
    };

    static Outcome vpdctl(const std::vector<std::string>& arguments) {
        std::vector<std::string> command{VPDCTL_PROGRAM};
        command.insert(command.end(), arguments.begin(), arguments.end());
        ChildProcess process(command, "/tmp/vpdctl.output", {{"TZ", "UTC"}, {"COLUMNS", "120"}});
        const int code = process.wait();
        return {code, process.output()};
    }

    static void swap(const char* fru) {
        const VpddHostOptions options{"/tmp/state", 0, nullptr, nullptr, nullptr, nullptr};
        ASSERT_EQ(vpdd_host_open_file("/tmp/server.json", &options, nullptr, 0), 0);
        EXPECT_EQ(vpdd_host_change_fru(VPDD_HOST_SWAP, fru, nullptr, nullptr, nullptr, 0), 0);
        vpdd_host_close();
    }
};

TEST_F(Vpdctl, SaysThatNoDaemonRunsAndWhatToDo) {
    for (const char* verb : {"inventory", "machine", "status", "log", "watch"}) {
        const Outcome outcome = vpdctl({verb});

        EXPECT_EQ(outcome.code, exit_failure) << verb;
        EXPECT_THAT(outcome.output, AllOf(HasSubstr("no vpdd runs on this machine"), HasSubstr("--server FILE")));
    }
}

TEST_F(Vpdctl, SaysWhatIsInThePlaceOfTheSocket) {
    std::filesystem::create_directory(daemon_socket);

    EXPECT_THAT(vpdctl({"status"}).output, HasSubstr("/tmp/vpdd.sock is a directory: no vpdd can serve there"));

    std::filesystem::remove(daemon_socket);
    std::ofstream(daemon_socket) << "mine";
    EXPECT_THAT(vpdctl({"status"}).output, HasSubstr("/tmp/vpdd.sock is a file that is no socket"));
}

TEST_F(Vpdctl, WaitsForADaemonThatIsStartedMeanwhileWhenItIsTold) {
    ChildProcess inventory({VPDCTL_PROGRAM, "inventory", "--wait", "20"}, "/tmp/inventory.output");
    ChildProcess watch({VPDCTL_PROGRAM, "watch", "--all", "--count", "1", "--wait", "20"}, "/tmp/watch.output");

    DaemonProcess daemon(arguments());

    EXPECT_EQ(inventory.wait(), exit_incomplete) << inventory.output();  // Fan 2 is absent
    EXPECT_THAT(inventory.output(), HasSubstr("FN1"));
    EXPECT_EQ(watch.wait(), 0) << watch.output();
}

TEST_F(Vpdctl, WaitsForADaemonThatReadsTheComponents) {
    std::optional<DaemonProcess> daemon;
    daemon.emplace(arguments({"--real-time"}));  // creation begins with a pause of five seconds
    ASSERT_TRUE(eventually([] { return ask_status().find("state=starting") != std::string::npos; }));

    const Outcome impatient = vpdctl({"machine", "--wait", "0"});
    ChildProcess patient({VPDCTL_PROGRAM, "machine", "--wait", "20"}, "/tmp/patient.output");

    EXPECT_EQ(impatient.code, exit_failure);
    EXPECT_THAT(impatient.output, HasSubstr("vpdd is still reading the server's components"));
    EXPECT_EQ(patient.wait(std::chrono::milliseconds(300)), -1) << patient.output();
    daemon.emplace(arguments());  // one that does not pause
    EXPECT_EQ(patient.wait(), 0) << patient.output();
    EXPECT_THAT(patient.output(), HasSubstr("MACHINE1"));
}

TEST_F(Vpdctl, SaysOnATerminalThatTheDaemonDoesNotAnswer) {
    DaemonProcess daemon(arguments());
    ASSERT_TRUE(daemon.becomes_ready());
    daemon.send_signal(SIGSTOP);
    ChildProcess status({"/usr/bin/script", "-qec", std::string(VPDCTL_PROGRAM) + " status", "/dev/null"},
                        "/tmp/status.output");

    EXPECT_TRUE(eventually([&] { return status.output().find("vpdd has not answered yet") != std::string::npos; }));

    daemon.send_signal(SIGCONT);
    EXPECT_EQ(status.wait(), 0) << status.output();
    EXPECT_THAT(status.output(), HasSubstr("4 components: 3 present"));
}

TEST_F(Vpdctl, EndsSilentlyWhenNobodyTakesItsOutput) {
    DaemonProcess daemon(arguments());
    ASSERT_TRUE(daemon.becomes_ready());
    // A pipe whose reading end is closed.
    const std::string command = "rm -f /tmp/pipe; mkfifo /tmp/pipe; exec 4<>/tmp/pipe 5>/tmp/pipe 4<&-; " +
                                std::string(VPDCTL_PROGRAM) + " status >&5; echo ended with $?";

    ChildProcess shell({"/bin/sh", "-c", command}, "/tmp/shell.output");

    EXPECT_EQ(shell.wait(), 0);
    EXPECT_EQ(shell.output(), "ended with " + std::to_string(128 + SIGPIPE) + '\n');
}

TEST_F(Vpdctl, ShowsWhatTheDaemonHas) {
    DaemonProcess daemon(arguments());
    ASSERT_TRUE(daemon.becomes_ready());

    EXPECT_THAT(vpdctl({"inventory"}).output,
                AllOf(HasSubstr("Inventory of this machine"), HasSubstr("EC1"), HasSubstr("FN1")));
    EXPECT_THAT(vpdctl({"inventory", "--json"}).output, HasSubstr("\"SerialNumber\": \"FN1\""));
    EXPECT_THAT(vpdctl({"machine"}).output, HasSubstr("MACHINE1"));
    EXPECT_THAT(vpdctl({"status"}).output, AllOf(HasSubstr("4 components: 3 present, 1 absent"), HasSubstr("FN1")));
    EXPECT_THAT(vpdctl({"status", "--refresh", "--json"}).output, HasSubstr("\"Presence\": \"present\""));
    EXPECT_THAT(vpdctl({"log"}).output, AllOf(HasSubstr("installed"), HasSubstr("FN1")));
}

TEST_F(Vpdctl, SaysThatThePresenceIsNotKnownWhereTheDaemonCannotLook) {
    std::filesystem::create_directory("/flash/data0/component_activity.log");
    DaemonProcess daemon(arguments());
    ASSERT_TRUE(daemon.becomes_ready());

    const Outcome table = vpdctl({"status"});
    const Outcome json = vpdctl({"status", "--json"});

    EXPECT_EQ(table.code, exit_incomplete);
    EXPECT_THAT(table.output, AllOf(HasSubstr("4 components: 0 present, 0 absent, 4 not known; 0 changed"),
                                    HasSubstr("vpdctl: vpdd cannot look which components are there (status=-32)")));
    EXPECT_EQ(json.code, exit_incomplete);
    EXPECT_THAT(json.output, AllOf(HasSubstr("\"Presence\": \"not known\""), Not(HasSubstr("\"absent\""))));
    EXPECT_THAT(changes_of(ask("changes 0\n")), testing::IsEmpty());
}

TEST_F(Vpdctl, TellsThePresenceAsSoonAsTheDaemonCanLook) {
    std::filesystem::create_directory("/flash/data0/component_activity.log");
    DaemonProcess daemon(arguments());
    ASSERT_TRUE(daemon.becomes_ready());
    std::filesystem::remove("/flash/data0/component_activity.log");

    ASSERT_TRUE(eventually([] { return ask_status().find("trouble=") == std::string::npos; })) << ask_status();

    const Outcome status = vpdctl({"status"});
    EXPECT_EQ(status.code, 0);
    EXPECT_THAT(status.output, AllOf(HasSubstr("3 present, 1 absent; 0 changed"), Not(HasSubstr("vpdctl:"))));
    EXPECT_THAT(changes_of(ask("changes 0\n")), testing::SizeIs(2));
}

TEST_F(Vpdctl, ReadsWhatTheDaemonHasLeftWithoutAskingIt) {
    {
        DaemonProcess daemon(arguments());
        ASSERT_TRUE(daemon.becomes_ready());
    }

    EXPECT_THAT(vpdctl({"machine", "--offline"}).output, HasSubstr("MACHINE1"));
    EXPECT_THAT(vpdctl({"log", "--offline"}).output, HasSubstr("FN1"));
    EXPECT_THAT(vpdctl({"machine"}).output, HasSubstr("the vpdd that served /tmp/vpdd.sock has ended"));
}

TEST_F(Vpdctl, EmptiesTheLogThroughTheDaemon) {
    DaemonProcess daemon(arguments());
    ASSERT_TRUE(daemon.becomes_ready());

    EXPECT_EQ(vpdctl({"log", "--clean", "--yes"}).code, 0);

    EXPECT_THAT(vpdctl({"log"}).output, HasSubstr("The activity log is empty."));
}

TEST_F(Vpdctl, WorksAloneWithAServer) {
    const Outcome outcome = vpdctl({"inventory", "--server", "/tmp/server.json"});

    EXPECT_THAT(outcome.output, AllOf(HasSubstr("/tmp/server.json"), HasSubstr("FN1")));
}

TEST_F(Vpdctl, RefusesWhatTheDaemonCannotTell) {
    EXPECT_EQ(vpdctl({"status", "--changed"}).code, exit_usage);
    EXPECT_EQ(vpdctl({"machine", "--from-cache"}).code, exit_usage);
    EXPECT_EQ(vpdctl({"machine", "--offline", "--server", "/tmp/server.json"}).code, exit_usage);
}

TEST_F(Vpdctl, WatchShowsAChangeAsItHappens) {
    DaemonProcess daemon(arguments());
    ASSERT_TRUE(daemon.becomes_ready());
    ChildProcess watch({VPDCTL_PROGRAM, "watch", "--all", "--count", "3"}, "/tmp/watch.output");
    ASSERT_TRUE(eventually([&] { return watch.output().find("FN1") != std::string::npos; })) << watch.output();

    swap("Fan 1");

    EXPECT_EQ(watch.wait(), 0) << watch.output();
    EXPECT_THAT(watch.output(), HasSubstr("Replaced      Fan 1               FN1 -> FN2\n"));
}

TEST_F(Vpdctl, WatchPrintsAJsonObjectForEachChangeOnALineOfItsOwn) {
    DaemonProcess daemon(arguments());
    ASSERT_TRUE(daemon.becomes_ready());

    const std::string output = vpdctl({"watch", "--all", "--count", "2", "--json"}).output;

    EXPECT_EQ(std::count(output.begin(), output.end(), '\n'), 2);
    EXPECT_THAT(output,
                AllOf(HasSubstr("\"Event\":\"Installed\",\"FruId\":5,\"Name\":\"Fan 1\",\"SerialNumber\":\"FN1\""),
                      Not(HasSubstr("PreviousSerialNumber"))));
}

TEST_F(Vpdctl, WatchFollowsTheNextDaemonAndTellsWhatChangedInBetween) {
    std::optional<DaemonProcess> daemon;
    daemon.emplace(arguments());
    ASSERT_TRUE(daemon->becomes_ready());
    ChildProcess watch({VPDCTL_PROGRAM, "watch", "--count", "1"}, "/tmp/watch.output");
    // It has asked for all that it needs to begin with.
    ASSERT_TRUE(eventually([] { return ask_status().find("\nwaiting=1\n") != std::string::npos; }));
    daemon->send_signal(SIGTERM);
    ASSERT_EQ(daemon->wait(), 0);
    swap("Fan 1");

    daemon.emplace(arguments());

    EXPECT_EQ(watch.wait(), 0) << watch.output();
    EXPECT_THAT(watch.output(), AllOf(HasSubstr("vpdd has ended"), HasSubstr("FN1 -> FN2")));
}

}  // namespace
}  // namespace vpdd::test
