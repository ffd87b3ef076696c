// SPDX-License-Identifier: Apache-2.0
// One client, from its connection to the last byte of its answer.
#pragma once

#include <sys/socket.h>

#include <array>
#include <chrono>
#include <functional>
#include <optional>

#include "base/file_handle.h"
#include "daemon/event_loop.h"
#include "daemon/reply.h"
#include "daemon/requests.h"

namespace vpdd::daemon {

class ClientSession {
public:
    using Clock = std::chrono::steady_clock;

    /// What the client waits for; the answer comes later.
    struct Pending {
        Request request;
        std::size_t room = 0;
        uint64_t pass = 0;  ///< answered when this one is complete
    };

    /// Both are called from the event loop, and both answer or let the client wait.
    struct Handler {
        std::function<void(ClientSession&, const Request&, std::size_t room)> on_request;
        std::function<void(ClientSession&)> on_late;  ///< what the client waits for has not come in time
    };

    /// @param fd owned from now on
    ClientSession(const EventLoop& loop, int fd, const ucred& peer, const Handler& handler);

    const ucred& peer() const { return peer_; }
    Clock::time_point since() const { return since_; }
    /// The client has not sent its request yet.
    bool is_reading() const { return state_ == State::reading; }
    bool has_ended() const { return state_ == State::ended; }
    const std::optional<Pending>& pending() const { return pending_; }

    void answer(Reply reply);
    void wait(Pending pending, std::chrono::milliseconds limit);
    void end();

private:
    enum class State { reading, waiting, writing, ended };

    void on_event(uint32_t events);
    void on_time();
    void read_request();
    void take_request(std::size_t line_end);
    void write_reply();
    /// @return bytes moved; 0: nothing is possible now; -1: the client is gone
    ssize_t write_some();

    const vpdd::ScopedFd fd_;
    const ucred peer_;
    const Handler& handler_;
    const Clock::time_point since_ = Clock::now();
    State state_ = State::reading;
    std::optional<Pending> pending_;

    std::array<char, VPDD_LONGEST_REQUEST + sizeof(uint32_t)> input_{};
    std::size_t received_ = 0;
    std::array<uint8_t, 3 * sizeof(uint32_t)> head_{};
    std::size_t head_length_ = 0;
    Reply reply_;
    std::size_t sent_ = 0;

    DescriptorWatch watch_;
    Timer deadline_;
};

}  // namespace vpdd::daemon
