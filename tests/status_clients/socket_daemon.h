// SPDX-License-Identifier: Apache-2.0
// A VPD daemon that follows a script, on a real socket in a thread of its own.
#pragma once

#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "fake_platform.h"

namespace vpdd::test {

inline constexpr char daemon_socket[] = "/tmp/vpdd.sock";

/// What the daemon does next with a client: take so many bytes, or send these.
struct Step {
    std::size_t take = 0;
    Bytes send{};
};

inline Step take(std::size_t count) { return {count, {}}; }
inline Step send(const Bytes& bytes) { return {0, bytes}; }

/// A 32-bit number as it lies in this machine's memory.
Bytes word(uint32_t value);

class SocketDaemon {
public:
    /// A script for each client, one after the other. At its end the daemon sends nothing more, and takes what the
    /// client still sends until that one hangs up; a daemon that closes early hangs up itself.
    enum class AtTheEnd { waits_for_the_client, hangs_up };
    explicit SocketDaemon(std::vector<std::vector<Step>> clients, AtTheEnd at_the_end = AtTheEnd::waits_for_the_client);
    ~SocketDaemon();
    SocketDaemon(const SocketDaemon&) = delete;
    SocketDaemon& operator=(const SocketDaemon&) = delete;

    /// Waits for the end of the last script. What each step took, then what came behind the script; of all clients.
    std::vector<Bytes> taken();

private:
    void serve();
    void follow(int client, const std::vector<Step>& steps);

    std::vector<std::vector<Step>> clients_;
    AtTheEnd at_the_end_;
    int listening_ = -1;
    std::vector<Bytes> taken_;
    std::thread thread_;
};

/// Watches how the library makes its sockets while it lives, and can make that fail.
class WatchedSockets {
public:
    WatchedSockets();
    ~WatchedSockets();
    WatchedSockets(const WatchedSockets&) = delete;
    WatchedSockets& operator=(const WatchedSockets&) = delete;

    struct Created {
        int family, type, protocol;
    };
    struct Connected {
        int family;
        std::string path;
        std::size_t length;        // of the address, as given
        bool is_zero_behind_path;  // up to the address's full size
    };
    std::vector<Created> created() const;
    std::vector<Connected> connected() const;
    void fail_creation();
};

std::size_t open_descriptors();

}  // namespace vpdd::test
