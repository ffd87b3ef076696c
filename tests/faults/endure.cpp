// SPDX-License-Identifier: Apache-2.0
// Eight processes with four threads each share the activity log, the machine cache files and their locks, and update
// what they hold, while some of them are killed. Each process numbers its log entries. At the end of each round every
// entry that an update acknowledged must be in the log, no lock may be left, and no reader may have seen a torn record.
//
// usage: endure [SECONDS [SEED]]
#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <random>
#include <thread>

#include "faults/held_locks.h"
#include "host/images/fru_image.h"
#include "host/images/sdr_record.h"
#include "status/log_world.h"

using namespace vpdd::test;
using Clock = std::chrono::steady_clock;
namespace fs = std::filesystem;

namespace {

constexpr std::size_t processes = 8;
constexpr uint32_t updates_of_a_process = 20;  // of a round: with closed copies they do not fill the log
constexpr std::size_t log_capacity = 250;
constexpr uint8_t first_fru = 1, frus = 8, old_fru = 200;
constexpr uint8_t memory_device = 32;      // entity that a status pass neither logs nor closes
constexpr unsigned seconds_to_live = 100;  // of a process: a deadlock ends it

/// What the processes tell each other about; all of it lies in shared memory.
struct Shared {
    struct Process {
        std::atomic<uint32_t> attempted{0};
        std::array<std::atomic<bool>, updates_of_a_process + 1> is_acknowledged{};
    };
    std::array<Process, processes> of_process{};
    std::atomic<bool> is_over{false};
    std::atomic<uint64_t> updates{0}, reads{0}, copies{0}, passes{0};
    std::atomic<uint64_t> torn{0}, failures{0};

    /// A round starts anew; the sums are of all rounds.
    void begin_round() {
        is_over = false;
        for (Process& process : of_process) {
            process.attempted = 0;
            for (auto& acknowledged : process.is_acknowledged) acknowledged = false;
        }
    }
};

Shared& shared() {
    constexpr int read_write = PROT_READ | PROT_WRITE;
    static auto* const memory =
        new (mmap(nullptr, sizeof(Shared), read_write, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) Shared;
    return *memory;
}

/// The interposed sleeps do not reach it.
void wait_milliseconds(int milliseconds) { poll(nullptr, 0, milliseconds); }

// ---- what the processes write; a reader tells from each part of a record what the others must be

uint8_t fru_of(std::size_t process) { return static_cast<uint8_t>(100 + process); }

ComponentVpdRecord entry_of(std::size_t process, uint32_t number) {
    ComponentVpdRecord entry = make_entry(fru_of(process), formatted("P%zu-%u", process, number));
    entry.entity_id = memory_device;
    entry.crc = calc_crc(reinterpret_cast<const uint8_t*>(&entry), crc_covered);
    // Behind what the sum covers.
    std::memset(entry.oem_cpu.text, static_cast<int>(number), sizeof entry.oem_cpu.text);
    entry.oem_cpu.index = fru_of(process);
    return entry;
}

/// Whether all of an entry was written by one process in one update.
bool is_whole(const ComponentVpdRecord& entry) {
    if (entry.crc != calc_crc(reinterpret_cast<const uint8_t*>(&entry), crc_covered)) return false;
    if (entry.fru_id < fru_of(0) || entry.fru_id >= fru_of(processes)) return true;  // none of the numbered ones
    unsigned process = 0, number = 0;
    if (std::sscanf(serial_of(entry).c_str(), "P%u-%u", &process, &number) != 2) return false;
    const ComponentVpdRecord expected = entry_of(process, number);
    return entry.fru_id == expected.fru_id && std::memcmp(&entry.oem_cpu, &expected.oem_cpu, sizeof entry.oem_cpu) == 0;
}

/// A cache file of one and the same byte.
bool is_whole(const std::vector<uint8_t>& record) {
    return std::all_of(record.begin(), record.end(), [&](uint8_t byte) { return byte == record[0]; });
}

// ---- what the threads of a process do

class Worker {
public:
    Worker(std::size_t process, unsigned seed) : process_(process), random_(seed) {}

    void write_log_entries() {
        Shared::Process& own = shared().of_process[process_];
        while (!shared().is_over && own.attempted < updates_of_a_process) {
            const uint32_t number = ++own.attempted;
            const ComponentVpdRecord entry = entry_of(process_, number);
            log_update(&entry, one_in(3) ? 1 : 0);
            own.is_acknowledged[number] = true;
            ++shared().updates;
            if (one_in(4) && UpdateHardwareActivityLog(&entry) != 0) ++shared().failures;
            wait_milliseconds(below(20));
        }
    }

    void read_the_log() {
        while (!shared().is_over) {
            StatusList* list = nullptr;
            if (vpdd_serv_readlog(&list) != 0) ++shared().failures;
            for (const StatusNode* node = list != nullptr ? list->head : nullptr; node != nullptr; node = node->next) {
                if (!is_whole(node->entry)) ++shared().torn;
            }
            vpdd_serv_freelog(&list);
            ++shared().reads;
            int fd = -1;
            if (vpdd_machine_cache_file_lock_wait(&fd) == 0) vpdd_machine_cache_file_unlock(fd);
        }
    }

    void copy_machine_records() {
        std::vector<uint8_t> standard(sizeof(MachineVpdRecord)), oem(sizeof(OemMachineRecord));
        const auto size_of = [](const std::vector<uint8_t>& record) { return static_cast<uint32_t>(record.size()); };
        while (!shared().is_over) {
            std::fill(standard.begin(), standard.end(), static_cast<uint8_t>(below(256)));
            std::fill(oem.begin(), oem.end(), static_cast<uint8_t>(below(256)));
            if (create_machine_vpd_cache_file(standard.data(), size_of(standard), 0) != 0) ++shared().failures;
            if (create_machine_vpd_cache_file(oem.data(), size_of(oem), 1) != 0) ++shared().failures;
            if (vpdd_machine_vpd_read(standard.data(), size_of(standard)) != 0) ++shared().failures;
            if (vpdd_machine_oem_vpd_read(oem.data(), size_of(oem)) != 0) ++shared().failures;
            if (!is_whole(standard) || !is_whole(oem)) ++shared().torn;
            ++shared().copies;
        }
    }

    void update_the_cache() {
        if (CreateComponentVPDCache() != 0) ++shared().failures;
        while (!shared().is_over) {
            if (UpdateComponentVPDCache() != 0) ++shared().failures;
            if (UpdateComponentStatus(one_in(2) ? 0 : 1) != 0) ++shared().failures;
            const auto id = static_cast<uint8_t>(first_fru + below(frus));
            ComponentVpdRecord record{};
            uint32_t length = 0;
            if (GetComponentVPDByFruID(&length, sizeof record, &id, &record) != 0 || record.fru_id != id) {
                ++shared().failures;
            }
            ++shared().passes;
            wait_milliseconds(below(10));
        }
    }

private:
    int below(int limit) { return std::uniform_int_distribution<int>(0, limit - 1)(random_); }
    bool one_in(int count) { return below(count) == 0; }

    std::size_t process_;
    std::mt19937 random_;
};

void set_platform() {
    FakePlatform& platform = FakePlatform::instance();
    platform.shell_command.model(run_command);
    // A tenth of the time.
    platform.during_sleep([](int64_t microseconds) {
        constexpr int64_t longest = 10;
        wait_milliseconds(static_cast<int>(std::clamp<int64_t>(microseconds / 10000, 1, longest)));
    });
    std::vector<Bytes> locators;
    for (uint8_t id = first_fru; id < first_fru + frus; ++id) {
        platform.fru(id, vpdd::images::FruImage().board({.manufacturer = "Maker", .serial = "SN"}).build());
        locators.push_back(vpdd::images::FruLocator(id, "Riser").entity(memory_device, id));
    }
    platform.sdr(vpdd::images::numbered(locators));
    static SmbiosTable table{};
    platform.smbios(&table);
}

/// The library's messages and the client functions' print-outs.
void silence_standard_output() {
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(nowhere, STDOUT_FILENO);
    close(nowhere);
}

[[noreturn]] void run_process(std::size_t process, unsigned seed) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    alarm(seconds_to_live);
    silence_standard_output();
    set_platform();
    std::vector<Worker> workers;
    for (unsigned i = 0; i < 4; ++i) workers.emplace_back(process, seed + i);
    std::thread threads[] = {
        std::thread([&] { workers[0].write_log_entries(); }),
        std::thread([&] { workers[1].read_the_log(); }),
        std::thread([&] { workers[2].copy_machine_records(); }),
        std::thread([&] { workers[3].update_the_cache(); }),
    };
    for (std::thread& thread : threads) thread.join();
    _exit(0);
}

// ---- what must hold at the end of a round

/// Whether all is well; what is not is printed.
class Verdict {
public:
    void expect(bool is_right, const std::string& what) {
        if (is_right) return;
        std::cerr << "  " << what << '\n';
        is_right_ = false;
    }
    bool is_right() const { return is_right_; }

private:
    bool is_right_ = true;
};

void expect_no_locks(Verdict& verdict) {
    for (const char* path : {lock_path, "/tmp/vpdd_machine_lock", "/tmp/vpdd_machine_oem_lock"}) {
        verdict.expect(no_file_lock_is_held(path), std::string(path) + " is still locked");
    }
    const int folder = open("/flash/data0", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    verdict.expect(flock(folder, LOCK_EX | LOCK_NB) == 0, "a rewrite still holds the others off");
    close(folder);
}

/// Each acknowledged entry is there once; one whose process was killed meanwhile may be.
void expect_nothing_lost(Verdict& verdict, const Entries& log) {
    for (std::size_t process = 0; process < processes; ++process) {
        const Shared::Process& own = shared().of_process[process];
        for (uint32_t number = 1; number <= own.attempted; ++number) {
            const std::string serial = serial_of(entry_of(process, number));
            const auto count = std::count_if(log.begin(), log.end(), [&](const ComponentVpdRecord& entry) {
                return entry.status == present && serial_of(entry) == serial;
            });
            verdict.expect(count <= 1, serial + " is there " + std::to_string(count) + " times");
            verdict.expect(count == 1 || !own.is_acknowledged[number], serial + " was acknowledged and is lost");
        }
    }
}

void expect_whole_cache_files(Verdict& verdict) {
    std::vector<uint8_t> standard(sizeof(MachineVpdRecord)), oem(sizeof(OemMachineRecord));
    verdict.expect(vpdd_machine_vpd_read(standard.data(), sizeof(MachineVpdRecord)) == 0 && is_whole(standard),
                   "the machine cache file is torn");
    verdict.expect(vpdd_machine_oem_vpd_read(oem.data(), sizeof(OemMachineRecord)) == 0 && is_whole(oem),
                   "the OEM machine cache file is torn");
}

/// In a process of its own, as if the machine went on with its work.
[[noreturn]] void look_at_what_is_left() {
    Verdict verdict;
    alarm(seconds_to_live);
    set_platform();
    expect_no_locks(verdict);
    expect_whole_cache_files(verdict);
    // The next update finishes a rewrite that was cut short.
    const ComponentVpdRecord next = make_entry(old_fru, "NEXT");
    log_update(&next, 0);
    const Entries log = log_on_flash();
    verdict.expect(!log.empty() && serial_of(log.back()) == "NEXT", "the next update is not there");
    verdict.expect(!fs::exists(backup_path), "a backup is left");
    verdict.expect(log.size() <= log_capacity + 1 && fs::file_size(log_path) % entry_size == 0, "the log's size");
    verdict.expect(std::all_of(log.begin(), log.end(), [](const auto& entry) { return is_whole(entry); }),
                   "an entry of the log is torn");
    expect_nothing_lost(verdict, log);
    expect_no_locks(verdict);
    _exit(verdict.is_right() ? 0 : 1);
}

// ---- rounds

template <class Body>
pid_t start(const Body& body) {
    std::cout.flush();
    const pid_t child = fork();
    if (child == 0) body();
    return child;
}

bool ended_well(pid_t child) {
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

class Round {
public:
    Round(std::mt19937& random, std::size_t entries_before) : random_(random) {
        shared().begin_round();
        for (const char* path : {log_path, backup_path}) fs::remove(path);
        Entries old;
        for (std::size_t i = 0; i < entries_before; ++i) old.push_back(entry_of_old(i));
        write_log(old);
    }

    /// Whether nothing was lost.
    bool run(Clock::time_point latest_end) {
        for (std::size_t process = 0; process < processes; ++process) start_process(process);
        while (!all_updates_are_made() && Clock::now() < latest_end) {
            wait_milliseconds(below(60));
            kill_one(static_cast<std::size_t>(below(processes)));
        }
        bool all_ended_well = true;
        if (below(2) == 0) {
            for (const pid_t child : children_) kill(child, SIGKILL);
            for (const pid_t child : children_) ended_well(child);
        } else {
            shared().is_over = true;
            for (const pid_t child : children_) all_ended_well = ended_well(child) && all_ended_well;
        }
        if (!all_ended_well) std::cerr << "  a process hung or died\n";
        const bool nothing_lost = ended_well(start(look_at_what_is_left));
        return all_ended_well && nothing_lost && shared().torn == 0 && shared().failures == 0;
    }

    unsigned kills() const { return kills_; }

private:
    static ComponentVpdRecord entry_of_old(std::size_t number) {
        ComponentVpdRecord entry = make_entry(old_fru, "OLD" + std::to_string(number), absent);
        entry.entity_id = memory_device;
        return with_right_crc(entry);
    }

    int below(int limit) { return std::uniform_int_distribution<int>(0, limit - 1)(random_); }

    void start_process(std::size_t process) {
        const auto seed = static_cast<unsigned>(random_());
        children_[process] = start([=] { run_process(process, seed); });
    }

    void kill_one(std::size_t process) {
        kill(children_[process], SIGKILL);
        int status = 0;
        waitpid(children_[process], &status, 0);
        if (!WIFSIGNALED(status) || WTERMSIG(status) != SIGKILL) ++shared().failures;
        ++kills_;
        start_process(process);
    }

    static bool all_updates_are_made() {
        return std::all_of(shared().of_process.begin(), shared().of_process.end(),
                           [](const auto& process) { return process.attempted >= updates_of_a_process; });
    }

    std::mt19937& random_;
    std::array<pid_t, processes> children_{};
    unsigned kills_ = 0;
};

}  // namespace

int main(int argc, char** argv) {
    const int seconds = argc > 1 ? std::atoi(argv[1]) : 20;
    const unsigned seed = argc > 2 ? static_cast<unsigned>(std::strtoul(argv[2], nullptr, 10)) : std::random_device{}();
    std::cout << "seed " << seed << ", " << seconds << " s\n";
    setenv("TZ", "UTC", 1);
    set_clock(1700000000);
    fs::create_directories("/flash/data0");

    std::mt19937 random(seed);
    const auto end = Clock::now() + std::chrono::seconds(seconds);
    constexpr std::size_t entries_before[] = {0, 200, 249, 250};
    unsigned rounds = 0, kills = 0;
    bool is_right = true;
    while (is_right && (rounds == 0 || Clock::now() < end)) {
        Round round(random, entries_before[rounds % std::size(entries_before)]);
        is_right = round.run(end);
        kills += round.kills();
        ++rounds;
    }
    const Shared& sums = shared();
    std::cout << rounds << " rounds, " << kills << " kills, " << sums.updates << " updates of the log, " << sums.reads
              << " readings, " << sums.copies << " writings and readings of the machine records, " << sums.passes
              << " cache updates with status passes\n"
              << sums.torn << " torn records, " << sums.failures << " failures\n"
              << (is_right ? "nothing lost" : "NOT as it should be") << '\n';
    return is_right ? EXIT_SUCCESS : EXIT_FAILURE;
}
