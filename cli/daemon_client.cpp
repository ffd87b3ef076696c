// SPDX-License-Identifier: Apache-2.0
#include "cli/daemon_client.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "cli/exit_code.h"
#include "cli/library_output.h"

namespace vpdd::cli {

namespace {

constexpr const char* socket_path = "/tmp/vpdd.sock";
constexpr unsigned longest_answer = 90;  // seconds: more than the daemon takes for anything
constexpr const char* instead = "\nStart it (vpdd --help), or work without it: --server FILE";

/// The library waits for an answer without an end.
void give_up(int /*signal*/) {
    constexpr std::string_view message = "vpdctl: vpdd does not answer\n";
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, message.data(), message.size());
    _exit(static_cast<int>(ExitCode::failure));
}

class TimeLimit {
public:
    TimeLimit() {
        std::signal(SIGALRM, give_up);
        alarm(longest_answer);
    }
    ~TimeLimit() { alarm(0); }
    TimeLimit(const TimeLimit&) = delete;
    TimeLimit& operator=(const TimeLimit&) = delete;
};

std::string why_unreachable() {
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

std::vector<uint8_t> DaemonClient::ask(const std::string& request, std::size_t room) const {
    std::vector<uint8_t> bytes(room);
    uint32_t size = 0;
    const TimeLimit limit;
    const LibraryOutput kept_apart(log_);
    std::signal(SIGPIPE, SIG_IGN);  // a daemon that ends meanwhile is an answer that does not come
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

/// No answer is told apart from an empty one by what the daemon says of itself.
void DaemonClient::require_ready() const {
    if (daemon_status().find("\nstate=ready\n") == std::string::npos) {
        throw NoDaemon("vpdd is still reading the server's components; try again");
    }
}

template <class Record>
std::vector<Record> DaemonClient::ask_records(const std::string& request, std::size_t most) const {
    const std::vector<uint8_t> bytes = ask(request, most * sizeof(Record));
    if (bytes.empty()) require_ready();
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
        ask(request_text(VPDD_REQUEST_CHANGES, static_cast<unsigned long long>(after), wait), room);
    if (bytes.size() < sizeof(VpddChanges)) {
        require_ready();
        throw NoDaemon("vpdd has just ended");
    }
    News news{object_at<VpddChanges>(bytes, 0), {}};
    for (std::size_t offset = sizeof news.head; offset + sizeof(VpddChangeEntry) <= bytes.size();
         offset += sizeof(VpddChangeEntry)) {
        news.changes.push_back(object_at<VpddChangeEntry>(bytes, offset));
    }
    return news;
}

void DaemonClient::order(const std::string& request) const {
    if (!ask(request, VPDD_STATUS_ROOM).empty()) return;
    require_ready();
    throw std::runtime_error("vpdd does this only for root and for the user that it runs as");
}

void DaemonClient::refresh() const { order(VPDD_REQUEST_REFRESH); }

void DaemonClient::clean_log() const { order(VPDD_REQUEST_CLEAN_LOG); }

}  // namespace vpdd::cli
