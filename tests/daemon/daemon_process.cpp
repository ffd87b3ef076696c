// SPDX-License-Identifier: Apache-2.0
#include "daemon_process.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstring>
#include <fstream>
#include <iterator>
#include <thread>

namespace vpdd::test {

namespace {

using Clock = std::chrono::steady_clock;

[[noreturn]] void execute(const std::vector<std::string>& command, const std::string& output,
                          const std::vector<std::pair<std::string, std::string>>& environment) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const int file = open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    dup2(file, STDOUT_FILENO);
    dup2(file, STDERR_FILENO);
    for (const auto& [name, value] : environment) setenv(name.c_str(), value.c_str(), 1);
    std::vector<std::string> words = command;
    std::vector<char*> pointers;
    for (std::string& word : words) pointers.push_back(word.data());
    pointers.push_back(nullptr);
    execv(pointers[0], pointers.data());
    _exit(127);
}

std::vector<std::string> with_program(const std::vector<std::string>& arguments) {
    std::vector<std::string> command{VPDD_PROGRAM};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return command;
}

int milliseconds_until(Clock::time_point end) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
    return left > 0 ? static_cast<int>(left) : 0;
}

/// Bytes until the other side closes or time is up. @return whether it closed
bool read_until_closed(int fd, std::vector<uint8_t>& bytes, std::chrono::milliseconds limit) {
    const auto end = Clock::now() + limit;
    std::array<uint8_t, 65536> buffer{};
    for (;;) {
        pollfd descriptor{fd, POLLIN, 0};
        if (poll(&descriptor, 1, milliseconds_until(end)) <= 0) return false;
        const ssize_t count = recv(fd, buffer.data(), buffer.size(), 0);
        if (count <= 0) return true;
        bytes.insert(bytes.end(), buffer.begin(), buffer.begin() + count);
    }
}

}  // namespace

bool eventually(const std::function<bool()>& condition, std::chrono::milliseconds limit) {
    const auto end = Clock::now() + limit;
    while (!condition()) {
        if (Clock::now() >= end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return true;
}

ChildProcess::ChildProcess(const std::vector<std::string>& command, const std::string& output,
                           const std::vector<std::pair<std::string, std::string>>& environment)
    : output_(output) {
    id_ = fork();
    if (id_ == 0) execute(command, output, environment);
}

ChildProcess::~ChildProcess() {
    if (code_ != -1) return;
    kill(id_, SIGKILL);
    wait();
}

void ChildProcess::send_signal(int signal) const { kill(id_, signal); }

int ChildProcess::wait(std::chrono::milliseconds limit) {
    int status = 0;
    const bool has_ended = code_ != -1 || eventually([&] { return waitpid(id_, &status, WNOHANG) == id_; }, limit);
    if (!has_ended || code_ != -1) return code_;
    code_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return code_;
}

std::string ChildProcess::output() const {
    std::ifstream file(output_, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

DaemonProcess::DaemonProcess(const std::vector<std::string>& arguments, const std::string& output,
                             const std::vector<std::pair<std::string, std::string>>& environment)
    : ChildProcess(with_program(arguments), output, environment) {}

bool DaemonProcess::becomes_ready() const {
    return eventually([] { return ask_status().find("\nstate=ready\n") != std::string::npos; });
}

Connection::Connection() : fd_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, daemon_socket, sizeof daemon_socket);
    if (connect(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) return;
    close(fd_);
    fd_ = -1;
}

Connection::~Connection() {
    if (fd_ >= 0) close(fd_);
}

bool Connection::send(std::string_view bytes) const {
    return ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
}

Answer Connection::receive(std::chrono::milliseconds limit) const {
    Answer answer;
    answer.is_connected = is_open();
    std::vector<uint8_t> bytes;
    if (!is_open() || !read_until_closed(fd_, bytes, limit) || bytes.size() < 2 * sizeof(int32_t)) return answer;
    std::memcpy(&answer.word, bytes.data(), sizeof answer.word);
    std::memcpy(&answer.size, bytes.data() + sizeof answer.word, sizeof answer.size);
    constexpr std::size_t head = 3 * sizeof(int32_t);
    if (bytes.size() > head) answer.data.assign(bytes.begin() + head, bytes.end());
    return answer;
}

bool Connection::is_closed_by_daemon(std::chrono::milliseconds limit) const {
    std::vector<uint8_t> ignored;
    return read_until_closed(fd_, ignored, limit);
}

std::string request(std::string_view text, uint32_t room) {
    std::string bytes(text);
    bytes.append(reinterpret_cast<const char*>(&room), sizeof room);
    return bytes;
}

Answer ask(std::string_view text, uint32_t room) {
    const Connection connection;
    if (connection.is_open()) connection.send(request(text, room));
    return connection.receive();
}

std::string ask_status() {
    const Answer answer = ask(VPDD_REQUEST_STATUS);
    return {answer.data.begin(), answer.data.end()};
}

std::vector<VpddChangeEntry> changes_of(const Answer& answer) {
    if (answer.data.size() < sizeof(VpddChanges)) return {};
    std::vector<VpddChangeEntry> entries((answer.data.size() - sizeof(VpddChanges)) / sizeof(VpddChangeEntry));
    std::memcpy(entries.data(), answer.data.data() + sizeof(VpddChanges), entries.size() * sizeof(VpddChangeEntry));
    return entries;
}

}  // namespace vpdd::test
