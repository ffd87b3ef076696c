// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <netinet/in.h>

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace vpdd::test {

struct Datagram {
    sockaddr_in from{};
    std::vector<uint8_t> bytes{};
};

sockaddr_in loopback(uint16_t port);

/// A UDP socket on a free port of the loopback interface.
class UdpSocket {
public:
    /// @throws std::system_error
    UdpSocket();
    ~UdpSocket();
    UdpSocket(const UdpSocket&) = delete;
    UdpSocket& operator=(const UdpSocket&) = delete;

    int descriptor() const { return descriptor_; }
    uint16_t port() const;
    void send(const sockaddr_in& to, std::span<const uint8_t> bytes) const;
    /// Whether a datagram came within so many milliseconds.
    bool wait(int milliseconds) const;
    /// None when the other side has refused an earlier datagram.
    std::optional<Datagram> receive() const;

private:
    int descriptor_;
};

}  // namespace vpdd::test
