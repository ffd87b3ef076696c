// SPDX-License-Identifier: Apache-2.0
#include "socket_daemon.h"

#include <dlfcn.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>

namespace vpdd::test {

namespace {

struct Watch {
    bool active = false;
    bool fails = false;
    std::vector<WatchedSockets::Created> created;
    std::vector<WatchedSockets::Connected> connected;
};

Watch& watch() {
    static Watch instance;
    return instance;
}

/// Up to `count` bytes; fewer when the other side has hung up.
Bytes receive_all(int fd, std::size_t count) {
    Bytes bytes(count);
    const ssize_t received = recv(fd, bytes.data(), count, MSG_WAITALL);
    bytes.resize(received < 0 ? 0 : static_cast<std::size_t>(received));
    return bytes;
}

}  // namespace

Bytes word(uint32_t value) {
    Bytes bytes(sizeof value);
    std::memcpy(bytes.data(), &value, sizeof value);
    return bytes;
}

SocketDaemon::SocketDaemon(std::vector<std::vector<Step>> clients, AtTheEnd at_the_end)
    : clients_(std::move(clients)), at_the_end_(at_the_end) {
    std::filesystem::remove(daemon_socket);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, daemon_socket);
    listening_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    EXPECT_EQ(bind(listening_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    EXPECT_EQ(listen(listening_, 8), 0);
    thread_ = std::thread([this] { serve(); });
}

SocketDaemon::~SocketDaemon() {
    shutdown(listening_, SHUT_RDWR);  // ends a wait for a client that never comes
    if (thread_.joinable()) thread_.join();
    close(listening_);
    std::filesystem::remove(daemon_socket);
}

std::vector<Bytes> SocketDaemon::taken() {
    thread_.join();
    return taken_;
}

void SocketDaemon::serve() {
    for (const auto& steps : clients_) {
        const int client = accept4(listening_, nullptr, nullptr, SOCK_CLOEXEC);
        if (client < 0) return;
        follow(client, steps);
        close(client);
    }
}

void SocketDaemon::follow(int client, const std::vector<Step>& steps) {
    for (const Step& step : steps) {
        if (step.take > 0) taken_.push_back(receive_all(client, step.take));
        if (!step.send.empty()) ::send(client, step.send.data(), step.send.size(), MSG_NOSIGNAL);
    }
    if (at_the_end_ == AtTheEnd::hangs_up) return;
    shutdown(client, SHUT_WR);
    taken_.push_back(receive_all(client, 4096));
}

WatchedSockets::WatchedSockets() {
    watch() = {};
    watch().active = true;
}
WatchedSockets::~WatchedSockets() { watch() = {}; }

std::vector<WatchedSockets::Created> WatchedSockets::created() const { return watch().created; }
std::vector<WatchedSockets::Connected> WatchedSockets::connected() const { return watch().connected; }
void WatchedSockets::fail_creation() { watch().fails = true; }

std::size_t open_descriptors() {
    const std::filesystem::directory_iterator entries("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

}  // namespace vpdd::test

// Stand in front of the C library's functions.
extern "C" int socket(int family, int type, int protocol) noexcept {
    using namespace vpdd::test;
    static auto* const real = reinterpret_cast<decltype(socket)*>(dlsym(RTLD_NEXT, "socket"));
    if (watch().active) watch().created.push_back({family, type, protocol});
    if (watch().active && watch().fails) {
        errno = EMFILE;
        return -1;
    }
    return real(family, type, protocol);
}

extern "C" int connect(int fd, const sockaddr* address, socklen_t length) {
    using namespace vpdd::test;
    static auto* const real = reinterpret_cast<decltype(connect)*>(dlsym(RTLD_NEXT, "connect"));
    if (watch().active) {
        sockaddr_un copy{};
        std::memcpy(&copy, address, std::min<std::size_t>(length, sizeof copy));
        const std::string path(copy.sun_path, strnlen(copy.sun_path, sizeof copy.sun_path));
        const bool is_zero = std::all_of(copy.sun_path + path.size(), std::end(copy.sun_path),
                                         [](char character) { return character == '\0'; });
        watch().connected.push_back({copy.sun_family, path, length, is_zero});
    }
    return real(fd, address, length);
}
