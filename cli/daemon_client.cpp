// SPDX-License-Identifier: Apache-2.0
#include "cli/daemon_client.h"

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <thread>

#include "cli/exit_code.h"
#include "cli/library_output.h"
#include "cli/terminal.h"

namespace vpdd::cli {

namespace {

constexpr const char* socket_path = "/tmp/vpdd.sock";
constexpr unsigned longest_answer = 90;  // seconds: more than the daemon takes for anything
constexpr unsigned silent_wait = 3;      // seconds; then a person wants to know
constexpr std::chrono::milliseconds between_looks{100};
constexpr const char* instead = "\nStart it (vpdd --help), or work without it: --server FILE";

void write_note(std::string_view text) {
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, text.data(), text.size());
}

void give_up(int /*signal*/) {
    write_note("vpdctl: vpdd does not answer\n");
    _exit(static_cast<int>(ExitCode::failure));
}

void note_and_wait(int /*signal*/) {
    write_note("vpdctl: vpdd has not answered yet; waiting, at most 90 seconds\n");
    std::signal(SIGALRM, give_up);
    alarm(longest_answer - silent_wait);
}

/// The library waits for an answer without an end.
class TimeLimit {
public:
    /// @param expected_wait seconds that are no reason to worry
    explicit TimeLimit(unsigned expected_wait) {
        const bool is_watched = isatty(STDERR_FILENO) != 0;
        std::signal(SIGALRM, is_watched ? note_and_wait : give_up);
        alarm(is_watched ? expected_wait + silent_wait : longest_answer);
    }
    ~TimeLimit() { alarm(0); }
    TimeLimit(const TimeLimit&) = delete;
    TimeLimit& operator=(const TimeLimit&) = delete;
};

/// A daemon that ends meanwhile is an answer that does not come. Whoever takes vpdctl's own output still ends it by
/// closing the pipe.
class WithoutPipeSignal {
public:
    WithoutPipeSignal() {
        struct sigaction ignoring {};
        ignoring.sa_handler = SIG_IGN;
        sigaction(SIGPIPE, &ignoring, &former_);
    }
    ~WithoutPipeSignal() { sigaction(SIGPIPE, &former_, nullptr); }
    WithoutPipeSignal(const WithoutPipeSignal&) = delete;
    WithoutPipeSignal& operator=(const WithoutPipeSignal&) = delete;

private:
    struct sigaction former_ {};
};

/// Empty for a socket, and where nothing is.
std::string what_is_in_the_way() {
    struct stat found {};
    if (stat(socket_path, &found) != 0 || S_ISSOCK(found.st_mode)) return {};
    return S_ISDIR(found.st_mode) ? "a directory" : "a file that is no socket";
}

std::string why_unreachable() {
    const std::string in_the_way = what_is_in_the_way();
    if (!in_the_way.empty()) return std::string(socket_path) + " is " + in_the_way + ": no vpdd can serve there";
    if (access(socket_path, W_OK) == 0) return "the vpdd that served " + std::string(socket_path) + " has ended";
    if (errno == EACCES) return "this user may not connect to " + std::string(socket_path);
    return "no vpdd runs on this machine (" + std::string(socket_path) + " is not there)";
}

template <class... Arguments>
std::string request_text(const char* format, Arguments... arguments) {
    std::array<char, VPDD_LONGEST_REQUEST> text{};
    std::snprintf(text.data(), text.size(), format, arguments...);
    return text.data();
}

template <class Object>
Object object_at(const std::vector<uint8_t>& bytes, std::size_t offset) {
    Object object{};
    std::memcpy(&object, bytes.data() + offset, sizeof object);
    return object;
}

}  // namespace

std::vector<uint8_t> DaemonClient::ask(const std::string& request, std::size_t room, unsigned expected_wait) const {
    std::vector<uint8_t> bytes(room);
    uint32_t size = 0;
    const TimeLimit limit(expected_wait);
    const LibraryOutput kept_apart(log_);
    const WithoutPipeSignal unsignalled;
    if (vpdd_read_component_data(request.c_str(), &size, 0, static_cast<uint32_t>(room), bytes.data()) != 0) {
        throw NoDaemon(why_unreachable() + instead);
    }
    bytes.resize(std::min<std::size_t>(size, room));
    return bytes;
}

std::string DaemonClient::daemon_status() const {
    const std::vector<uint8_t> bytes = ask(VPDD_REQUEST_STATUS, VPDD_STATUS_ROOM);
    if (bytes.empty()) throw NoDaemon("vpdd has no room for another client, or has just ended; try again");
    return {bytes.begin(), bytes.end()};
}

bool DaemonClient::is_starting() const { return daemon_status().find("\nstate=ready\n") == std::string::npos; }

/// No answer is told apart from an empty one by what the daemon says of itself.
std::vector<uint8_t> DaemonClient::ask_when_ready(const std::string& request, std::size_t room,
                                                  unsigned expected_wait) const {
    const auto begin = std::chrono::steady_clock::now();
    ProgressLine progress;
    for (;;) {
        const auto waited = std::chrono::steady_clock::now() - begin;
        const bool may_wait = waited < std::chrono::seconds(patience_.seconds);
        try {
            std::vector<uint8_t> bytes = ask(request, room, expected_wait);
            if (!bytes.empty()) return bytes;
            // It may have become ready just now.
            if (!is_starting()) return ask(request, room, expected_wait);
            if (!may_wait)
                throw NoDaemon("vpdd is still reading the server's components; try again, or --wait SECONDS");
        } catch (const NoDaemon&) {
            if (!may_wait || !patience_.is_awaited) throw;
        }
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(waited).count();
        progress.show("Waiting for vpdd, seconds", static_cast<uint32_t>(seconds), patience_.seconds);
        std::this_thread::sleep_for(between_looks);
    }
}

template <class Record>
std::vector<Record> DaemonClient::ask_records(const std::string& request, std::size_t most) const {
    const std::vector<uint8_t> bytes = ask_when_ready(request, most * sizeof(Record));
    std::vector<Record> records(bytes.size() / sizeof(Record));
    std::memcpy(records.data(), bytes.data(), records.size() * sizeof(Record));
    return records;
}

template <class Record>
Record DaemonClient::ask_record(const std::string& request, const char* what) const {
    const auto records = ask_records<Record>(request, 1);
    if (records.empty()) throw std::runtime_error(std::string("vpdd has no ") + what);
    return records.front();
}

DaemonClient::Records DaemonClient::components() const {
    return ask_records<ComponentVpdRecord>(VPDD_REQUEST_COMPONENTS, VPDD_MOST_RECORDS);
}

DaemonClient::Records DaemonClient::log() const {
    return ask_records<ComponentVpdRecord>(VPDD_REQUEST_LOG, VPDD_MOST_RECORDS);
}

MachineVpdRecord DaemonClient::machine() const {
    return ask_record<MachineVpdRecord>(VPDD_REQUEST_MACHINE, "machine record");
}

OemMachineRecord DaemonClient::oem_machine() const {
    return ask_record<OemMachineRecord>(VPDD_REQUEST_OEM_MACHINE, "OEM machine record");
}

Inventory DaemonClient::inventory() const { return sorted_inventory(machine(), components()); }

ServerStatus DaemonClient::status() const { return served_status(components(), log(), daemon_status()); }

DaemonClient::News DaemonClient::changes(uint64_t after, unsigned wait) const {
    constexpr std::size_t room = sizeof(VpddChanges) + VPDD_KEPT_CHANGES * sizeof(VpddChangeEntry);
    const std::vector<uint8_t> bytes =
        ask_when_ready(request_text(VPDD_REQUEST_CHANGES, static_cast<unsigned long long>(after), wait), room, wait);
    if (bytes.size() < sizeof(VpddChanges)) throw NoDaemon("vpdd has just ended");
    News news{object_at<VpddChanges>(bytes, 0), {}};
    for (std::size_t offset = sizeof news.head; offset + sizeof(VpddChangeEntry) <= bytes.size();
         offset += sizeof(VpddChangeEntry)) {
        news.changes.push_back(object_at<VpddChangeEntry>(bytes, offset));
    }
    return news;
}

void DaemonClient::order(const std::string& request) const {
    if (!ask_when_ready(request, VPDD_STATUS_ROOM).empty()) return;
    throw std::runtime_error("vpdd does this only for root and for the user that it runs as");
}

void DaemonClient::refresh() const { order(VPDD_REQUEST_REFRESH); }

void DaemonClient::clean_log() const { order(VPDD_REQUEST_CLEAN_LOG); }

}  // namespace vpdd::cli
