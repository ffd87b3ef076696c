// SPDX-License-Identifier: Apache-2.0
// Runs the vpdd that was built, and talks to it as clients do. All waiting has a limit.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "daemon/vpdd_protocol.h"
#include "orva_vpdd.h"

namespace vpdd::test {

inline constexpr char daemon_socket[] = "/tmp/vpdd.sock";
inline constexpr std::chrono::seconds patience{20};

/// Looks again and again. @return whether it came true in time
bool eventually(const std::function<bool()>& condition, std::chrono::milliseconds limit = patience);

/// A child process that does not outlive the object.
class ChildProcess {
public:
    /// Both outputs go to a file.
    ChildProcess(const std::vector<std::string>& command, const std::string& output,
                 const std::vector<std::pair<std::string, std::string>>& environment = {});
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    pid_t id() const { return id_; }
    void send_signal(int signal) const;
    /// @return its exit code, 128 and the signal that ended it, or -1 when it still runs after the limit
    int wait(std::chrono::milliseconds limit = patience);
    std::string output() const;

private:
    pid_t id_ = -1;
    int code_ = -1;
    std::string output_;
};

/// vpdd with a described server.
class DaemonProcess : public ChildProcess {
public:
    explicit DaemonProcess(const std::vector<std::string>& arguments, const std::string& output = "/tmp/vpdd.output",
                           const std::vector<std::pair<std::string, std::string>>& environment = {});

    /// Until the first inventory stands.
    bool becomes_ready() const;
};

/// What the daemon sent before it closed the connection.
struct Answer {
    bool is_connected = false;
    int32_t word = -1;
    int32_t size = -1;
    std::vector<uint8_t> data;

    bool is_empty() const { return word == -1; }
};

/// A connection of a client that may do as it likes.
class Connection {
public:
    Connection();
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    bool is_open() const { return fd_ >= 0; }
    bool send(std::string_view bytes) const;
    /// All that comes until the daemon closes, or until the limit.
    Answer receive(std::chrono::milliseconds limit = patience) const;
    /// @return whether the daemon closes the connection in time, whatever it sends before
    bool is_closed_by_daemon(std::chrono::milliseconds limit) const;
    int fd() const { return fd_; }

private:
    int fd_ = -1;
};

std::string request(std::string_view text, uint32_t room);

Answer ask(std::string_view text, uint32_t room = 4 << 20);
std::string ask_status();

template <class Record>
std::vector<Record> records_of(const Answer& answer) {
    std::vector<Record> records(answer.data.size() / sizeof(Record));
    std::copy_n(answer.data.data(), records.size() * sizeof(Record), reinterpret_cast<uint8_t*>(records.data()));
    return records;
}

std::vector<VpddChangeEntry> changes_of(const Answer& answer);

}  // namespace vpdd::test
