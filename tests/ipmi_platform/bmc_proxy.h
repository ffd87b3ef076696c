// SPDX-License-Identifier: Apache-2.0
// Stands between a client and the BMC, and makes the BMC worse than it is. The messages are those of IPMI 1.5 without
// authentication, which anybody may change on the way.
#pragma once

#include <atomic>
#include <chrono>
#include <deque>
#include <functional>
#include <thread>

#include "udp_socket.h"

namespace vpdd::test {

/// An IPMI request, or the request of an answer, inside a LAN message.
struct IpmiMessage {
    uint8_t netfn = 0;
    uint8_t cmd = 0;
    std::vector<uint8_t> data{};  ///< of the request, or of the answer from the completion code on
};

/// What becomes of an answer.
struct Fate {
    bool is_dropped = false;
    std::chrono::milliseconds delay{0};
    /// Changes the answer, from its completion code on; may be empty.
    std::function<void(std::vector<uint8_t>& answer)> change{};
};

/// The answer has a completion code only.
inline Fate refused(uint8_t completion_code) {
    return {.change = [completion_code](std::vector<uint8_t>& answer) { answer = {completion_code}; }};
}

class BmcProxy {
public:
    /// Decides on an answer by its request; called on the proxy's thread.
    using Rule = std::function<Fate(const IpmiMessage& request)>;

    BmcProxy(uint16_t bmc_port, Rule rule);
    ~BmcProxy();
    BmcProxy(const BmcProxy&) = delete;
    BmcProxy& operator=(const BmcProxy&) = delete;

    uint16_t port() const { return client_side_.port(); }

private:
    using Clock = std::chrono::steady_clock;
    struct Delayed {
        Clock::time_point due;
        std::vector<uint8_t> bytes;
    };

    void run();
    void take_request();
    void take_answer();
    void send_due_answers();
    int milliseconds_to_next() const;

    const uint16_t bmc_port_;
    const Rule rule_;
    UdpSocket client_side_;
    UdpSocket bmc_side_;
    sockaddr_in client_{};
    IpmiMessage request_;  ///< the last one
    std::deque<Delayed> delayed_;
    std::atomic<bool> is_stopped_{false};
    std::thread thread_;
};

}  // namespace vpdd::test
