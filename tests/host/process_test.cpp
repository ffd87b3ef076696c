// SPDX-License-Identifier: Apache-2.0
// What stands before the C library: sleeping and logging; and the functions between processes.
#undef _FORTIFY_SOURCE
#include <sys/socket.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <thread>

#include "open_server.h"
#include "platform/debug_trace.h"
#include "platform/messages.h"

extern "C" void __syslog_chk(int priority, int flag, const char* format, ...);

using namespace vpdd::test;

namespace {

struct Message {
    VpddHostMessageKind kind;
    int level;
    std::string text;

    bool operator==(const Message&) const = default;
};

void collect(void* context, VpddHostMessageKind kind, int level, const char* text) {
    static_cast<std::vector<Message>*>(context)->push_back({kind, level, text});
}

double seconds_of(const auto& action) {
    const auto start = std::chrono::steady_clock::now();
    action();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

VpddHostOptions sleeping(double factor) {
    VpddHostOptions options{};
    options.sleep_factor = factor;
    return options;
}

TEST(Sleep, TakesNoTimeWithFactorZero) {
    const OpenServer server(server_text(""), sleeping(0));

    EXPECT_LT(seconds_of([] {
                  EXPECT_EQ(sleep(3600), 0U);
                  EXPECT_EQ(usleep(1000000000), 0);
              }),
              60);
}

TEST(Sleep, LastsTheFactorTimesWhatWasAsked) {
    const OpenServer server(server_text(""), sleeping(0.001));

    EXPECT_GE(seconds_of([] { sleep(20); }), 0.02);
    EXPECT_GE(seconds_of([] { usleep(20000000); }), 0.02);
}

TEST(Sleep, LastsItsTimeWithoutAServer) {
    EXPECT_GE(seconds_of([] { usleep(20000); }), 0.02);
}

TEST(Syslog, GoesToTheServersSinkWithoutItsLineEnd) {
    std::vector<Message> messages;
    VpddHostOptions options{};
    options.message = collect;
    options.message_context = &messages;
    const OpenServer server(server_text(""), options);

    syslog(8, "pid=%d, %s\n", 7, "text");
    __syslog_chk(11, 1, "%d", 5);
    errno = ENOENT;
    syslog(LOG_INFO, std::string("%m %d").c_str(), 3);

    EXPECT_EQ(messages, (std::vector<Message>{{VPDD_HOST_SYSLOG, 8, "pid=7, text"},
                                              {VPDD_HOST_SYSLOG, 11, "5"},
                                              {VPDD_HOST_SYSLOG, LOG_INFO, "No such file or directory 3"}}));
}

TEST(Syslog, GoesToTheProcessSinkWhenNoServerTakesIt) {
    std::vector<Message> messages;
    vpdd_host_set_message_sink(collect, &messages);

    syslog(12, "without");
    const OpenServer server(server_text(""));
    syslog(12, "with");
    vpdd_host_set_message_sink(nullptr, nullptr);
    syslog(12, "gone");

    EXPECT_EQ(messages, (std::vector<Message>{{VPDD_HOST_SYSLOG, 12, "without"}, {VPDD_HOST_SYSLOG, 12, "with"}}));
}

TEST(Syslog, TakesTextsOfAnyLength) {
    std::vector<Message> messages;
    vpdd_host_set_message_sink(collect, &messages);

    syslog(12, "%s", std::string(100000, 'x').c_str());
    vpdd_host_set_message_sink(nullptr, nullptr);

    EXPECT_EQ(messages.at(0).text.size(), 100000U);
}

TEST(Trace, GoesToTheSinkWithoutAStateDirectory) {
    std::vector<Message> messages;
    VpddHostOptions options{};
    options.message = collect;
    options.message_context = &messages;
    const OpenServer server(server_text(""), options);

    log_debug_log("/tmp/vpdd_trace.log", 4, "[%s]:FAIL", "here");

    EXPECT_EQ(messages, (std::vector<Message>{{VPDD_HOST_TRACE, 4, "[here]:FAIL"}}));
}

TEST(Trace, GoesToAFileOfTheStateDirectory) {
    const TemporaryFolder folder;
    VpddHostOptions options{};
    options.state_directory = folder.c_str();
    const OpenServer server(server_text(""), options);

    log_debug_log("/tmp/vpdd_trace.log", 2, "first");
    log_debug_log("/tmp/vpdd_trace.log", 2, "second\n");

    std::ifstream file(folder.file("vpdd_trace.log"));
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), "first\nsecond\n");
}

TEST(Messages, AreMovedWhole) {
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    const Bytes sent(1000000, 0xA5);
    Bytes received(sent.size());
    std::thread sender([&] { EXPECT_EQ(pm_sent_data(ends[0], sent.data(), 1000000), 1000000); });

    EXPECT_EQ(pm_read_data(ends[1], received.data(), 1000000), 1000000);
    sender.join();

    EXPECT_EQ(received, sent);
    close(ends[0]);
    EXPECT_EQ(pm_read_data(ends[1], received.data(), 1), -1);
    close(ends[1]);
}

TEST(Messages, FailOnABadDescriptor) {
    uint8_t byte = 0;

    EXPECT_EQ(pm_sent_data(-1, &byte, 1), -1);
    EXPECT_EQ(pm_read_data(-1, &byte, 1), -1);
    EXPECT_EQ(pm_sent_data(1, nullptr, 1), -1);
}

TEST(SoftwareEvents, AreRecordedInTheStore) {
    const OpenServer server(server_text(""));
    uint8_t payload[76] = {};

    EXPECT_EQ(sw_msg_dispatcher(72, payload, 5, 6), 0);

    EXPECT_EQ(events(), (std::vector<SeenEvent>{{"", 72, 5, 6}}));
}

TEST(SoftwareEvents, FailWithoutAServer) { EXPECT_NE(sw_msg_dispatcher(72, nullptr, 0, 0), 0); }

TEST(ShellCommands, AreRun) {
    const TemporaryFolder folder;

    EXPECT_EQ(proc_system(("echo x > " + folder.file("made").string()).c_str()), 0);

    EXPECT_TRUE(std::filesystem::exists(folder.file("made")));
    EXPECT_NE(proc_system("exit 3"), 0);
}

}  // namespace
