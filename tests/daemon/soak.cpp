// SPDX-License-Identifier: Apache-2.0
// Many clients at once ask a daemon while components change and the daemon is started again and again. Every answer is
// checked; every change must reach a client that follows them; the daemon's memory must stay where it was.
#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <thread>

#include "daemon_process.h"
#include "host/vpdd_host.h"

namespace {

using namespace vpdd::test;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr const char* server_file = SERVER_FOLDER "/ddr4-2s.json";
constexpr const char* state_directory = "/tmp/state";
constexpr long most_growth = 4096;  // KiB that a daemon may grow after its first answers: caches of the allocator
constexpr std::chrono::seconds time_to_notice{30};

struct Plan {
    unsigned clients = 64;
    unsigned requests = 10000;
    unsigned changes = 200;
    unsigned restarts = 10;
};

/// What the components may be and what they are.
class Truth {
public:
    explicit Truth(const std::vector<ComponentVpdRecord>& records) {
        for (const ComponentVpdRecord& record : records) {
            names_.emplace_back(record.name);
            serials_[record.name].insert(record.serial_number);
        }
    }

    void allow(const std::string& name, const std::string& serial) {
        const std::scoped_lock lock(mutex_);
        serials_[name].insert(serial);
    }

    std::size_t count() const { return names_.size(); }

    /// A client may see a new part before it has been told of here.
    bool is_right(std::size_t index, const ComponentVpdRecord& record) const {
        return index < names_.size() && names_[index] == record.name &&
               eventually([&] { return is_allowed(record); }, 5s);
    }

private:
    bool is_allowed(const ComponentVpdRecord& record) const {
        const std::scoped_lock lock(mutex_);
        return serials_.at(record.name).contains(record.serial_number);
    }

    mutable std::mutex mutex_;
    std::vector<std::string> names_;
    std::map<std::string, std::set<std::string>> serials_;
};

struct Counters {
    std::atomic<unsigned> asked = 0, answered = 0, wrong = 0, unanswered = 0;
};

bool is_right_list(const Answer& answer, const Truth& truth) {
    const auto records = records_of<ComponentVpdRecord>(answer);
    if (answer.word != VPDD_REPLY_OK || records.size() != truth.count()) return false;
    for (std::size_t i = 0; i < records.size(); ++i) {
        if (!truth.is_right(i, records[i])) return false;
    }
    return true;
}

bool is_right_component(const Answer& answer, std::size_t index, uint8_t fru_id, const Truth& truth) {
    const auto records = records_of<ComponentVpdRecord>(answer);
    return answer.word == VPDD_REPLY_OK && records.size() == 1 && records[0].fru_id == fru_id &&
           truth.is_right(index, records[0]);
}

/// While the daemon is started again there is no answer; then the client asks again, as clients do.
Answer ask_until_answered(const std::string& text, uint32_t room, Counters& counters) {
    Answer answer;
    const bool is_answered = eventually([&] {
        answer = ask(text, room);
        return !answer.is_empty() && answer.word != VPDD_REPLY_NOT_READY;
    });
    if (!is_answered) ++counters.unanswered;
    return answer;
}

void be_client(unsigned number, const Plan& plan, const std::vector<uint8_t>& fru_ids, const Truth& truth,
               Counters& counters) {
    for (unsigned turn = number; counters.asked++ < plan.requests; ++turn) {
        bool is_right = false;
        switch (turn % 4) {
            case 0:
                is_right = is_right_list(ask_until_answered("components\n", 1 << 20, counters), truth);
                break;
            case 1:
                is_right = ask_until_answered("machine\n", 1106, counters).size == 1106;
                break;
            case 2:
                is_right = ask_until_answered("frobnicate\n", 9, counters).word == VPDD_REPLY_UNKNOWN;
                break;
            default: {
                const std::size_t index = 1 + turn % (fru_ids.size() - 1);
                const std::string text = "component " + std::to_string(fru_ids[index]) + "\n";
                is_right = is_right_component(ask_until_answered(text, 1512, counters), index, fru_ids[index], truth);
                break;
            }
        }
        ++counters.answered;
        if (!is_right) ++counters.wrong;
    }
}

/// The serial number that the daemon shows for a component.
std::string shown_serial(const std::string& name) {
    for (const ComponentVpdRecord& record : records_of<ComponentVpdRecord>(ask("components\n", 1 << 20))) {
        if (name == record.name) return record.serial_number;
    }
    return {};
}

/// Follows the changes, over all restarts, and remembers the serial number after each.
class Follower {
public:
    Follower() : thread_([this] { run(); }) {}
    ~Follower() { end(); }
    Follower(const Follower&) = delete;
    Follower& operator=(const Follower&) = delete;

    bool has_seen(const std::string& name, const std::string& serial) const {
        const std::scoped_lock lock(mutex_);
        return seen_.contains(name + ' ' + serial);
    }

    void end() {
        is_ending_ = true;
        if (thread_.joinable()) thread_.join();
    }

private:
    void run() {
        uint64_t daemon = 0;
        uint64_t sequence = 0;
        while (!is_ending_) {
            const Answer answer = ask("changes " + std::to_string(sequence) + " 1\n", 1 << 20);
            if (answer.data.size() < sizeof(VpddChanges)) {
                std::this_thread::sleep_for(20ms);
                continue;
            }
            const auto head = records_of<VpddChanges>(answer).front();
            if (head.daemon != daemon) {
                daemon = head.daemon;
                if (sequence != 0) {
                    sequence = 0;
                    continue;
                }
            }
            for (const VpddChangeEntry& change : changes_of(answer)) {
                sequence = change.sequence;
                const std::scoped_lock lock(mutex_);
                seen_.insert(std::string(change.name) + ' ' + change.serial_number);
            }
        }
    }

    mutable std::mutex mutex_;
    std::set<std::string> seen_;
    std::atomic<bool> is_ending_ = false;
    std::thread thread_;
};

long resident_kib(pid_t process) {
    std::ifstream status("/proc/" + std::to_string(process) + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("VmRSS:")) return std::strtol(line.c_str() + 6, nullptr, 10);
    }
    return 0;
}

/// One daemon after the other.
class Daemons {
public:
    bool start() {
        daemon_.emplace(std::vector<std::string>{"--server", server_file, "--state", state_directory, "--poll", "0.1"});
        if (!daemon_->becomes_ready()) return false;
        for (int i = 0; i < 200; ++i) ask("components\n", 1 << 20);  // what its allocator keeps for good
        first_ = resident_kib(daemon_->id());
        return true;
    }

    bool stop() {
        const long last = resident_kib(daemon_->id());
        largest_ = std::max(largest_, last);
        growth_ = std::max(growth_, last - first_);
        daemon_->send_signal(SIGTERM);
        return daemon_->wait() == 0;
    }

    long largest() const { return largest_; }
    long growth() const { return growth_; }

private:
    std::optional<DaemonProcess> daemon_;
    long first_ = 0, largest_ = 0, growth_ = 0;
};

/// Swaps a part. @return its new serial number; empty for a failure
std::string swap(const std::string& name) {
    const VpddHostOptions options{state_directory, 0, nullptr, nullptr, nullptr, nullptr};
    VpddHostChangedFru changed{};
    const bool is_done = vpdd_host_open_file(server_file, &options, nullptr, 0) == 0 &&
                         vpdd_host_change_fru(VPDD_HOST_SWAP, name.c_str(), nullptr, &changed, nullptr, 0) == 0;
    vpdd_host_close();
    return is_done ? changed.new_serial_number : "";
}

/// @return changes that did not reach the follower
unsigned change_and_restart(const Plan& plan, const std::vector<std::string>& names, Truth& truth,
                            const Follower& follower, Daemons& daemons, unsigned& failures) {
    unsigned lost = 0;
    const unsigned between = std::max(plan.changes / (plan.restarts + 1), 1U);
    for (unsigned i = 0; i < plan.changes; ++i) {
        const bool is_restart = i % between == between - 1 && i / between < plan.restarts;
        if (is_restart && !daemons.stop()) ++failures;
        const std::string& name = names[i % names.size()];
        const std::string serial = swap(name);
        truth.allow(name, serial);
        if (serial.empty()) ++failures;
        if (is_restart && !daemons.start()) ++failures;
        const auto is_noticed = [&] { return follower.has_seen(name, serial) && shown_serial(name) == serial; };
        if (!eventually(is_noticed, time_to_notice)) ++lost;
    }
    return lost;
}

Plan plan_of(int count, char** arguments) {
    Plan plan;
    const std::map<std::string, unsigned*> places{{"--clients", &plan.clients},
                                                  {"--requests", &plan.requests},
                                                  {"--changes", &plan.changes},
                                                  {"--restarts", &plan.restarts}};
    for (int i = 1; i + 1 < count; i += 2) {
        *places.at(arguments[i]) = static_cast<unsigned>(std::strtoul(arguments[i + 1], nullptr, 10));
    }
    return plan;
}

}  // namespace

int main(int count, char** arguments) {
    const Plan plan = plan_of(count, arguments);
    const auto begin = Clock::now();
    Daemons daemons;
    if (!daemons.start()) {
        std::fputs("the daemon does not start\n", stderr);
        return 1;
    }
    const auto records = records_of<ComponentVpdRecord>(ask("components\n", 1 << 20));
    Truth truth(records);
    std::vector<uint8_t> fru_ids;
    std::vector<std::string> swapped;
    for (const ComponentVpdRecord& record : records) {
        fru_ids.push_back(record.fru_id);
        if (record.status == 1 && record.entity_id != 32 && *record.serial_number != '\0')
            swapped.emplace_back(record.name);
    }

    Follower follower;
    Counters counters;
    std::vector<std::thread> clients;
    for (unsigned i = 0; i < plan.clients; ++i) {
        clients.emplace_back([&, i] { be_client(i, plan, fru_ids, truth, counters); });
    }
    unsigned failures = 0;
    const unsigned lost = change_and_restart(plan, swapped, truth, follower, daemons, failures);
    for (std::thread& client : clients) client.join();
    follower.end();
    if (!daemons.stop()) ++failures;

    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - begin).count();
    std::printf("%u clients, %u answers in %lld s: %u wrong, %u without an answer\n", plan.clients,
                counters.answered.load(), static_cast<long long>(seconds), counters.wrong.load(),
                counters.unanswered.load());
    std::printf("%u changes, %u restarts: %u changes lost, %u failures\n", plan.changes, plan.restarts, lost, failures);
    std::printf("memory: %ld KiB resident at most, %ld KiB more than after the first answers\n", daemons.largest(),
                daemons.growth());
    const bool is_flat = daemons.growth() <= most_growth;
    return counters.wrong == 0 && counters.unanswered == 0 && lost == 0 && failures == 0 && is_flat ? 0 : 1;
}
