// SPDX-License-Identifier: Apache-2.0
// The power goes at each single step of an update of the log. Afterwards a fresh process restores the log: every entry
// that was there before must be there still, and the next update must work.
#include <unistd.h>

#include <algorithm>
#include <iostream>
#include <set>

#include "failing_allocator.h"
#include "status_world.h"
#include "stride.h"

using namespace vpdd::test;

namespace {

namespace fs = std::filesystem;

/// How much of what was not flushed survives.
enum class Device { keeps_everything, keeps_only_what_was_flushed };

constexpr int update_finished = 3;  // exit status; a process whose power goes leaves with 0
constexpr uint8_t component = 5;

/// Counts the steps of the library's work on the files and takes the power away at one of them.
class Power {
public:
    Power(std::size_t last_step, Device device) : last_step_(last_step), device_(device) {
        FakePlatform::instance().shell_command.model([this](const std::string& command) { return run(command); });
        calls_.before([this](const WatchedCall& call) { before(call); });
    }

    void step() {
        if (++steps_ == last_step_) go();
    }

private:
    void before(const WatchedCall& call) {
        if (is_in_shell_) return;
        if (call.text == "fwrite LOG") return write_entry(call);
        step();
        if (call.text == "fsync LOG") unflushed_.erase(log_path);
        if (call.text == "fsync BACKUP") unflushed_.erase(backup_path);
    }

    /// What is not flushed is lost anyhow, so that there the writes are no steps of their own.
    void write_entry(const WatchedCall& call) {
        unflushed_.insert(log_path);
        if (device_ == Device::keeps_only_what_was_flushed) return;
        std::setvbuf(call.stream, nullptr, _IONBF, 0);
        step();
        if (++steps_ != last_step_) return;
        unwatched_fwrite(call.bytes, call.size / 2, call.stream);
        go();
    }

    int run(const std::string& command) {
        step();
        is_in_shell_ = true;
        if (++steps_ == last_step_) run_half(command);
        const int result = run_command(command);
        if (command == back_up) unflushed_.insert(backup_path);
        if (command == discard_backup) unflushed_.erase(backup_path);
        if (command == put_backup_back && unflushed_.erase(backup_path) > 0) unflushed_.insert(log_path);
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

    [[noreturn]] void go() {
        if (device_ == Device::keeps_only_what_was_flushed) {
            for (const std::string& path : unflushed_) {
                if (fs::exists(path)) write_file(path.c_str(), "");
            }
        }
        _exit(0);
    }

    std::size_t last_step_;
    Device device_;
    std::size_t steps_ = 0;
    bool is_in_shell_ = false;
    std::set<std::string> unflushed_;
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
    return formatted("%s%zuEntries%s", info.param.name, info.param.entries,
                     info.param.device == Device::keeps_everything ? "" : "Unflushed");
}

class PowerCut : public StatusTest, public testing::WithParamInterface<Case> {
protected:
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

constexpr Device whole = Device::keeps_everything, flushed = Device::keeps_only_what_was_flushed;

std::vector<Case> all_cases() {
    std::vector<Case> cases;
    for (const Device device : {whole, flushed}) {
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
    // A sanitizer makes a cut many times as slow: with long logs, where each write is a step, it sees every 16th.
    const bool is_long = before.size() > 10 && GetParam().device == Device::keeps_everything;
    const std::size_t stride_of_long = allocator_can_fail ? stride_of_runs() : 16;
    const std::size_t stride = is_long ? stride_of_long : 1;
    std::size_t cuts = 0, step = 1;
    for (int ended = 0; ended != update_finished; ++cuts, step += stride) {
        fs::remove(backup_path);
        write_log(before);
        ended = in_child([&] {
            Power power(step, GetParam().device);
            carry_out(before);
            power.step();
            return update_finished;
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
        ended = in_child([&] {
            cache({make_entry(component, "IN CACHE")});
            Power power(cuts + 1, GetParam().device);
            UpdateComponentStatus(restore_mode);
            power.step();
            return update_finished;
        });
        const int verdict = in_child([&] {
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
                         testing::Values(Case{"Restore", Update::append, 1, whole},
                                         Case{"Restore", Update::append, 250, whole},
                                         Case{"Restore", Update::append, 1, flushed},
                                         Case{"Restore", Update::append, 250, flushed}),
                         case_name);
