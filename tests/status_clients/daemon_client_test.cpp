// SPDX-License-Identifier: Apache-2.0
// The client of the VPD daemon, step by step over a real socket.
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <cstring>
#include <filesystem>
#include <fstream>

#include "socket_daemon.h"

using namespace vpdd::test;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

constexpr char no_socket[] = "vpdd_read_component_data - failed to create socket\n";
constexpr char no_connection[] = "vpdd_read_component_data - failed to connect socket\n";
constexpr char size_differs[] = "size is not matched";

constexpr uint32_t untouched_size = 0xABCDEF;
constexpr uint8_t untouched = 0xEE;
const Bytes any_word{0xDE, 0xAD, 0xBE, 0xEF};
const Bytes other_word{0xFF, 0xFF, 0xFF, 0xFF};

class DaemonClientTest : public PlatformTest {
protected:
    void SetUp() override {
        std::filesystem::remove_all(daemon_socket);
        platform.send_data.model([this](const SentData& call) {
            calls.push_back(formatted("send %zu", call.bytes.size()));
            return static_cast<int>(::send(call.fd, call.bytes.data(), call.bytes.size(), MSG_NOSIGNAL));
        });
        platform.receive_data.model([this](const ReceiveCall& call) {
            calls.push_back(formatted("read %u", call.length));
            ReceiveReply reply{0, Bytes(call.length)};
            reply.result = static_cast<int>(recv(call.fd, reply.bytes.data(), call.length, MSG_WAITALL));
            reply.bytes.resize(reply.result < 0 ? 0 : static_cast<std::size_t>(reply.result));
            return reply;
        });
    }

    /// Asks the daemon; what is printed is kept.
    int ask(const char* request, uint32_t expected_size, uint32_t reserved = 0) {
        const CaptureStderr errors;
        const CaptureStdout output;
        const int result = vpdd_read_component_data(request, &size, reserved, expected_size, buffer.data());
        printed = output.text();
        printed_as_error = errors.text();
        return result;
    }

    /// The script of a daemon that answers a request of this length.
    static std::vector<Step> answer(std::size_t request_length, const Bytes& data) {
        return {take(request_length), take(4),   send(any_word), send(word(static_cast<uint32_t>(data.size()))),
                send(other_word),     send(data)};
    }
    static Bytes pattern(std::size_t count) {
        Bytes bytes(count);
        for (std::size_t i = 0; i < count; ++i) bytes[i] = static_cast<uint8_t>(i * 7 + i / 251 + 1);
        return bytes;
    }
    Bytes beginning_of_buffer(std::size_t count) const {
        return Bytes(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(count));
    }
    void expect_untouched_behind(std::size_t count) const {
        EXPECT_THAT(Bytes(buffer.begin() + static_cast<std::ptrdiff_t>(count), buffer.end()), Each(untouched));
    }

    std::vector<std::string> calls;
    uint32_t size = untouched_size;
    Bytes buffer = Bytes(8192, untouched);
    std::string printed, printed_as_error;
};

// ---- the protocol

TEST_F(DaemonClientTest, FetchesTheDataInSixSteps) {
    const Bytes data = pattern(1512);
    SocketDaemon daemon({answer(12, data)});

    EXPECT_EQ(ask("FRU 5 please", 1512), 0);

    EXPECT_THAT(daemon.taken(), ElementsAre(bytes_of("FRU 5 please"), word(1512), IsEmpty()));
    EXPECT_THAT(calls, ElementsAre("send 12", "send 4", "read 4", "read 4", "read 4", "read 1512"));
    EXPECT_EQ(size, 1512U);
    EXPECT_EQ(beginning_of_buffer(1512), data);
    expect_untouched_behind(1512);
    EXPECT_EQ(printed, "");
    EXPECT_EQ(printed_as_error, "");
    EXPECT_TRUE(platform.logged_nothing());
}

TEST_F(DaemonClientTest, SendsTheExpectedSizeInHostByteOrder) {
    SocketDaemon daemon({{take(1), take(4), send(any_word), send(word(0))}});

    EXPECT_EQ(ask("x", 0x80C0FFEE), 0);

    EXPECT_EQ(daemon.taken().at(1), word(0x80C0FFEE));
}

TEST_F(DaemonClientTest, SendsAnEmptyRequestAsNoBytes) {
    SocketDaemon daemon({answer(0, pattern(4))});

    EXPECT_EQ(ask("", 4), 0);

    EXPECT_EQ(calls.at(0), "send 0");
    EXPECT_THAT(daemon.taken(), ElementsAre(word(4), IsEmpty()));
}

TEST_F(DaemonClientTest, UsesOneConnectionForAllSteps) {
    const SocketDaemon daemon({answer(1, pattern(4))});
    ask("x", 4);

    std::vector<int> descriptors;
    for (const auto& call : platform.send_data.calls()) descriptors.push_back(call.fd);
    for (const auto& call : platform.receive_data.calls()) descriptors.push_back(call.fd);
    EXPECT_THAT(descriptors, SizeIs(6));
    EXPECT_THAT(descriptors, Each(descriptors.at(0)));
}

TEST_F(DaemonClientTest, HandsTheCallersBufferItselfToTheLastStep) {
    const SocketDaemon daemon({answer(1, pattern(4))});
    Bytes seen_before;
    platform.receive_data.during([&](const ReceiveCall&) { seen_before = beginning_of_buffer(4); });

    ask("x", 4);

    EXPECT_THAT(seen_before, Each(untouched)) << "neither reply word nor size lands in it";
    EXPECT_EQ(beginning_of_buffer(4), pattern(4));
}

TEST_F(DaemonClientTest, UsesAConnectionOfItsOwnForEachCall) {
    SocketDaemon daemon({answer(5, pattern(8)), answer(6, pattern(16))});

    EXPECT_EQ(ask("first", 8), 0);
    EXPECT_EQ(ask("second", 16), 0);

    EXPECT_THAT(daemon.taken(),
                ElementsAre(bytes_of("first"), word(8), IsEmpty(), bytes_of("second"), word(16), IsEmpty()));
    EXPECT_EQ(size, 16U);
}

TEST_F(DaemonClientTest, IgnoresTheReservedArgumentAndTheReplyWords) {
    for (const uint32_t value : {0U, 1U, 0xFFFFFFFFU}) {
        const SocketDaemon daemon(
            {{take(1), take(4), send(word(value)), send(word(3)), send(word(~value)), send(pattern(3))}});

        EXPECT_EQ(ask("x", 3, value), 0);

        EXPECT_EQ(size, 3U);
        EXPECT_EQ(beginning_of_buffer(3), pattern(3));
        EXPECT_EQ(printed, "");
    }
}

TEST_F(DaemonClientTest, NeedsNoPlaceForTheSize) {
    const SocketDaemon daemon({answer(1, pattern(4)), answer(1, pattern(5))});
    const CaptureStdout silence;

    EXPECT_EQ(vpdd_read_component_data("x", nullptr, 0, 4, buffer.data()), 0);
    EXPECT_EQ(vpdd_read_component_data("x", nullptr, 0, 4, buffer.data()), 0);

    EXPECT_EQ(beginning_of_buffer(5), pattern(5));
}

TEST_F(DaemonClientTest, RefusesANullRequest) {
    const WatchedSockets sockets;

    EXPECT_EQ(ask(nullptr, 4), -1);

    EXPECT_THAT(sockets.created(), IsEmpty());
    EXPECT_EQ(size, untouched_size);
}

// ---- sizes

TEST_F(DaemonClientTest, ReadsNothingMoreBehindAReplyOfZeroBytes) {
    // What a client that went on would find.
    const SocketDaemon daemon({{take(1), take(4), send(any_word), send(word(0)), send(other_word), send(pattern(8))}});

    EXPECT_EQ(ask("x", 8), 0);

    EXPECT_THAT(calls, ElementsAre("send 1", "send 4", "read 4", "read 4"));
    EXPECT_EQ(size, untouched_size);
    EXPECT_EQ(printed, "");
    expect_untouched_behind(0);
}

TEST_F(DaemonClientTest, ReadsNothingMoreBehindANegativeReplySize) {
    for (const uint32_t reply_size : {0xFFFFFFFFU, 0x80000000U}) {
        calls.clear();
        const SocketDaemon daemon({{take(1), take(4), send(any_word), send(word(reply_size)), send(pattern(64))}});

        EXPECT_EQ(ask("x", reply_size), 0) << "also when it equals the expected size";

        EXPECT_THAT(calls, ElementsAre("send 1", "send 4", "read 4", "read 4"));
        EXPECT_EQ(size, untouched_size);
        EXPECT_EQ(printed, "");
        expect_untouched_behind(0);
    }
}

TEST_F(DaemonClientTest, ReportsAReplySmallerThanExpected) {
    const SocketDaemon daemon({answer(1, pattern(100))});

    EXPECT_EQ(ask("x", 1512), 0);

    EXPECT_EQ(size, 100U);
    EXPECT_EQ(printed, size_differs) << "without a newline";
    EXPECT_EQ(printed_as_error, "");
    EXPECT_EQ(beginning_of_buffer(100), pattern(100));
    expect_untouched_behind(100);
}

TEST_F(DaemonClientTest, ReadsTheWholeOfAReplyLargerThanExpected) {
    const SocketDaemon daemon({answer(1, pattern(8000))});

    EXPECT_EQ(ask("x", 1512), 0);

    EXPECT_EQ(calls.back(), "read 8000");
    EXPECT_EQ(size, 8000U);
    EXPECT_EQ(printed, size_differs);
    EXPECT_EQ(beginning_of_buffer(8000), pattern(8000));
    expect_untouched_behind(8000);
}

TEST_F(DaemonClientTest, ReportsAReplyWhereNoneWasExpected) {
    const SocketDaemon daemon({answer(1, pattern(1))});

    EXPECT_EQ(ask("x", 0), 0);

    EXPECT_EQ(size, 1U);
    EXPECT_EQ(printed, size_differs);
}

TEST_F(DaemonClientTest, TakesAReplyThatFillsManyPackets) {
    buffer.assign(1000000, untouched);
    const SocketDaemon daemon({answer(1, pattern(1000000))});

    EXPECT_EQ(ask("x", 1000000), 0);

    EXPECT_EQ(size, 1000000U);
    EXPECT_EQ(buffer, pattern(1000000));
}

TEST_F(DaemonClientTest, ComparesTheSizesBehindTheData) {
    const SocketDaemon daemon({answer(1, pattern(8))});
    uint32_t size_at_data = 0;
    platform.receive_data.during([&](const ReceiveCall& call) {
        if (call.length == 8) size_at_data = size;
    });

    ask("x", 9);

    EXPECT_EQ(size_at_data, untouched_size);
    EXPECT_EQ(size, 8U);
}

// ---- daemons that answer short

struct EarlyEnd {
    const char* name;
    std::size_t steps;  // that the daemon still takes
    uint32_t size;      // that the client reports
    std::size_t calls;  // that the client makes
};

class EarlyEndTest : public DaemonClientTest, public testing::WithParamInterface<EarlyEnd> {};

INSTANTIATE_TEST_SUITE_P(DaemonCloses, EarlyEndTest,
                         testing::Values(EarlyEnd{"AtOnce", 0, untouched_size, 4},
                                         EarlyEnd{"BehindTheRequest", 1, untouched_size, 4},
                                         EarlyEnd{"BehindTheExpectedSize", 2, untouched_size, 4},
                                         EarlyEnd{"BehindTheFirstWord", 3, untouched_size, 4},
                                         EarlyEnd{"BehindTheReplySize", 4, 64, 6},
                                         EarlyEnd{"BehindTheSecondWord", 5, 64, 6}, EarlyEnd{"InTheData", 6, 64, 6}),
                         [](const auto& test) { return std::string(test.param.name); });

TEST_P(EarlyEndTest, IsNoFailureAndEndsTheCall) {
    std::vector<Step> steps = answer(3, pattern(64));
    steps.back().send.resize(10);
    steps.resize(GetParam().steps);
    const std::size_t before = open_descriptors();
    {
        const SocketDaemon daemon({steps}, SocketDaemon::AtTheEnd::hangs_up);

        EXPECT_EQ(ask("abc", 64), 0) << "what the calls return is not looked at";
    }

    EXPECT_EQ(size, GetParam().size);
    EXPECT_THAT(calls, SizeIs(GetParam().calls));
    EXPECT_EQ(printed, "");
    const std::size_t delivered = GetParam().steps == 6 ? 10 : 0;
    const Bytes data = pattern(64);
    EXPECT_EQ(beginning_of_buffer(delivered),
              Bytes(data.begin(), data.begin() + static_cast<std::ptrdiff_t>(delivered)));
    expect_untouched_behind(delivered);
    EXPECT_EQ(open_descriptors(), before);
}

TEST_F(DaemonClientTest, GoesOnWhateverThePlatformReturns) {
    // Each call says that it failed, and does what it should all the same.
    const Bytes answers[] = {any_word, word(6), other_word, pattern(6)};
    platform.send_data.always(-1);
    for (const Bytes& bytes : answers) platform.receive_data.then({-1, bytes});
    const SocketDaemon daemon(std::vector<std::vector<Step>>(1));

    EXPECT_EQ(ask("x", 6), 0);

    EXPECT_EQ(platform.send_data.count(), 2U);
    EXPECT_EQ(platform.receive_data.count(), 4U);
    EXPECT_EQ(size, 6U);
    EXPECT_EQ(beginning_of_buffer(6), pattern(6));
}

// ---- no connection

TEST_F(DaemonClientTest, ReportsThatItGotNoSocket) {
    WatchedSockets sockets;
    sockets.fail_creation();

    EXPECT_EQ(ask("x", 4), -1);

    EXPECT_EQ(printed, no_socket);
    EXPECT_EQ(printed_as_error, "");
    EXPECT_THAT(sockets.connected(), IsEmpty());
    EXPECT_THAT(calls, IsEmpty());
    EXPECT_EQ(size, untouched_size);
}

class UnconnectedTest : public DaemonClientTest {
protected:
    void expect_no_connection() {
        const std::size_t before = open_descriptors();
        EXPECT_EQ(ask("x", 4), -1);
        EXPECT_EQ(printed, no_connection);
        EXPECT_EQ(printed_as_error, "");
        EXPECT_THAT(calls, IsEmpty());
        EXPECT_EQ(size, untouched_size);
        expect_untouched_behind(0);
        EXPECT_EQ(open_descriptors(), before) << "the socket is closed";
    }
};

TEST_F(UnconnectedTest, ReportsThatThereIsNoDaemon) { expect_no_connection(); }

TEST_F(UnconnectedTest, ReportsASocketThatADaemonLeftBehind) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, daemon_socket);
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_EQ(bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    close(fd);

    expect_no_connection();
}

TEST_F(UnconnectedTest, ReportsAFileInPlaceOfTheSocket) {
    std::ofstream(daemon_socket) << "no socket";

    expect_no_connection();
}

TEST_F(DaemonClientTest, ConnectsAStreamSocketToTheDaemonsFullAddress) {
    const SocketDaemon daemon({answer(1, pattern(4))});
    const WatchedSockets sockets;

    EXPECT_EQ(ask("x", 4), 0);

    ASSERT_THAT(sockets.created(), SizeIs(1));
    EXPECT_EQ(sockets.created()[0].family, AF_UNIX);
    EXPECT_EQ(sockets.created()[0].type & ~(SOCK_CLOEXEC | SOCK_NONBLOCK), SOCK_STREAM);
    EXPECT_EQ(sockets.created()[0].type & SOCK_NONBLOCK, 0);
    EXPECT_EQ(sockets.created()[0].protocol, 0);
    ASSERT_THAT(sockets.connected(), SizeIs(1));
    EXPECT_EQ(sockets.connected()[0].family, AF_UNIX);
    EXPECT_EQ(sockets.connected()[0].path, "/tmp/vpdd.sock");
    EXPECT_EQ(sockets.connected()[0].length, 110U);
    EXPECT_TRUE(sockets.connected()[0].is_zero_behind_path);
}

TEST_F(DaemonClientTest, ClosesItsSocketAtTheEnd) {
    const std::size_t before = open_descriptors();
    SocketDaemon daemon({answer(1, pattern(4)), {take(1), take(4), send(any_word), send(word(0))}});
    ask("x", 4);
    ask("x", 4);

    // The daemon waited for each client to hang up before it took the next one.
    EXPECT_THAT(daemon.taken(), SizeIs(6));
    constexpr std::size_t listening = 1;
    EXPECT_EQ(open_descriptors(), before + listening);
}

}  // namespace
