// SPDX-License-Identifier: Apache-2.0
#include "bmc_proxy.h"

#include <poll.h>

#include <algorithm>
#include <array>
#include <numeric>

namespace vpdd::test {

namespace {

// A LAN message without authentication code (IPMI 1.5 table 12-8): RMCP header, authentication type, sequence number,
// session id, length; then the message (table 12-9): address, NetFn and LUN, checksum, address, sequence, command.
constexpr std::size_t rmcp_class = 3, authentication_type = 4, message_length = 13, message = 14;
constexpr std::size_t netfn_lun = message + 1, cmd = message + 5, data = message + 6;
constexpr uint8_t class_ipmi = 0x07, no_authentication = 0x00;

bool is_message(const std::vector<uint8_t>& datagram) {
    return datagram.size() > data && datagram[rmcp_class] == class_ipmi &&
           datagram[authentication_type] == no_authentication && datagram[message_length] + message == datagram.size();
}

IpmiMessage message_of(const std::vector<uint8_t>& datagram) {
    if (!is_message(datagram)) return {};
    return {
        static_cast<uint8_t>(datagram[netfn_lun] >> 2U), datagram[cmd], {datagram.begin() + data, datagram.end() - 1}};
}

/// The answer with other data, and their checksum.
std::vector<uint8_t> changed(std::vector<uint8_t> answer, const Fate& fate) {
    if (!is_message(answer) || !fate.change) return answer;
    std::vector<uint8_t> content(answer.begin() + data, answer.end() - 1);
    fate.change(content);
    answer.resize(data);
    answer.insert(answer.end(), content.begin(), content.end());
    const int sum = std::accumulate(answer.begin() + message + 3, answer.end(), 0);
    answer.push_back(static_cast<uint8_t>(-sum));
    answer[message_length] = static_cast<uint8_t>(answer.size() - message);
    return answer;
}

}  // namespace

BmcProxy::BmcProxy(uint16_t bmc_port, Rule rule)
    : bmc_port_(bmc_port), rule_(std::move(rule)), thread_([this] { run(); }) {}

BmcProxy::~BmcProxy() {
    is_stopped_ = true;
    thread_.join();
}

void BmcProxy::run() {
    while (!is_stopped_) {
        std::array<pollfd, 2> ready{pollfd{client_side_.descriptor(), POLLIN, 0},
                                    pollfd{bmc_side_.descriptor(), POLLIN, 0}};
        poll(ready.data(), ready.size(), milliseconds_to_next());
        if (ready[0].revents != 0) take_request();
        if (ready[1].revents != 0) take_answer();
        send_due_answers();
    }
}

void BmcProxy::take_request() {
    const auto datagram = client_side_.receive();
    if (!datagram) return;
    client_ = datagram->from;
    request_ = message_of(datagram->bytes);
    bmc_side_.send(loopback(bmc_port_), datagram->bytes);
}

void BmcProxy::take_answer() {
    const auto datagram = bmc_side_.receive();
    if (!datagram) return;
    const Fate fate = rule_(request_);
    if (fate.is_dropped) return;
    delayed_.push_back({Clock::now() + fate.delay, changed(datagram->bytes, fate)});
}

void BmcProxy::send_due_answers() {
    while (!delayed_.empty() && delayed_.front().due <= Clock::now()) {
        client_side_.send(client_, delayed_.front().bytes);
        delayed_.pop_front();
    }
}

int BmcProxy::milliseconds_to_next() const {
    constexpr int longest = 20;
    if (delayed_.empty()) return longest;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(delayed_.front().due - Clock::now());
    return static_cast<int>(std::clamp<int64_t>(left.count(), 0, longest));
}

}  // namespace vpdd::test
