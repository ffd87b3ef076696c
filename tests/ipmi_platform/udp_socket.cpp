// SPDX-License-Identifier: Apache-2.0
#include "udp_socket.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>

namespace vpdd::test {

sockaddr_in loopback(uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

UdpSocket::UdpSocket() : descriptor_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    const sockaddr_in any_port = loopback(0);
    if (bind(descriptor_, reinterpret_cast<const sockaddr*>(&any_port), sizeof any_port) != 0)
        throw std::system_error(errno, std::generic_category(), "UDP socket");
}

UdpSocket::~UdpSocket() { close(descriptor_); }

uint16_t UdpSocket::port() const {
    sockaddr_in address{};
    socklen_t length = sizeof address;
    getsockname(descriptor_, reinterpret_cast<sockaddr*>(&address), &length);
    return ntohs(address.sin_port);
}

void UdpSocket::send(const sockaddr_in& to, std::span<const uint8_t> bytes) const {
    // A datagram may get lost, here as on any network.
    static_cast<void>(
        sendto(descriptor_, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr*>(&to), sizeof to));
}

bool UdpSocket::wait(int milliseconds) const {
    pollfd ready{descriptor_, POLLIN, 0};
    return poll(&ready, 1, milliseconds) > 0;
}

std::optional<Datagram> UdpSocket::receive() const {
    std::array<uint8_t, 2048> buffer{};
    Datagram datagram;
    socklen_t length = sizeof datagram.from;
    const ssize_t received =
        recvfrom(descriptor_, buffer.data(), buffer.size(), 0, reinterpret_cast<sockaddr*>(&datagram.from), &length);
    if (received < 0) return {};
    datagram.bytes.assign(buffer.begin(), buffer.begin() + received);
    return datagram;
}

}  // namespace vpdd::test
