// SPDX-License-Identifier: Apache-2.0
// The power goes at each single step of an update of the log. Afterwards a fresh process restores the log: every entry
// that was there before must be there still, and the next update must work.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <iostream>
#include <map>
#include <set>

#include "failing_allocator.h"
#include "status_world.h"
#include "stride.h"

using namespace vpdd::test;

namespace {

namespace fs = std::filesystem;

/// How much of what was not flushed survives: all, with each entry of the log a writing of its own; all that the stream
/// has written, many entries at once; nothing, neither bytes nor names.
enum class Device { keeps_each_entry, keeps_each_block, keeps_only_what_was_flushed };

constexpr int update_finished = 3;  // exit status; a process whose power goes before leaves with 0
constexpr uint8_t component = 5;

/// What of the log's folder is on the device. The names are kept as links to the same files.
class FlushedFolder {
public:
    FlushedFolder() {
        fs::create_directories(kept_names);
        flush_names();
    }

    void note_writing(const char* path) { unflushed_.insert(file_of(path)); }
    void flush(const char* path) { unflushed_.erase(file_of(path)); }
    void flush_names() {
        for (const char* path : {log_path, backup_path}) {
            fs::remove(kept(path));
            if (fs::exists(path)) fs::create_hard_link(path, kept(path));
        }
    }

    /// The folder becomes what is on the device.
    void lose_the_rest() {
        for (const char* path : {log_path, backup_path}) {
            for (const fs::path& name : {fs::path(path), kept(path)}) {
                if (fs::exists(name) && unflushed_.contains(file_of(name))) fs::resize_file(name, 0);
            }
        }
        for (const char* path : {log_path, backup_path}) {
            fs::remove(path);
            if (fs::exists(kept(path))) fs::rename(kept(path), path);
        }
    }

    static constexpr char kept_names[] = "/flash/data0/kept_names";

private:
    static fs::path kept(const char* path) { return kept_names / fs::path(path).filename(); }

    /// The number of the file of this name; 0 when there is none.
    static ino_t file_of(const fs::path& path) {
        struct stat status {};
        return stat(path.c_str(), &status) == 0 ? status.st_ino : 0;
    }

    std::set<ino_t> unflushed_;
};

/// Counts the steps of the library's work on the files and takes the power away at one of them.
class Power {
public:
    Power(std::size_t last_step, Device device) : last_step_(last_step), device_(device) {
        FakePlatform::instance().shell_command.model([this](const std::string& command) { return run(command); });
        calls_.before([this](const WatchedCall& call) { before(call); });
    }

    [[noreturn]] void go(int exit_status = 0) {
        if (device_ == Device::keeps_only_what_was_flushed) folder_.lose_the_rest();
        _exit(exit_status);
    }

private:
    void before(const WatchedCall& call) {
        if (is_in_shell_) return;
        if (call.text == "fwrite LOG") return write_entry(call);
        if (call.text == "fsync LOG") step_if_grown();
        step();
        if (call.text == "fsync LOG") folder_.flush(log_path);
        if (call.text == "fsync BACKUP") folder_.flush(backup_path);
        if (call.text == "fsync FOLDER") folder_.flush_names();
    }

    void step() {
        if (++steps_ == last_step_) go();
    }

    /// What is not flushed is lost anyhow, so that there the writes are no steps of their own.
    void write_entry(const WatchedCall& call) {
        folder_.note_writing(log_path);
        if (device_ == Device::keeps_each_block) return step_if_grown();
        if (device_ == Device::keeps_only_what_was_flushed) return;
        std::setvbuf(call.stream, nullptr, _IONBF, 0);
        step();
        if (++steps_ != last_step_) return;
        unwatched_fwrite(call.bytes, call.size / 2, call.stream);
        go();
    }

    /// In the middle of a block that the stream has written meanwhile, and behind it.
    void step_if_grown() {
        if (device_ != Device::keeps_each_block) return;
        const std::uintmax_t size = fs::file_size(log_path);
        if (size == size_of_log_) return;
        if (++steps_ == last_step_) {
            fs::resize_file(log_path, (size_of_log_ + size) / 2);
            go();
        }
        size_of_log_ = size;
        step();
    }

    int run(const std::string& command) {
        step();
        is_in_shell_ = true;
        if (++steps_ == last_step_) run_half(command);
        const int result = run_command(command);
        if (command == back_up) folder_.note_writing(backup_path);
        is_in_shell_ = false;
        return result;
    }

    /// A copy that ends in the middle. A move is cut as if it had to copy, too; a file is there or it is not.
    [[noreturn]] void run_half(const std::string& command) {
        const auto copy_half = [](const char* from, const char* to) {
            const std::string bytes = read_file(from);
            write_file(to, bytes.substr(0, bytes.size() / 2));
        };
        if (command == back_up) copy_half(log_path, backup_path);
        if (command == put_backup_back) copy_half(backup_path, log_path);
        go();
    }

    std::size_t last_step_;
    Device device_;
    std::size_t steps_ = 0;
    std::uintmax_t size_of_log_ = 0;  // since its truncation
    bool is_in_shell_ = false;
    FlushedFolder folder_;
    WatchedCalls calls_;
};

/// Runs in a child without the tidying up of exit(). The child's exit status; -1 when it died.
template <class Body>
int in_child(Body body) {
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        const int status = body();
        std::fflush(nullptr);
        _exit(status);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

enum class Update { append, replace, rewrite_one };

struct Case {
    const char* name;
    Update update;
    std::size_t entries;
    Device device;
};

std::string case_name(const testing::TestParamInfo<Case>& info) {
    const std::map<Device, const char*> devices{{Device::keeps_each_entry, ""},
                                                {Device::keeps_each_block, "InBlocks"},
                                                {Device::keeps_only_what_was_flushed, "Unflushed"}};
    return formatted("%s%zuEntries%s", info.param.name, info.param.entries, devices.at(info.param.device));
}

class PowerCut : public StatusTest, public testing::WithParamInterface<Case> {
protected:
    ~PowerCut() override { fs::remove_all(FlushedFolder::kept_names); }

    static ComponentVpdRecord added() { return make_entry(component, "NEW", present, 5000); }

    /// The newest entry with other VPD.
    static ComponentVpdRecord rewritten(const Entries& before) {
        ComponentVpdRecord record = before.empty() ? added() : before.back();
        set_text(record.part_number, "REWRITTEN");
        return with_right_crc(record);
    }

    static void carry_out(const Entries& before) {
        const ComponentVpdRecord entry = GetParam().update == Update::rewrite_one ? rewritten(before) : added();
        switch (GetParam().update) {
            case Update::append:
                return log_update(&entry, 0);
            case Update::replace:
                return log_update(&entry, 1);
            case Update::rewrite_one:
                UpdateHardwareActivityLog(&entry);
        }
    }

    /// A new process, as the daemon does it at its start.
    void restore() {
        cache({make_entry(component, "IN CACHE")});
        EXPECT_EQ(UpdateComponentStatus(restore_mode), 0);
    }

    static std::set<std::string> images(const Entries& entries) {
        std::set<std::string> found;
        for (const auto& entry : entries) found.insert(bytes_of_entry(entry));
        return found;
    }

    /// The entries of before that are not there any more. One that was replaced by its rewritten self is there.
    static Words missing(const Entries& before, const Entries& after) {
        std::set<std::string> there = images(after);
        if (!before.empty() && there.contains(bytes_of_entry(rewritten(before)))) {
            there.insert(bytes_of_entry(before.back()));
        }
        Words lost;
        for (const auto& entry : before) {
            if (!there.contains(bytes_of_entry(entry))) lost.push_back(serial_of(entry));
        }
        return lost;
    }

    static bool is_complete(const Entries& after) {
        const auto is_new = [](const ComponentVpdRecord& entry) {
            return serial_of(entry) == "NEW" || std::string_view(entry.part_number) == "REWRITTEN" ||
                   entry.timestamp == now;  // the closed copy of a replacement
        };
        return std::any_of(after.begin(), after.end(), is_new);
    }

    /// What a full log drops once something of the update is in.
    static Words droppable(const Entries& before, const Entries& after) {
        Words dropped;
        if (!is_complete(after)) return dropped;
        for (std::size_t i = 0; i + 249 < before.size(); ++i) dropped.push_back(serial_of(before[i]));
        return dropped;
    }

    void expect_nothing_lost(const Entries& before) {
        const Entries after = loaded_log();
        const Words lost = missing(before, after);
        EXPECT_TRUE(lost.empty() || lost == droppable(before, after)) << testing::PrintToString(lost);
        for (const auto& entry : after) {
            // The library's own sum: the bitwise one of the tests takes too long for all the cuts.
            EXPECT_EQ(entry.crc, calc_crc(reinterpret_cast<const uint8_t*>(&entry), crc_covered));
        }
        EXPECT_FALSE(fs::exists(backup_path));
    }

    /// An update that returned is acknowledged. One that had nothing to rewrite left nothing.
    static void expect_complete(const Entries& before) {
        if (GetParam().update == Update::rewrite_one && before.empty()) return;
        EXPECT_TRUE(is_complete(loaded_log()));
    }

    void expect_next_update_works() {
        const ComponentVpdRecord next = make_entry(component, "NEXT");
        const std::size_t count = loaded_log().size();
        log_update(&next, 0);
        const Entries after = loaded_log();
        EXPECT_EQ(after.size(), std::min<std::size_t>(count + 1, 250));
        ASSERT_FALSE(after.empty());
        EXPECT_TRUE(is_same_entry(after.back(), next));
    }
};

constexpr Device entries_kept = Device::keeps_each_entry, blocks_kept = Device::keeps_each_block,
                 flushed_kept = Device::keeps_only_what_was_flushed;

std::vector<Case> all_cases() {
    std::vector<Case> cases;
    for (const Device device : {entries_kept, blocks_kept, flushed_kept}) {
        for (const std::size_t entries : {0U, 1U, 249U, 250U}) {
            cases.push_back({"Append", Update::append, entries, device});
            cases.push_back({"Replace", Update::replace, entries, device});
            cases.push_back({"RewriteOne", Update::rewrite_one, entries, device});
        }
    }
    return cases;
}

}  // namespace

TEST_P(PowerCut, LosesNothing) {
    const Entries before = make_entries(GetParam().entries);
    // A sanitizer makes a cut many times as slow: with long logs, whose writings are steps, it sees some of them.
    const bool is_long = before.size() > 10 && GetParam().device != Device::keeps_only_what_was_flushed;
    const std::size_t stride_of_slow = GetParam().device == Device::keeps_each_entry ? 16 : 4;
    const std::size_t stride_of_long = allocator_can_fail ? stride_of_runs() : stride_of_slow;
    const std::size_t stride = is_long ? stride_of_long : 1;
    std::size_t cuts = 0, step = 1;
    for (int ended = 0; ended != update_finished; ++cuts, step += stride) {
        fs::remove(backup_path);
        write_log(before);
        ended = in_child([&]() -> int {
            Power power(step, GetParam().device);
            carry_out(before);
            power.go(update_finished);
        });
        ASSERT_TRUE(ended == 0 || ended == update_finished) << "step " << step << " ended with " << ended;
        const int verdict = in_child([&] {
            restore();
            expect_nothing_lost(before);
            if (ended == update_finished) expect_complete(before);
            expect_next_update_works();
            return HasFailure() ? 1 : 0;
        });
        ASSERT_EQ(verdict, 0) << "after a cut at step " << step;
    }
    std::cout << cuts - 1 << " cut points\n";
    EXPECT_GT(step, 10U);
}

INSTANTIATE_TEST_SUITE_P(Of, PowerCut, testing::ValuesIn(all_cases()), case_name);

// ---- the power goes once more, while the log is being restored

namespace {

class PowerCutAgain : public PowerCut {};

}  // namespace

TEST_P(PowerCutAgain, LosesNothing) {
    const Entries before = make_entries(GetParam().entries);
    std::size_t cuts = 0;
    for (int ended = 0; ended != update_finished; ++cuts) {
        // As a cut leaves it right after the truncation.
        write_log({});
        write_log(before, backup_path);
        ended = in_child([&]() -> int {
            cache({make_entry(component, "IN CACHE")});
            Power power(cuts + 1, GetParam().device);
            UpdateComponentStatus(restore_mode);
            power.go(update_finished);
        });
        const int verdict = in_child([&] {
            if (ended == update_finished) {
                EXPECT_TRUE(file_holds(log_path, file_image(before))) << "not put back for good";
            }
            restore();
            expect_nothing_lost(before);
            expect_next_update_works();
            return HasFailure() ? 1 : 0;
        });
        ASSERT_EQ(verdict, 0) << "after a cut at step " << cuts + 1;
    }
    std::cout << cuts - 1 << " cut points\n";
    EXPECT_GT(cuts, 5U);
}

INSTANTIATE_TEST_SUITE_P(Of, PowerCutAgain,
                         testing::Values(Case{"Restore", Update::append, 1, entries_kept},
                                         Case{"Restore", Update::append, 250, entries_kept},
                                         Case{"Restore", Update::append, 1, flushed_kept},
                                         Case{"Restore", Update::append, 250, flushed_kept}),
                         case_name);
