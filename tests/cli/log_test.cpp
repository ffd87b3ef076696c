// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>

#include "vpdctl_process.h"

namespace vpdd::test {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;

constexpr std::size_t entry_size = 1512;  // bytes

class Log : public testing::Test {
protected:
    void SetUp() override {
        if (!private_roots_are_allowed()) GTEST_SKIP() << "this machine allows no private root";
    }

    std::string state() const { return folder.path("state"); }
    std::string log_file() const { return folder.path("state/flash/data0/component_activity.log"); }

    /// Entries of zeros but for their names: their checksums are wrong.
    void write_damaged_entry() const {
        std::filesystem::create_directories(folder.path("state/flash/data0"));
        std::string entry(entry_size, '\0');
        entry.replace(16, 5, "Fan 1");
        folder.file("state/flash/data0/component_activity.log", std::string_view(entry));
    }

    ScratchFolder folder;
};

TEST_F(Log, OfANewStateDirectoryIsEmpty) {
    std::filesystem::create_directory(state());

    const Outcome outcome = vpdctl({"log", "--state", state()});

    EXPECT_EQ(outcome.code, exit_ok) << outcome.err;
    EXPECT_EQ(outcome.out, "The activity log is empty.\n");
    EXPECT_THAT(vpdctl_json({"log", "--state", state()})["Entries"], IsEmpty());
}

TEST_F(Log, MayBeNamedByTheEnvironment) {
    std::filesystem::create_directory(state());

    EXPECT_EQ(vpdctl({"log"}, {{"VPDD_STATE_DIRECTORY", state()}}).out, "The activity log is empty.\n");
}

TEST_F(Log, DropsADamagedEntryAndSaysSoInTheMessages) {
    write_damaged_entry();

    const Outcome outcome = vpdctl({"log", "--state", state(), "--log", "-"});

    EXPECT_EQ(outcome.out, "The activity log is empty.\n");
    EXPECT_THAT(outcome.err, HasSubstr("user.warning"));
    EXPECT_THAT(outcome.err, HasSubstr("Invalid CRC(FRU ID=0x0"));
}

TEST_F(Log, IsNotCleanedUnaskedWithoutATerminal) {
    write_damaged_entry();

    const Outcome outcome = vpdctl({"log", "--state", state(), "--clean"});

    EXPECT_EQ(outcome.code, exit_usage);
    EXPECT_EQ(outcome.err, "vpdctl: --clean without a terminal to ask on needs --yes\n");
    EXPECT_EQ(std::filesystem::file_size(log_file()), entry_size);
}

TEST_F(Log, IsCleanedWithYes) {
    write_damaged_entry();

    const Outcome outcome = vpdctl({"log", "--state", state(), "--clean", "--yes"});

    EXPECT_EQ(outcome.code, exit_ok) << outcome.err;
    EXPECT_EQ(outcome.out, "The activity log was emptied of 0 entries.\n");  // the damaged one was none
    EXPECT_EQ(std::filesystem::file_size(log_file()), 0U);
}

TEST_F(Log, IsNotCleanedForPrograms) {
    write_damaged_entry();

    EXPECT_EQ(vpdctl({"log", "--state", state(), "--clean", "--yes", "--json"}).code, exit_usage);
    EXPECT_EQ(std::filesystem::file_size(log_file()), entry_size);
}

TEST_F(Log, WhoseCleaningCannotBeToldIsAFailure) {
    write_damaged_entry();

    EXPECT_EQ(vpdctl_into("/dev/full", {"log", "--state", state(), "--clean", "--yes"}), exit_failure);
}

TEST_F(Log, AsksOnATerminalBeforeItIsCleaned) {
    write_damaged_entry();
    const std::vector<std::string> arguments = {"log", "--state", state(), "--clean"};

    const Outcome refused = vpdctl_answered(arguments, "n\n");
    EXPECT_THAT(refused.out, HasSubstr("for good? [y/N]"));
    EXPECT_EQ(refused.code, exit_ok);
    EXPECT_EQ(std::filesystem::file_size(log_file()), entry_size);

    EXPECT_EQ(vpdctl_answered(arguments, "y\n").code, exit_ok);
    EXPECT_EQ(std::filesystem::file_size(log_file()), 0U);
}

TEST_F(Log, YesAloneIsWrongUsage) { EXPECT_EQ(vpdctl({"log", "--state", state(), "--yes"}).code, exit_usage); }

TEST_F(Log, OfADirectoryThatIsNotThereIsBadInputAndMakesNone) {
    const Outcome outcome = vpdctl({"log", "--state", state()});

    EXPECT_EQ(outcome.code, exit_bad_input);
    EXPECT_THAT(outcome.out, IsEmpty());
    EXPECT_EQ(outcome.err, "vpdctl: " + state() + ": is no directory\n");
    EXPECT_FALSE(std::filesystem::exists(state()));
}

TEST(StateDirectory, ThatIsAFileIsBadInputToEveryCommand) {
    const ScratchFolder folder;
    const std::string file = folder.file("state", std::string_view("no directory"));
    for (const std::string command : {"log", "history"}) {
        const Outcome outcome = vpdctl({command, "--state", file});
        EXPECT_EQ(outcome.code, exit_bad_input) << command;
        EXPECT_EQ(outcome.err, "vpdctl: " + file + ": is no directory\n") << command;
    }
    for (const std::string command : {"status", "machine", "inventory", "slots", "firmware"}) {
        const Outcome outcome = vpdctl({command, "--server", server_file("ddr3-small"), "--state", file});
        EXPECT_EQ(outcome.code, exit_bad_input) << command;
        EXPECT_EQ(outcome.err, "vpdctl: " + file + ": Not a directory\n") << command;
    }
}

}  // namespace
}  // namespace vpdd::test
